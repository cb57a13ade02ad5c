// SPDX-License-Identifier: Apache-2.0
#pragma once

// Storm control: limits on the broadcast, multicast and unknown unicast traffic that a port lets
// in, and on all traffic together.
//
// The operator sets levels for interfaces, which are ports or LAGs. The hardware knows ports only,
// and a level in percent means something else at every speed. So the machine programs the member
// ports of a LAG, each by its own speed; it programs a port again when its speed changes; and while
// a port is an active member of a LAG, the LAG's levels hold for it, and its own wait.
//
// What may be programmed is decided in Hoba/HobaStormControlRate.h, without doing anything about
// it. What was programmed, and why anything was not, stands in the status of each configured
// interface.
//
// One configuration has one outcome, in the hardware and in the status, whatever came before it.
// Only where nothing is programmed, for a speed that is not known or a zero that the platform cannot
// do, what stood before stays; so the machine remembers what it told the hardware. A port that comes
// (back) is cleared first.

#include "Bridging/StormControl.h"
#include "Hoba/HobaStormControlRate.h"
#include "Hoba/HobaVerifiedSm.h"
#include "Interface/EthPhyIntfStatus.h"
#include "Kiv/ClockReactor.h"
#include "Lag/Lag.h"
#include "Mox/TimerWheel.h"

#include <array>
#include <span>

namespace Hoba {

class StormControlSm : public HobaVerifiedSm {
 public:
   using Config = Bridging::StormControl::Config;
   using IntfConfig = Bridging::StormControl::IntfConfig;
   using AggregateTcConfig = Bridging::StormControl::AggregateTcConfig;
   using BurstConfig = Bridging::StormControl::BurstConfig;
   using Status = Bridging::StormControl::Status;
   using IntfStatus = Bridging::StormControl::IntfStatus;
   using LevelState = Bridging::StormControl::LevelState;
   using Threshold = Bridging::StormControl::Threshold;

   // Reads `config`, the ports' status and the LAG configuration; writes `status`; calls
   // `platformHelper`. Drop counters are read on `clock`. Nothing is programmed before the owner
   // says initializedIs( true ). What is read, and the clock, may be null: then there is nothing of
   // it. Throws Kiv::Exception when `status` or `platformHelper` is null.
   static Kiv::Ptr< StormControlSm > StormControlSmIs(
         Kiv::Ptr< HobaCommonSmData > const & commonSmData, Kiv::Ptr< Config const > const & config,
         Kiv::Ptr< Interface::AllEthPhyIntfStatusDir const > const & ethPhyIntfStatusDir,
         Kiv::Ptr< Status > const & status, Kiv::Ptr< StormControlSmHelper > const & platformHelper,
         Kiv::Ptr< Lag::Input::Config const > const & lagInputConfig,
         Kiv::Ptr< Mox::TimerWheel const > const & clock );
   KIV_TYPE( StormControlSm );

   void handleInitialized() override;
   void handleVerify() override;

   // These may be called from anywhere: whoever watches may remove the configuration, or let go of
   // the machine, meanwhile.
   //
   // Applies the configuration of the interface, if it has one.
   void enable( Pelt::IntfId intf );
   // Takes all limits of the interface away, whatever its configuration, its speed, or its LAG. Of
   // a LAG, those of its members. The status does not follow before the next change.
   void disable( Pelt::IntfId intf );

   // The port's speed in kbps, 0 when it is not known.
   std::uint32_t calculateSpeedForIntf( Pelt::IntfId intf ) const;
   // The LAG that the port is an active member of; the empty id for none.
   Pelt::IntfId lagIntfForIntf( Pelt::IntfId intf ) const;
   // Whether limits can be put on the interface: it is a LAG, or a port of this agent.
   bool intfExists( Pelt::IntfId intf ) const;
   // Whether the port takes part. Where ports do not come and go, all do.
   bool intfActive( Pelt::IntfId intf ) const;

 protected:
   StormControlSm( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                   Kiv::Ptr< Config const > const & config,
                   Kiv::Ptr< Interface::AllEthPhyIntfStatusDir const > const & ethPhyIntfStatusDir,
                   Kiv::Ptr< Status > const & status,
                   Kiv::Ptr< StormControlSmHelper > const & platformHelper,
                   Kiv::Ptr< Lag::Input::Config const > const & lagInputConfig,
                   Kiv::Ptr< Mox::TimerWheel const > const & clock );

