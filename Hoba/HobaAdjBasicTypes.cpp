// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaAdjBasicTypes.h"

#include "Hoba/HobaAssert.h"

namespace Hoba {

AllocationId
AllocationId::allocationIdFromNhgId( std::uint64_t nhgId, std::uint64_t entryIdx ) {
   // clang-format off
   HOBA_INVARIANT( entryIdx <= ( (18446744073709551615ULL) >> AllocationId::nhgIdIndexPos() ),
                   "entry " + std::to_string( entryIdx ) + " of a next-hop group" );
   // clang-format on
   HOBA_INVARIANT( nhgId <= maxNhgId, "next-hop group " + std::to_string( nhgId ) );
   return AllocationId( nhgBit | nhgId << nhgIdIndexPos() | entryIdx );
}

AllocationId
AllocationId::allocationIdFromTunnelId( Tunnel::TunnelId id ) {
   auto const tunnelId = id.value();
   HOBA_INVARIANT( !( tunnelId & ( ~AllocationId::tunnelIdMask() ) ),
                   "tunnel " + std::to_string( tunnelId ) );
   HOBA_INVARIANT( !id.isNexthopGroupTunnel(), Kiv::toText( id ) );
   return AllocationId( tunnelBit | tunnelId );
}

TableTypeBoolSet
tableTypeToBoolSet( TableType tableType ) {
   using Flag = TableTypeBoolSet::Flag;
   switch( tableType ) {
   case tableTypeUnknown:
      return TableTypeBoolSet::of( Flag::tableTypeUnknown );
   case tableTypeLongestPrefix:
      return TableTypeBoolSet::of( Flag::tableTypeLongestPrefix );
   case tableTypeExactMatch:
      return TableTypeBoolSet::of( Flag::tableTypeExactMatch );
   case tableTypeLabelledFec:
      return TableTypeBoolSet::of( Flag::tableTypeLabelledFec );
   }
   HOBA_INVARIANT( false && "Unreachable code", "table type " + std::to_string( tableType ) );
   return {};
}

} // namespace Hoba
