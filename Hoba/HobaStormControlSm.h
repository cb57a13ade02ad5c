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
// What is wanted of a port is decided in Hoba/HobaStormControlWanted.h, without doing anything about
// it: the machine looks at an interface, programs what is wanted of its ports, and reports. What was
// programmed, and why anything was not, stands in the status of each configured interface.
//
// One configuration has one outcome, in the hardware and in the status, whatever came before it.
// Only where nothing is programmed, for a speed that is not known or a zero that the platform cannot
// do, what it put there before stays; so the machine remembers what it told the hardware. A port that
// comes (back) is cleared first.
//
// What somebody else did to the hardware is not looked for: verification finds it, and it is mended when
// the level is programmed again. That is
//
//    one level of an interface    when it is configured otherwise; the all-traffic level takes along what
//                                 it covers, or, when it goes, all levels
//    all levels of an interface   when it is configured anew, comes into being, changes its speed, becomes
//                                 active, or leaves its LAG
//    all members of a LAG         when one comes, goes, or changes its speed; when the LAG comes or goes
//    everything                   when the machine begins
//
// All limits of a port are taken away when it comes into being, becomes inactive, joins a LAG or leaves it,
// or is not configured any more. Of one that is not there nothing is, and its counters are not read.

#include "Hoba/HobaHook.h"
#include "Hoba/HobaSlicedWalk.h"
#include "Hoba/HobaStormControlWanted.h"
#include "Hoba/HobaVerifiedSm.h"
#include "Interface/EthPhyIntfStatus.h"
#include "Lag/Lag.h"
#include "Mox/TimerWheel.h"

namespace Hoba {

class StormControlSm : public HobaVerifiedSm {
   HOBA_MACHINE( StormControlSm );
   // The limits that the hardware was told last, by port. It is what stands there.
   KIV_COLLECTION( PortLevel, HeldLevel, held );
   // The ports that are there, as last heard: one that is told again has not come back.
   KIV_SET( Pelt::IntfId, present );
   // The LAG of each port and the active members of each LAG, as last heard: a change does not tell
   // which one it left, and who.
   KIV_COLLECTION( Pelt::IntfId, Pelt::IntfId, lagOfPort );
   KIV_COLLECTION( Pelt::IntfId, HobaLagPortList, membersOfLag );

 public:
   using Config = StormControl::Config;
   using IntfConfig = StormControl::IntfConfig;
   using AggregateTcConfig = StormControl::AggregateTcConfig;
   using BurstConfig = StormControl::BurstConfig;
   using Status = StormControl::Status;
   using Threshold = StormControl::Threshold;

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
   // Reads `config`, the ports' status and the LAG configuration; writes `status`; calls
   // `platformHelper`. Drop counters are read on `clock`. Nothing is programmed before the owner
   // says initializedIs( true ). What is read, and the clock, may be null: then there is nothing of
   // it. Throws Kiv::Exception when `status` or `platformHelper` is null.
   StormControlSm( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                   Kiv::Ptr< Config const > const & config,
                   Kiv::Ptr< Interface::AllEthPhyIntfStatusDir const > const & ethPhyIntfStatusDir,
                   Kiv::Ptr< Status > const & status,
                   Kiv::Ptr< StormControlSmHelper > const & platformHelper,
                   Kiv::Ptr< Lag::Input::Config const > const & lagInputConfig,
                   Kiv::Ptr< Mox::TimerWheel const > const & clock );

 private:
   // Of the configuration.
   void handleAggregateTcConfig( std::uint16_t trafficClass );
   void handleBurstConfig( Kiv::String const & burst );
   // Of the ports.
   void handleEthPhyIntfStatus( Pelt::IntfId intf );
   void handleEthIntf( Pelt::IntfId intf );
   void handleIntf( Pelt::IntfId intf );
   void rememberIntf( Pelt::IntfId intf );
   // Of the LAGs.
   void handlePortToLag( Pelt::IntfId intf );
   void handleFormerLag( Pelt::IntfId intf );
   void rememberLag( Pelt::IntfId intf );
   void handleLagToPort( Pelt::IntfId lag );
   void rememberMembers( Pelt::IntfId lag );
   void handleEthPhyIntfLagConfig( Pelt::IntfId intf );
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