 private:
   // Of the configuration: what is configured came or went.
   void handleIntfConfig( Pelt::IntfId const & intf );
   void handleAggregateTcConfig( std::uint16_t const & trafficClass );
   void handleBurstConfig( Kiv::String const & burst );
   // Of the ports.
   void handleEthPhyIntfStatus( Pelt::IntfId const & intf );
   void handleEthIntf( Pelt::IntfId const & intf );
   void handleSpeed( Pelt::IntfId const & intf );
   void handleIntf( Pelt::IntfId const & intf );
   // Of the LAGs.
   void handlePortToLag( Pelt::IntfId const & intf );
   void handleLagToPort( Pelt::IntfId const & lag );
   void handleEthPhyIntfLagConfig( Pelt::IntfId const & intf );
   // Of time.
   void handleTime();
   void handlePeriod();

   void removeOrphanedStatus();
   // Nothing is programmed on the interface any more, or less than before: says so, and why.
   void resetStormControlStatusForIntf( Pelt::IntfId intf );
   // Programs the port again: by its own levels, or by those of its LAG.
   void reprogram( Pelt::IntfId intf );
   void joinLag( Pelt::IntfId intf, Pelt::IntfId lag );
   void leaveLag( Pelt::IntfId intf );
   // disable(), on the way to something that must come about also when the hardware refuses.
   void clear( Pelt::IntfId intf );
   void setHwRate( LevelType levelType, Pelt::IntfId intf, Pelt::IntfId parentIntf,
                   std::uint32_t speedKbps, Threshold const & threshold );

   // What the hardware was told last of a port. It is what stands there: levels of one
   // configuration, since a port is cleared before another one holds for it.
   struct Held {
      struct Level {
         Threshold threshold;
         std::uint32_t speedKbps = 0;
      };
      Pelt::IntfId parent;
      std::array< Level, levelTypeMax > level;
   };
   // Of the configuration of `parent` only; the default for none.
   Held::Level const & held( Pelt::IntfId port, Pelt::IntfId parent, LevelType levelType ) const;

   void verifyUnlimited( Pelt::IntfId port );
   void reportVerify( Kiv::String const & item, Kiv::String const & mismatch );
   // The ports on which limits of the interface are put: a port itself, or the members of a LAG, as
   // far as they are there and active.
   std::vector< Pelt::IntfId > portsOf( Pelt::IntfId intf ) const;
   // The same with their speeds.
   struct PortSpeed {
      Pelt::IntfId port;
      std::uint32_t kbps; // 0 when it is not known
   };
   using PortSpeeds = std::vector< PortSpeed >;
   PortSpeeds portSpeedsOf( Pelt::IntfId intf ) const;
   // Whether the port is an active member of the LAG, by both maps of the shared context.
   bool isMember( Pelt::IntfId intf, Pelt::IntfId lag ) const;
   StormControlSmHelper & platform() const { return *platformHelper_; }

   class KivConfig : public Kiv::Reactor< KivConfig, Config const, StormControlSm > {
    public:
      static constexpr auto handlers = Kiv::handlers(
            Kiv::on< Config::intfConfigAttr, &StormControlSm::handleIntfConfig >(),
            Kiv::on< Config::aggregateTcConfigAttr, &StormControlSm::handleAggregateTcConfig >(),
            Kiv::on< Config::burstConfigAttr, &StormControlSm::handleBurstConfig >(),
            Kiv::on< Config::periodAttr, &StormControlSm::handlePeriod >() );
   };

   // The levels of one interface. The reactor is initialized while the interface exists.
   class KivIntfConfig
         : public Kiv::Reactor< KivIntfConfig, IntfConfig const, StormControlSm, Pelt::IntfId > {
    public:
      void handleInitialized() override;
      // Programs all levels.
      void applyConfig();
      // Programs one level, as far as it can be, and says in the status what came of it.
      void updateLevel( LevelType levelType );
      // Says in `status` what stands of these levels, and why what is asked for does not; and the
      // speed. `ports` are those of the interface.
      void report( IntfStatus & status, std::span< LevelType const > levels,
                   PortSpeeds ports ) const;
      // The interface takes part. A LAG always does.
      bool active() const;
      // The configuration that holds for the interface: a LAG's for its members. Null for none.
      IntfConfig const * activeConfig() const;
      // Reads the drop counters.
      void handleTime();
      void handleVerify();
      // The interface is no longer there, or no longer configured.
      void doCleanup();
      // What keeps the interface from being programmed at all: `programmed` when nothing does.
      LevelState obstacle() const;

    private:
      template< LevelType levelType >
      void handleLevel();
      void handleAllLevel();

      // Nobody has removed the configuration, or the machine.
      bool working() const;
      // What the level comes to on each port. Mostly it is the same on all of them.
      class Decisions;
      // Programs the ports whose speed is known. Returns false if the level has nothing to say to
      // any port, known or not.
      bool program( LevelType levelType, PortSpeeds const & ports );
      // What becomes of the level: `programmed`, or why it does not.
      LevelState standing( LevelType levelType, PortSpeeds const & ports ) const;
      Bridging::StormControl::LevelStatus statusOf( LevelType levelType,
                                                    PortSpeeds const & ports ) const;

    public:
      static constexpr auto handlers = Kiv::handlers(
            Kiv::on< IntfConfig::broadcastAttr,
                     &KivIntfConfig::handleLevel< levelTypeBroadcast > >(),
            Kiv::on< IntfConfig::multicastAttr,
                     &KivIntfConfig::handleLevel< levelTypeMulticast > >(),
            Kiv::on< IntfConfig::uucastAttr, &KivIntfConfig::handleLevel< levelTypeUUcast > >(),
            Kiv::on< IntfConfig::allAttr, &KivIntfConfig::handleAllLevel >() );
   };

