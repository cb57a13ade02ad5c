// SPDX-License-Identifier: Apache-2.0
#pragma once

// The rules by which stations are where they are, as a plain model: what is said of a station, who of those is
// believed, and what becomes of the station then. Knows nothing of when that is looked at.

#include "Bridging/Config.h"
#include "Bridging/Fdb.h"
#include "Bridging/SwitchIntfConfig.h"
#include "Dot1x/Dot1x.h"
#include "FastServerFailover/FastServerFailover.h"
#include "Interface/EthPhyIntfConfig.h"
#include "L2Rib/L2Rib.h"
#include "Mlag/Mlag.h"
#include "agent/feeders/FeederConfig.h"
#include "simulation/Switch.h"
#include "types/NonAging.h"
#include "types/RemoteMac.h"

#include <map>

namespace Simulation {

class MacModel {
 public:
   using Pair = Bridging::MacVlanPair;
   using Entry = HobaTypes::RemoteMacAddressTableEntry;

   // All that its sources say of one station, as they say it.
   struct Said {
      std::optional< HobaTypes::MacAddressTableEntry > macTable;
      std::optional< L2Rib::Host > rib;
      std::optional< Entry > evpn;
      std::optional< Bridging::ConfiguredHost > configured;
      std::optional< Mlag::HostEntry > peer;
      std::map< Kiv::String, Vxlan::ConfiguredRemoteHost > remote; // by VXLAN interface
      std::optional< HobaTypes::RouterMac > router;
      std::optional< Dot1x::HostEntry > dot1x;
      std::optional< Vxlan::ReceivedRemoteHost > received;
      std::optional< Pelt::IntfId > failed;
      std::optional< Vxlan::TunnelLearnEvent > tunnel;
      bool isNonAging = false;

      bool operator==( Said const & ) const = default;
   };

   // The way to a station behind the overlay, as it was when it was decided.
   struct Way {
      std::uint32_t nextHopId = 0;
      std::uint64_t hwId = 0;
   };

   // One station.
   struct Station {
      Said said;
      // What is wanted, and what is in force.
      std::optional< Entry > current;
      std::optional< Entry > inForce;
      // What was learnt counts no more until it is reported again.
      bool isLost = false;
      Kiv::Seconds failedSince = 0;
      Way way;
   };

   struct Verdict {
      std::optional< Entry > entry;
      bool isLost = false;
      Kiv::String obstacle; // before what is said last
      Way way;
      // Who it is, and whether the machine is to write it behind the overlay.
      bool isLearnt = false, isWritten = false;
   };

   explicit MacModel( Switch const & simulated );

   std::map< Pair, Said > said() const;
   std::map< Vxlan::VniMac, Vxlan::TunnelLearnEvent > tunnelEvents() const;
   // `isNews`: something else is said of it now, so that the machine looks at it at once.
   Verdict evaluate( Pair pair, Station const & station, Kiv::Seconds now,
                     bool isNews = false ) const;

   // What is in force, as it is published.
   std::map< Pair, Entry > inForce() const;
   // The machine's own attribute: where that is to be found.
   static Kiv::String ofMachine( Kiv::String const & attribute );

   // ---- What is said of others than stations
   bool isThere( Pelt::IntfId intf ) const;
   bool hasVni( Bridging::VlanIdOrNone vlan ) const;
   bool learnsOnPort( Pelt::IntfId intf ) const;
   bool learnsOnVlan( Bridging::VlanId vlan ) const;
   Way wayTo( Entry const & entry ) const;

   // Whether the hardware has it by itself.
   bool isInHardware( Entry const & entry, Said const & said ) const;
   // Whether the station would be one too many behind the overlay. Who is let in again when there is room the
   // machine says.
   bool isBeyondLimit( Pair pair, bool isNews ) const;
   // Whether it is decided to be behind the overlay, and that is still to be done.
   bool isPending( Pair pair ) const;
   // How many the chip may have behind the overlay, and those that are programmed there.
   std::uint64_t limit() const;
   HobaTypes::RemoteHostStatusTable const & programmed() const { return *programmed_; }

   static bool isStatic( Bridging::EntryType type );
   static bool isLearned( Bridging::EntryType type );
   static bool isSamePlace( Entry const & a, Entry const & b );

