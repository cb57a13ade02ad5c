// SPDX-License-Identifier: Apache-2.0
#pragma once

// The shared context: one entity per forwarding agent. The agent creates it, fills it from its
// configuration and from what the platform can do, hands it to every machine's factory, and says
// handleInitialized() when it is complete.

#include "Brin/IntfEncapServiceIntfColl.h"
#include "Bridging/VlanId.h"
#include "Hoba/HobaBaseHelper.h"
#include "Hoba/HobaVerifyData.h"
#include "Kiv/Entity.h"
#include "Kiv/Value.h"
#include "Lag/Lag.h"
#include "Pelt/EthAddr.h"
#include "Pelt/IntfId.h"
#include "types/HobaLagTypes.h"
#include "types/ParityEvent.h"

#include <functional>

namespace Hoba {

KIV_ENUM( HwOperationalMode, std::uint8_t, operationalModeDefault = 0, operationalModeMaintenance );

// Trace levels of the components whose traces are many. None of these components is there yet:
// whatever is set here changes nothing. The levels of trace handles are set in Zipline.
struct ZiplineLevels {
   KIV_VALUE( Hoba::ZiplineLevels );
   KIV_FIELD( std::uint8_t, hobaVrfRootSm, 1 );
   KIV_FIELD( std::uint8_t, hobaRoutingStatusSm, 1 );
   KIV_FIELD( std::uint8_t, hobaL3FeatureConfigSm, 1 );
   KIV_FIELD( std::uint8_t, hobaArpSm, 2 );
   KIV_FIELD( std::uint8_t, hobaIp6NeighborSm, 2 );
   KIV_FIELD( std::uint8_t, hobaResilientEcmpSm, 3 );
   KIV_FIELD( std::uint8_t, hobaIp6ResilientEcmpSm, 4 );
   KIV_FIELD( std::uint8_t, hobaResilientEcmpDedupingSm, 5 );
   KIV_FIELD( std::uint8_t, hobaResilientEcmpDedupingSchedulerSm, 5 );
   KIV_FIELD( std::uint8_t, hobaAdjDependencySm, 5 );
   KIV_FIELD( std::uint8_t, hobaSubIntfSm, 8 );
   KIV_FIELD( std::uint8_t, hobaIntfStatusSm, 6 );
   KIV_FIELD( std::uint8_t, hobaL2AdjHelper, 6 );
   KIV_FIELD( std::uint8_t, hobaPwSm, 6 );
   KIV_FIELD( std::uint8_t, hobaL3AdjStatusSm, 4 );
   KIV_FIELD( std::uint8_t, hobaVxlanTunnelFibSm, 8 );
};

// Which ports carry a VLAN.
class VlanStatus : public Kiv::Entity {
   KIV_ENTITY( Hoba::VlanStatus );
   KIV_ATTRIBUTE( bool, active );
   KIV_SET( Pelt::IntfId, intf );

 public:
   explicit VlanStatus( Bridging::VlanId vlanId ) : Entity( Kiv::toText( vlanId ) ) {}
};

// Options of the hardware that an operator sets by name.
class HwCliConfig : public Kiv::Entity {
   KIV_ENTITY( Hoba::HwCliConfig );
   KIV_COLLECTION( Kiv::String, Kiv::String, option );

