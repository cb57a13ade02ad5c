// SPDX-License-Identifier: Apache-2.0
#pragma once

// Verification: the forwarding agent compares its software state with what the hardware holds.
//
// Whoever wants a pass increments verifyRequired (VerifyData::doRequestVerify()). VerifySm runs it
// from its clock, so that requests made in one go are one pass: it increments the counter `verify`,
// inside which every machine runs its handleVerify(), and then has the VLAN helper verify itself.
// The result is verifyFinished, or verifyToBeRetried when a machine set retryVerify; then the clock
// fires again, and unless somebody still cannot conclude the result becomes verifyFinished.
//
// VerifyAgentSm brings the requests of other agents, and those of the command line, which do not
// wait for the clock. A cookie that comes while a pass is under way (verifyActive) is not answered by
// that pass, but has its own afterwards. One that comes while verification is not possible is ignored, and
// one whose machine goes before the pass, as with every restart, is not answered: another cookie asks again.
//
// A pass always comes to its end. Who throws in it is counted in verifyFailures: the agent that asked
// is answered verifyFailed then, and the command line reads who failed and why.

#include "Hoba/HobaBaseSm.h"
#include "Hoba/HobaCliCallback.h"
#include "Hoba/HobaCommon.h"
#include "Hoba/HobaLog.h"
#include "Kiv/ClockReactor.h"

#include <memory>

namespace Hoba {

HOBA_LOG_MESSAGE( HARDWARE_VERIFY_AGENT_FAILED, 3, "%s Agent will restart.",
                  "Verification of forwarding agent failed.",
                  "No action is required: the agent restarts to recover. If it happens again, "
                  "collect the traces of the agent and contact support." );

class VerifySm : public HobaBaseSm {
   HOBA_MACHINE( VerifySm );
   // The clock is to fire, or fired while the machine was not initialized.
   KIV_ATTRIBUTE( bool, due, false );

 public:
   // How long after a pass that has to be retried the clock fires again.
   static constexpr Kiv::Seconds retryDelay = 1.0;

   void handleInitialized() override;
   // A pass at once, for the connection `socket`. Returns what is in cliVerifyOutput then, as
   // cliReplyItems(); `socket` is 0 again. Throws Kiv::Exception while a pass is under way.
   Kiv::String handleCliVerificationRequest( std::uint32_t socket );

 protected:
   // Watches the verification entities of the context, and is initialized with the context. Its
   // clock is one of its own, on the ambient driver. Throws Kiv::Exception for no context, or one
   // without verification entity.
   explicit VerifySm( Kiv::Ptr< HobaCommonSmData > const & commonSmData );

 private:
   void handleContextInitialized() { initializedIs( commonSmData()->initialized() ); }
   void handleVerifyRequest();
   void handleVerifyOutput();
   void handleTimeout();
   void runVerification( VerifyData & verify );
   void wakeAt( Kiv::Seconds when );
   // The entity that it was made for, whatever the context has by now. Held, since who is told of what
   // it notifies may drop all else.
   Kiv::Ptr< VerifyData > data() const { return verifyData()->notifier(); }

   class KivVerifyRequired : public Kiv::Hears< VerifySm, VerifyRequired const,
                                                Kiv::WhenReady< VerifyRequired::verifyRequiredAttr,
                                                                &VerifySm::handleVerifyRequest > > {
   };
   class KivVerifyData
         : public Kiv::Hears<
                 VerifySm, VerifyData,
                 Kiv::On< VerifyData::verifyOutputAttr, &VerifySm::handleVerifyOutput > > {};
   class KivClock : public Kiv::ClockReactor< VerifySm, &VerifySm::handleTimeout > {};
   class KivBogusAcsd : public Kiv::Hears< VerifySm, HobaCommonSmData const,
                                           Kiv::On< HobaCommonSmData::initializedAttr,
                                                    &VerifySm::handleContextInitialized > > {};

   KIV_REACTOR( KivVerifyRequired, verifyRequired );
   KIV_REACTOR( KivVerifyData, verifyData );
   KIV_REACTOR( KivClock, clock );
   KIV_REACTOR( KivBogusAcsd, bogusAcsd );
};

class VerifyAgentSm : public HobaBaseSm {
   HOBA_MACHINE( VerifyAgentSm );
   // A cookie waits for the end of the pass that is under way.
   KIV_ATTRIBUTE( bool, cookieWaits, false );

 public:
   ~VerifyAgentSm() override;

   void handleInitialized() override;
   // Commands do not reach the machine any more.
   void kivDoZombieReactors( bool marked ) override;

 protected:
   // Follows `config`, which may be null, and writes `status`. The context may get its verification
   // entity later. Throws Kiv::Exception when the context or `status` is null.
   VerifyAgentSm( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                  Kiv::Ptr< HobaTypes::VerifyAgentConfig const > const & config,
                  Kiv::Ptr< HobaTypes::VerifyAgentStatus > const & status );

 private:
   void handleVerifyAgent();
   void handleVerifyStatus();
   void handleVerifyActive();
   // Null while verification is not possible.
   Kiv::Ptr< VerifySm > verifySm() const;

   class KivVerifyAgentConfig
         : public Kiv::Hears< VerifyAgentSm, HobaTypes::VerifyAgentConfig const,
                              Kiv::WhenReady< HobaTypes::VerifyAgentConfig::cookieAttr,
                                              &VerifyAgentSm::handleVerifyAgent > > {};
   class KivVerifyData
         : public Kiv::Hears<
                 VerifyAgentSm, VerifyData const,
                 Kiv::OnChange< VerifyData::verifyDoneAttr, &VerifyAgentSm::handleVerifyStatus >,
                 Kiv::WhenReady< VerifyData::verifyActiveAttr,
                                 &VerifyAgentSm::handleVerifyActive > > {};

   Kiv::Ptr< HobaTypes::VerifyAgentStatus > const status_;
   class VerifyAgentSmCliCallback;
   std::unique_ptr< VerifyAgentSmCliCallback > cliCallback_;
   KIV_REACTOR( KivVerifyAgentConfig, config );
   KIV_REACTOR( KivVerifyData, verifyData );

   class KivBogusAcsd
         : public Kiv::Hears<
                 VerifyAgentSm, HobaCommonSmData const,
                 Kiv::Follow< HobaCommonSmData::verifyDataAttr, &VerifyAgentSm::verifyData_ > > {};
   KIV_REACTOR( KivBogusAcsd, bogusAcsd );
};

} // namespace Hoba
