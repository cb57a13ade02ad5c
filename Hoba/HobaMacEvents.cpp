// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaHelper.h"
#include "Hoba/HobaMacAddrSm.h"
#include "Zipline/Zipline.h"

ZIPLINE_HANDLE( HobaMacEvents );

// What the machine hears, and which stations it concerns.

namespace Hoba {

using Helper = HobaHelper::HobaHelperMacAddrSm;

// ---- The hardware's reports

void
MacAddrSm::handleMacEntry( Pair const & pair ) {
   if( !deferMacTableUpdate() ) {
      return handleMacTableUpdate( pair );
   }
   macTableUpdateListIs( pair );
   macTableTimer()->noLaterThan( now() );
}

void
MacAddrSm::handleMacTableTimer() {
   auto const timer = macTableTimer();
   TimeSlice slice( *this, *timer, macTableReviewQuanta() );
   while( isReady() && !macTableUpdateList().empty() ) {
      if( !slice.next() ) {
         timer->noLaterThan( timer->now() );
         return;
      }
      Pair const pair = *macTableUpdateList().begin();
      macTableUpdateListDel( pair );
      handleMacTableUpdate( pair );
   }
}

void
MacAddrSm::handleMacTableUpdate( Pair pair ) {
   if( auto const * entry = in_.macTable->macEntry().find( pair ) ) {
      handleAddressLearnt( *entry );
   } else {
      handleAddressAged( pair );
   }
}

void
MacAddrSm::handleAddressLearnt( HobaTypes::MacAddressTableEntry const & entry ) {
   auto const pair = entry.macEntry;
   ZTRACE( 6, "address learned - ", " Learnt: addr:", pair.addr(), " vid:", pair.vlanId(),
           " on:", entry.intf );
   if( !lostReport_.empty() ) {
      lostReport_.erase( pair );
   }
   flush_.learned( pair );
   if( Bridging::isEntryTypeRemote( entry.entryType ) && !isMacEntryLearned( entry.entryType ) ) {
      ZTRACE( 6, "Ignoring MacTable update for remote MAC ", pair, ": it is a candidate" );
   }
   evaluateEntry( pair, true, false );
}

void
MacAddrSm::handleAddressAged( Pair pair ) {
   ZTRACE( 6, " address aged - ", " Aged: addr:", pair.addr(), " vid:", pair.vlanId() );
   if( !lostReport_.empty() ) {
      lostReport_.erase( pair );
   }
   evaluateEntry( pair, false, true );
   room_ = true;
   if( !refusedList().empty() ) {
      roomAppeared();
   }
}

// ---- The operator

void
MacAddrSm::handleHostAgingTime() {
   helper_.call< &Helper::configureAgingTime >(
         in_.bridgingConfig ? in_.bridgingConfig->hostAgingTime() : 0.0 );
}

void
MacAddrSm::handleSourceMacInvalid() {
   helper_.call< &Helper::configureSourceMacInvalid >( in_.bridgingConfig &&
                                                       in_.bridgingConfig->sourceMacInvalid() );
}

void
MacAddrSm::handleSourceCheckCPUMac() {
   helper_.call< &Helper::configureSourceCheckCPUMac >( in_.bridgingConfig &&
                                                        in_.bridgingConfig->sourceCheckCpuMac() );
}

// The whole database of a VLAN came, went, or is another one.
void
MacAddrSm::handleFdbConfig( Bridging::VlanId const & vlanId ) {
   evaluateVlan( vlanId );
   if( auto const fdb = in_.bridgingConfig->fdbConfig( vlanId ) ) {
      walks_.addVlan( vlanId, fdb, fdb->configuredHost(), evaluation() );
   }
   wakeWalks();
}

void
MacAddrSm::handleConfiguredHost( Bridging::VlanId vlanId, Pelt::EthAddr addr ) {
   evaluateEntry( { addr, vlanId } );
}

void
MacAddrSm::handleEnableLearning( Pelt::IntfId const & intf ) {
   learning_.configureMacLearningOnPort( intf );
}

void
MacAddrSm::handleVlanConfig( Bridging::VlanId const & vlanId ) {
   if( !in_.vlanConfigDir->vlanConfig( vlanId ) ) {
      return handleVlanConfigDelete( vlanId );
   }
   handlePrimaryVlan( vlanId );
   learning_.macLearningStatusOnVlan( vlanId );
}

void
MacAddrSm::handleVlanConfigDelete( Bridging::VlanId vlanId ) {
   evaluateVlan( vlanId );
   // The rest is to be done also if the hardware cannot.
   Kiv::guarded( "MacAddrSm::handleVlanConfigDelete", Kiv::toText( vlanId ),
                 [ & ] { flush_.flushVlan( vlanId ); } );
   walks_.add( [ this, vlanId ] {
      fdb_.maybeDeleteFdbStatus( Bridging::VlanIdOrNone( vlanId.value() ) );
   } );
   wakeWalks();
   helper_.call< &Helper::handleVlanDelete >( vlanId );
   learning_.macLearningStatusOnVlan( vlanId );
}

void
MacAddrSm::handleVlanMacLearning( Bridging::VlanId const & vlanId ) {
   learning_.macLearningStatusOnVlan( vlanId );
}

void
MacAddrSm::handlePrimaryVlan( Bridging::VlanId const & vlanId ) {
   if( sources_.hasVni( Bridging::VlanIdOrNone( vlanId.value() ) ) ) {
      evaluateVlan( vlanId );
   }
}

// ---- Interfaces

// It came or went.
void
MacAddrSm::handleIntfChange( Pelt::IntfId const & intf ) {
   evaluateIntf( intf );
   if( !sources_.hasIntf( intf ) ) {
      flush_.flushPort( intf );
   }
}

void
MacAddrSm::handleEnableStateLocal( Pelt::IntfId const & intf ) {
   evaluateIntf( intf );
}

void
MacAddrSm::handleLinkState( Pelt::IntfId const & intf ) {
   auto const status = in_.ethPhyIntfStatusDir->ethPhyIntfStatus( intf );
   if( status && status->linkStatus() == Interface::linkDown && !commonSmData()->inLag( intf ) ) {
      ZTRACE( 4, "Link of ", intf, " is down, clear dynamic mac-address table entries" );
      flush_.flushPort( intf );
   }
}

void
MacAddrSm::handleVlanChange( Pelt::IntfId const & intf ) {
   if( commonSmData()->enforceVlanMembershipForStaticMac() ) {
      evaluateIntf( intf );
   }
}

// It came or went, or has other members.
void
MacAddrSm::handleLag( Pelt::IntfId const & lag ) {
   learning_.configureMacLearningOnPort( lag );
   if( !sources_.hasIntf( lag ) ) {
      evaluateIntf( lag );
      flush_.flushLag( lag );
      helper_.call< &Helper::removeLag >( lag );
      return;
   }
   if( commonSmData()->lagToPort( lag ).port.empty() ) {
      flush_.flushLag( lag ); // nobody is behind it any more
   }
   // It is there, whether or not it has members.
   evaluateWithheld();
}

// ---- The MLAG peer

void
MacAddrSm::handleMlagStateOrPeerLinkIntf() {
   auto const former = peerLinkIntf();
   peerLinkIntfIs( in_.mlagStatus->peerLinkIntf() );
   walkMlagHosts();
   for( auto const intf : { former, peerLinkIntf() } ) {
      if( intf ) {
         learning_.configureMacLearningOnPort( intf );
      }
   }
}

void
MacAddrSm::walkMlagHosts() {
   if( in_.mlagHostTable ) {
      mlagWalks_.clear();
      mlagWalks_.add( in_.mlagHostTable->hostEntry(), MacWalks::byKey, evaluation() );
      mlagHostTableTimer()->noLaterThan( now() );
   }
}

// In or out of the remote host table, with whoever told of them.
void
MacAddrSm::handleFastMacRedirection() {
   walkCurrent( [ this ]( Pair pair ) {
      auto const current = currentEntry( pair );
      if( current && Bridging::isEntryTypePeer( current->entryType ) &&
          Bridging::isEntryTypeRemote( current->entryType ) ) {
         reprogram( pair );
      }
   } );
}

void
MacAddrSm::handleMlagIntfStatus( Pelt::IntfId const & intf ) {
   if( !in_.mlagHostTable ) {
      return;
   }
   mlagIntfWalks_.add( in_.mlagHostTable->hostEntry(), MacWalks::byKey,
                       [ this, intf ]( Pair pair ) {
                          auto const * host = in_.mlagHostTable->hostEntry().find( pair );
                          if( host && host->intf == intf ) {
                             evaluateEntry( pair );
                          }
                       } );
   mlagIntfHostTableTimer()->noLaterThan( now() );
}

void
MacAddrSm::handleMlagHostTableTimer() {
   if( isReady() ) {
      mlagWalks_.run( *this, *mlagHostTableTimer(), mlagHostTableQuantum() );
   }
}

void
MacAddrSm::handleMlagIntfHostTableTimer() {
   if( isReady() ) {
      mlagIntfWalks_.run( *this, *mlagIntfHostTableTimer(), mlagIntfHostTableQuantum() );
   }
}

// ---- The RIB and the overlay

void
MacAddrSm::handleL2RibDest( L2Rib::ObjTuple const & tuple ) {
   for( auto const & each : rib_.affected( tuple ) ) {
      evaluateObject( each );
   }
}

void
MacAddrSm::handleL2RibLb( L2Rib::ObjTuple const & tuple ) {
   auto const * balance = in_.l2RibLoadBalanceOutput->loadBalance().find( tuple );
   rib_.balanceIs( tuple, balance ? balance->dest : std::vector< L2Rib::ObjTuple >() );
   evaluateObject( tuple );
}

void
MacAddrSm::handleObjTupleToHwIdMap( L2Rib::ObjTuple const & tuple ) {
   evaluateObject( tuple );
}

void
MacAddrSm::handleVxlanConfig( Pelt::VxlanIntfId const & intf ) {
   handleControllerClient();
   if( auto const config = in_.vxlanConfigDir->vxlanConfig( intf ) ) {
      walks_.add( config->remoteHost(), MacWalks::byKey, evaluation(), {}, config );
   }
   wakeWalks();
}

// Which stations behind the overlay count has changed.
void
MacAddrSm::handleControllerClient() {
   walkCurrent( evaluation() );
   evaluateWithheld();
   walkTunnelLearnEvents( {} );
}

void
MacAddrSm::handleVlanVniMap( Bridging::VlanId const & vlanId ) {
   sources_.forgetVnis();
   evaluateVlan( vlanId );
   walkTunnelLearnEvents( Bridging::VlanIdOrNone( vlanId.value() ) );
}

void
MacAddrSm::walkTunnelLearnEvents( Bridging::VlanIdOrNone vlanId ) {
   auto const events = in_.rmacInfoDir->tunnelLearnEvent();
   if( events->event().empty() ) {
      return;
   }
   auto & asked = tunnelWalk_.ask( [ & ]( auto const & which, auto const & begun ) {
      ++tunnelWalks_;
      walks_.add(
            events->event(), [ this ]( auto const & member ) { return pairOf( member.key ); },
            [ this, which, begun ]( Pair pair ) {
               begun();
               bool const isAnew = which->has( pair.vlanId() );
               if( !pair.vlanId().value() || !( isAnew || which->has( {} ) ) ) {
                  return;
               }
               // An event is told anew with the VLAN's new VNI.
               if( isAnew && !lostSince_.has( pair ) ) {
                  lostReport_.erase( pair );
               }
               evaluateEntry( pair );
            },
            [ this, begun ] {
               begun();
               if( --tunnelWalks_ == 0 ) {
                  lostSince_.clear();
               }
            },
            events );
   } );
   asked.insert( vlanId );
   if( vlanId.value() && !lostSince_.empty() ) {
      for( auto const & pair : Kiv::keysOf( lostSince_ ) ) {
         if( pair.vlanId() == vlanId ) {
            lostSince_.erase( pair );
         }
      }
   }
   wakeWalks();
}

MacAddrSm::Pair
MacAddrSm::pairOf( Vxlan::VniMac const & host ) const {
   auto const vlanId = sources_.vlanOf( host.vni );
   if( !vlanId.value() ) {
      ZTRACE( 2, host.addr, " ERROR: no mapping for vni ", host.vni );
   }
   return { host.addr, vlanId };
}

void
MacAddrSm::handleTunnelLearnEvent( Vxlan::VniMac const & host ) {
   auto const pair = pairOf( host );
   if( !pair.vlanId().value() ) {
      return;
   }
   bool const isThere = in_.rmacInfoDir->tunnelLearnEvent()->eventHas( host );
   if( !lostReport_.empty() ) {
      lostReport_.erase( pair );
   }
   if( isThere ) {
      flush_.learned( pair );
   }
   evaluateEntry( pair, false, !isThere );
}

// The overlay's agent has told of all it knows, or begins to.
void
MacAddrSm::handleStageRemoteMacsReady() {
   if( sources_.overlayRestarts() ) {
      ZTRACE( 3, " skip deleting remote MACs from fdbstatus as vxlan ",
              "hitless restart is in progress" );
   } else {
      doClearRemoteMacsFromFdbStatus();
   }
}

void
MacAddrSm::doClearRemoteMacsFromFdbStatus() {
   walkCurrent( [ this ]( Pair pair ) {
      auto const current = currentEntry( pair );
      if( current && Bridging::isEntryTypeRemote( current->entryType ) ) {
         evaluateEntry( pair );
      }
   } );
}

void
MacAddrSm::handleRemoteMacFlushRequest( VXLAN::FlushReqKey const & key ) {
   flush_.handleRemoteMacFlushRequest( key );
}

// ---- 802.1X

void
MacAddrSm::handleDot1xEnabled() {
   for( auto const & intf : Kiv::keysOf( in_.dot1xStatus->intfStatus() ) ) {
      handleHostMode( intf );
   }
}

void
MacAddrSm::handlePortAuthState( Pelt::IntfId const & intf ) {
   learning_.configureMacLearningOnPort( intf );
}

void
MacAddrSm::handleHostMode( Pelt::IntfId const & intf ) {
   evaluateIntf( intf );
   learning_.configureMacLearningOnPort( intf );
}

// ---- Stations that never age, servers that failed

void
MacAddrSm::handleNonAgingEnabled() {
   walks_.add(
         in_.nonAgingStatus->macEntries(), MacWalks::byKey,
         [ this ]( Pair pair ) { handleNonAgingMacEntries( pair ); }, {}, in_.nonAgingStatus );
   wakeWalks();
}

void
MacAddrSm::handleNonAgingMacEntries( Pair const & pair ) {
   auto const current = currentEntry( pair );
   if( !current || !isMacEntryLearned( current->entryType ) ) {
      return;
   }
   evaluateEntry( pair );
   // It ages from now on, or ages no more.
   reprogram( pair );
}

void
MacAddrSm::handleFsfFailedServer( Pair const & pair ) {
   auto const * intf = in_.fsfStatus->failedServer().find( pair );
   if( intf ) {
      ZTRACE( 4, "Adding entry for FSF failed server on ", *intf, ' ', pair );
      fsfFailedServerIs( pair, { *intf, now() } );
      return evaluateEntry( pair );
   }
   ZTRACE( 4, "Removing entry for FSF failed server on ", fsfFailedServer( pair ).intf, ' ', pair );
   fsfFailedServerDel( pair );
   auto const current = currentEntry( pair );
   if( current && current->intf != Pelt::CpuIntfId() ) {
      ZTRACE( 4, "Not removing FDB entry for FSF server: ", pair,
              " as it doesn't have CPU port but has ", current->intf );
   }
   evaluateEntry( pair );
}

// ---- Flushes, errors in the hardware

void
MacAddrSm::handleFlushRequestInputDir( Kiv::String const & agent ) {
   flush_.handleFlushRequestInputDir( agent );
}

void
MacAddrSm::handleParityEvent( ParityEvent::Key const & key ) {
   if( !commonSmData()->parityEventHas( key ) ) {
      return;
   }
   for( auto const pair : helper_.call< &Helper::handleParityEvent >( key ) ) {
      reprogram( pair );
   }
}

// ---- Walks

MacWalks::Visit
MacAddrSm::evaluation() {
   return [ this ]( Pair pair ) { evaluateEntry( pair ); };
}

void
MacAddrSm::evaluateVlan( Bridging::VlanId vlanId ) {
   Bridging::VlanIdOrNone const vlan( vlanId.value() );
   evaluatePending( vlan );
   if( auto const database = in_.bridgingStatus->fdbStatus( vlanId ) ) {
      walks_.addVlan( vlanId, database, database->learnedHost(), evaluation() );
   }
   evaluateWithheld( vlan );
   wakeWalks();
}

// Stations behind it, claims that name it, and claims that wait for something, which may be the interface.
void
MacAddrSm::evaluateIntf( Pelt::IntfId intf ) {
   walkIntf( intf, evaluation() );
   walkClaims( intf );
   evaluateWithheld();
}

void
MacAddrSm::walkPending( MacWalks::Visit const & visit ) {
   for( auto const * list : { &updateList(), &refusedList() } ) {
      if( !list->empty() ) {
         walks_.add( *list, MacWalks::byKey, visit );
      }
   }
}

void
MacAddrSm::walkCurrent( MacWalks::Visit const & visit ) {
   walkPending( visit );
   walks_.addStatus( *in_.bridgingStatus, visit );
   wakeWalks();
}

void
MacAddrSm::walkClaims( Pelt::IntfId intf ) {
   auto & asked = claimsWalk_.ask( [ & ]( auto const & which, auto const & begun ) {
      auto const visit = [ this, which, begun ]( Pair pair ) {
         begun();
         if( sources_.isClaimedBehind( pair, *which ) ) {
            evaluateEntry( pair );
         }
      };
      if( in_.bridgingConfig ) {
         for( auto const & [ vlanId, fdb ] : in_.bridgingConfig->fdbConfig() ) {
            walks_.addVlan( vlanId, fdb, fdb->configuredHost(), visit );
         }
      }
      if( in_.dot1xHostTable ) {
         walks_.add( in_.dot1xHostTable->hostEntry(), MacWalks::byKey, visit, {},
                     in_.dot1xHostTable );
      }
      walks_.add( begun );
   } );
   asked.insert( intf );
   wakeWalks();
}

template< class... Collections >
void
MacAddrSm::evaluateShared( MacSharedWalk< Vlans > & shared, Bridging::VlanIdOrNone vlanId,
                           Collections const &... collections ) {
   if( ( collections.empty() && ... ) ) {
      return;
   }
   auto & asked = shared.ask( [ & ]( auto const & which, auto const & begun ) {
      auto const visit = [ this, which, begun ]( Pair pair ) {
         begun();
         if( which->has( {} ) || which->has( pair.vlanId() ) ) {
            evaluateEntry( pair );
         }
      };
      ( walks_.add( collections, MacWalks::byKey, visit ), ... );
      walks_.add( begun );
   } );
   asked.insert( vlanId );
   wakeWalks();
}

void
MacAddrSm::evaluateWithheld( Bridging::VlanIdOrNone vlanId ) {
   evaluateShared( withheldWalk_, vlanId, withheld() );
}

void
MacAddrSm::evaluatePending( Bridging::VlanIdOrNone vlanId ) {
   evaluateShared( pendingWalk_, vlanId, updateList(), refusedList() );
}

void
MacAddrSm::evaluateObject( L2Rib::ObjTuple tuple ) {
   for( auto const * rib : { &rib_, &keptRib_ } ) {
      if( auto const * hosts = rib->hosts( tuple ) ) {
         walks_.add(
               *hosts, []( Pair const & pair ) { return pair; }, evaluation() );
      }
   }
   wakeWalks();
}

} // namespace Hoba
