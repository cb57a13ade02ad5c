// SPDX-License-Identifier: Apache-2.0
#pragma once

// Which stations hang on which objects of the RIB, so that a change of an object is looked at where it counts.

#include "Bridging/MacVlanPair.h"
#include "Kiv/HashMap.h"
#include "L2Rib/ObjTuple.h"

#include <vector>

namespace Hoba {

class MacRib {
 public:
   using Pair = Bridging::MacVlanPair;

   // The station resolves through the object; none: through none any more.
   void hostIs( Pair pair, L2Rib::ObjTuple tuple );
   // The object shares the load among these; none: it is gone.
   void balanceIs( L2Rib::ObjTuple balance, std::vector< L2Rib::ObjTuple > const & dests );

   bool empty() const { return hostToObjTupleCache_.empty(); }
   // Those that hang on the object itself; null for none.
   Kiv::HashSet< Pair > const * hosts( L2Rib::ObjTuple tuple ) const {
      return l2RibObjTupleToDependantHosts_.find( tuple );
   }
   // The object, and those that share their load over it.
   std::vector< L2Rib::ObjTuple > affected( L2Rib::ObjTuple tuple ) const;

 private:
   using ObjTuples = Kiv::HashSet< L2Rib::ObjTuple >;

   Kiv::HashMap< Pair, L2Rib::ObjTuple > hostToObjTupleCache_;
   Kiv::HashMap< L2Rib::ObjTuple, Kiv::HashSet< Pair > > l2RibObjTupleToDependantHosts_;
   Kiv::HashMap< L2Rib::ObjTuple, ObjTuples > l2RibObjTupleToDependantObjTuples_;
   Kiv::HashMap< L2Rib::ObjTuple, ObjTuples > lbToObjTupleSetCache_;
};

} // namespace Hoba
