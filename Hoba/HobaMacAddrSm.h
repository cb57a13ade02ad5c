// SPDX-License-Identifier: Apache-2.0
#pragma once

// The MAC address table: where each station (a MAC address in a VLAN) is, given that many say so. The hardware
// learns, the operator configures, the MLAG peer, the overlay and a controller tell, hosts authenticate,
// the switch is a router. The machine weighs them, writes the winner to Bridging::Status, programs the
// hardware by HobaHelper::HobaHelperMacAddrSm, counts moves, and forgets stations on request.
//
// It is made of
//    HobaMacInputs.h        what it watches and writes
//    HobaMacSources.h       what all sources say of one station
//    HobaMacArbitration.h   which of the candidates is believed          (pure)
//    HobaMacEvaluation.h    what becomes of the station then, and why    (pure: the rules stand there)
//    HobaMacFdb.h           what is in force: the status, remote stations, their next hops' counts
//    HobaMacRib.h           which stations hang on which objects of the RIB
//    HobaMacFlush.h         requests to forget stations
//    HobaMacLearning.h      where stations are learnt at all
//    HobaMacVerify.h        comparing with the hardware
//    HobaMacWalks.h         walks over many stations
// and this file, which hears of what happens, has the station evaluated, and what was decided done.
//
// What is decided waits in `updateList` until the machine's clock programs it, in the order in which it was
// decided; what is decided anew before that replaces it. Two things need not wait: what the hardware has
// learnt and holds, and the end of what it has forgotten. What the hardware refuses waits in `refusedList`: for
// want of room until an entry has left the hardware, and in any case for retryDelay. It does not hold up what
// comes behind it. A refused change leaves status and hardware as they were.
//
// The status holds what is in force, and outlives the machine. A machine that begins keeps what is claimed,
// with its moves and times, and removes the rest when it has looked at everything, in slices
// (`firstPassDone`). Of what it keeps, entries that software wrote are told to the hardware once more, which
// claims them; what the hardware learnt is not touched.
//
// What is watched and does nothing, since no rule is known: Bridging::Status, the VLAN helper's changes; the
// interfaces of a VLAN (its membership has the rule), and the status of remote hosts, which is the machine's own.
//
// Stations that never age (NonAgingStatus) are written as learnt ones that do not age. When nobody asks for
// that any more they age again if the hardware still reports them, and are forgotten otherwise. They are not
// flushed. A station that was learnt and is ignored (802.1X, a controller, ...) stays in the hardware until it
// ages, so that it is not learnt and reported with each of its frames.

#include "Hoba/HobaHelperMacAddrSm.h"
#include "Hoba/HobaHook.h"
#include "Hoba/HobaMacFdb.h"
#include "Hoba/HobaMacFlush.h"
#include "Hoba/HobaMacLearning.h"
#include "Hoba/HobaMacLog.h"
#include "Hoba/HobaMacRib.h"
#include "Hoba/HobaMacSources.h"
#include "Hoba/HobaMacVerify.h"
#include "Hoba/HobaMacWalks.h"
#include "Hoba/HobaVerifiedSm.h"

namespace Hoba {

// A decided change that has not been done: the station is to be like this.
struct ModifyMacEntry {
   KIV_VALUE( Hoba::ModifyMacEntry );
   KIV_FIELD( Bridging::MacVlanPair, macEntry );
   KIV_FIELD( Pelt::IntfId, intf );
   KIV_FIELD( Bridging::EntryType, entryType, Bridging::entryTypeUnknown );
   KIV_FIELD( std::uint32_t, moves, 0 );
   KIV_FIELD( Kiv::Seconds, lastMoveTime, 0 );
   KIV_FIELD( EntryEvaluationAction, action, invalidAction );
   KIV_FIELD( SwTunnelGroupId, swTunnelGroupId );
   KIV_FIELD( L2Rib::ObjTuple, l2RibObjTuple );
   KIV_FIELD( bool, isMplsNextHop, false );
   KIV_FIELD( bool, movedToLocal, false );
   KIV_FIELD( bool, movedToRemote, false );
   // It was logged that there is no room.
   KIV_FIELD( bool, fullLogged, false );
   KIV_FIELD( Bridging::DropMode, dropMode, Bridging::dropModeNone );
   // What the hardware said last, and since when it waits.
   KIV_FIELD( MacProgramStatus, refusal, macProgramSuccess );
   KIV_FIELD( Kiv::Seconds, since, 0 );

