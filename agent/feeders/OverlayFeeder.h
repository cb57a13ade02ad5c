// SPDX-License-Identifier: Apache-2.0
#pragma once

// Stands in for the agents of the overlay and for whoever writes next hops into the hardware. It makes
//
//    Vxlan::VlanVniMap            of what all VXLAN interfaces are configured to carry; of several that
//                                 carry one VLAN the lowest counts
//    HobaTypes::RemoteMacTable    of Feeders::Config::evpnMac, as it is there
//    Hoba::ObjTupleToHwId         an id for each destination and load balancing of the layer-2 RIB, when
//                                 Feeders::Config::hwIdDelay is over. One that is there already changes
//                                 at once when the operator gives another (hwId).
//
// and is the only one to write these. An id is made of the object's kind and number, and so the same after a
// restart.

#include "Hoba/HobaBaseSm.h"
#include "Kiv/ClockReactor.h"
#include "L2Rib/L2Rib.h"
#include "agent/feeders/FeederConfig.h"
#include "types/RemoteMac.h"

namespace Feeders {

class OverlayFeeder : public Hoba::HobaBaseSm {
   HOBA_MACHINE( OverlayFeeder );
   // Next hops that have no id yet, and when each gets it.
   KIV_COLLECTION( L2Rib::ObjTuple, Kiv::Seconds, due );

 public:
   struct Inputs {
      Kiv::Ptr< Config const > config;
      Kiv::Ptr< Vxlan::VxlanConfigDir const > vxlanConfigDir;
      Kiv::Ptr< L2Rib::DestOutput const > destOutput;
      Kiv::Ptr< L2Rib::LoadBalanceOutput const > loadBalanceOutput;
   };
   struct Outputs {
      Kiv::Ptr< Vxlan::VlanVniMap > vlanVniMap;
      Kiv::Ptr< HobaTypes::RemoteMacTable > evpnMacTable; // its writer
      Kiv::Ptr< Hoba::ObjTupleToHwId > objTupleToHwId;
   };

   void handleInitialized() override;

 protected:
   // Writes nothing before its owner says initializedIs( true ). Its clock is one of its own, on the
   // ambient driver.
   OverlayFeeder( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData, Inputs const & inputs,
                  Outputs const & outputs );

 private:
   void handleVxlanIntf( Pelt::IntfId const & intf );
   void handleVlan( Bridging::VlanId const & vlan );
   void handleEvpnMac( Bridging::MacVlanPair const & host );
   // An object of the RIB came, changed or went, or its id is another.
   void handleNextHop( L2Rib::ObjTuple const & next );
   void handleTime();
   // The id that the object gets, 0 if it gets none.
   std::uint64_t hwIdOf( L2Rib::ObjTuple next ) const;

   class KivVxlanConfig : public Kiv::Reactor< KivVxlanConfig, Vxlan::VxlanConfig const,
                                               OverlayFeeder, Pelt::IntfId > {
      void handleVlanVni( Bridging::VlanId const & vlan ) { owner().handleVlan( vlan ); }

    public:
      static constexpr auto handlers = Kiv::handlers(
            Kiv::WhenReady< Vxlan::VxlanConfig::vlanVniAttr, &KivVxlanConfig::handleVlanVni >() );
   };
   KIV_REACTORS( Pelt::IntfId, KivVxlanConfig, vxlanConfig );
   class KivVxlanConfigDir
         : public Kiv::Hears< OverlayFeeder, Vxlan::VxlanConfigDir const,
                              Kiv::Follow< Vxlan::VxlanConfigDir::vxlanConfigAttr,
                                           &OverlayFeeder::vxlanConfig_ >,
                              Kiv::WhenReady< Vxlan::VxlanConfigDir::vxlanConfigAttr,
                                              &OverlayFeeder::handleVxlanIntf > > {};
   KIV_REACTOR( KivVxlanConfigDir, vxlanConfigDir );

   class KivConfig
         : public Kiv::Hears< OverlayFeeder, Config const,
                              Kiv::WhenReady< Config::evpnMacAttr, &OverlayFeeder::handleEvpnMac >,
                              Kiv::WhenReady< Config::hwIdAttr, &OverlayFeeder::handleNextHop > > {
   };
   KIV_REACTOR( KivConfig, config );
   class KivDestOutput
         : public Kiv::Hears<
                 OverlayFeeder, L2Rib::DestOutput const,
                 Kiv::WhenReady< L2Rib::DestOutput::destAttr, &OverlayFeeder::handleNextHop > > {};
   KIV_REACTOR( KivDestOutput, destOutput );
   class KivLbOutput : public Kiv::Hears< OverlayFeeder, L2Rib::LoadBalanceOutput const,
                                          Kiv::WhenReady< L2Rib::LoadBalanceOutput::loadBalanceAttr,
                                                          &OverlayFeeder::handleNextHop > > {};
   KIV_REACTOR( KivLbOutput, loadBalanceOutput );
   class KivClock : public Kiv::ClockReactor< OverlayFeeder, &OverlayFeeder::handleTime > {};
   KIV_REACTOR( KivClock, clock );

   Outputs const outputs_;
};

} // namespace Feeders
