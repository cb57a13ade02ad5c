// SPDX-License-Identifier: Apache-2.0
#pragma once

// Compares the stations that are in force with what the hardware holds. A pass of verification runs inside one
// write, and may not take long: it compares some of them, and says that it cannot conclude; the rest follow
// in slices. Who asks again is told of all.

#include "Hoba/HobaMacWalks.h"

namespace Hoba {

class MacAddrSm;

class MacVerify {
 public:
   explicit MacVerify( MacAddrSm & sm ) : sm_( sm ) {}

   // Compared inside the write.
   static constexpr std::uint32_t atOnce = 1024;

   // A pass begins, or goes on.
   void handleVerify();
   void goOn();
   void clear();

 private:
   void begin();
   void verifyEntry( Bridging::MacVlanPair pair );
   void verifyLearning();
   void mismatch( Kiv::String const & text );

   MacAddrSm & sm_;
   MacWalks walks_;
   bool begun_ = false; // what was found has not been told
   std::uint64_t compared_ = 0;
   std::uint64_t mismatches_ = 0;
   Kiv::String first_; // mismatch
};

} // namespace Hoba
