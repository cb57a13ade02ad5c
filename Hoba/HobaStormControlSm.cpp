// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaStormControlSm.h"

#include "Hoba/HobaAssert.h"
#include "Hoba/HobaHelper.h"
#include "Kiv/Reflect.h"
#include "Zipline/Zipline.h"

#include <algorithm>

ZIPLINE_HANDLE( HobaStormControlSm );

KIV_DEFINE( Hoba::StormControlSm );

namespace Hoba {

using namespace Bridging::StormControl;
using Helper = StormControlSmHelper;

// ---- Life

StormControlSm::StormControlSm(
      Kiv::Ptr< HobaCommonSmData > const & commonSmData, Kiv::Ptr< Config const > const & config,
      Kiv::Ptr< Interface::AllEthPhyIntfStatusDir const > const & ethPhyIntfStatusDir,
      Kiv::Ptr< Status > const & status, Kiv::Ptr< StormControlSmHelper > const & platformHelper,
      Kiv::Ptr< Lag::Input::Config const > const & lagInputConfig,
      Kiv::Ptr< Mox::TimerWheel const > const & clock )
      : HobaVerifiedSm( commonSmData ), status_( status ), platform_( platformHelper ) {
   HOBA_INVARIANT( status && platformHelper, "storm control works on a status and a platform" );
   configIs( config );
   ethPhyIntfStatusDirIs( ethPhyIntfStatusDir );
   lagInputConfigIs( lagInputConfig );
   clockIs( clock );
   bogusAcsdIs( commonSmData );
}

void
StormControlSm::handleInitialized() {
   ZTRACE_ENTRY( 8 );
   Kiv::Dispatch::Frame frame;
   if( !initialized() ) {
      reading_.stop();
      if( clock() ) {
         clock()->timeMinIs( Kiv::never );
      }
      reactorsUninitialize();
      return;
   }
   platform_.call< &Helper::hwInit >();
   heldDelAll();
   if( !platform_->chipStormControlEnabled() ) {
      platform_.call< &Helper::installRules >();
   }
   removeOrphanedStatus();
   if( lagInputConfig() ) {
      for( auto const & [ intf, lag ] : lagInputConfig()->notifier()->ethPhyIntfLagConfig() ) {
         handleEthPhyIntfLagConfig( intf );
      }
   }
   reactorsInitialize();
}

void
StormControlSm::removeOrphanedStatus() {
   for( auto const & [ intf, status ] : status_->intfStatus() ) {
      if( !intfConfig( intf ) ) {
         ZTRACE( 3, "Removing orphaned status for ", intf );
         status_->intfStatusDel( intf );
      }
   }
}

// ---- What is configured

void
StormControlSm::KivIntfConfig::handleInitialized() {
   auto & sm = owner();
   if( !sm.status_->intfStatusHas( key() ) ) {
      ZTRACE( 3, "Creating status for ", key() );
      sm.status_->intfStatusIs( key() );
   }
   if( !sm.intfExists( key() ) ) {
      ZTRACE( 3, "Interface doesn't exists in platform, skip initializing the sm" );
      sm.resetStormControlStatusForIntf( key() );
      return;
   }
   initializedIs( true );
   applyConfig();
}

void
StormControlSm::KivIntfConfig::doCleanup() {
   auto & sm = owner();
   if( !sm.initialized() ) {
      return;
   }
   if( isPortChannel( key() ) ) {
      ZTRACE( 3, key(), " removed. Disabling reactor" );
   }
   // What stands on a member of a LAG is the LAG's. A first pass that failed may have come far.
   if( !sm.lagIntfForIntf( key() ) ) {
      sm.clear( key() );
   }
   if( sm.intfConfig( key() ) ) {
      sm.enable( key() ); // configured again by who heard of it
      return;
   }
   if( sm.status_->intfStatusHas( key() ) ) {
      ZTRACE( 3, "Deleting status for ", key() );
      sm.status_->intfStatusDel( key() );
   }
}

template< LevelType levelType >
void
StormControlSm::KivIntfConfig::handleLevel() {
   auto & sm = owner();
   if( !initialized() ) {
      if( sm.initialized() && sm.status_->intfStatusHas( key() ) ) {
         sm.resetStormControlStatusForIntf( key() ); // what is asked for, it waits for
      }
      return;
   }
   if( isPortChannel( key() ) ) {
      ZTRACE( 5, key(), " updated. Reapplying config" );
   }
   updateLevel( levelType );
}

// The all-traffic level goes first, so that it supersedes others or gives way to them.
void
StormControlSm::KivIntfConfig::handleAllLevel() {
   handleLevel< levelTypeAll >();
   if( working() &&
       decideLevel( *owner().platform_, levelTypeAll, notifier()->all() ).isDefault() ) {
      updateLevel( levelTypeUUcast );
      updateLevel( levelTypeBroadcast );
      updateLevel( levelTypeMulticast );
   }
}

void
StormControlSm::KivIntfConfig::applyConfig() {
   Kiv::Dispatch::Frame frame;
   for( auto levelType : allLevelTypes ) {
      updateLevel( levelType );
   }
}

void
StormControlSm::KivIntfConfig::updateLevel( LevelType levelType ) {
   Kiv::Dispatch::Frame frame;
   if( !working() ) {
      return;
   }
   auto intf = owner().look( key() );
   auto const levels = levelsWith( intf, levelType );
   if( isPortChannel( key() ) ) {
      ZTRACE( 5, "Updating levels for lag ", key() );
   }
   owner().program( intf, levels );
   if( working() ) {
      owner().report( std::move( intf ), levels );
   }
}

bool
StormControlSm::KivIntfConfig::working() const {
   return initialized() && !kivMarkedForDeletion() && !owner().kivMarkedForDeletion();
}

// ---- Hardware and status

LimitedIntf
StormControlSm::look( Pelt::IntfId intf ) const {
   auto const * own = intfConfig( intf );
   return look( intf, own ? own->notifier() : nullptr );
}

LimitedIntf
StormControlSm::look( Pelt::IntfId intf, IntfConfig const * config ) const {
   return { .intf = intf,
            .config = config,
            .asked = decideLevels( *platform_, config ),
            .held = &held(),
            .active = intfActive( intf ),
            .memberOfLag = bool( lagIntfForIntf( intf ) ),
            .ports = portsOf( intf ) };
}

void
StormControlSm::program( LimitedIntf const & intf, std::span< LevelType const > levels ) {
   if( obstacle( intf ) ) {
      return;
   }
   bool supported = false;
   for( auto levelType : levels ) {
      auto const & asked = intf.asked[ levelType ];
      supported = supported || asked.program || asked.refused();
      for( auto const & port : intf.ports ) {
         if( auto const decision = wanted( intf, levelType, port ); decision.program ) {
            bool const heard = kivWatched(); // also by one who then leaves
            setHwRate( levelType, port, intf.intf, decision.threshold );
            auto const now = [ & ] {
               return intf.config ? look( intf.intf ) : look( intf.intf, nullptr );
            };
            if( heard && now() != intf ) {
               // Whoever heard of it has changed what is wanted.
               return intf.config ? enable( intf.intf ) : disable( intf.intf );
            }
         }
      }
   }
   // Also behind a zero that was refused: the rule follows from what is asked for, not from what was
   // before.
   if( supported ) {
      platform_.call< &Helper::updateBcastSkipRule >( intf.intf, broadcastSkips( intf.asked ) );
   }
}

void
StormControlSm::setHwRate( LevelType levelType, PortSpeed const & port, Pelt::IntfId parentIntf,
                           Threshold const & threshold ) {
   ZTRACE( 5, "Setting ", port.port, levelText( levelType ), " level threshold to ", threshold );
   platform_.call< &Helper::setHwRate >( levelType, port.port, parentIntf, port.kbps, threshold );
   PortLevel const level{ port.port, levelType };
   threshold.isDefault() ? heldDel( level ) : heldIs( level, { parentIntf, threshold, port.kbps } );
}

void
StormControlSm::report( LimitedIntf now, std::span< LevelType const > levels ) {
   auto const intf = now.intf;
   // Looked at again behind each write that somebody hears of: he may have changed anything.
   bool const heard = kivWatched() || !status_->intfStatusHas( intf );
   auto const status = status_->intfStatusIs( intf );
   if( heard ) {
      now = look( intf );
   }
   auto const asked = [ & ] { return now.config && !kivMarkedForDeletion(); };
   for( auto level = levels.begin(); level != levels.end() && asked(); ++level ) {
      bool const watched = status->kivWatched();
      ( *status.*levelOf( *level ).statusIs )( statusOf( now, *level ) );
      if( watched ) {
         now = look( intf );
      }
   }
   if( asked() ) {
      status->speedIs( speedOf( now ) );
   }
}

void
StormControlSm::resetStormControlStatusForIntf( Pelt::IntfId intf ) {
   if( !status_->intfStatusHas( intf ) || !intfConfig( intf ) ) {
      ZTRACE( 5, "No status found, returning...." );
      return;
   }
   report( look( intf ), allLevelTypes );
}

void
StormControlSm::enable( Pelt::IntfId intf ) {
   if( auto * reactor = intfConfig( intf ) ) {
      if( reactor->kivFirstPassFailed() ) {
         Kiv::initializeReactor( *reactor );
      } else {
         reactor->applyConfig();
      }
   }
}

void
StormControlSm::disable( Pelt::IntfId intf ) {
   Kiv::Dispatch::Frame frame;
   if( initialized() && intfExists( intf ) ) {
      program( look( intf, nullptr ), allLevelTypes );
   }
}

void
StormControlSm::clear( Pelt::IntfId intf ) {
   Kiv::guarded( "StormControlSm::disable", Kiv::toText( intf ), [ & ] { disable( intf ); } );
}

// ---- Ports

std::uint32_t
StormControlSm::calculateSpeedForIntf( Pelt::IntfId intf ) const {
   auto const * reactor = ethPhyIntfStatus( intf );
   return reactor ? Interface::speedToKbps( reactor->notifier()->speed() ) : 0;
}

bool
StormControlSm::intfExists( Pelt::IntfId intf ) const {
   return isPortChannel( intf ) || commonSmData()->intfHas( intf );
}

bool
StormControlSm::intfActive( Pelt::IntfId intf ) const {
   auto const * reactor = ethPhyIntfStatus( intf );
   return !platform_->platformSupportsDynamicLogicalPorts() ||
          ( reactor && reactor->notifier()->active() );
}

bool
StormControlSm::KivIntfConfig::active() const {
   return isPortChannel( key() ) || owner().intfActive( key() );
}

// While a port changes its LAG the two maps of the shared context disagree for a moment. Then the
// port is nobody's member, lest two configurations take turns on it.
std::vector< PortSpeed >
StormControlSm::portsOf( Pelt::IntfId intf ) const {
   std::vector< PortSpeed > ports;
   if( isPortChannel( intf ) ) {
      auto const & members = commonSmData()->lagToPort( intf ).port;
      ports.reserve( members.size() );
      for( auto port : members ) {
         if( lagIntfForIntf( port ) == intf && intfExists( port ) && intfActive( port ) ) {
            ports.push_back( { port, calculateSpeedForIntf( port ) } );
         }
      }
   } else if( intfExists( intf ) ) {
      ports.push_back( { intf, calculateSpeedForIntf( intf ) } );
   }
   return ports;
}

void
StormControlSm::handleEthPhyIntfStatus( Pelt::IntfId intf ) {
   // A port of which nothing is known is not active either.
   if( platform_->platformSupportsDynamicLogicalPorts() ) {
      handleEthIntf( intf );
   } else {
      reprogram( intf );
   }
}

void
StormControlSm::reprogram( Pelt::IntfId intf ) {
   enable( intf ); // also while it belongs to a LAG: its status tells its speed
   enable( lagIntfForIntf( intf ) );
}

void
StormControlSm::handleEthIntf( Pelt::IntfId intf ) {
   if( !platform_->platformSupportsDynamicLogicalPorts() ) {
      ZTRACE( 5, "Platform doesn't support DLP, returning...." );
      return;
   }
   if( intfActive( intf ) ) {
      ZTRACE( 3, intf, ": Interface has become active, reprogram storm control" );
   } else {
      ZTRACE( 3, intf, ": Interface has become inactive, clear storm control" );
      clear( intf );
      resetStormControlStatusForIntf( intf );
   }
   // Also when it is gone: its share of a LAG's rate is.
   reprogram( intf );
}

void
StormControlSm::handleIntf( Pelt::IntfId intf ) {
   auto * own = intfConfig( intf );
   if( !intfExists( intf ) ) {
      if( own ) {
         own->initializedIs( false );
         resetStormControlStatusForIntf( intf );
      }
   } else if( own ? !own->initialized() : !presentHas( intf ) ) {
      // It came (back), and the hardware may have kept what stood when it went.
      clear( intf );
      if( own ) {
         Kiv::initializeReactor( *own );
      }
   }
   enable( lagIntfForIntf( intf ) );
}

void
StormControlSm::rememberIntf( Pelt::IntfId intf ) {
   intfExists( intf ) ? presentIs( intf ) : presentDel( intf );
}

// ---- LAGs

Pelt::IntfId
StormControlSm::lagIntfForIntf( Pelt::IntfId intf ) const {
   return commonSmData()->portToLag( intf );
}

Bridging::StormControl::IntfConfig const *
StormControlSm::KivIntfConfig::activeConfig() const {
   auto const lag = owner().lagIntfForIntf( key() );
   if( !lag ) {
      return notifier();
   }
   auto const * lagConfig = owner().intfConfig( lag );
   return lagConfig ? lagConfig->notifier() : nullptr;
}

bool
StormControlSm::takesPart( Pelt::IntfId port ) const {
   auto const lag = lagIntfForIntf( port );
   return intfActive( port ) && ( !lag || isMember( port, lag ) );
}

bool
StormControlSm::isMember( Pelt::IntfId intf, Pelt::IntfId lag ) const {
   auto const & ports = commonSmData()->lagToPort( lag ).port;
   return lagIntfForIntf( intf ) == lag &&
          std::find( ports.begin(), ports.end(), intf ) != ports.end();
}

void
StormControlSm::handlePortToLag( Pelt::IntfId intf ) {
   if( auto const lag = lagIntfForIntf( intf ) ) {
      joinLag( intf, lag );
   } else {
      leaveLag( intf );
   }
}

void
StormControlSm::joinLag( Pelt::IntfId intf, Pelt::IntfId lag ) {
   ZTRACE( 3, "Disabling storm control on ", intf,
           " because it is part of a lag, and lag config takes precedence" );
   clear( intf );
   resetStormControlStatusForIntf( intf );
   if( intfConfig( lag ) ) {
      ZTRACE( 3, lag, " config exists, reapplying config" );
      enable( lag );
   }
}

// The LAG's levels must not stay on the port: its own take their place, or the default.
void
StormControlSm::leaveLag( Pelt::IntfId intf ) {
   auto * own = intfConfig( intf );
   if( own && own->initialized() && !obstacle( look( intf ) ) ) {
      ZTRACE( 3, "Applying config to ", intf, " because it left a lag" );
      own->applyConfig();
   } else {
      clear( intf );
      resetStormControlStatusForIntf( intf );
      enable( intf ); // where its first pass failed, another
   }
}

// The LAG that it left may still list it, but it has no share of that any more.
void
StormControlSm::handleFormerLag( Pelt::IntfId intf ) {
   auto const former = lagOfPort( intf );
   if( former != lagIntfForIntf( intf ) && intfConfig( former ) ) {
      resetStormControlStatusForIntf( former );
   }
}

void
StormControlSm::rememberLag( Pelt::IntfId intf ) {
   auto const lag = lagIntfForIntf( intf );
   lag ? lagOfPortIs( intf, lag ) : lagOfPortDel( intf );
}

// Who belongs to the LAG and is no active member any more must not keep levels that nobody follows
// up.
void
StormControlSm::handleLagToPort( Pelt::IntfId lag ) {
   auto const former = membersOfLag( lag );
   for( auto port : former.port ) {
      if( lagIntfForIntf( port ) == lag && !isMember( port, lag ) ) {
         clear( port );
      }
   }
   enable( lag );
}

void
StormControlSm::rememberMembers( Pelt::IntfId lag ) {
   if( commonSmData()->lagToPortHas( lag ) ) {
      membersOfLagIs( lag, commonSmData()->lagToPort( lag ) );
   } else {
      membersOfLagDel( lag );
   }
}

void
StormControlSm::handleEthPhyIntfLagConfig( Pelt::IntfId intf ) {
   platform_.call< &Helper::handleEthPhyIntfLagConfig >( intf );
}

// ---- Traffic classes and bursts

void
StormControlSm::handleAggregateTcConfig( std::uint16_t trafficClass ) {
   auto const * reactor = aggregateTcConfig( trafficClass );
   auto const level = reactor ? reactor->notifier()->level() : Threshold{};
   ZTRACE( 5, "Setting level of traffic class ", trafficClass, " to ", level );
   platform_.call< &Helper::programTcAggregateHwRate >( trafficClass, level );
}

void
StormControlSm::handleBurstConfig( Kiv::String const & burst ) {
   if( platform_->burstEnabled() ) {
      auto const * reactor = burstConfig( burst );
      auto const entity = reactor ? Kiv::Ptr< BurstConfig const >( reactor->notifier() )
                                  : Kiv::make< BurstConfig const >( burst );
      ZTRACE( 5, burst, " burstTime: ", entity->burstTime() );
      platform_.call< &Helper::setBurstTime >( *entity );
   }
}

// ---- Drop counters

void
StormControlSm::handlePeriod() {
   if( clock() && config() ) {
      Kiv::Seconds const period = config()->notifier()->period();
      clock()->timeMinIs( period > 0 ? clock()->now() + period : Kiv::never );
   }
}

void
StormControlSm::handleTime() {
   if( !platform_->dropCountEnabled() ) {
      reading_.stop();
   } else if( !reading_.walking() ) {
      reading_.start( intfConfig() );
   }
   // What cannot be read of one interface keeps nobody from reading the others.
   bool const done = reading_.run( *this, *clock(), readingsAtOnce, []( auto const & each ) {
      Kiv::guarded( "StormControlSm::handleTime", Kiv::toText( each.key ),
                    [ & ] { each.value->handleTime(); } );
   } );
   if( done && initialized() ) {
      handlePeriod();
   }
}

void
StormControlSm::KivIntfConfig::handleTime() {
   // Also where the first pass failed: what the chip counts does not depend on it.
   if( !owner().intfExists( key() ) ) {
      return;
   }
   static constexpr LevelType order[] = { levelTypeUUcast, levelTypeBroadcast, levelTypeMulticast,
                                          levelTypeAll };
   std::array< std::uint64_t, levelTypeMax > drops{};
   for( auto const & port : owner().portsOf( key() ) ) {
      for( auto levelType : order ) {
         drops[ levelType ] += ( *owner().platform_.*levelOf( levelType ).dropCnt )( port.port );
      }
   }
   ZTRACE( 8, key(), " uucastDrop: ", drops[ levelTypeUUcast ],
           " broadcastDrop: ", drops[ levelTypeBroadcast ],
           " multicastDrop: ", drops[ levelTypeMulticast ], " allDrop: ", drops[ levelTypeAll ] );
   auto const status = owner().status_->intfStatusIs( key() );
   for( auto levelType : order ) {
      ( *status.*levelOf( levelType ).dropIs )( drops[ levelType ] );
   }
}

// ---- Verification

void
StormControlSm::handleVerify() {
   ZTRACE_ENTRY( 8 );
   Kiv::Dispatch::Frame frame;
   if( !initialized() ) {
      return;
   }
   for( auto const & [ intf, reactor ] : intfConfig() ) {
      reactor->handleVerify();
   }
   for( auto const & port : Kiv::keysOf( commonSmData()->intf() ) ) {
      verifyUnlimited( port );
   }
   for( auto const & [ trafficClass, reactor ] : aggregateTcConfig() ) {
      reportVerify(
            "traffic class " + Kiv::toText( trafficClass ),
            platform_.call< &Helper::verifyAggregateTc >( trafficClass, *reactor->notifier() ) );
   }
   if( config() ) {
      reportVerify( "platform", platform_.call< &Helper::verifyPlatformStormControl >(
                                      *config()->notifier(), *status_ ) );
   }
}

void
StormControlSm::KivIntfConfig::handleVerify() {
   auto & sm = owner();
   if( !sm.intfExists( key() ) ) {
      return;
   }
   auto const name = Kiv::toText( key() );
   auto const lag = sm.lagIntfForIntf( key() );
   Kiv::Ptr< IntfConfig const > const config( activeConfig() );
   if( isPortChannel( key() ) ) {
      ZTRACE( 5, key(), " is a LAG, verify individual interfaces" );
      for( auto const & port : sm.portsOf( key() ) ) {
         sm.verifyPort( name + ' ' + Kiv::toText( port.port ), port.port, key(), *config );
      }
      return;
   }
   if( !config ) {
      ZTRACE( 5, key(),
              ": There is no LAG storm-control config, make sure storm-control is disabled" );
   }
   if( !config || !sm.takesPart( key() ) ) {
      sm.reportVerify( name, sm.platform_.call< &Helper::verifyEnabled >( key(), false ) );
      return;
   }
   if( lag ) {
      ZTRACE( 5, key(),
              ": Verify storm-control config matches the LAG's config and not the "
              "individual config" );
   } else {
      ZTRACE( 5, key(), " is not part of a LAG, verify its individual config" );
   }
   sm.verifyPort( name, key(), lag ? lag : key(), *config );
}

// A port for which no configuration holds. Nobody asked for it by name, so it is named when something
// is wrong with it.
void
StormControlSm::verifyUnlimited( Pelt::IntfId port ) {
   bool const ofLag = intfConfig( lagIntfForIntf( port ) ) && takesPart( port );
   if( isPortChannel( port ) || intfConfig( port ) || ofLag ) {
      return;
   }
   auto const mismatch = platform_.call< &Helper::verifyEnabled >( port, false );
   if( !mismatch.empty() ) {
      reportVerify( Kiv::toText( port ), mismatch );
   }
}

void
StormControlSm::verifyPort( Kiv::String const & item, Pelt::IntfId port, Pelt::IntfId parentIntf,
                            IntfConfig const & config ) {
   reportVerify( item, platform_.call< &Helper::verifyPort >(
                             port, parentIntf, calculateSpeedForIntf( port ), config ) );
}

void
StormControlSm::reportVerify( Kiv::String const & item, Kiv::String const & mismatch ) {
   if( !mismatch.empty() ) {
      ZTRACE( 0, "Storm control of ", item, " differs from the hardware: ", mismatch );
   }
   if( auto * verify = verifyData() ) {
      verify->updateCliVerifyOutput( "storm control " + item, mismatch.empty() ? "ok" : mismatch );
   }
}

} // namespace Hoba