 public:
   explicit HwCliConfig( Kiv::String const & configName = {} ) : Entity( configName ) {}
};

class HobaCommonSmData : public Kiv::Entity {
   KIV_ENTITY( Hoba::HobaCommonSmData );
   // The spanning-tree machines react to it.
   KIV_ATTRIBUTE( HwOperationalMode, operationalMode, operationalModeDefault );
   KIV_ATTRIBUTE( Kiv::Ptr< Hoba::VlanHelperBase >, vlanHelper );
   // Interfaces that this agent owns.
   KIV_COLLECTION( Pelt::IntfId, bool, intf );
   KIV_ATTRIBUTE( std::uint16_t, minIntfs, 0 );
   KIV_COLLECTION( Pelt::IntfId, bool, unusedIntf );
   KIV_COLLECTION( Pelt::IntfId, bool, cpuIntf );
   KIV_SET( Pelt::IntfId, multiEncapIntf );
   KIV_ATTRIBUTE( Kiv::Ptr< Brin::IntfEncapServiceIntfColl const >, intfEncapServiceIntf );
   // Every set calls handleMlagPeerLinkPort(), also one that changes nothing.
   KIV_COLLECTION( Pelt::IntfId, bool, mlagPeerLinkPort,
                   Kiv::onEverySet( &HobaCommonSmData::handleMlagPeerLinkPort ) );
   KIV_COLLECTION( Pelt::IntfId, bool, mlagIntfPort );
   // By LAG: the configured members, and what it recirculates for.
   KIV_COLLECTION( Pelt::IntfId, HobaPortList, lagToPortConfig );
   KIV_COLLECTION( Pelt::IntfId, Lag::Recirc::RecircFeatureSet, lagToFeatureSet );
   // By port: the LAG that it is an active member of.
   KIV_COLLECTION( Pelt::IntfId, Pelt::IntfId, portToLag );
   // By LAG: the active members, the kind, and whether they run individually for want of a partner.
   KIV_COLLECTION( Pelt::IntfId, HobaLagPortList, lagToPort );
   KIV_COLLECTION( Pelt::IntfId, HobaTypes::HobaLagType, lagToLagType );
   KIV_COLLECTION( Pelt::IntfId, bool, lagInLacpFallbackIndividualMode );
   KIV_ATTRIBUTE( bool, keepStaticMacOnDisabledIntf, false );
   KIV_ATTRIBUTE( bool, enforceVlanMembershipForStaticMac, false );
   KIV_ATTRIBUTE( Pelt::EthAddrWithMask, virtualMacWithMask );
   KIV_ATTRIBUTE( Pelt::EthAddr, peerRouterMac );
   // By routed port, by VLAN, by interface.
   KIV_COLLECTION( Pelt::IntfId, std::uint32_t, internalVlan );
   KIV_CHILDREN( Bridging::VlanId, VlanStatus, vlanStatus );
   KIV_COLLECTION( Pelt::IntfId, Bridging::VlanIdOrNone, encapVlan );
   KIV_COLLECTION( Pelt::IntfId, HobaPortVlanTpidData, portVlanTpidData );
   KIV_ATTRIBUTE( Kiv::Ptr< Hoba::HwCliConfig const >, cliConfig );
   KIV_COLLECTION( Kiv::String, std::uint32_t, mirrorSessionNameToId );
   KIV_COLLECTION( Kiv::String, std::uint8_t, mirrorSessionNameToEgressId );
   // Hardware mirror groups that no session uses.
   KIV_QUEUE( std::uint8_t, freeMirrorSession );
   KIV_ATTRIBUTE( bool, isFabricSlice, false );
   // The parity errors of all slices: see Hoba/HobaParitySm.h.
   KIV_KEYED( ParityEvent, ParityEvent::Key, key, parityEvent );
   // Null until handleInitialized() makes them.
   KIV_CHILD( Hoba::VerifyData, verifyData );
   KIV_ATTRIBUTE( Kiv::Ptr< Kiv::PtrInterface >, verifySm );
   KIV_COLLECTION( Pelt::IntfId, bool, vlanIntf );
   KIV_ATTRIBUTE( ZiplineLevels, ziplineLevels );
   KIV_ATTRIBUTE( bool, vellFastBoot, false );
   KIV_ATTRIBUTE( bool, vellRenice, false );
   KIV_ATTRIBUTE( std::int32_t, vellReniceValue, 5 );
   KIV_ATTRIBUTE( bool, hitlessAgentRestartSupported, true );
   KIV_ATTRIBUTE( bool, pfcWatchdogDropActionSupported, false );
   KIV_ATTRIBUTE( bool, dlpEnabled, false );
   KIV_ATTRIBUTE( bool, initialized, false );
   // How long one handler may work on a long walk before it yields. In seconds.
   KIV_ATTRIBUTE( Kiv::Seconds, yieldTimeSlice, 0.010 );

 public:
   explicit HobaCommonSmData( Kiv::String const & contextName );

   // The context is complete: makes the verification entities and their machine, and sets
   // `initialized` last.
   virtual void handleInitialized();
   // Lets go of the verification machine and of the VLAN helper, which may hold this context. The
   // owner says it last of all, before it drops its own pointer; also in the middle of a pass, which
   // then ends without a result.
   void cleanup();

   virtual void handleMlagPeerLinkPort( Pelt::IntfId ) {}

   // Whether the port is an active member of a LAG.
   bool inLag( Pelt::IntfId intf ) const { return portToLagHas( intf ); }

   // The agent must restart to recover. Calls what the owner set; without it the process stops by
   // hobaAssert(), and whoever watches over it starts it again.
   void agentRestart( Kiv::String const & reason ) const;
   void agentRestartCallbackIs( std::function< void( Kiv::String const & reason ) > callback );

 private:
   std::function< void( Kiv::String const & reason ) > agentRestartCallback_;
};

} // namespace Hoba
