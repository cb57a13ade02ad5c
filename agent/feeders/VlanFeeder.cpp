// SPDX-License-Identifier: Apache-2.0
#include "agent/feeders/VlanFeeder.h"

#include "Hoba/HobaHook.h"
#include "Hoba/HobaSlicedWalk.h"
#include "Kiv/Reflect.h"
#include "Kiv/SetsByKey.h"
#include "Zipline/Zipline.h"

#include <algorithm>
#include <limits>

ZIPLINE_HANDLE( VlanFeeder );

KIV_DEFINE( Feeders::VlanFeeder );

namespace Feeders {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using Bridging::VlanSet;
using Helper = Hoba::VlanHelperBase;

namespace {

// Set while it lives.
class Flag {
 public:
   explicit Flag( bool & flag ) : flag_( flag ) { flag_ = true; }
   ~Flag() { flag_ = false; }
   Flag( Flag const & ) = delete;
   Flag & operator=( Flag const & ) = delete;

 private:
   bool & flag_;
};

template< class Key >
std::vector< Key >
someOf( Kiv::HashMap< Key, Kiv::String > const & map, std::size_t count ) {
   std::vector< Key > keys;
   for( auto const & member : map ) {
      if( keys.size() == count ) {
         break;
      }
      keys.push_back( member.key );
   }
   return keys;
}

template< class Sets >
void
append( std::vector< Pelt::IntfId > & intfs, Sets const & sets, VlanId vlan ) {
   if( auto const * set = sets.find( vlan ) ) {
      for( auto const & intf : *set ) {
         intfs.push_back( intf );
      }
   }
}

} // namespace

Hoba::IntfVlans
carriedVlans( Bridging::SwitchportMode mode, VlanIdOrNone nativeVlan, VlanSet const & listing,
              VlanSet const & active ) {
   Hoba::IntfVlans vlans;
   if( mode == Bridging::switchportModeTrunk ) {
      vlans.tagged = listing.intersected( active );
   } else if( mode == Bridging::switchportModeAccess && nativeVlan.value() &&
              active.has( VlanId( nativeVlan.value() ) ) ) {
      vlans.nativeVlan = nativeVlan;
   }
   if( nativeVlan.value() && vlans.tagged.erase( VlanId( nativeVlan.value() ) ) ) {
      vlans.nativeVlan = nativeVlan;
   }
   return vlans;
}

VlanFeeder::VlanFeeder( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
                        Kiv::Ptr< Config const > const & config,
                        Kiv::Ptr< Lag::Input::Config const > const & lagInputConfig,
                        Kiv::Ptr< Hoba::PortVlanMembership > const & membership )
      : HobaBaseSm( commonSmData ), membership_( membership ) {
   configIs( config );
   lagInputConfigIs( lagInputConfig );
   clockIs( Kiv::make< Kiv::Clock >() );
   bogusAcsdIs( commonSmData );
}

void
VlanFeeder::handleInitialized() {
   if( !initialized() ) {
      clock()->timeMinIs( Kiv::never );
      return;
   }
   listing_.clear();
   listed_.clear();
   accessPorts_.clear();
   accessVlan_.clear();
   lagPorts_.clear();
   lagOf_.clear();
   for( auto const & [ lag, list ] : commonSmData()->lagToPortConfig() ) {
      lagPorts_.insertOrAssign( lag, list.port );
      for( auto const port : list.port ) {
         lagOf_.insertOrAssign( port, lag );
      }
   }
   handleHelper();
}

void
VlanFeeder::handleHelper() {
   if( auto const helper = commonSmData()->vlanHelper() ) {
      Hoba::callHook< &Helper::hwInit >( *helper );
   }
   refusedVlanDelAll();
   refusedIntfDelAll();
   unsure_.clear();
   tpidDelAll();
   waitingDelAll();
   leavingDelAll();
   chipVlanIs( {} );
   activeVlanIs( {} );
   for( auto const & vlan : Kiv::keysOf( vlanConfig() ) ) {
      updateList( vlan );
      commonSmData()->vlanStatusIs( vlan );
      if( isWanted( vlan ) ) {
         activate( vlan );
      }
   }
   auto intfs = Kiv::keysOf( membership_->intf() );
   for( auto const & intf : Kiv::keysOf( commonSmData()->intf() ) ) {
      intfs.push_back( intf );
   }
   for( auto const & lag : Kiv::keysOf( commonSmData()->lagToPortConfig() ) ) {
      intfs.push_back( lag );
   }
   std::sort( intfs.begin(), intfs.end() );
   intfs.erase( std::unique( intfs.begin(), intfs.end() ), intfs.end() );
   {
      Flag const working( working_ );
      for( auto const intf : intfs ) {
         review( intf, true );
      }
   }
   work();
   // Only now: nobody is carried by those any more that went meanwhile.
   for( auto const & vlan : Kiv::keysOf( commonSmData()->vlanStatus() ) ) {
      if( auto const status = commonSmData()->vlanStatus( vlan ); status && vlanConfig( vlan ) ) {
         status->activeIs( activeVlan().has( vlan ) );
      } else {
         commonSmData()->vlanStatusDel( vlan );
      }
   }
}

// ---- The VLANs

VlanConfig const *
VlanFeeder::vlanAsked( VlanId vlan ) const {
   auto const * reactor = vlanConfig( vlan );
   return reactor ? reactor->notifier() : nullptr;
}

bool
VlanFeeder::isWanted( VlanId vlan ) const {
   auto const * asked = vlanAsked( vlan );
   return asked && asked->active();
}

void
VlanFeeder::listIs( VlanId vlan, Pelt::IntfId intf, bool listed ) {
   if( listed ) {
      Kiv::addToSet( listed_, vlan, intf );
      Kiv::addToSet( listing_, intf, vlan );
   } else {
      Kiv::removeFromSet( listed_, vlan, intf );
      Kiv::removeFromSet( listing_, intf, vlan );
   }
}

VlanFeeder::Intfs
VlanFeeder::updateList( VlanId vlan ) {
   auto const * asked = vlanAsked( vlan );
   Intfs changed;
   append( changed, listed_, vlan );
   std::erase_if( changed,
                  [ & ]( Pelt::IntfId intf ) { return asked && asked->memberHas( intf ); } );
   for( auto const intf : changed ) {
      listIs( vlan, intf, false );
   }
   if( asked ) {
      auto const * const known = listed_.find( vlan );
      Intfs added;
      for( auto const & intf : asked->member() ) {
         if( !known || !known->has( intf ) ) {
            added.push_back( intf );
         }
      }
      for( auto const intf : added ) {
         listIs( vlan, intf, true );
      }
      changed.insert( changed.end(), added.begin(), added.end() );
   }
   return changed;
}

bool
VlanFeeder::activate( VlanId vlan ) {
   if( !chipVlan().has( vlan ) ) {
      Kiv::String refusal;
      if( !tell< &Helper::setVlan >( refusal, vlan, true ) ) {
         refusedVlanIs( vlan, refusal );
         awaitRetry();
         return false;
      }
      auto vlans = chipVlan();
      vlans.insert( vlan );
      chipVlanIs( vlans );
   }
   refusedVlanDel( vlan );
   leavingDel( vlan );
   auto vlans = activeVlan();
   vlans.insert( vlan );
   activeVlanIs( vlans );
   commonSmData()->vlanStatusIs( vlan )->activeIs( true );
   return true;
}

void
VlanFeeder::finish( VlanId vlan ) {
   // One that is wanted stays: the chip may have refused it, and is asked again.
   if( isWanted( vlan ) || activeVlan().has( vlan ) ) {
      return;
   }
   if( auto const status = commonSmData()->vlanStatus( vlan ) ) {
      if( !status->intf().empty() ) {
         return; // the chip would not let go of all who carry it: it goes with the last of them
      }
      status->activeIs( false );
   }
   if( !vlanConfig( vlan ) ) {
      commonSmData()->vlanStatusDel( vlan );
   }
   // Whoever heard of that may want it again.
   if( isWanted( vlan ) || ( !chipVlan().has( vlan ) && !refusedVlanHas( vlan ) ) ) {
      return;
   }
   Kiv::String refusal;
   if( !tell< &Helper::setVlan >( refusal, vlan, false ) ) {
      refusedVlanIs( vlan, refusal );
      return awaitRetry();
   }
   refusedVlanDel( vlan );
   auto vlans = chipVlan();
   vlans.erase( vlan );
   chipVlanIs( vlans );
}

void
VlanFeeder::handleVlan( VlanId const & changedVlan ) {
   auto const vlan = changedVlan; // which may go meanwhile
   if( vlanAsked( vlan ) ) {
      commonSmData()->vlanStatusIs( vlan );
   }
   // What is asked for now, whatever came of that.
   auto intfs = updateList( vlan );
   bool const isNowWanted = isWanted( vlan );
   bool const wasActive = activeVlan().has( vlan );
   ZTRACE( 3, "VLAN ", vlan, isNowWanted ? " is wanted" : " is not wanted" );
   if( !isNowWanted ) {
      auto vlans = activeVlan();
      vlans.erase( vlan );
      activeVlanIs( vlans );
      leavingIs( vlan );
   }
   if( isNowWanted ? !wasActive && activate( vlan ) : wasActive ) {
      append( intfs, listed_, vlan );
      append( intfs, accessPorts_, vlan );
   }
   for( auto const intf : intfs ) {
      waitingIs( intf );
   }
   work();
}

void
VlanFeeder::handleMember( VlanId vlan, Pelt::IntfId intf ) {
   auto const * asked = vlanAsked( vlan );
   listIs( vlan, intf, asked && asked->memberHas( intf ) );
   handleIntf( intf );
}

// ---- The interfaces

bool
VlanFeeder::exists( Pelt::IntfId intf ) const {
   return commonSmData()->intfHas( intf ) || commonSmData()->lagToPortConfigHas( intf );
}

bool
VlanFeeder::standsForItself( Pelt::IntfId intf ) const {
   // A port that goes from one LAG into another is in neither for a moment.
   return !lagOf_.has( intf ) && !commonSmData()->lagToPortConfigHas(
                                       lagInputConfig()->notifier()->ethPhyIntfLagConfig( intf ) );
}

Hoba::IntfVlans
VlanFeeder::wanted( Pelt::IntfId intf ) const {
   if( !exists( intf ) || !standsForItself( intf ) ) {
      return {};
   }
   static VlanSet const none;
   auto const & asked = *config()->notifier();
   auto const * listing = listing_.find( intf );
   return carriedVlans( asked.switchportMode( intf ), asked.nativeVlan( intf ),
                        listing ? *listing : none, activeVlan() );
}

void
VlanFeeder::handleIntf( Pelt::IntfId const & intf ) {
   waitingIs( intf );
   work();
}

void
VlanFeeder::handleLag( Pelt::IntfId const & changedLag ) {
   auto const lag = changedLag;
   auto const ports = commonSmData()->lagToPortConfig( lag ).port;
   auto const * known = lagPorts_.find( lag );
   auto touched = known ? *known : Intfs();
   for( auto const port : touched ) {
      if( auto const * in = lagOf_.find( port ); in && *in == lag ) {
         lagOf_.erase( port );
      }
   }
   for( auto const port : ports ) {
      lagOf_.insertOrAssign( port, lag );
      touched.push_back( port );
   }
   if( commonSmData()->lagToPortConfigHas( lag ) ) {
      lagPorts_.insertOrAssign( lag, ports );
   } else {
      lagPorts_.erase( lag );
   }
   for( auto const port : touched ) {
      waitingIs( port );
   }
   waitingIs( lag );
   work();
}

void
VlanFeeder::indexAccess( Pelt::IntfId intf ) {
   auto const & asked = *config()->notifier();
   auto const native = asked.nativeVlan( intf ).value();
   bool const isAccess =
         native && exists( intf ) && asked.switchportMode( intf ) == Bridging::switchportModeAccess;
   auto const * const known = accessVlan_.find( intf );
   if( known && isAccess && known->value() == native ) {
      return;
   }
   if( known ) {
      Kiv::removeFromSet( accessPorts_, *known, intf );
      accessVlan_.erase( intf );
   }
   if( isAccess ) {
      Kiv::addToSet( accessPorts_, VlanId( native ), intf );
      accessVlan_.insertOrAssign( intf, VlanId( native ) );
   }
}

void
VlanFeeder::work() {
   if( working_ ) {
      return;
   }
   Flag const working( working_ );
   auto const timer = clock();
   Hoba::TimeSlice slice( *this, *timer, std::numeric_limits< std::uint32_t >::max() );
   // Whoever hears of one may change others.
   while( !kivMarkedForDeletion() && !( waiting().empty() && leaving().empty() ) ) {
      if( !slice.next() ) {
         Hoba::traceYield( "VlanFeeder", slice.done() );
         return timer->noLaterThan( timer->now() );
      }
      if( !waiting().empty() ) {
         auto const intf = *waiting().first();
         waitingDel( intf );
         review( intf );
      } else {
         auto const vlan = *leaving().first();
         leavingDel( vlan );
         finish( vlan );
      }
   }
}

void
VlanFeeder::review( Pelt::IntfId intf, bool anew ) {
   indexAccess( intf );
   Kiv::String refusal;
   auto const held = anew ? Hoba::IntfVlans() : membership_->intf( intf );
   bool const unsure = refusedIntfHas( intf );
   auto const vlans = tellVlans( intf, held, unsure, refusal );
   tellTpids( intf, unsure, refusal );
   if( refusal.empty() ) {
      refusedIntfDel( intf );
   } else {
      refusedIntfIs( intf, refusal );
      awaitRetry();
   }
   publish( intf, vlans, anew );
}

Hoba::IntfVlans
VlanFeeder::tellVlans( Pelt::IntfId intf, Hoba::IntfVlans const & held, bool nativeUnsure,
                       Kiv::String & refusal ) {
   auto const target = wanted( intf );
   if( held == target && !nativeUnsure ) {
      return held;
   }
   auto now = held;
   auto const bringTo = [ & ]( VlanId vlan, Hoba::VlanTagging how ) {
      bool const told = tell< &Helper::setTagging >( refusal, vlan, intf, how );
      if( told ) {
         now.taggingIs( vlan, how );
      }
      unsureIs( vlan, intf, !told && now.tagging( vlan ) == Hoba::vlanNotCarried );
   };
   auto const * const unsure = unsure_.find( intf );
   auto const leftOver = unsure ? *unsure : VlanSet();
   for( auto const & vlans : { held.carried(), leftOver } ) {
      for( auto const vlan : vlans.without( target.carried() ) ) {
         bringTo( vlan, Hoba::vlanNotCarried );
      }
   }
   for( auto const vlan : target.tagged.without( held.tagged ) ) {
      bringTo( vlan, Hoba::vlanTagged );
   }
   // One at a time is untagged, also where the chip would not let go of the former one.
   if( target.nativeVlan.value() && !now.nativeVlan.value() ) {
      bringTo( VlanId( target.nativeVlan.value() ), Hoba::vlanUntagged );
   }
   // None was told that is not carried.
   if( ( target.nativeVlan != held.nativeVlan || nativeUnsure ) &&
       now.nativeVlan == target.nativeVlan ) {
      tell< &Helper::setNativeVlan >( refusal, intf, target.nativeVlan );
   }
   return now;
}

void
VlanFeeder::unsureIs( VlanId vlan, Pelt::IntfId intf, bool unsure ) {
   unsure ? Kiv::addToSet( unsure_, intf, vlan ) : Kiv::removeFromSet( unsure_, intf, vlan );
}

void
VlanFeeder::tellTpids( Pelt::IntfId intf, bool unsure, Kiv::String & refusal ) {
   bool const isWanted =
         commonSmData()->intfHas( intf ) && commonSmData()->portVlanTpidDataHas( intf );
   auto const target = commonSmData()->portVlanTpidData( intf );
   if( !isWanted ) {
      if( ( tpidHas( intf ) || unsure ) && tell< &Helper::clearTpids >( refusal, intf ) ) {
         tpidDel( intf );
      }
   } else if( !( tpidHas( intf ) && tpid( intf ) == target ) &&
              tell< &Helper::setTpids >( refusal, intf, target ) ) {
      tpidIs( intf, target );
   }
}

void
VlanFeeder::publish( Pelt::IntfId intf, Hoba::IntfVlans const & vlans, bool anew ) {
   auto const before = membership_->intf( intf ).carried();
   vlans.carriesNone() ? membership_->intfDel( intf ) : membership_->intfIs( intf, vlans );
   // Whoever hears of it may make more of it: what is published by then counts.
   auto const update = [ & ]( VlanId vlan ) {
      if( auto const status = commonSmData()->vlanStatus( vlan ) ) {
         bool const carried = membership_->intf( intf ).tagging( vlan ) != Hoba::vlanNotCarried;
         carried ? status->intfIs( intf ) : status->intfDel( intf );
         if( status->intf().empty() && !activeVlan().has( vlan ) ) {
            leavingIs( vlan );
         }
      }
   };
   auto const after = vlans.carried();
   for( auto const vlan : before.without( after ) ) {
      update( vlan );
   }
   for( auto const vlan : anew ? after : after.without( before ) ) {
      update( vlan );
   }
}

// ---- What the chip refuses

template< auto hook, class Subject, class... Args >
bool
VlanFeeder::tell( Kiv::String & refusal, Subject const & subject, Args const &... args ) {
   auto const helper = commonSmData()->vlanHelper();
   if( !helper ) {
      return true;
   }
   try {
      Hoba::callHook< hook >( *helper, subject, args... );
      return true;
   } catch( ... ) {
      if( refusal.empty() ) {
         refusal = Kiv::exceptionText();
         // Once: a chip that is full would fill the log.
         if( !retrying_ ) {
            Kiv::Dispatch::failed( Kiv::handlerName< hook >(), Kiv::toText( subject ) );
         }
      }
      return false;
   }
}

void
VlanFeeder::awaitRetry() {
   retryTime_ = std::min( retryTime_, clock()->now() + retryDelay );
   clock()->noLaterThan( retryTime_ );
}

void
VlanFeeder::handleTime() {
   work();
   if( retryTime_ <= clock()->now() ) {
      retryTime_ = Kiv::never;
      retry();
   }
   clock()->noLaterThan( retryTime_ );
}

void
VlanFeeder::retry() {
   Flag const retrying( retrying_ );
   // Each at the end of its queue, if it is refused again.
   for( auto const vlan : someOf( refusedVlan(), retriesAtOnce ) ) {
      auto const reason = refusedVlan( vlan );
      refusedVlanDel( vlan );
      refusedVlanIs( vlan, reason );
      handleVlan( vlan );
   }
   for( auto const intf : someOf( refusedIntf(), retriesAtOnce ) ) {
      auto const reason = refusedIntf( intf );
      refusedIntfDel( intf );
      refusedIntfIs( intf, reason );
      waitingIs( intf );
   }
   work();
   if( !refusedVlan().empty() || !refusedIntf().empty() ) {
      awaitRetry();
   }
}

} // namespace Feeders
