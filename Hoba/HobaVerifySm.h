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
// that pass, but has its own afterwards. One that comes while verification is not possible is ignored.
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
 public:
   // Watches the verification entities of the context, and is initialized with the context. Its
   // clock is one of its own, on the ambient driver. Throws Kiv::Exception for no context, or one
   // without verification entity.
   static Kiv::Ptr< VerifySm > VerifySmIs( Kiv::Ptr< HobaCommonSmData > const & commonSmData );

   KIV_TYPE( VerifySm );

   // How long after a pass that has to be retried the clock fires again.
   static constexpr Kiv::Seconds retryDelay = 1.0;

   void handleInitialized() override;
   // A pass at once, for the connection `socket`. Returns what is in cliVerifyOutput then, as
   // cliReplyItems(); `socket` is 0 again. Throws Kiv::Exception while a pass is under way.
   Kiv::String handleCliVerificationRequest( std::uint32_t socket );

 protected:
   explicit VerifySm( Kiv::Ptr< HobaCommonSmData > const & commonSmData );

 private:
   void handleContextInitialized();
   void handleVerifyRequest();
   void handleVerifyOutput();
   void handleTimeout();
   void runVerification( VerifyData & verify );
   void wakeAt( Kiv::Seconds when );
   // The entity that it was made for, whatever the context has by now. Held, since who is told of what
   // it notifies may drop all else.
   Kiv::Ptr< VerifyData > data() const { return verifyData()->notifier(); }

   class KivVerifyRequired
         : public Kiv::Reactor< KivVerifyRequired, VerifyRequired const, VerifySm > {
    public:
      static constexpr auto handlers = Kiv::handlers(
            Kiv::onChange< VerifyRequired::verifyRequiredAttr, &VerifySm::handleVerifyRequest >() );
   };
   class KivVerifyData : public Kiv::Reactor< KivVerifyData, VerifyData, VerifySm > {
    public:
      static constexpr auto handlers = Kiv::handlers(
            Kiv::on< VerifyData::verifyOutputAttr, &VerifySm::handleVerifyOutput >() );
   };
   class KivClock : public Kiv::ClockReactor< VerifySm, &VerifySm::handleTimeout > {};
   class KivBogusAcsd : public Kiv::Reactor< KivBogusAcsd, HobaCommonSmData const, VerifySm > {
    public:
      static constexpr auto handlers = Kiv::handlers(
            Kiv::on< HobaCommonSmData::initializedAttr, &VerifySm::handleContextInitialized >() );
   };

   bool due_ = false; // the clock is to fire, or fired while the machine was not initialized
   KIV_REACTOR( KivVerifyRequired, verifyRequired );
   KIV_REACTOR( KivVerifyData, verifyData );
   KIV_REACTOR( KivClock, clock );
   KIV_REACTOR( KivBogusAcsd, bogusAcsd );
};

class VerifyAgentSm : public HobaBaseSm {
 public:
   // Follows `config`, which may be null, and writes `status`. The context may get its verification
   // entity later. Throws Kiv::Exception when the context or `status` is null.
   static Kiv::Ptr< VerifyAgentSm >
   VerifyAgentSmIs( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                    Kiv::Ptr< HobaTypes::VerifyAgentConfig const > const & config,
                    Kiv::Ptr< HobaTypes::VerifyAgentStatus > const & status );

   KIV_TYPE( VerifyAgentSm );
   ~VerifyAgentSm() override;

   void handleInitialized() override;

 protected:
   VerifyAgentSm( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                  Kiv::Ptr< HobaTypes::VerifyAgentConfig const > const & config,
                  Kiv::Ptr< HobaTypes::VerifyAgentStatus > const & status );

 private:
   void handleVerifyAgent();
   void handleVerifyData();
   void handleVerifyStatus();
   void handleVerifyActive();
   // Null while verification is not possible.
   Kiv::Ptr< VerifySm > verifySm() const;

   class KivVerifyAgentConfig : public Kiv::Reactor< KivVerifyAgentConfig,
                                                     HobaTypes::VerifyAgentConfig const,
                                                     VerifyAgentSm > {
    public:
      static constexpr auto handlers =
            Kiv::handlers( Kiv::onChange< HobaTypes::VerifyAgentConfig::cookieAttr,
                                          &VerifyAgentSm::handleVerifyAgent >() );
   };
   class KivVerifyData : public Kiv::Reactor< KivVerifyData, VerifyData const, VerifyAgentSm > {
    public:
      static constexpr auto handlers = Kiv::handlers(
            Kiv::onChange< VerifyData::verifyDoneAttr, &VerifyAgentSm::handleVerifyStatus >(),
            Kiv::onChange< VerifyData::verifyActiveAttr, &VerifyAgentSm::handleVerifyActive >() );
   };
   class KivBogusAcsd : public Kiv::Reactor< KivBogusAcsd, HobaCommonSmData const, VerifyAgentSm > {
    public:
      static constexpr auto handlers = Kiv::handlers(
            Kiv::on< HobaCommonSmData::verifyDataAttr, &VerifyAgentSm::handleVerifyData >() );
   };

   Kiv::Ptr< HobaTypes::VerifyAgentStatus > const status_;
   class VerifyAgentSmCliCallback;
   std::unique_ptr< VerifyAgentSmCliCallback > cliCallback_;
   bool cookieWaits_ = false; // for the end of the pass that is under way

   KIV_REACTOR( KivVerifyAgentConfig, config );
   KIV_REACTOR( KivVerifyData, verifyData );
   KIV_REACTOR( KivBogusAcsd, bogusAcsd );
};

} // namespace Hoba