   // The interface as it is now, with what is configured for it.
   LimitedIntf look( Pelt::IntfId intf ) const;
   LimitedIntf look( Pelt::IntfId intf, IntfConfig const * config ) const;
   std::vector< PortSpeed > portsOf( Pelt::IntfId intf ) const;
   // Whether the port is an active member of the LAG, by both maps of the shared context.
   bool isMember( Pelt::IntfId intf, Pelt::IntfId lag ) const;
   // Whether the levels of its LAG hold for the port; its own, if it is in none.
   bool takesPart( Pelt::IntfId port ) const;
   // Puts what is wanted of these levels on the ports, if nothing keeps it from the interface.
   void program( LimitedIntf const & intf, std::span< LevelType const > levels );
   void setHwRate( LevelType levelType, PortSpeed const & port, Pelt::IntfId parentIntf,
                   Threshold const & threshold );
   // Says in the status what stands of these levels, and why what is asked for does not; and the
   // speed. `now` is what the interface was when it was looked at last.
   void report( LimitedIntf now, std::span< LevelType const > levels );

   void verifyUnlimited( Pelt::IntfId port );
   void verifyPort( Kiv::String const & item, Pelt::IntfId port, Pelt::IntfId parentIntf,
                    IntfConfig const & config );
   void reportVerify( Kiv::String const & item, Kiv::String const & mismatch );

   // The levels of one interface. The reactor is initialized while the interface exists.
   class KivIntfConfig
         : public Kiv::Reactor< KivIntfConfig, IntfConfig const, StormControlSm, Pelt::IntfId > {
    public:
      void handleInitialized() override;
      // Programs all levels.
      void applyConfig();
      // Programs one level, as far as it can be, and says in the status what came of it.
      void updateLevel( LevelType levelType );
      // The interface takes part. A LAG always does.
      bool active() const;
      // The configuration that holds for the interface: a LAG's for its members. Null for none.
      IntfConfig const * activeConfig() const;
      // Reads the drop counters.
      void handleTime();
      void handleVerify();
      // The interface is no longer configured.
      void doCleanup();

    private:
      template< LevelType levelType >
      void handleLevel();
      void handleAllLevel();
      // Nobody has removed the configuration, or the machine.
      bool working() const;

    public:
      static constexpr auto handlers = Kiv::handlers(
            Kiv::On< IntfConfig::broadcastAttr,
                     &KivIntfConfig::handleLevel< levelTypeBroadcast > >(),
            Kiv::On< IntfConfig::multicastAttr,
                     &KivIntfConfig::handleLevel< levelTypeMulticast > >(),
            Kiv::On< IntfConfig::uucastAttr, &KivIntfConfig::handleLevel< levelTypeUUcast > >(),
            Kiv::On< IntfConfig::allAttr, &KivIntfConfig::handleAllLevel >() );
   };
   class KivAggregateTcConfig
         : public Kiv::Hears< StormControlSm, AggregateTcConfig const, std::uint16_t,
                              Kiv::WhenReady< AggregateTcConfig::levelAttr,
                                              &StormControlSm::handleAggregateTcConfig > > {};
   class KivBurstConfig
         : public Kiv::Hears< StormControlSm, BurstConfig const, Kiv::String,
                              Kiv::WhenReady< BurstConfig::burstTimeAttr,
                                              &StormControlSm::handleBurstConfig > > {};
   class KivEthPhyIntfStatus
         : public Kiv::Hears< StormControlSm, Interface::EthPhyIntfStatus const, Pelt::IntfId,
                              Kiv::WhenReady< Interface::EthPhyIntfStatus::speedAttr,
                                              &StormControlSm::reprogram >,
                              Kiv::WhenReady< Interface::EthPhyIntfStatus::activeAttr,
                                              &StormControlSm::handleEthIntf > > {};
   KIV_REACTORS( Pelt::IntfId, KivIntfConfig, intfConfig );
   KIV_REACTORS( std::uint16_t, KivAggregateTcConfig, aggregateTcConfig );
   KIV_REACTORS( Kiv::String, KivBurstConfig, burstConfig );
   KIV_REACTORS( Pelt::IntfId, KivEthPhyIntfStatus, ethPhyIntfStatus );

