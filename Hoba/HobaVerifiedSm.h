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
   explicit HobaVerifiedSm( Kiv::Ptr< HobaCommonSmData > const & commonSmData );

 private:
   void handleVerifyCounter();
   // Its name in messages: without namespaces.
   Kiv::String className() const;

   class KivVerifyData
         : public Kiv::Hears< HobaVerifiedSm, VerifyData,
                              Kiv::WhenReady< VerifyData::verifyAttr,
                                              &HobaVerifiedSm::handleVerifyCounter > > {};
   KIV_REACTOR( KivVerifyData, verifyDataReactor );

 private:
   class KivVerifyAcsd
         : public Kiv::Hears< HobaVerifiedSm, HobaCommonSmData const,
                              Kiv::Follow< HobaCommonSmData::verifyDataAttr,
                                           &HobaVerifiedSm::verifyDataReactor_ > > {};
   KIV_REACTOR( KivVerifyAcsd, verifyAcsd );
};

} // namespace Hoba
