// SPDX-License-Identifier: Apache-2.0
#pragma once

// Stands in for the switch's agent of VLANs. It makes of Feeders::Config::vlan and ::switchIntf, of the
// ports and of the LAGs
//
//    HobaCommonSmData::vlanStatus     the VLANs, and which interfaces carry them
//    Hoba::PortVlanMembership         the way back, and how
//
// is the only one to write these, and tells HobaCommonSmData::vlanHelper, if there is one.
//
// An access port carries its native VLAN, untagged; a trunk the VLANs that list it as a member, the
// native one of these untagged; a routed port none. That is so while the VLAN is active, and the
// interface is there and stands for itself: for a port that is configured into a LAG, be it an active
// member or not, the LAG stands. What the configuration says of interfaces and VLANs that do not
// exist waits until they do; it is told in any order.
//
// What changes at one interface touches that interface only; a VLAN that comes or goes touches those
// that carry it. Where these are very many they have their turn in slices (`waiting`), in the order in
// which something changed, and the chip and the status lose a VLAN when nobody carries it any more. What
// stays wanted is never withdrawn. What the chip refuses is not published as carried (nor as withdrawn,
// if that is what was refused), keeps nothing else out, and is tried again.

#include "Hoba/HobaBaseSm.h"
#include "Hoba/HobaCommon.h"
#include "Hoba/HobaPortVlanMembership.h"
#include "Kiv/ClockReactor.h"
#include "agent/feeders/FeederConfig.h"

namespace Feeders {

// What an interface that stands for itself carries. `listing` are the VLANs that list it.
Hoba::IntfVlans carriedVlans( Bridging::SwitchportMode mode, Bridging::VlanIdOrNone nativeVlan,
                              Bridging::VlanSet const & listing, Bridging::VlanSet const & active );

class VlanFeeder : public Hoba::HobaBaseSm {
   HOBA_MACHINE( VlanFeeder );
   // The VLANs that the chip has, and those of them that the operator lets take part.
   KIV_ATTRIBUTE( Bridging::VlanSet, chipVlan );
   KIV_ATTRIBUTE( Bridging::VlanSet, activeVlan );
   // By port: what the chip was told of its TPIDs.
   KIV_COLLECTION( Pelt::IntfId, Hoba::HobaPortVlanTpidData, tpid );
   // Interfaces about which something changed, and VLANs that go when these are done.
   KIV_SET( Pelt::IntfId, waiting );
   KIV_SET( Bridging::VlanId, leaving );
   // What the chip refused last, and why.
   KIV_COLLECTION( Bridging::VlanId, Kiv::String, refusedVlan );
   KIV_COLLECTION( Pelt::IntfId, Kiv::String, refusedIntf );

 public:
   void handleInitialized() override;

   // How long after a refusal the chip is asked again, and about how many VLANs and interfaces at a time.
   static constexpr Kiv::Seconds retryDelay = 1;
   static constexpr std::size_t retriesAtOnce = 64;

 protected:
   // Reads `config`, `lagInputConfig` and of `commonSmData` what the ports and LAGs are; writes
   // `commonSmData` and `membership`, but not before its owner says initializedIs( true ). Its clock
   // is one of its own, on the ambient driver.
   VlanFeeder( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
               Kiv::Ptr< Config const > const & config,
               Kiv::Ptr< Lag::Input::Config const > const & lagInputConfig,
               Kiv::Ptr< Hoba::PortVlanMembership > const & membership );

 private:
   using Intfs = std::vector< Pelt::IntfId >;
   using IntfSets = Kiv::HashMap< Bridging::VlanId, Kiv::HashSet< Pelt::IntfId > >;

   // A VLAN came, went, or became active or not; one more interface, or one less, is listed.
   void handleVlan( Bridging::VlanId const & vlan );
   void handleMember( Bridging::VlanId vlan, Pelt::IntfId intf );
   // Something about the interface changed.
   void handleIntf( Pelt::IntfId const & intf );
   // A LAG came or went, or has other ports.
   void handleLag( Pelt::IntfId const & lag );
   // Another helper, that is to be told everything.
   void handleHelper();
   void handleTime();

   VlanConfig const * vlanAsked( Bridging::VlanId vlan ) const;
   bool isWanted( Bridging::VlanId vlan ) const;
   void listIs( Bridging::VlanId vlan, Pelt::IntfId intf, bool listed );
   // The list is as configured, if the VLAN is at all. Returns which interfaces that changes.
   Intfs updateList( Bridging::VlanId vlan );
   // The VLAN is active now: the chip has it, and it has a status that says so.
   bool activate( Bridging::VlanId vlan );
   // No interface carries it any more: it goes from the chip, and from the status if it is gone
   // altogether.
   void finish( Bridging::VlanId vlan );

   bool exists( Pelt::IntfId intf ) const;
   bool standsForItself( Pelt::IntfId intf ) const;
   Hoba::IntfVlans wanted( Pelt::IntfId intf ) const;
   // The access port is found when its VLAN comes or goes.
   void indexAccess( Pelt::IntfId intf );

