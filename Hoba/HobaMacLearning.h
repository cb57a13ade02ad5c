// SPDX-License-Identifier: Apache-2.0
#pragma once

// Where stations are learnt: what the operator, 802.1X and the MLAG say of an interface or a VLAN, told to the
// hardware when it differs from what that was told. An interface that learns no more forgets what it learnt.

#include "Bridging/VlanId.h"
#include "Pelt/IntfId.h"

namespace Hoba {

class MacAddrSm;

class MacLearning {
 public:
   explicit MacLearning( MacAddrSm & sm ) : sm_( sm ) {}

   void configureMacLearningOnPort( Pelt::IntfId intf );
   void macLearningStatusOnVlan( Bridging::VlanId vlanId );
   // All that anything is said of, to hardware that was told nothing yet.
   void configureAll();

   // Whether stations are to be learnt there.
   bool wantedOnPort( Pelt::IntfId intf ) const;
   bool wantedOnVlan( Bridging::VlanId vlanId ) const;

 private:
   void traceHostMode( Pelt::IntfId intf ) const;

   MacAddrSm & sm_;
};

} // namespace Hoba