   // What the station is to be.
   MacEntry entry() const;
};

ModifyMacEntry modifyMacEntryFactory( Bridging::MacVlanPair pair, Pelt::IntfId intf,
                                      Bridging::EntryType entryType, std::uint32_t moves );

// A claim that has no say for now, and since when.
struct MacWithheld {
   KIV_VALUE( Hoba::MacWithheld );
   KIV_FIELD( MacObstacle, obstacle, macObstacleNone );
   KIV_FIELD( Kiv::Seconds, since, 0 );
};

// A station went from one place to another.
struct MacMove {
   KIV_VALUE( Hoba::MacMove );
   KIV_FIELD( Bridging::MacVlanPair, macEntry );
   KIV_FIELD( Pelt::IntfId, from );
   KIV_FIELD( Pelt::IntfId, to );
   KIV_FIELD( Kiv::Seconds, time, 0 );
   KIV_FIELD( std::uint32_t, moves, 0 );
};

// Everything that there is to say of one station. See MacAddrSm::explain().
struct MacExplanation {
   // In the order of the sources, with what beat each; of the best one, macRuleOnlyOne if it is the only one,
   // otherwise the rule by which it beat the last that it met.
   struct Line {
      MacCandidate candidate;
      std::uint32_t rank = 0;
      bool isBest = false;
      MacRule rule = macRuleOnlyOne;
   };
   std::vector< Line > candidates;
   std::vector< MacNoCandidate > none;
   // What is learnt; what stands before it, or whether it counts no more.
   std::optional< MacEntry > reported;
   MacObstacle reportedObstacle = macObstacleNone;
   bool reportedLost = false;
   MacObstacle configuredObstacle = macObstacleNone;
   // In force.
   std::optional< MacEntry > status;
   // Decided and not done.
   std::optional< ModifyMacEntry > pending;
   // What an evaluation decides now. Its action is invalid if nothing has to be done.
   MacVerdict verdict;
   std::optional< MacWithheld > withheld;
   bool isNonAging = false;
   bool isFailedServer = false;
};

class MacAddrSm : public HobaVerifiedSm {
   HOBA_MACHINE( MacAddrSm, Hoba::HobaVerifiedSm );
   // Changes to be done next, and changes that the hardware refused.
   KIV_KEYED( ModifyMacEntry, Bridging::MacVlanPair, macEntry, updateList );
   KIV_KEYED( ModifyMacEntry, Bridging::MacVlanPair, macEntry, refusedList );
   // Claims that an obstacle stands before.
   KIV_COLLECTION( Bridging::MacVlanPair, MacWithheld, withheld );
   // Reports of the hardware that are put off: see deferMacTableUpdate.
   KIV_SET( Bridging::MacVlanPair, macTableUpdateList );
   // Servers that have failed, with the interface behind which they were.
   KIV_COLLECTION( Bridging::MacVlanPair, MacSources::FailedServer, fsfFailedServer );
   // The last moves, oldest first; at most moveLogSize.
   KIV_QUEUE( MacMove, moveLog );
   KIV_COUNTER( std::uint64_t, moveCount );
   // By interface: what the hardware was told of learning; not there: it learns.
   KIV_COLLECTION( Pelt::IntfId, bool, portLearning );
   KIV_COLLECTION( Bridging::VlanId, bool, vlanLearning );
   // A full flush is pending.
   KIV_ATTRIBUTE( bool, flushAll, false );
   // All that there was has been looked at.
   KIV_ATTRIBUTE( bool, firstPassDone, false );
   // The peer link.
   KIV_ATTRIBUTE( Pelt::IntfId, peerLinkIntf );

   // ---- Switches, for who owns the machine
   // What the hardware reports is looked at in turns of the clock, macTableReviewQuanta at a time, and not at
   // once.
   KIV_ATTRIBUTE( bool, deferMacTableUpdate, false );
   // The database of a VLAN without stations stays until the VLAN goes.
   KIV_ATTRIBUTE( bool, lazyFdbStatusDeletion, false );
   // Configured group addresses are programmed like stations, and not refused.
   KIV_ATTRIBUTE( bool, manageStaticMulticast, false );
   // Each programmed change is traced at level 2 instead of 5.
   KIV_ATTRIBUTE( bool, showMacUpdateStatus, false );
   // How many at most in a turn of the clock: changes programmed, stations looked at, the peer's stations,
   // the peer's stations behind one LAG.
   KIV_ATTRIBUTE( std::uint32_t, macModifyBacklogQuantum, 1024 );
   KIV_ATTRIBUTE( std::uint32_t, macTableReviewQuanta, 4096 );
   KIV_ATTRIBUTE( std::uint32_t, mlagHostTableQuantum, 1024 );
   KIV_ATTRIBUTE( std::uint32_t, mlagIntfHostTableQuantum, 1024 );

 public:
   using Pair = Bridging::MacVlanPair;
   static constexpr std::size_t moveLogSize = 1000;
   // How long what the hardware refused waits until it is tried again.
   static constexpr Kiv::Seconds retryDelay = 1;

   void handleInitialized() override;
   void handleVerify() override { verify_.handleVerify(); }
   void kivDoZombieReactors( bool marked ) override;
   // Called once, when firstPassDone is true.
   void whenFirstPassIsDone( std::function< void() > call );

   // ---- Questions
   MacExplanation explain( Pair pair ) const;
   // As status, updateList and remote host table have it: what is wanted so far. None for one that goes.
   std::optional< MacEntry > currentEntry( Pair pair ) const;
   bool isNonAgingMac( Pair pair ) const { return sources_.isNonAgingMac( pair ); }
   MacSources const & sources() const { return sources_; }
   MacFdb const & fdb() const { return fdb_; }
   MacFlush const & flushes() const { return flush_; }
   // The stations behind the interface, wanted or in force.
   Kiv::HashSet< Pair > const & hostsBehind( Pelt::IntfId intf ) const;

