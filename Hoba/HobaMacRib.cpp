// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaMacRib.h"

namespace Hoba {

namespace {

// The member leaves the set of the key, and the set goes with its last one.
template< class Sets, class Key, class Member >
void
leave( Sets & sets, Key const & key, Member const & member ) {
   if( auto * set = sets.find( key ) ) {
      set->erase( member );
      if( set->empty() ) {
         sets.erase( key );
      }
   }
}

} // namespace

void
MacRib::hostIs( Pair pair, L2Rib::ObjTuple tuple ) {
   auto * known = hostToObjTupleCache_.find( pair );
   auto const former = known ? *known : L2Rib::ObjTuple();
   if( former == tuple ) {
      return;
   }
   if( tuple ) {
      l2RibObjTupleToDependantHosts_.tryEmplace( tuple ).value->insert( pair );
      hostToObjTupleCache_.insertOrAssign( pair, tuple );
   } else {
      hostToObjTupleCache_.erase( pair );
   }
   if( former ) {
      leave( l2RibObjTupleToDependantHosts_, former, pair );
   }
}

void
MacRib::balanceIs( L2Rib::ObjTuple balance, std::vector< L2Rib::ObjTuple > const & dests ) {
   if( auto const former = lbToObjTupleSetCache_.extract( balance ) ) {
      for( auto const & dest : *former ) {
         leave( l2RibObjTupleToDependantObjTuples_, dest, balance );
      }
   }
   for( auto const & dest : dests ) {
      l2RibObjTupleToDependantObjTuples_.tryEmplace( dest ).value->insert( balance );
      lbToObjTupleSetCache_.tryEmplace( balance ).value->insert( dest );
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
