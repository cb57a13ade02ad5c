// SPDX-License-Identifier: Apache-2.0
#pragma once

// Stands in for the switch's agent of link aggregation. It makes of Feeders::Config::lag, of
// Lag::Input::Config and of the ports' status the LAG maps of HobaCommonSmData:
//
//    lagToLagType, lagToPortConfig   of every LAG that is configured
//    lagToPort                       its active members, in the order in which they joined
//    portToLag                       the way back
//    lagInLacpFallbackIndividualMode
//
// and is the only one to write these. A port is an active member while it exists and is active, and
// its LAG is enabled, has its partner, and has as many such ports as it asks for. What the
// configuration says of ports and LAGs that do not exist waits until they do; it is told in any
// order.
//
// A port that joins is in portToLag before it is in lagToPort, and one that leaves is out of
// lagToPort before it is out of portToLag: every active member of a LAG is known to be one.

#include "Hoba/HobaBaseSm.h"
#include "Hoba/HobaCommon.h"
#include "Interface/EthPhyIntfStatus.h"
#include "Lag/Lag.h"
#include "agent/feeders/FeederConfig.h"

namespace Feeders {

class LagFeeder : public Hoba::HobaBaseSm {
 public:
   // Reads `config`, `lagInputConfig`, `ethPhyIntfStatusDir` and HobaCommonSmData::intf; writes
   // `commonSmData`, but not before its owner says initializedIs( true ).
   static Kiv::Ptr< LagFeeder >
   LagFeederIs( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
                Kiv::Ptr< Config const > const & config,
                Kiv::Ptr< Lag::Input::Config const > const & lagInputConfig,
                Kiv::Ptr< Interface::AllEthPhyIntfStatusDir const > const & ethPhyIntfStatusDir );
   KIV_TYPE( LagFeeder );

   void handleInitialized() override;

 protected:
   LagFeeder( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
              Kiv::Ptr< Config const > const & config,
              Kiv::Ptr< Lag::Input::Config const > const & lagInputConfig,
              Kiv::Ptr< Interface::AllEthPhyIntfStatusDir const > const & ethPhyIntfStatusDir );

 private:
   using PortStatus = Interface::EthPhyIntfStatus;
   using PortStatusDir = Interface::AllEthPhyIntfStatusDir;

   // A LAG came or went; something about it changed.
   void handleLag( Pelt::PortChannelIntfId const & lag );
   void handleLagConfig( Pelt::IntfId const & lag );
   // A port was put into a LAG or taken out, came or went, or its activity changed.
   void handleMembership( Pelt::IntfId const & intf );
   void handlePortStatus( Pelt::IntfId const & intf );
   void handleActive( Pelt::IntfId const & intf );

   void addLag( Pelt::IntfId lag );
   void removeLag( Pelt::IntfId lag );
   // The LAG that the port is in by the operator's word, as far as both exist; else the empty id.
   Pelt::IntfId wantedLag( Pelt::IntfId intf ) const;
   std::vector< Pelt::IntfId > wantedMembers( Pelt::IntfId lag ) const;
   // Brings the active members of the LAG in line with everything that counts.
   void review( Pelt::IntfId lag );
   void membersLeave( Pelt::IntfId lag, std::vector< Pelt::IntfId > const & staying );
   void membersJoin( Pelt::IntfId lag, std::vector< Pelt::IntfId > const & members );

   class KivConfig : public Kiv::Reactor< KivConfig, Config const, LagFeeder > {
    public:
      static constexpr auto handlers =
            Kiv::handlers( Kiv::on< Config::lagAttr, &LagFeeder::handleLag >() );
   };

   class KivLagConfig
         : public Kiv::Reactor< KivLagConfig, LagConfig const, LagFeeder, Pelt::IntfId > {
    public:
      static constexpr auto handlers = Kiv::handlers(
            Kiv::onChange< LagConfig::enabledAttr, &LagFeeder::handleLagConfig >(),
            Kiv::onChange< LagConfig::minLinksAttr, &LagFeeder::handleLagConfig >(),
            Kiv::onChange< LagConfig::kindAttr, &LagFeeder::handleLagConfig >(),
            Kiv::onChange< LagConfig::lacpPartnerAttr, &LagFeeder::handleLagConfig >(),
            Kiv::onChange< LagConfig::lacpFallbackAttr, &LagFeeder::handleLagConfig >() );
   };

   class KivLagInputConfig
         : public Kiv::Reactor< KivLagInputConfig, Lag::Input::Config const, LagFeeder > {
    public:
      static constexpr auto handlers =
            Kiv::handlers( Kiv::onChange< Lag::Input::Config::ethPhyIntfLagConfigAttr,
                                          &LagFeeder::handleMembership >() );
   };

   class KivPortStatusDir
         : public Kiv::Reactor< KivPortStatusDir, PortStatusDir const, LagFeeder > {
    public:
      static constexpr auto handlers = Kiv::handlers(
            Kiv::on< PortStatusDir::ethPhyIntfStatusAttr, &LagFeeder::handlePortStatus >() );
   };

   class KivPortStatus
         : public Kiv::Reactor< KivPortStatus, PortStatus const, LagFeeder, Pelt::IntfId > {
    public:
      static constexpr auto handlers =
            Kiv::handlers( Kiv::onChange< PortStatus::activeAttr, &LagFeeder::handleActive >() );
   };

   class KivBogusAcsd
         : public Kiv::Reactor< KivBogusAcsd, Hoba::HobaCommonSmData const, LagFeeder > {
    public:
      static constexpr auto handlers = Kiv::handlers(
            Kiv::onChange< Hoba::HobaCommonSmData::intfAttr, &LagFeeder::handleMembership >() );
   };

   KIV_REACTOR( KivConfig, config );
   KIV_REACTORS( Pelt::IntfId, KivLagConfig, lagConfig );
   KIV_REACTOR( KivLagInputConfig, lagInputConfig );
   KIV_REACTOR( KivPortStatusDir, portStatusDir );
   KIV_REACTORS( Pelt::IntfId, KivPortStatus, portStatus );
   KIV_REACTOR( KivBogusAcsd, bogusAcsd );

   // By port: the LAG in whose lagToPortConfig it stands.
   Kiv::HashMap< Pelt::IntfId, Pelt::IntfId > configuredLag_;
};

} // namespace Feeders