   // ---- For its parts: what happened to a station
   // Something that is said of it has changed.
   void evaluateEntry( Pair pair ) { evaluateEntry( pair, false, false ); }
   void evaluateEntry( Pair pair, bool learnedInHardware, bool agedInHardware );
   // It is to be forgotten, if it was learnt and may be. The hardware has been told, and has forgotten it, or holds
   // it all the same.
   void flushEntry( Pair pair, bool hardwareHolds );
   // The hardware is to be told once more what it holds of it.
   void reprogram( Pair pair );
   MacWalks & walks() { return walks_; }
   MacFlush & flush() { return flush_; }
   // Visits all stations behind the interface.
   void walkIntf( Pelt::IntfId intf, MacWalks::Visit const & visit );
   // And those that wait to be programmed: they may be in no status yet.
   void walkPending( MacWalks::Visit const & visit );
   // The walks go on, from the clock.
   void wakeWalks();
   Hooks< HobaHelper::HobaHelperMacAddrSm > const & helper() const { return helper_; }
   MacAddrInputs const & inputs() const { return in_; }
   Kiv::Seconds now() const { return walkClock()->now(); }
   bool isReady() const { return initialized() && !kivMarkedForDeletion(); }
   bool inFirstPass() const { return inFirstPass_; }
   // How the hardware's entry differs from it; empty if it does not.
   Kiv::String verifyHost( MacEntry const & entry ) const;

 protected:
   // Programs `helper`; does so with what `inputs` has. Its clocks are its own, on the ambient driver. Throws
   // Kiv::Exception when the helper or inputs.bridgingStatus is null.
   MacAddrSm( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
              Kiv::Ptr< HobaHelper::HobaHelperMacAddrSm > const & helper,
              MacAddrInputs const & inputs );

 private:
   // ---- What is heard
   void handleMacEntry( Pair const & pair );
   void handleMacTableUpdate( Pair pair );
   void handleMacTableTimer();
   void handleAddressLearnt( HobaTypes::MacAddressTableEntry const & entry );
   void handleAddressAged( Pair pair );
   void handleHostAgingTime();
   void handleSourceMacInvalid();
   void handleSourceCheckCPUMac();
   void handleFdbConfig( Bridging::VlanId const & vlanId );
   void handleConfiguredHost( Bridging::VlanId vlanId, Pelt::EthAddr addr );
   void handleEnableLearning( Pelt::IntfId const & intf );
   void handleVlanConfig( Bridging::VlanId const & vlanId );
   void handleVlanConfigDelete( Bridging::VlanId vlanId );
   void handleVlanMacLearning( Bridging::VlanId const & vlanId );
   void handlePrimaryVlan( Bridging::VlanId const & vlanId );
   void handleIntfChange( Pelt::IntfId const & intf );
   void handleEnableStateLocal( Pelt::IntfId const & intf );
   void handleLinkState( Pelt::IntfId const & intf );
   void handleVlanChange( Pelt::IntfId const & intf );
   void handleLag( Pelt::IntfId const & lag );
   void handleMlagStateOrPeerLinkIntf();
   void handleMlagIntfStatus( Pelt::IntfId const & intf );
   void handleFastMacRedirection();
   void handleMlagHostTableTimer();
   void handleMlagIntfHostTableTimer();
   void handleMlagHostTableEntry( Pair const & pair ) { evaluateEntry( pair ); }
   void handleL2RibHost( Pair const & pair ) { evaluateEntry( pair ); }
   void handleL2RibDest( L2Rib::ObjTuple const & tuple );
   void handleL2RibLb( L2Rib::ObjTuple const & tuple );
   void handleObjTupleToHwIdMap( L2Rib::ObjTuple const & tuple );
   void handleEvpnMacEntry( Pair const & pair ) { evaluateEntry( pair ); }
   void handleVxlanConfig( Pelt::VxlanIntfId const & intf );
   void handleControllerClient();
   void handleConfiguredRemoteHost( Pair const & pair ) { evaluateEntry( pair ); }
   void handleVlanVniMap( Bridging::VlanId const & vlanId );
   void handleReceivedRemoteHost( Pair const & pair ) { evaluateEntry( pair ); }
   void handleTunnelLearnEvent( Vxlan::VniMac const & host );
   void handleStageRemoteMacsReady();
   void handleRemoteMacFlushRequest( VXLAN::FlushReqKey const & key );
   void handleRouterMacEntry( Pair const & pair ) { evaluateEntry( pair ); }
   void handleDot1xEnabled();
   void handlePortAuthState( Pelt::IntfId const & intf );
   void handleHostMode( Pelt::IntfId const & intf );
   void handleDot1xHostTableEntry( Pair const & pair ) { evaluateEntry( pair ); }
   void handleNonAgingEnabled();
   void handleNonAgingMacEntries( Pair const & pair );
   void handleFsfFailedServer( Pair const & pair );
   void handleFlushRequestInputDir( Kiv::String const & agent );
   void handleFlushReqTimer() { flush_.handleFlushReqTimer(); }
   void handleParityEvent( ParityEvent::Key const & key );
   void handleReverify() { verify_.handleVerify(); }
   void handleWalks();

