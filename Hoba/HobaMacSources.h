// SPDX-License-Identifier: Apache-2.0
#pragma once

// Reads what all sources say of one station. Decides nothing but what of it is a claim at all, writes
// nothing, and costs little where a source is empty.

#include "Hoba/HobaCommon.h"
#include "Hoba/HobaMacEvaluation.h"
#include "Hoba/HobaMacInputs.h"

#include <new>
#include <vector>

namespace Hoba {

// A candidate for each source at most, in their order. Mostly there is none, and nothing is made then.
class MacCandidates {
 public:
   MacCandidates() = default;
   MacCandidates( MacCandidates const & ) = delete;
   MacCandidates & operator=( MacCandidates const & ) = delete;

   void add( MacSource source, MacEntry const & entry ) {
      ::new( &at( count_++ ) ) MacCandidate{ source, entry };
   }
   std::span< MacCandidate const > all() const {
      return { const_cast< MacCandidates & >( *this ).data(), count_ };
   }

 private:
   static constexpr std::size_t most = macSourceFailedServer + 1;
   static_assert( std::is_trivially_destructible_v< MacCandidate > );

   MacCandidate * data() { return reinterpret_cast< MacCandidate * >( room_ ); }
   MacCandidate & at( std::size_t i ) { return data()[ i ]; }

   alignas( MacCandidate ) std::byte room_[ most * sizeof( MacCandidate ) ];
   std::size_t count_ = 0;
};

// What a source lists of the station that is no claim, and why not.
struct MacNoCandidate {
   MacSource source = macSourceL2Rib;
   MacObstacle obstacle = macObstacleNone;
   MacEntry entry;
};

// What the next hop of a remote station has come to.
struct MacNextHop {
   MacObstacle obstacle = macObstacleNone;
   // Its VXLAN interface and tunnel group.
   Pelt::IntfId intf;
   SwTunnelGroupId swTunnelGroupId;
   std::uint32_t nextHopId = 0;
   std::uint64_t hwId = 0;
   bool isMpls = false;
};

class MacSources {
 public:
   // A failed server, and since when the CPU port stands for it.
   struct FailedServer {
      KIV_VALUE( Hoba::MacSources::FailedServer );
      KIV_FIELD( Pelt::IntfId, intf );
      KIV_FIELD( Kiv::Seconds, since, 0 );
   };
   using FailedServers = Kiv::HashMap< Bridging::MacVlanPair, FailedServer >;

   MacSources( MacAddrInputs const & inputs, Kiv::Ptr< HobaCommonSmData > const & context,
               FailedServers const & failedServers, bool const & manageStaticMulticast )
         : in_( inputs ), context_( context ), failedServers_( failedServers ),
           manageStaticMulticast_( manageStaticMulticast ) {}

   // What the hardware reports; null for nothing.
   HobaTypes::MacAddressTableEntry const * record( Bridging::MacVlanPair pair ) const {
      return in_.macTable ? in_.macTable->macEntry().find( pair ) : nullptr;
   }
   // Gathers all candidates to `found`, and what is listed and is none to `none`. Returns the best, as the
   // rules of arbitration say; null for none.
   MacCandidate const * configuredEntry( Bridging::MacVlanPair pair,
                                         HobaTypes::MacAddressTableEntry const * record,
                                         MacCandidates & found,
                                         std::vector< MacNoCandidate > & none ) const;

   // What was learnt. `learnedInHardware`: by the hardware itself, which holds it.
   std::optional< MacEntry > reported( Bridging::MacVlanPair pair,
                                       HobaTypes::MacAddressTableEntry const * record,
                                       bool & learnedInHardware ) const;
   MacObstacle reportedObstacle( MacEntry const & entry ) const;
   bool hasTunnelLearnEvents() const {
      return !in_.rmacInfoDir->tunnelLearnEvent()->event().empty();
   }
   // Whether the operator, or dot1x, has it behind one of the interfaces, or what is below them.
   bool isClaimedBehind( Bridging::MacVlanPair pair,
                         Kiv::HashSet< Pelt::IntfId > const & intfs ) const;
   // Whether the hardware has learnt it, and there.
   bool isLearnedInHardware( MacEntry const & entry ) const;

   // How a candidate behind the overlay is reached. One without an object of the RIB is reached by its
   // tunnel group.
   MacNextHop nextHop( MacEntry const & entry ) const;

   bool isNonAgingMac( Bridging::MacVlanPair pair ) const;
   // The overlay's agent restarts, and has not told yet of all that it knows.
   bool overlayRestarts() const;
   // Learnt stations count for nothing on the interface: others say who is there.
   bool isDot1xRestricted( Pelt::IntfId intf ) const;
   // The interface is there.
   bool hasIntf( Pelt::IntfId intf ) const;
   // The overlay carries the VLAN.
   bool hasVni( Bridging::VlanIdOrNone vlanId ) const;
   bool isControllerClient() const;
   SwTunnelGroupIdMap const * groups() const { return in_.swTunnelGroupIdMap.get(); }
   // The VLAN that has the number; none if there is none.
   Bridging::VlanIdOrNone vlanOf( Vxlan::Vni vni ) const;
   // The VLANs changed their numbers.
   void forgetVnis() const { vlanByVni_.clear(); }

 private:
   struct Gather;
   void findTunnelIntf( MacEntry & entry ) const;
   void fromL2Rib( Gather & gather ) const;
   void fromEvpnMacTable( Gather & gather ) const;
   void fromFdbConfig( Gather & gather ) const;
   void fromMlagHostTable( Gather & gather ) const;
   void fromVxlanConfigDir( Gather & gather ) const;
   void fromRouterMacTable( Gather & gather ) const;
   void fromDot1xHostTable( Gather & gather ) const;
   void fromReceivedRemoteHost( Gather & gather ) const;
   void fromMacTable( Gather & gather ) const;
   void fromFailedServer( Gather & gather ) const;
   MacObstacle configuredObstacle( Bridging::MacVlanPair pair,
                                   Bridging::ConfiguredHost const & host ) const;
   Vxlan::TunnelLearnEvent const * tunnelLearnEvent( Bridging::MacVlanPair pair ) const;

   MacAddrInputs const & in_;
   Kiv::Ptr< HobaCommonSmData > const & context_;
   FailedServers const & failedServers_;
   bool const & manageStaticMulticast_;
   mutable Kiv::HashMap< Vxlan::Vni, Bridging::VlanId >
         vlanByVni_; // of vlanVniMap, when it was asked for
};

} // namespace Hoba
