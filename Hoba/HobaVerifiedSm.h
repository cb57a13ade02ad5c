// SPDX-License-Identifier: Apache-2.0
#pragma once

// The base of machines that compare themselves with the hardware when a verification pass runs.
// They only override handleVerify(): the verification entity is found here, also when it comes
// after the machine.

#include "Hoba/HobaBaseSm.h"
#include "Hoba/HobaCommon.h"

namespace Hoba {

class HobaVerifiedSm : public HobaBaseSm {
 public:
   // Runs in each verification pass once the machine is initialized. Findings go to
   // verifyData(): updateCliVerifyOutput(), or retryVerifyIs( true ) when it cannot conclude yet.
   // The base is an unimplemented hook, and nothing before the machine is initialized.
   //
   // What it throws in a pass is reported as what the machine found, and counted in verifyFailures;
   // the other machines have their turn.
   virtual void handleVerify();

   // Null before the shared context is initialized, and after its cleanup().
   VerifyData * verifyData() const { return commonSmData()->verifyData().get(); }

 protected:
   // `className` is for the message of the unimplemented hook.
   HobaVerifiedSm( Kiv::Ptr< HobaCommonSmData > const & commonSmData, char const * className );

   // Starts to follow verification; a machine's constructor says it behind its other reactors.
   void followVerification();

 private:
   void handleVerifyData();
   void handleVerifyCounter();

   class KivVerifyData : public Kiv::Reactor< KivVerifyData, VerifyData, HobaVerifiedSm > {
    public:
      static constexpr auto handlers = Kiv::handlers(
            Kiv::onChange< VerifyData::verifyAttr, &HobaVerifiedSm::handleVerifyCounter >() );
   };
   class KivVerifyAcsd
         : public Kiv::Reactor< KivVerifyAcsd, HobaCommonSmData const, HobaVerifiedSm > {
    public:
      static constexpr auto handlers = Kiv::handlers(
            Kiv::on< HobaCommonSmData::verifyDataAttr, &HobaVerifiedSm::handleVerifyData >() );
   };

   char const * const className_;
   KIV_REACTOR( KivVerifyData, verifyDataReactor );
   KIV_REACTOR( KivVerifyAcsd, verifyAcsd );
};

} // namespace Hoba
