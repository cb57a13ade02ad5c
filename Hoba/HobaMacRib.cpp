// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaMacRib.h"

#include "Kiv/SetsByKey.h"

namespace Hoba {

void
MacRib::hostIs( Pair pair, L2Rib::ObjTuple tuple ) {
   auto * known = hostToObjTupleCache_.find( pair );
   auto const former = known ? *known : L2Rib::ObjTuple();
   if( former == tuple ) {
      return;
   }
   if( tuple ) {
      Kiv::addToSet( l2RibObjTupleToDependantHosts_, tuple, pair );
      hostToObjTupleCache_.insertOrAssign( pair, tuple );
   } else {
      hostToObjTupleCache_.erase( pair );
   }
   if( former ) {
      Kiv::removeFromSet( l2RibObjTupleToDependantHosts_, former, pair );
   }
}

void
MacRib::balanceIs( L2Rib::ObjTuple balance, std::vector< L2Rib::ObjTuple > const & dests ) {
   if( auto const former = lbToObjTupleSetCache_.extract( balance ) ) {
      for( auto const & dest : *former ) {
         Kiv::removeFromSet( l2RibObjTupleToDependantObjTuples_, dest, balance );
      }
   }
   for( auto const & dest : dests ) {
      Kiv::addToSet( l2RibObjTupleToDependantObjTuples_, dest, balance );
      Kiv::addToSet( lbToObjTupleSetCache_, balance, dest );
   }
}

std::vector< L2Rib::ObjTuple >
MacRib::affected( L2Rib::ObjTuple tuple ) const {
   std::vector< L2Rib::ObjTuple > all{ tuple };
   if( auto const * balances = l2RibObjTupleToDependantObjTuples_.find( tuple ) ) {
      for( auto const & balance : *balances ) {
         all.push_back( balance );
      }
   }
   return all;
}

} // namespace Hoba