   Feeders::Config const & feeders() const { return *feeders_; }
   Bridging::Config const & bridging() const { return *bridging_; }
   Mlag::Status const & mlag() const { return *mlag_; }
   Dot1x::Status const & dot1x() const { return *dot1x_; }
   Vxlan::VxlanConfigDir const & vxlan() const { return *vxlan_; }

 private:
   struct Hop {
      Kiv::String obstacle;
      Pelt::IntfId intf;
      std::uint32_t group = 0;
      std::uint32_t nextHopId = 0;
      std::uint64_t hwId = 0;
      bool isMpls = false;
   };
   enum Origin { elsewhere, ofOperator, ofHardware, ofFailure };
   struct Candidate {
      Entry entry;
      Origin origin;
   };
   using Candidates = std::vector< Candidate >;

   struct Room {
      bool forBest = true, forLearnt = true;
   };

   Verdict decide( Pair pair, Station const & station, Kiv::Seconds now, Room room ) const;
   // `isOwn`: the operator configured it here.
   static void add( Candidates & all, Kiv::String & none, Entry entry, Origin origin,
                    bool isOwn = false );
   void candidates( Pair pair, Station const & station, Candidates & all,
                    Kiv::String & none ) const;
   void fromConfigured( Pair pair, Said const & said, Candidates & all, Kiv::String & none ) const;
   void fromPeer( Said const & said, Candidates & all, Kiv::String & none ) const;
   void fromOverlay( Pair pair, Said const & said, Candidates & all, Kiv::String & none ) const;
   bool isBetter( Entry const & before, Entry const & next ) const;
   Kiv::String fieldOf( char const * list, Pair pair, char const * field ) const;
   Hop hopOf( Entry const & entry ) const;
   std::vector< Pelt::IpGenAddr > tunnelsOf( Entry const & entry ) const;
   std::optional< Entry > reported( Pair pair, Said const & said, bool & isInHardware ) const;
   Kiv::String obstacleOf( Entry const & reported ) const;
   bool isController() const;
   bool isRestricted( Pelt::IntfId intf ) const;

   Switch const & simulated_;
   Kiv::Ptr< Feeders::Config const > const feeders_;
   Kiv::Ptr< HobaTypes::MacTable const > const macTable_;
   Kiv::Ptr< Bridging::Config const > const bridging_;
   Kiv::Ptr< Bridging::VlanConfigDir const > const vlans_;
   Kiv::Ptr< Bridging::SwitchIntfConfigDir const > const switchIntf_;
   Kiv::Ptr< Interface::EthPhyIntfConfigDir const > const ethConfig_;
   Kiv::Ptr< Mlag::Status const > const mlag_;
   Kiv::Ptr< Mlag::HostTable const > const peerHosts_;
   Kiv::Ptr< L2Rib::HostOutput const > const ribHosts_;
   Kiv::Ptr< L2Rib::DestOutput const > const dests_;
   Kiv::Ptr< L2Rib::LoadBalanceOutput const > const balances_;
   Kiv::Ptr< Hoba::ObjTupleToHwId const > const hwIds_;
   Kiv::Ptr< Hoba::SwTunnelGroupIdMap const > const groups_;
   Kiv::Ptr< Vxlan::VxlanConfigDir const > const vxlan_;
   Kiv::Ptr< Vxlan::VlanVniMap const > const vnis_;
   Kiv::Ptr< Vxlan::ReceivedRemoteHostTable const > const received_;
   Kiv::Ptr< Vxlan::TunnelLearnEventTable const > const tunnelEvents_;
   Kiv::Ptr< Vxlan::BootStatus const > const boot_;
   Kiv::Ptr< HobaTypes::RouterMacTable const > const routerMacs_;
   Kiv::Ptr< Dot1x::Status const > const dot1x_;
   Kiv::Ptr< Dot1x::HostTable const > const dot1xHosts_;
   Kiv::Ptr< Hoba::NonAgingStatus const > const nonAging_;
   Kiv::Ptr< FastServerFailover::Status const > const failed_;
   Kiv::Ptr< HobaTypes::RemoteHostStatusTable const > const programmed_;
   Kiv::Ptr< HobaTypes::RemoteMacTable const > const remoteHosts_;
   Kiv::Ptr< Bridging::Status const > const status_;
};

} // namespace Simulation
