// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaMacAddrSm.h"

#include "Hoba/HobaAssert.h"
#include "Hoba/HobaHelper.h"
#include "Kiv/Reflect.h"
#include "Zipline/Zipline.h"

ZIPLINE_HANDLE( HobaMacAddrSm );

KIV_DEFINE( Hoba::MacAddrSm );

// The machine's life. HobaMacEvents.cpp has what it hears, HobaMacStation.cpp its decisions, and
// HobaMacUpdateList.cpp how these are done.

namespace Hoba {

// ---- Life

namespace {

// What is behind the overlay is kept somewhere, also if nobody else wants to know.
MacAddrInputs
complete( MacAddrInputs inputs ) {
   if( !inputs.rmacInfoDir ) {
      inputs.rmacInfoDir = Kiv::make< HobaTypes::RemoteMacInfoDir >();
      inputs.rmacInfoDir->remoteHost()->remoteMacControl().attachWriter(
            "remoteHost", { .privateMemory = true } );
   }
   return inputs;
}

} // namespace

MacAddrSm::MacAddrSm( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                      Kiv::Ptr< HobaHelper::HobaHelperMacAddrSm > const & helper,
                      MacAddrInputs const & inputs )
      : HobaVerifiedSm( commonSmData ), in_( complete( inputs ) ), helper_( helper ),
        sources_( in_, this->commonSmData(), fsfFailedServer(), manageStaticMulticast() ),
        fdb_( in_ ), learning_( *this ), flush_( *this ), verify_( *this ) {
   HOBA_INVARIANT( helper, "MAC addresses are a matter of the hardware" );
   HOBA_INVARIANT( inputs.bridgingStatus, "stations are listed in a status" );
   macTableIs( in_.macTable );
   bridgingConfigIs( in_.bridgingConfig );
   bridgingStatusIs( in_.bridgingStatus );
   switchIntfConfigDirIs( in_.switchIntfConfigDir );
   vlanConfigDirIs( in_.vlanConfigDir );
   ethPhyIntfConfigDirIs( in_.ethPhyIntfConfigDir );
   ethPhyIntfStatusDirIs( in_.ethPhyIntfStatusDir );
   portVlanMembershipIs( in_.portVlanMembership );
   mlagStatusIs( in_.mlagStatus );
   mlagHostTableIs( in_.mlagHostTable );
   l2RibOutputIs( in_.l2RibHostOutput );
   destOutputIs( in_.l2RibDestOutput );
   lbOutputIs( in_.l2RibLoadBalanceOutput );
   objTupleToHwIdIs( in_.objTupleToHwId );
   evpnMacTableIs( in_.evpnMacTable );
   vxlanConfigDirIs( in_.vxlanConfigDir );
   vlanVniMapIs( in_.vlanVniMap );
   rmacInfoDirIs( in_.rmacInfoDir );
   routerMacTableIs( in_.routerMacTable );
   dot1xStatusIs( in_.dot1xStatus );
   dot1xHostTableIs( in_.dot1xHostTable );
   nonAgingMacStatusIs( in_.nonAgingStatus );
   fsfStatusIs( in_.fsfStatus );
   allFlushRequestDirIs( in_.flushRequestDir );
   auto const clock = [] { return Kiv::make< Kiv::Clock >(); };
   updateMacEntryClockIs( clock() );
   retryClockIs( clock() );
   macTableTimerIs( clock() );
   walkClockIs( clock() );
   mlagHostTableTimerIs( clock() );
   mlagIntfHostTableTimerIs( clock() );
   flushReqTimerIs( clock() );
   reactAcsdIs( commonSmData );
}

void
MacAddrSm::kivDoZombieReactors( bool marked ) {
   // The status stays for the next machine.
   if( marked ) {
      endWalks();
   }
   HobaVerifiedSm::kivDoZombieReactors( marked );
}

void
MacAddrSm::endWalks() {
   walks_.clear();
   mlagWalks_.clear();
   mlagIntfWalks_.clear();
   verify_.clear();
   flush_.clear();
   firstPassWalked_ = false;
}

// What was gathered and decided: of what happens meanwhile it would not hear.
void
MacAddrSm::forgetAll() {
   endWalks();
   updateListDelAll();
   refusedListDelAll();
   withheldDelAll();
   macTableUpdateListDelAll();
   fsfFailedServerDelAll();
   retries_ = 0;
   room_ = false;
   withheldWalk_.clear();
   pendingWalk_.clear();
   tunnelWalk_.clear();
   claimsWalk_.clear();
   tunnelWalks_ = 0;
   lostSince_.clear();
   hostsByIntf_.clear();
   lostReport_.clear();
   rib_ = {};
   keptRib_ = {};
   sources_.forgetVnis();
}

void
MacAddrSm::whenFirstPassIsDone( std::function< void() > call ) {
   whenFirstPassIsDone_ = std::move( call );
}

void
MacAddrSm::handleInitialized() {
   ZTRACE( 3, "MacAddrSm", " handleIntialized: ", initialized() );
   if( !initialized() ) {
      reactorsUninitialize();
      forgetAll();
      return;
   }
   forgetAll(); // of a beginning that threw
   helper_.call< &HobaHelper::HobaHelperMacAddrSm::hwInit >();
   reactorsInitialize();
   beginFirstPass();
}

// ---- The first pass

void
MacAddrSm::beginFirstPass() {
   inFirstPass_ = true;
   isIndexed_ = false;
   firstPassDoneIs( false );
   walks_.addStatus( *in_.bridgingStatus, [ this ]( Pair pair ) {
      if( auto const current = currentEntry( pair ) ) {
         indexIs( pair, {}, current->intf );
      }
   } );
   walks_.add( [ this ] { isIndexed_ = true; } );
   peerLinkIntfIs( in_.mlagStatus ? in_.mlagStatus->peerLinkIntf() : Pelt::IntfId() );
   adoptFailedServers();
   handleHostAgingTime();
   handleSourceMacInvalid();
   handleSourceCheckCPUMac();
   if( in_.ethPhyIntfStatusDir ) {
      for( auto const & [ intf, status ] : in_.ethPhyIntfStatusDir->ethPhyIntfStatus() ) {
         helper_.call< &HobaHelper::HobaHelperMacAddrSm::handleLinkStateAtInit >(
               Pelt::IntfId( intf ), status->linkStatus() );
      }
   }
   if( in_.l2RibLoadBalanceOutput ) {
      for( auto const & [ tuple, balance ] : in_.l2RibLoadBalanceOutput->loadBalance() ) {
         rib_.balanceIs( tuple, balance.dest );
      }
   }
   learning_.configureAll();
   walkSources();
   flush_.handleAll();
   for( auto const & key : Kiv::keysOf( in_.rmacInfoDir->flushRequest()->request() ) ) {
      handleRemoteMacFlushRequest( key );
   }
   // What is little is over at once.
   handleWalks();
}

// A server that failed while nobody looked: whether it is back by now the status knows.
void
MacAddrSm::adoptFailedServers() {
   if( !in_.fsfStatus ) {
      return;
   }
   for( auto const & [ pair, intf ] : in_.fsfStatus->failedServer() ) {
      auto const * host = fdb_.find( pair );
      bool const isAway = host && isCpuPort( host->intf );
      fsfFailedServerIs( pair, { intf, isAway ? host->lastMoveTime : 0 } );
   }
}

void
MacAddrSm::walkIntf( Pelt::IntfId intf, MacWalks::Visit const & visit ) {
   if( isIndexed_ ) {
      walks_.add(
            hostsBehind( intf ), []( Pair const & pair ) { return pair; }, visit );
   } else {
      walks_.addStatus( *in_.bridgingStatus, [ this, intf, visit ]( Pair pair ) {
         auto const current = currentEntry( pair );
         if( current && current->intf == intf ) {
            visit( pair );
         }
      } );
   }
   wakeWalks();
}

// Everything that is said of stations, and then what is in the status: who is in both is looked at twice.
void
MacAddrSm::walkSources() {
   auto const visit = evaluation();
   auto const add = [ & ]( auto const & entity, auto const & collection ) {
      walks_.add( collection, MacWalks::byKey, visit, {}, entity );
   };
   if( in_.l2RibHostOutput ) {
      add( in_.l2RibHostOutput, in_.l2RibHostOutput->host() );
   }
   if( in_.evpnMacTable ) {
      std::vector< Pair > pairs;
      in_.evpnMacTable->remoteMacForEach(
            [ & ]( Pair const & pair, auto const & ) { pairs.push_back( pair ); } );
      walks_.add( std::move( pairs ), visit );
   }
   if( in_.bridgingConfig ) {
      for( auto const & [ vlanId, fdb ] : in_.bridgingConfig->fdbConfig() ) {
         walks_.addVlan( vlanId, fdb, fdb->configuredHost(), visit );
      }
   }
   if( in_.mlagHostTable ) {
      add( in_.mlagHostTable, in_.mlagHostTable->hostEntry() );
   }
   if( in_.vxlanConfigDir ) {
      for( auto const & [ intf, config ] : in_.vxlanConfigDir->vxlanConfig() ) {
         add( config, config->remoteHost() );
      }
   }
   if( in_.routerMacTable ) {
      add( in_.routerMacTable, in_.routerMacTable->routerMac() );
   }
   if( in_.dot1xHostTable ) {
      add( in_.dot1xHostTable, in_.dot1xHostTable->hostEntry() );
   }
   add( in_.rmacInfoDir, in_.rmacInfoDir->receivedRemoteHost()->remoteHost() );
   walkTunnelLearnEvents( {} );
   for( auto const & [ pair, server ] : fsfFailedServer() ) {
      evaluateEntry( pair );
   }
   if( in_.macTable ) {
      add( in_.macTable, in_.macTable->macEntry() );
   }
   walks_.addStatus( *in_.bridgingStatus, visit );
   walks_.add( [ this ] { endFirstPass(); } );
}

void
MacAddrSm::endFirstPass() {
   firstPassWalked_ = !updateList().empty();
   if( firstPassWalked_ ) {
      return; // until all of it is done
   }
   inFirstPass_ = false;
   ZTRACE( 3, "MacAddrSm has looked at everything, ", fdb_.size(), " stations" );
   firstPassDoneIs( true );
   if( auto const call = std::exchange( whenFirstPassIsDone_, nullptr ) ) {
      call();
   }
}

// ---- For its parts

void
MacAddrSm::reprogram( Pair pair ) {
   auto const entry = currentEntry( pair );
   if( !entry || queued( pair ) ) {
      return;
   }
   bool const isLearned = isMacEntryLearned( entry->entryType );
   addToUpdateList( changeTo( *entry, Bridging::isEntryTypeRemote( entry->entryType )
                                            ? ( isLearned ? addLearntRemote : addConfiguredRemote )
                                      : isLearned ? addLearntToFdbStatus
                                                  : addConfiguredToFdbStatusAndHardware ) );
}

void
MacAddrSm::flushEntry( Pair pair, bool hardwareHolds ) {
   auto const current = currentEntry( pair );
   if( !current || !isMacEntryLearned( current->entryType ) || sources_.isNonAgingMac( pair ) ) {
      return;
   }
   // Until the hardware reports it again, what it reported counts no more.
   lose( pair );
   evaluateEntry( pair, false, !hardwareHolds );
}

void
MacAddrSm::wakeWalks() {
   if( !walks_.empty() ) {
      walkClock()->noLaterThan( now() );
   }
}

void
MacAddrSm::handleWalks() {
   if( isReady() ) {
      walks_.run( *this, *walkClock(), macTableReviewQuanta() );
      verify_.goOn();
   }
}

} // namespace Hoba