   // ---- The first pass
   void beginFirstPass();
   void walkSources();
   void endFirstPass();
   void adoptFailedServers();
   void endWalks();
   void forgetAll();

   // ---- Decide
   bool checkIgnoreEvent( Pair pair, MacClaims & claims );
   void detectRemoteLocalMove( MacEntry const * before, MacEntry const & after, int point,
                               ModifyMacEntry & change ) const;
   bool collidingStaticEntryWithRouterMacEntry( MacCandidates const & candidates ) const;
   void traceMoves( MacVerdict const & verdict ) const;
   // What was learnt counts no more until it is reported again.
   void lose( Pair pair );
   bool hasOtherNextHop( MacVerdict const & verdict, MacClaims const & claims ) const;
   void noteWithheld( Pair pair, MacClaims const & claims,
                      std::vector< MacNoCandidate > const & none );
   void decided( MacVerdict const & verdict, MacClaims const & claims, bool hardwareHolds,
                 bool isRerouted );
   void decidedAdd( MacVerdict const & verdict, MacClaims const & claims, bool hardwareHolds );
   void decidedRemoval( MacVerdict const & verdict, MacClaims const & claims );
   void addToUpdateList( ModifyMacEntry const & change );
   ModifyMacEntry const * queued( Pair pair ) const;
   static ModifyMacEntry changeTo( MacEntry const & entry, EntryEvaluationAction action );
   void indexIs( Pair pair, Pelt::IntfId from, Pelt::IntfId to );
   bool maybeUpdateMoveCount( MacEntry const & entry, MacEntry const * current );
   // What the hardware learnt may have to be written all the same.
   bool needsHardware( MacEntry const & entry, bool hardwareHolds ) const;

   // ---- Do
   void updateQueuedAddresses();
   void retryRefused();
   void retrySome();
   void program( Pair pair );
   MacProgramStatus programEntry( ModifyMacEntry const & change );
   MacProgramStatus programLocal( ModifyMacEntry const & change );
   MacProgramStatus programRemote( ModifyMacEntry const & change );
   MacProgramStatus programRemoval( ModifyMacEntry const & change );
   void refused( ModifyMacEntry change, MacProgramStatus status );
   void roomAppeared();
   void inForce( MacEntry const & entry );
   void outOfForce( Pair pair );
   HobaHelper::Host hostOf( MacEntry const & entry ) const;
   HobaHelper::RemoteHost remoteHostOf( MacEntry const & entry, MacNextHop const & hop ) const;
   bool isKeptOutOfRemoteHostTable( MacEntry const & entry ) const;
   bool skipHwProgInHitlessRestartMode( MacEntry const & entry ) const;
   void doClearRemoteMacsFromFdbStatus();

   // ---- Walks
   MacWalks::Visit evaluation();
   void evaluateVlan( Bridging::VlanId vlanId );
   void evaluateIntf( Pelt::IntfId intf );
   // All for whom something is decided.
   void walkCurrent( MacWalks::Visit const & visit );
   // What the operator or dot1x claims behind the interface, also if it lost.
   void walkClaims( Pelt::IntfId intf );
   // All that the peer told.
   void walkMlagHosts();
   using Vlans = Kiv::HashSet< Bridging::VlanIdOrNone >;
   using Intfs = Kiv::HashSet< Pelt::IntfId >;
   template< class... Collections >
   void evaluateShared( MacSharedWalk< Vlans > & shared, Bridging::VlanIdOrNone vlanId,
                        Collections const &... collections );
   // All that is withheld in the VLAN, or in all: whatever it waits for, the first obstacle alone is noted.
   void evaluateWithheld( Bridging::VlanIdOrNone vlanId = {} );
   // All that waits to be programmed in the VLAN, or in all.
   void evaluatePending( Bridging::VlanIdOrNone vlanId );
   // What tunnels learnt in the VLAN, or in all.
   void walkTunnelLearnEvents( Bridging::VlanIdOrNone vlanId );
   // None in a VLAN without that number.
   Pair pairOf( Vxlan::VniMac const & host ) const;
   // Its next hop; what keeps its place while that is worked out anew has the one that it is programmed with.
   MacNextHop nextHopToProgram( MacEntry const & entry ) const;
   void evaluateObject( L2Rib::ObjTuple tuple );