   // Those that wait have their turn, until the time slice is used up; behind them, VLANs that leave.
   void work();
   void retry();
   // Brings chip and status of the interface in line with what is wanted, when the chip holds what is
   // published; or (`anew`) when nobody knows what it holds.
   void review( Pelt::IntfId intf, bool anew = false );
   // Tells the chip, and returns what it has then.
   Hoba::IntfVlans tellVlans( Pelt::IntfId intf, Hoba::IntfVlans const & held, bool nativeUnsure,
                              Kiv::String & refusal );
   void unsureIs( Bridging::VlanId vlan, Pelt::IntfId intf, bool unsure );
   // `unsure`: the chip refused something of the interface before.
   void tellTpids( Pelt::IntfId intf, bool unsure, Kiv::String & refusal );
   void publish( Pelt::IntfId intf, Hoba::IntfVlans const & vlans, bool anew );
   // Calls the hook. The first refusal of several is what `refusal` says.
   template< auto hook, class Subject, class... Args >
   bool tell( Kiv::String & refusal, Subject const & subject, Args const &... args );
   void awaitRetry();

   class KivVlanConfig
         : public Kiv::Reactor< KivVlanConfig, VlanConfig const, VlanFeeder, Bridging::VlanId > {
      void handleMember( Pelt::IntfId const & intf ) { owner().handleMember( key(), intf ); }

    public:
      static constexpr auto handlers = Kiv::handlers(
            Kiv::WhenReady< VlanConfig::activeAttr, &VlanFeeder::handleVlan >(),
            Kiv::WhenReady< VlanConfig::memberAttr, &KivVlanConfig::handleMember >() );
   };
   KIV_REACTORS( Bridging::VlanId, KivVlanConfig, vlanConfig );
   class KivSwitchIntf
         : public Kiv::Hears< VlanFeeder, Bridging::SwitchIntfConfig const, Pelt::IntfId,
                              Kiv::WhenReadyAny< &VlanFeeder::handleIntf,
                                                 Bridging::SwitchIntfConfig::switchportModeAttr,
                                                 Bridging::SwitchIntfConfig::nativeVlanAttr > > {};
   KIV_REACTORS( Pelt::IntfId, KivSwitchIntf, switchIntf );
   class KivConfig
         : public Kiv::Hears< VlanFeeder, Config const,
                              Kiv::Follow< Config::vlanAttr, &VlanFeeder::vlanConfig_ >,
                              Kiv::WhenReady< Config::vlanAttr, &VlanFeeder::handleVlan >,
                              Kiv::Follow< Config::switchIntfAttr, &VlanFeeder::switchIntf_ >,
                              Kiv::WhenReady< Config::switchIntfAttr, &VlanFeeder::handleIntf > > {
   };
   KIV_REACTOR( KivConfig, config );

   class KivLagInputConfig
         : public Kiv::Hears< VlanFeeder, Lag::Input::Config const,
                              Kiv::WhenReady< Lag::Input::Config::ethPhyIntfLagConfigAttr,
                                              &VlanFeeder::handleIntf > > {};
   KIV_REACTOR( KivLagInputConfig, lagInputConfig );

   class KivClock : public Kiv::ClockReactor< VlanFeeder, &VlanFeeder::handleTime > {};
   KIV_REACTOR( KivClock, clock );

   class KivBogusAcsd
         : public Kiv::Hears<
                 VlanFeeder, Hoba::HobaCommonSmData const,
                 Kiv::WhenReady< Hoba::HobaCommonSmData::vlanHelperAttr,
                                 &VlanFeeder::handleHelper >,
                 Kiv::WhenReady< Hoba::HobaCommonSmData::intfAttr, &VlanFeeder::handleIntf >,
                 Kiv::WhenReady< Hoba::HobaCommonSmData::lagToPortConfigAttr,
                                 &VlanFeeder::handleLag >,
                 Kiv::WhenReady< Hoba::HobaCommonSmData::portVlanTpidDataAttr,
                                 &VlanFeeder::handleIntf > > {};
   KIV_REACTOR( KivBogusAcsd, bogusAcsd );

   Kiv::Ptr< Hoba::PortVlanMembership > const membership_;
   // By VLAN: the interfaces that it lists, as far as they were looked at, and the way back.
   IntfSets listed_;
   Kiv::HashMap< Pelt::IntfId, Bridging::VlanSet > listing_;
   // By VLAN: those whose access VLAN it is, and the way back.
   IntfSets accessPorts_;
   Kiv::HashMap< Pelt::IntfId, Bridging::VlanId > accessVlan_;
   // By interface: VLANs that are not carried, but of which the chip may hold a row that was there
   // before the first pass, because it refused to have another one in its place.
   Kiv::HashMap< Pelt::IntfId, Bridging::VlanSet > unsure_;
   // By LAG: its configured ports, and the way back.
   Kiv::HashMap< Pelt::IntfId, Intfs > lagPorts_;
   Kiv::HashMap< Pelt::IntfId, Pelt::IntfId > lagOf_;
   // Some interface has its turn: what its notifications change waits.
   bool working_ = false;
   Kiv::Seconds retryTime_ = Kiv::never;
   bool retrying_ = false;
};

} // namespace Feeders
