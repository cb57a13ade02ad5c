// SPDX-License-Identifier: Apache-2.0
#pragma once

// What an operator or a test says of adjacencies: which collections of next hops there are, and which
// adjacency uses which.

#include "Bridging/VlanId.h"
#include "Glim/Fib.h"
#include "Hoba/HobaAdjEnum.h"
#include "Kiv/Entity.h"
#include "Kiv/Value.h"
#include "Pelt/EthAddr.h"
#include "Pelt/IntfId.h"
#include "Pelt/IpAddr.h"
#include "Pelt/Mpls.h"
#include "Routing/NexthopGroup.h"
#include "Vxlan/Vxlan.h"
#include "types/ViaBitmap.h"

#include <vector>

namespace Feeders {

// One way out. Two that are the same next hop are one with both weights.
struct Via {
   KIV_VALUE( Feeders::Via );
   KIV_FIELD( Hoba::NextHopType, type, Hoba::nextHopArpResolved );
   KIV_FIELD( std::uint32_t, weight, 1 );
   // The port or LAG, and the address behind it.
   KIV_FIELD( Pelt::IntfId, intf );
   KIV_FIELD( Pelt::EthAddr, mac );
   // The routed interface, where it is another one.
   KIV_FIELD( Pelt::IntfId, l3Intf );
   KIV_FIELD( Bridging::VlanIdOrNone, vlan );
   // Of nextHopHierarchical: the adjacency at which the choice goes on.
   KIV_FIELD( Glim::Fib::GlobalFecId, nextLevel );
   // At most one of these encapsulations. Labels are pushed, the first is the top.
   KIV_FIELD( std::vector< Pelt::MplsLabel >, label );
   KIV_FIELD( Pelt::IpGenAddr, greDestination );
   KIV_FIELD( Pelt::IpGenAddr, ipSecDestination );
   KIV_FIELD( Pelt::IpGenAddr, vtep );
   // Of the tunnel to any of these; and of that to the VTEP.
   KIV_FIELD( Pelt::IpGenAddr, tunnelSource );
   KIV_FIELD( Vxlan::Vni, vni );
   // In an ordered collection, its places.
   KIV_FIELD( HobaTypes::ViaBitmap, position );

   // Throws Kiv::ParseError or Kiv::RangeException for what no next hop can be.
   void check() const;
};

class NextHopCollectionConfig : public Kiv::Entity {
   KIV_ENTITY( Feeders::NextHopCollectionConfig );
   KIV_ORDERED( std::uint32_t, Via, via );
   // Of the tunnels that its vias are.
   KIV_ATTRIBUTE( Routing::NexthopGroup::NexthopGroupType, groupType,
                  Routing::NexthopGroup::nexthopGroupNone );
   KIV_ATTRIBUTE( std::uint32_t, ttl, 0 );
   KIV_ATTRIBUTE( Routing::NexthopGroup::TosValue, tos );

 public:
   explicit NextHopCollectionConfig( Kiv::String const & collectionName )
         : Entity( collectionName ) {}
};

class AdjacencyConfig : public Kiv::Entity {
   KIV_ENTITY( Feeders::AdjacencyConfig );
   // The collection that packets choose from, and the one for when all of that is down. Empty for none.
   KIV_ATTRIBUTE( Kiv::String, collection );
   KIV_ATTRIBUTE( Kiv::String, backup );
   // The tables through which it is used.
   KIV_SET( Hoba::TableType, table );

 public:
   explicit AdjacencyConfig( Glim::Fib::GlobalFecId fec ) : Entity( Kiv::toText( fec ) ) {}
};

} // namespace Feeders