   class KivMacTable
         : public Kiv::Hears<
                 MacAddrSm, HobaTypes::MacTable const,
                 Kiv::WhenReady< HobaTypes::MacTable::macEntryAttr, &MacAddrSm::handleMacEntry > > {
   };
   class KivFdbConfig : public Kiv::Reactor< KivFdbConfig, Bridging::FdbConfig const, MacAddrSm,
                                             Bridging::VlanId > {
      void handleConfiguredHost( Pelt::EthAddr const & addr ) {
         owner().handleConfiguredHost( key(), addr );
      }

    public:
      static constexpr auto handlers =
            Kiv::handlers( Kiv::WhenReady< Bridging::FdbConfig::configuredHostAttr,
                                           &KivFdbConfig::handleConfiguredHost >() );
   };
   KIV_REACTORS( Bridging::VlanId, KivFdbConfig, fdbConfig );
   class KivBridgingConfig
         : public Kiv::Hears<
                 MacAddrSm, Bridging::Config const,
                 Kiv::WhenReady< Bridging::Config::hostAgingTimeAttr,
                                 &MacAddrSm::handleHostAgingTime >,
                 Kiv::WhenReady< Bridging::Config::sourceMacInvalidAttr,
                                 &MacAddrSm::handleSourceMacInvalid >,
                 Kiv::WhenReady< Bridging::Config::sourceCheckCpuMacAttr,
                                 &MacAddrSm::handleSourceCheckCPUMac >,
                 Kiv::Follow< Bridging::Config::fdbConfigAttr, &MacAddrSm::fdbConfig_ >,
                 Kiv::WhenReady< Bridging::Config::fdbConfigAttr, &MacAddrSm::handleFdbConfig > > {
   };
   class KivBridgingStatus : public Kiv::Hears< MacAddrSm, Bridging::Status const > {};
   class KivConfig
         : public Kiv::Hears< MacAddrSm, Bridging::SwitchIntfConfig const, Pelt::IntfId,
                              Kiv::WhenReady< Bridging::SwitchIntfConfig::enableLearningAttr,
                                              &MacAddrSm::handleEnableLearning > > {};
   KIV_REACTORS( Pelt::IntfId, KivConfig, switchIntf );
   class KivConfigDir
         : public Kiv::Hears< MacAddrSm, Bridging::SwitchIntfConfigDir const,
                              Kiv::Follow< Bridging::SwitchIntfConfigDir::switchIntfConfigAttr,
                                           &MacAddrSm::switchIntf_ >,
                              Kiv::WhenReady< Bridging::SwitchIntfConfigDir::switchIntfConfigAttr,
                                              &MacAddrSm::handleEnableLearning > > {};
   class KivVlanConfig : public Kiv::Hears< MacAddrSm, Bridging::VlanConfig const, Bridging::VlanId,
                                            Kiv::WhenReady< Bridging::VlanConfig::macLearningAttr,
                                                            &MacAddrSm::handleVlanMacLearning >,
                                            Kiv::WhenReady< Bridging::VlanConfig::primaryVlanAttr,
                                                            &MacAddrSm::handlePrimaryVlan > > {};
   KIV_REACTORS( Bridging::VlanId, KivVlanConfig, vlanConfig );
   class KivVlanConfigDir
         : public Kiv::Hears<
                 MacAddrSm, Bridging::VlanConfigDir const,
                 Kiv::Follow< Bridging::VlanConfigDir::vlanConfigAttr, &MacAddrSm::vlanConfig_ >,
                 Kiv::WhenReady< Bridging::VlanConfigDir::vlanConfigAttr,
                                 &MacAddrSm::handleVlanConfig > > {};
   class KivEthConfig
         : public Kiv::Hears< MacAddrSm, Interface::EthPhyIntfConfig const, Pelt::IntfId,
                              Kiv::WhenReady< Interface::EthPhyIntfConfig::enabledAttr,
                                              &MacAddrSm::handleEnableStateLocal > > {};
   KIV_REACTORS( Pelt::IntfId, KivEthConfig, ethConfig );
   class KivEthPhyIntfConfigDir
         : public Kiv::Hears< MacAddrSm, Interface::EthPhyIntfConfigDir const,
                              Kiv::Follow< Interface::EthPhyIntfConfigDir::ethPhyIntfConfigAttr,
                                           &MacAddrSm::ethConfig_ >,
                              Kiv::WhenReady< Interface::EthPhyIntfConfigDir::ethPhyIntfConfigAttr,
                                              &MacAddrSm::handleIntfChange > > {};
   class KivEthStatus
         : public Kiv::Hears< MacAddrSm, Interface::EthPhyIntfStatus const, Pelt::IntfId,
                              Kiv::WhenReady< Interface::EthPhyIntfStatus::linkStatusAttr,
                                              &MacAddrSm::handleLinkState > > {};
   KIV_REACTORS( Pelt::IntfId, KivEthStatus, ethStatus );
   class KivEthPhyIntfStatusDir
         : public Kiv::Hears< MacAddrSm, Interface::AllEthPhyIntfStatusDir const,
                              Kiv::Follow< Interface::AllEthPhyIntfStatusDir::ethPhyIntfStatusAttr,
                                           &MacAddrSm::ethStatus_ > > {};
   class KivPortVlanMembership
         : public Kiv::Hears<
                 MacAddrSm, PortVlanMembership const,
                 Kiv::WhenReady< PortVlanMembership::intfAttr, &MacAddrSm::handleVlanChange > > {};
   class KivMlagStatus
         : public Kiv::Hears<
                 MacAddrSm, Mlag::Status const,
                 Kiv::WhenReadyAny< &MacAddrSm::handleMlagStateOrPeerLinkIntf,
                                    Mlag::Status::stateAttr, Mlag::Status::peerLinkIntfAttr >,
                 Kiv::WhenReady< Mlag::Status::fastMacRedirectionEnabledAttr,
                                 &MacAddrSm::handleFastMacRedirection >,
                 Kiv::WhenReady< Mlag::Status::mlagIntfAttr, &MacAddrSm::handleMlagIntfStatus > > {
   };
   class KivMlagHostTable
         : public Kiv::Hears< MacAddrSm, Mlag::HostTable const,
                              Kiv::WhenReady< Mlag::HostTable::hostEntryAttr,
                                              &MacAddrSm::handleMlagHostTableEntry > > {};
   class KivL2RibOutput
         : public Kiv::Hears<
                 MacAddrSm, L2Rib::HostOutput const,
                 Kiv::WhenReady< L2Rib::HostOutput::hostAttr, &MacAddrSm::handleL2RibHost > > {};
   class KivDestOutput
         : public Kiv::Hears<
                 MacAddrSm, L2Rib::DestOutput const,
                 Kiv::WhenReady< L2Rib::DestOutput::destAttr, &MacAddrSm::handleL2RibDest > > {};
   class KivLbOutput : public Kiv::Hears< MacAddrSm, L2Rib::LoadBalanceOutput const,
                                          Kiv::WhenReady< L2Rib::LoadBalanceOutput::loadBalanceAttr,
                                                          &MacAddrSm::handleL2RibLb > > {};
   class KivObjTupleToHwId
         : public Kiv::Hears<
                 MacAddrSm, ObjTupleToHwId const,
                 Kiv::WhenReady< ObjTupleToHwId::hwIdAttr, &MacAddrSm::handleObjTupleToHwIdMap > > {
   };
   class KivEvpnMacTable
         : public Kiv::Hears< MacAddrSm, HobaTypes::RemoteMacTable const,
                              Kiv::WhenReady< HobaTypes::RemoteMacTable::remoteMacAttr,
                                              &MacAddrSm::handleEvpnMacEntry > > {};
   class KivVxlanConfig
         : public Kiv::Hears< MacAddrSm, Vxlan::VxlanConfig const, Pelt::IntfId,
                              Kiv::WhenReady< Vxlan::VxlanConfig::remoteHostAttr,
                                              &MacAddrSm::handleConfiguredRemoteHost >,
                              Kiv::WhenReady< Vxlan::VxlanConfig::controllerClientAttr,
                                              &MacAddrSm::handleControllerClient > > {};
   KIV_REACTORS( Pelt::IntfId, KivVxlanConfig, vxlanConfig );
   class KivVxlanConfigDir
         : public Kiv::Hears<
                 MacAddrSm, Vxlan::VxlanConfigDir const,
                 Kiv::Follow< Vxlan::VxlanConfigDir::vxlanConfigAttr, &MacAddrSm::vxlanConfig_ >,
                 Kiv::WhenReady< Vxlan::VxlanConfigDir::vxlanConfigAttr,
                                 &MacAddrSm::handleVxlanConfig > > {};
   class KivVlanVniMapShadowReactor
         : public Kiv::Hears<
                 MacAddrSm, Vxlan::VlanVniMap const,
                 Kiv::WhenReady< Vxlan::VlanVniMap::vniAttr, &MacAddrSm::handleVlanVniMap > > {};
   class KivReceivedRemoteHost
         : public Kiv::Hears< MacAddrSm, Vxlan::ReceivedRemoteHostTable const,
                              Kiv::WhenReady< Vxlan::ReceivedRemoteHostTable::remoteHostAttr,
                                              &MacAddrSm::handleReceivedRemoteHost > > {};
   KIV_REACTOR( KivReceivedRemoteHost, receivedRemoteHost );
   class KivTunnelLearnEvent
         : public Kiv::Hears< MacAddrSm, Vxlan::TunnelLearnEventTable const,
                              Kiv::WhenReady< Vxlan::TunnelLearnEventTable::eventAttr,
                                              &MacAddrSm::handleTunnelLearnEvent > > {};
   KIV_REACTOR( KivTunnelLearnEvent, tunnelLearnEvent );
   class KivBootStatus
         : public Kiv::Hears< MacAddrSm, Vxlan::BootStatus const,
                              Kiv::WhenReadyAny< &MacAddrSm::handleStageRemoteMacsReady,
                                                 Vxlan::BootStatus::hitlessRestartInProgressAttr,
                                                 Vxlan::BootStatus::remoteMacsReadyAttr > > {};
   KIV_REACTOR( KivBootStatus, bootStatus );
   class KivRemoteMacFlushRequest
         : public Kiv::Hears< MacAddrSm, RemoteMacFlushRequestTable,
                              Kiv::WhenReady< RemoteMacFlushRequestTable::requestAttr,
                                              &MacAddrSm::handleRemoteMacFlushRequest > > {};
   KIV_REACTOR( KivRemoteMacFlushRequest, remoteMacFlushRequest );
   class KivRmacInfoDir
         : public Kiv::Hears< MacAddrSm, HobaTypes::RemoteMacInfoDir const,
                              Kiv::Follow< HobaTypes::RemoteMacInfoDir::receivedRemoteHostAttr,
                                           &MacAddrSm::receivedRemoteHost_ >,
                              Kiv::Follow< HobaTypes::RemoteMacInfoDir::tunnelLearnEventAttr,
                                           &MacAddrSm::tunnelLearnEvent_ >,
                              Kiv::Follow< HobaTypes::RemoteMacInfoDir::bootStatusAttr,
                                           &MacAddrSm::bootStatus_ >,
                              Kiv::Follow< HobaTypes::RemoteMacInfoDir::flushRequestAttr,
                                           &MacAddrSm::remoteMacFlushRequest_ > > {};
   class KivRouterMacTable
         : public Kiv::Hears< MacAddrSm, HobaTypes::RouterMacTable const,
                              Kiv::WhenReady< HobaTypes::RouterMacTable::routerMacAttr,
                                              &MacAddrSm::handleRouterMacEntry > > {};
   class KivDot1xIntfStatus
         : public Kiv::Hears<
                 MacAddrSm, Dot1x::IntfStatus const, Pelt::IntfId,
                 Kiv::WhenReady< Dot1x::IntfStatus::portAuthStateAttr,
                                 &MacAddrSm::handlePortAuthState >,
                 Kiv::WhenReadyAny< &MacAddrSm::handleHostMode, Dot1x::IntfStatus::hostModeAttr,
                                    Dot1x::IntfStatus::macBasedAuthAttr > > {};
   KIV_REACTORS( Pelt::IntfId, KivDot1xIntfStatus, dot1xIntf );
   class KivDot1xStatus
         : public Kiv::Hears<
                 MacAddrSm, Dot1x::Status const,
                 Kiv::WhenReady< Dot1x::Status::enabledAttr, &MacAddrSm::handleDot1xEnabled >,
                 Kiv::Follow< Dot1x::Status::intfStatusAttr, &MacAddrSm::dot1xIntf_ >,
                 Kiv::WhenReady< Dot1x::Status::intfStatusAttr, &MacAddrSm::handleHostMode > > {};
   class KivDot1xHostTable
         : public Kiv::Hears< MacAddrSm, Dot1x::HostTable const,
                              Kiv::WhenReady< Dot1x::HostTable::hostEntryAttr,
                                              &MacAddrSm::handleDot1xHostTableEntry > > {};
   class KivNonAgingMacStatus
         : public Kiv::Hears<
                 MacAddrSm, NonAgingStatus const,
                 Kiv::WhenReady< NonAgingStatus::enabledAttr, &MacAddrSm::handleNonAgingEnabled >,
                 Kiv::WhenReady< NonAgingStatus::macEntriesAttr,
                                 &MacAddrSm::handleNonAgingMacEntries > > {};
   class KivFsfStatus
         : public Kiv::Hears< MacAddrSm, FastServerFailover::Status const,
                              Kiv::WhenReady< FastServerFailover::Status::failedServerAttr,
                                              &MacAddrSm::handleFsfFailedServer > > {};
   class KivFlushRequestDir
         : public Kiv::Reactor< KivFlushRequestDir, Bridging::HostTableFlushRequestDir const,
                                MacAddrSm, Kiv::String > {
      void handleFlushRequest( Kiv::String const & request ) {
         owner().flush_.handleFlushRequest( key(), request );
      }

    public:
      static constexpr auto handlers =
            Kiv::handlers( Kiv::WhenReady< Bridging::HostTableFlushRequestDir::requestAttr,
                                           &KivFlushRequestDir::handleFlushRequest >() );
   };
   KIV_REACTORS( Kiv::String, KivFlushRequestDir, flushRequestDir );
   class KivAllFlushRequestDir
         : public Kiv::Hears< MacAddrSm, Bridging::AllHostTableFlushRequestDir const,
                              Kiv::Follow< Bridging::AllHostTableFlushRequestDir::agentAttr,
                                           &MacAddrSm::flushRequestDir_ >,
                              Kiv::WhenReady< Bridging::AllHostTableFlushRequestDir::agentAttr,
                                              &MacAddrSm::handleFlushRequestInputDir > > {};
   class KivReverify
         : public Kiv::Hears<
                 MacAddrSm, VerifyData const,
                 Kiv::WhenReady< VerifyData::reverifyAttr, &MacAddrSm::handleReverify > > {};
   KIV_REACTOR( KivReverify, reverify );
   class KivVlanHelper : public Kiv::Hears< MacAddrSm, VlanHelperBase const > {};
   KIV_REACTOR( KivVlanHelper, vlanHelper );
   class KivReactAcsd
         : public Kiv::Hears<
                 MacAddrSm, HobaCommonSmData const,
                 Kiv::Follow< HobaCommonSmData::vlanHelperAttr, &MacAddrSm::vlanHelper_ >,
                 Kiv::Follow< HobaCommonSmData::verifyDataAttr, &MacAddrSm::reverify_ >,
                 Kiv::WhenReady< HobaCommonSmData::intfAttr, &MacAddrSm::handleIntfChange >,
                 Kiv::WhenReady< HobaCommonSmData::lagToPortAttr, &MacAddrSm::handleLag >,
                 Kiv::WhenReady< HobaCommonSmData::lagToPortConfigAttr, &MacAddrSm::handleLag >,
                 Kiv::WhenReady< HobaCommonSmData::lagToLagTypeAttr, &MacAddrSm::handleLag >,
                 Kiv::WhenReady< HobaCommonSmData::parityEventAttr,
                                 &MacAddrSm::handleParityEvent > > {};

