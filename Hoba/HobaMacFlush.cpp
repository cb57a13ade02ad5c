// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaMacFlush.h"

#include "Hoba/HobaHelper.h"
#include "Hoba/HobaMacAddrSm.h"
#include "Zipline/Zipline.h"

#include <algorithm>

ZIPLINE_HANDLE( HobaMacFlush );

namespace Hoba {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using Helper = HobaHelper::HobaHelperMacAddrSm;
using Kiv::String;

// ---- Requests that came or went

void
MacFlush::handleAll() {
   auto const & requests = sm_.inputs().flushRequestDir;
   if( !requests ) {
      return;
   }
   removeStaleFlushReplies();
   for( auto const & [ agent, dir ] : requests->agent() ) {
      handleFlushRequestInputDir( agent );
   }
}

void
MacFlush::handleFlushRequestInputDir( String const & agent ) {
   auto const dir = sm_.inputs().flushRequestDir->agent( agent );
   if( !dir ) {
      requests_.remove_if( [ & ]( Request const & each ) { return each.agent == agent; } );
      removeStaleFlushReplies();
      return;
   }
   for( auto const & key : Kiv::keysOf( dir->request() ) ) {
      request( agent, key );
   }
}

void
MacFlush::handleFlushRequest( String const & agent, String const & key ) {
   // A former one of that key is nobody's any more.
   forget( agent, key );
   request( agent, key );
}

void
MacFlush::forget( String const & agent, String const & key ) {
   requests_.remove_if(
         [ & ]( Request const & each ) { return each.agent == agent && each.key == key; } );
   auto const & replies = sm_.inputs().flushReplyDir;
   if( auto const dir = replies ? replies->agent( agent ) : nullptr ) {
      dir->replyDel( key );
   }
}

// Unless it is there already, or was answered.
void
MacFlush::request( String const & agent, String const & key ) {
   auto const dir = sm_.inputs().flushRequestDir->agent( agent );
   auto const * what = dir ? dir->request().find( key ) : nullptr;
   auto const & replies = sm_.inputs().flushReplyDir;
   auto const replyDir = replies ? replies->agent( agent ) : nullptr;
   bool const isKnown = std::ranges::any_of( requests_, [ & ]( Request const & each ) {
      return each.agent == agent && each.key == key;
   } );
   if( !what || isKnown || ( replyDir && replyDir->replyHas( key ) ) ) {
      return;
   }
   requests_.push_back( { agent, key, *what, false, sm_.now(), nextSerial_++ } );
   sm_.flushReqTimer()->noLaterThan( sm_.now() );
}

// Replies whose requests are gone.
void
MacFlush::removeStaleFlushReplies() {
   auto const & replies = sm_.inputs().flushReplyDir;
   if( !replies ) {
      return;
   }
   auto const & requests = sm_.inputs().flushRequestDir;
   for( auto const & agent : Kiv::keysOf( replies->agent() ) ) {
      auto const asked = requests->agent( agent );
      if( !asked ) {
         replies->agentDel( agent );
         continue;
      }
      auto const answered = replies->agent( agent );
      for( auto const & key : Kiv::keysOf( answered->reply() ) ) {
         if( !asked->requestHas( key ) ) {
            answered->replyDel( key );
         }
      }
   }
}

void
MacFlush::answer( std::uint64_t serial ) {
   auto const found = std::ranges::find( requests_, serial, &Request::serial );
   auto const & replies = sm_.inputs().flushReplyDir;
   if( found == requests_.end() ) {
      return; // withdrawn meanwhile
   }
   auto const done = *found;
   requests_.erase( found );
   ++answered_;
   ZTRACE( 4, "Host table flush request ", done.agent, ' ', done.key, " has been processed" );
   if( replies ) {
      if( !replies->agentHas( done.agent ) ) {
         replies->agentIs( done.agent );
      }
      if( auto const dir = replies->agent( done.agent ) ) {
         dir->replyIs( done.key, true );
      }
   }
}

void
MacFlush::handleFlushReqTimer() {
   if( !sm_.isReady() ) {
      return;
   }
   Kiv::Dispatch::Frame frame;
   removeStaleFlushReplies();
   std::vector< Request > due;
   for( auto & each : requests_ ) {
      if( !each.begun ) {
         each.begun = true;
         due.push_back( each );
      }
   }
   for( auto const & each : due ) {
      auto const done = [ this, serial = each.serial ] { answer( serial ); };
      bool processed = true;
      if( !Kiv::guarded( "MacFlush::processFlushReq", each.key, [ & ] {
             processed = processFlushReq( each.what.vlanId, each.what.intf, each.what.addr, done );
          } ) ) {
         done(); // the hardware's failure was told; nobody asks again
      }
      if( !processed ) {
         waitForAll_.push_back( each.serial );
      }
   }
   execFlush();
   sm_.wakeWalks();
}

// ---- One request

namespace {

void
traceUnknown( Pelt::IntfId intf ) {
   if( isPortChannel( intf ) && !isSubIntf( intf ) ) {
      ZTRACE( 2, "processFlushReq", ": unknown LAG ", intf );
   } else {
      ZTRACE( 2, "processFlushReq", ": unknown intf ", intf );
      ZTRACE( 2, "Invalid interface, maybe caused by a 10G<->40G switchover" );
   }
}

} // namespace

// Returns false if it is for execFlush() to do, and to answer. Otherwise `done` is called when it is over.
bool
MacFlush::processFlushReq( VlanIdOrNone vlanId, Pelt::IntfId intf, Pelt::EthAddr addr,
                           MacWalks::Done const & done ) {
   ZTRACE( 4, "Host table flush request ", vlanId, ' ', intf, ' ', addr );
   if( !addr.isZero() ) {
      flushAddr( addr, vlanId );
      done();
   } else if( intf && sm_.sources().hasIntf( intf ) ) {
      flushIntf( getParentIntfId( intf ), vlanId, done );
   } else if( intf ) {
      traceUnknown( intf );
      done();
   } else if( vlanId.value() ) {
      flushVlan( VlanId( vlanId.value() ), done );
   } else {
      sm_.flushAllIs( true );
      return false;
   }
   return true;
}

// What is pending is visited first: once it is done it is in the status, or was written.
MacWalks::Visit
MacFlush::begin( std::function< bool( Pair ) > isMeant ) {
   ++open_;
   auto const visit = [ this, flush = ++begun_, isMeant = std::move( isMeant ) ]( Pair pair ) {
      auto const isSince = [ & ]( Kiv::HashMap< Pair, std::uint64_t > const & pairs ) {
         auto const * last = pairs.find( pair );
         return last && *last >= flush;
      };
      if( !isSince( learned_ ) && isMeant( pair ) ) {
         sm_.flushEntry( pair, isSince( written_ ) );
      }
   };
   sm_.walkPending( visit );
   return visit;
}

void
MacFlush::end( MacWalks::Visit const & visit, MacWalks::Done done ) {
   sm_.walks().add( [ this, visit, done = std::move( done ) ] {
      sm_.walks().add( written_, MacWalks::byKey, visit );
      sm_.walks().add( [ this, done ] {
         if( --open_ == 0 ) {
            learned_.clear();
            written_.clear();
         }
         if( done ) {
            done();
         }
      } );
   } );
   sm_.wakeWalks();
}

// Full flushes that were asked for meanwhile are one.
void
MacFlush::execFlush() {
   if( !sm_.flushAll() ) {
      return;
   }
   sm_.flushAllIs( false );
   auto const serials = std::exchange( waitForAll_, {} );
   auto const done = [ this, serials ] {
      for( auto const serial : serials ) {
         answer( serial );
      }
   };
   if( !Kiv::guarded( "MacFlush::execFlush", {},
                      [ & ] { sm_.helper().call< &Helper::flushAll >(); } ) ) {
      return done(); // as of one request: the hardware has forgotten nothing
   }
   auto const visit = begin( []( Pair ) { return true; } );
   sm_.walks().addStatus( *sm_.inputs().bridgingStatus, visit );
   end( visit, done );
}

void
MacFlush::flushAddr( Pelt::EthAddr addr, VlanIdOrNone vlanId ) {
   std::vector< VlanId > vlans;
   if( vlanId.value() ) {
      vlans.emplace_back( vlanId.value() );
   } else {
      vlans = Kiv::keysOf( sm_.inputs().bridgingStatus->fdbStatus() );
   }
   for( auto const vlan : vlans ) {
      Pair const pair( addr, vlan );
      auto const current = sm_.currentEntry( pair );
      if( current && isMacEntryLearned( current->entryType ) && !sm_.isNonAgingMac( pair ) ) {
         sm_.helper().call< &Helper::removeHost >( pair );
         sm_.flushEntry( pair, false );
      }
   }
}

void
MacFlush::flushIntf( Pelt::IntfId intf, VlanIdOrNone vlanId, MacWalks::Done done ) {
   if( isPortChannel( intf ) ) {
      sm_.helper().call< &Helper::flushVlanLag >( vlanId, intf );
   } else {
      sm_.helper().call< &Helper::flushVlanPort >( vlanId, intf );
   }
   auto const visit = begin( [ this, intf, vlanId ]( Pair pair ) {
      auto const current = sm_.currentEntry( pair );
      return current && current->intf == intf && ( !vlanId.value() || pair.vlanId() == vlanId );
   } );
   sm_.walkIntf( intf, visit );
   end( visit, std::move( done ) );
}

void
MacFlush::flushVlan( VlanId vlanId, MacWalks::Done done ) {
   sm_.helper().call< &Helper::flushVlan >( vlanId );
   auto const visit = begin(
         [ vlan = VlanIdOrNone( vlanId.value() ) ]( Pair pair ) { return pair.vlanId() == vlan; } );
   if( auto const database = sm_.inputs().bridgingStatus->fdbStatus( vlanId ) ) {
      sm_.walks().addVlan( vlanId, database, database->learnedHost(), visit );
   }
   end( visit, std::move( done ) );
}

// ---- What the machine itself wants forgotten

void
MacFlush::flushPort( Pelt::IntfId intf, VlanIdOrNone vlanId ) {
   flushIntf( intf, vlanId, {} );
}

void
MacFlush::flushLag( Pelt::IntfId lag, VlanIdOrNone vlanId ) {
   flushIntf( lag, vlanId, {} );
}

void
MacFlush::flushVlan( VlanId vlanId ) {
   flushVlan( vlanId, {} );
}

// ---- Stations behind the overlay

void
MacFlush::handleRemoteMacFlushRequest( VXLAN::FlushReqKey const & key ) {
   auto const table = sm_.inputs().rmacInfoDir->flushRequest();
   if( !table->requestHas( key ) ) {
      return;
   }
   auto const visit = begin( [ this, key ]( Pair pair ) {
      auto const entry = sm_.currentEntry( pair );
      return entry && Bridging::isEntryTypeRemote( entry->entryType ) &&
             ( !key.vlanId.value() || key.vlanId == pair.vlanId() ) &&
             ( !key.swTunnelGroupId || entry->swTunnelGroupId == key.swTunnelGroupId );
   } );
   auto const & status = *sm_.inputs().bridgingStatus;
   if( !key.vlanId.value() ) {
      sm_.walks().addStatus( status, visit );
   } else if( VlanId const vlan( key.vlanId.value() );
              auto const database = status.fdbStatus( vlan ) ) {
      sm_.walks().addVlan( vlan, database, database->learnedHost(), visit );
   }
   end( visit, [ table, key ] { table->requestDel( key ); } );
}

void
MacFlush::clear() {
   requests_.clear();
   open_ = 0;
   learned_.clear();
   written_.clear();
   waitForAll_.clear();
}

} // namespace Hoba