   // The level of one traffic class.
   class KivAggregateTcConfig : public Kiv::Reactor< KivAggregateTcConfig, AggregateTcConfig const,
                                                     StormControlSm, std::uint16_t > {
    public:
      void handleInitialized() override;

    private:
      void handleLevel();

    public:
      static constexpr auto handlers = Kiv::handlers(
            Kiv::on< AggregateTcConfig::levelAttr, &KivAggregateTcConfig::handleLevel >() );
   };

   class KivBurstConfig
         : public Kiv::Reactor< KivBurstConfig, BurstConfig const, StormControlSm, Kiv::String > {
    public:
      void handleInitialized() override;

    private:
      void handleBurstTime();

    public:
      static constexpr auto handlers = Kiv::handlers(
            Kiv::on< BurstConfig::burstTimeAttr, &KivBurstConfig::handleBurstTime >() );
   };

   class KivEthPhyIntfStatusDir
         : public Kiv::Reactor< KivEthPhyIntfStatusDir, Interface::AllEthPhyIntfStatusDir const,
                                StormControlSm > {
    public:
      static constexpr auto handlers =
            Kiv::handlers( Kiv::on< Interface::AllEthPhyIntfStatusDir::ethPhyIntfStatusAttr,
                                    &StormControlSm::handleEthPhyIntfStatus >() );
   };

   class KivEthPhyIntfStatus
         : public Kiv::Reactor< KivEthPhyIntfStatus, Interface::EthPhyIntfStatus const,
                                StormControlSm, Pelt::IntfId > {
    public:
      static constexpr auto handlers = Kiv::handlers(
            Kiv::onChange< Interface::EthPhyIntfStatus::speedAttr, &StormControlSm::handleSpeed >(),
            Kiv::onChange< Interface::EthPhyIntfStatus::activeAttr,
                           &StormControlSm::handleEthIntf >() );
   };

   class KivLagInputConfig
         : public Kiv::Reactor< KivLagInputConfig, Lag::Input::Config const, StormControlSm > {
    public:
      static constexpr auto handlers =
            Kiv::handlers( Kiv::on< Lag::Input::Config::ethPhyIntfLagConfigAttr,
                                    &StormControlSm::handleEthPhyIntfLagConfig >() );
   };

   class KivClock
         : public Kiv::ClockReactor< StormControlSm, &StormControlSm::handleTime > {};

   class KivBogusAcsd
         : public Kiv::Reactor< KivBogusAcsd, HobaCommonSmData const, StormControlSm > {
    public:
      static constexpr auto handlers = Kiv::handlers(
            Kiv::onChange< HobaCommonSmData::intfAttr, &StormControlSm::handleIntf >(),
            Kiv::onChange< HobaCommonSmData::portToLagAttr, &StormControlSm::handlePortToLag >(),
            Kiv::onChange< HobaCommonSmData::lagToPortAttr, &StormControlSm::handleLagToPort >() );
   };

   Kiv::Ptr< Status > const status_;
   Kiv::Ptr< StormControlSmHelper > const platformHelper_;
   Kiv::HashMap< Pelt::IntfId, Held > held_;
   // The LAG that the port was last heard to be in: a change does not tell which one it left.
   Kiv::HashMap< Pelt::IntfId, Pelt::IntfId > lagOfPort_;

   KIV_REACTOR( KivConfig, config );
   KIV_REACTORS( Pelt::IntfId, KivIntfConfig, intfConfig );
   KIV_REACTORS( std::uint16_t, KivAggregateTcConfig, aggregateTcConfig );
   KIV_REACTORS( Kiv::String, KivBurstConfig, burstConfig );
   KIV_REACTOR( KivEthPhyIntfStatusDir, ethPhyIntfStatusDir );
   KIV_REACTORS( Pelt::IntfId, KivEthPhyIntfStatus, ethPhyIntfStatus );
   KIV_REACTOR( KivLagInputConfig, lagInputConfig );
   KIV_REACTOR( KivClock, clock );
   KIV_REACTOR( KivBogusAcsd, bogusAcsd );
};

} // namespace Hoba