   class KivUpdateMacEntryClock
         : public Kiv::ClockReactor< MacAddrSm, &MacAddrSm::updateQueuedAddresses > {};
   class KivRetryClock : public Kiv::ClockReactor< MacAddrSm, &MacAddrSm::retryRefused > {};
   class KivMacTableTimer : public Kiv::ClockReactor< MacAddrSm, &MacAddrSm::handleMacTableTimer > {
   };
   class KivWalkClock : public Kiv::ClockReactor< MacAddrSm, &MacAddrSm::handleWalks > {};
   class KivMlagHostTableTimer
         : public Kiv::ClockReactor< MacAddrSm, &MacAddrSm::handleMlagHostTableTimer > {};
   class KivMlagIntfHostTableTimer
         : public Kiv::ClockReactor< MacAddrSm, &MacAddrSm::handleMlagIntfHostTableTimer > {};
   class KivFlushReqTimer : public Kiv::ClockReactor< MacAddrSm, &MacAddrSm::handleFlushReqTimer > {
   };

   MacAddrInputs const in_;
   Hooks< HobaHelper::HobaHelperMacAddrSm > const helper_;
   MacSources sources_;
   MacFdb fdb_;
   MacRib rib_;
   // Of those that are kept where they are while the overlay restarts, or another next hop is worked out.
   MacRib keptRib_;
   MacLearning learning_;
   MacFlush flush_;
   MacVerify verify_;
   MacWalks walks_, mlagWalks_, mlagIntfWalks_;
   // By interface: the stations that are, or are to be, behind it.
   Kiv::HashMap< Pelt::IntfId, Kiv::HashSet< Pair > > hostsByIntf_;
   // Learnt, and written never to age: the hardware does not move them, and does not forget them.
   Kiv::HashSet< Pair > neverAges_;
   // What was learnt of these lost, or was flushed, and counts no more until it is reported again.
   Kiv::HashSet< Pair > lostReport_;
   // Those since their VLAN's VNI changed, which walks of tunnel events are still to visit.
   Kiv::HashSet< Pair > lostSince_;
   std::size_t tunnelWalks_ = 0;
   // In the first pass: entries that software wrote are told once more.
   bool inFirstPass_ = false;
   bool firstPassWalked_ = false;
   bool isIndexed_ = false;  // hostsByIntf_ has all that is in the status
   bool room_ = false;       // an entry has left the hardware since refused ones had their turn
   std::size_t retries_ = 0; // refused ones that are to have their turn still
   MacSharedWalk< Vlans > withheldWalk_, pendingWalk_, tunnelWalk_;
   MacSharedWalk< Intfs > claimsWalk_;
   std::function< void() > whenFirstPassIsDone_;