 private:
   class KivConfig
         : public Kiv::Hears<
                 StormControlSm, Config const,
                 Kiv::Follow< Config::intfConfigAttr, &StormControlSm::intfConfig_,
                              &KivIntfConfig::doCleanup >,
                 Kiv::Follow< Config::aggregateTcConfigAttr, &StormControlSm::aggregateTcConfig_ >,
                 Kiv::OnceReady< Config::aggregateTcConfigAttr,
                                 &StormControlSm::handleAggregateTcConfig >,
                 Kiv::Follow< Config::burstConfigAttr, &StormControlSm::burstConfig_ >,
                 Kiv::OnceReady< Config::burstConfigAttr, &StormControlSm::handleBurstConfig >,
                 Kiv::OnceReady< Config::periodAttr, &StormControlSm::handlePeriod > > {};
   class KivEthPhyIntfStatusDir
         : public Kiv::Hears<
                 StormControlSm, Interface::AllEthPhyIntfStatusDir const,
                 Kiv::Follow< Interface::AllEthPhyIntfStatusDir::ethPhyIntfStatusAttr,
                              &StormControlSm::ethPhyIntfStatus_ >,
                 Kiv::WhenReady< Interface::AllEthPhyIntfStatusDir::ethPhyIntfStatusAttr,
                                 &StormControlSm::handleEthPhyIntfStatus > > {};
   class KivLagInputConfig
         : public Kiv::Hears< StormControlSm, Lag::Input::Config const,
                              Kiv::WhenReady< Lag::Input::Config::ethPhyIntfLagConfigAttr,
                                              &StormControlSm::handleEthPhyIntfLagConfig > > {};
   class KivClock : public Kiv::ClockReactor< StormControlSm, &StormControlSm::handleTime > {};
   class KivBogusAcsd
         : public Kiv::Hears<
                 StormControlSm, HobaCommonSmData const,
                 Kiv::WhenReady< HobaCommonSmData::intfAttr, &StormControlSm::handleIntf >,
                 Kiv::On< HobaCommonSmData::intfAttr, &StormControlSm::rememberIntf >,
                 Kiv::WhenReady< HobaCommonSmData::portToLagAttr,
                                 &StormControlSm::handlePortToLag >,
                 Kiv::WhenReady< HobaCommonSmData::portToLagAttr,
                                 &StormControlSm::handleFormerLag >,
                 Kiv::On< HobaCommonSmData::portToLagAttr, &StormControlSm::rememberLag >,
                 Kiv::WhenReady< HobaCommonSmData::lagToPortAttr,
                                 &StormControlSm::handleLagToPort >,
                 Kiv::On< HobaCommonSmData::lagToPortAttr, &StormControlSm::rememberMembers > > {};

   Kiv::Ptr< Status > const status_;
   Hooks< StormControlSmHelper > const platform_;
   // Of the drop counters.
   static constexpr std::uint32_t readingsAtOnce = 128;
   SlicedWalk< Kiv::HashMap< Pelt::IntfId, Kiv::Ptr< KivIntfConfig > > > reading_;
   KIV_REACTOR( KivConfig, config );
   KIV_REACTOR( KivEthPhyIntfStatusDir, ethPhyIntfStatusDir );
   KIV_REACTOR( KivLagInputConfig, lagInputConfig );
   KIV_REACTOR( KivClock, clock );
   KIV_REACTOR( KivBogusAcsd, bogusAcsd );
};

} // namespace Hoba