   KIV_REACTOR( KivMacTable, macTable );
   KIV_REACTOR( KivBridgingConfig, bridgingConfig );
   KIV_REACTOR( KivBridgingStatus, bridgingStatus );
   KIV_REACTOR( KivConfigDir, switchIntfConfigDir );
   KIV_REACTOR( KivVlanConfigDir, vlanConfigDir );
   KIV_REACTOR( KivEthPhyIntfConfigDir, ethPhyIntfConfigDir );
   KIV_REACTOR( KivEthPhyIntfStatusDir, ethPhyIntfStatusDir );
   KIV_REACTOR( KivPortVlanMembership, portVlanMembership );
   KIV_REACTOR( KivMlagStatus, mlagStatus );
   KIV_REACTOR( KivMlagHostTable, mlagHostTable );
   KIV_REACTOR( KivL2RibOutput, l2RibOutput );
   KIV_REACTOR( KivDestOutput, destOutput );
   KIV_REACTOR( KivLbOutput, lbOutput );
   KIV_REACTOR( KivObjTupleToHwId, objTupleToHwId );
   KIV_REACTOR( KivEvpnMacTable, evpnMacTable );
   KIV_REACTOR( KivVxlanConfigDir, vxlanConfigDir );
   KIV_REACTOR( KivVlanVniMapShadowReactor, vlanVniMap );
   KIV_REACTOR( KivRmacInfoDir, rmacInfoDir );
   KIV_REACTOR( KivRouterMacTable, routerMacTable );
   KIV_REACTOR( KivDot1xStatus, dot1xStatus );
   KIV_REACTOR( KivDot1xHostTable, dot1xHostTable );
   KIV_REACTOR( KivNonAgingMacStatus, nonAgingMacStatus );
   KIV_REACTOR( KivFsfStatus, fsfStatus );
   KIV_REACTOR( KivAllFlushRequestDir, allFlushRequestDir );
   KIV_REACTOR( KivUpdateMacEntryClock, updateMacEntryClock );
   KIV_REACTOR( KivRetryClock, retryClock );
   KIV_REACTOR( KivMacTableTimer, macTableTimer );
   KIV_REACTOR( KivWalkClock, walkClock );
   KIV_REACTOR( KivMlagHostTableTimer, mlagHostTableTimer );
   KIV_REACTOR( KivMlagIntfHostTableTimer, mlagIntfHostTableTimer );
   KIV_REACTOR( KivFlushReqTimer, flushReqTimer );
   KIV_REACTOR( KivReactAcsd, reactAcsd );
};

} // namespace Hoba
