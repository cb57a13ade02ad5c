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
   HOBA_MACHINE( LagFeeder );
   // By port: the LAG in whose lagToPortConfig it stands.
   KIV_COLLECTION( Pelt::IntfId, Pelt::IntfId, configuredLag );

 public:
   void handleInitialized() override;

 protected:
   // Reads `config`, `lagInputConfig`, `ethPhyIntfStatusDir` and HobaCommonSmData::intf; writes
   // `commonSmData`, but not before its owner says initializedIs( true ).
   LagFeeder( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
              Kiv::Ptr< Config const > const & config,
              Kiv::Ptr< Lag::Input::Config const > const & lagInputConfig,
              Kiv::Ptr< Interface::AllEthPhyIntfStatusDir const > const & ethPhyIntfStatusDir );

 private:
   using PortStatus = Interface::EthPhyIntfStatus;
   using PortStatusDir = Interface::AllEthPhyIntfStatusDir;

   // A LAG came or went; something about it changed.
   void handleLag( Pelt::IntfId const & lag );
   void handleLagConfig( Pelt::IntfId const & lag );
   // A port was put into a LAG or taken out, came or went; its activity changed.
   void handleMembership( Pelt::IntfId const & intf );
   void handlePortActive( Pelt::IntfId const & intf );

   void addLag( Pelt::IntfId lag );
   void removeLag( Pelt::IntfId lag );
   // The LAG that the port is in by the operator's word, as far as both exist; else the empty id.
   Pelt::IntfId wantedLag( Pelt::IntfId intf ) const;
   std::vector< Pelt::IntfId > wantedMembers( Pelt::IntfId lag ) const;
   // Brings the active members of the LAG in line with everything that counts.
   void review( Pelt::IntfId lag );
   void membersLeave( Pelt::IntfId lag, std::vector< Pelt::IntfId > const & staying );
   void membersJoin( Pelt::IntfId lag, std::vector< Pelt::IntfId > const & members );

   class KivLagConfig
         : public Kiv::Hears<
                 LagFeeder, LagConfig const, Pelt::IntfId,
                 Kiv::WhenReadyAny< &LagFeeder::handleLagConfig, LagConfig::enabledAttr,
                                    LagConfig::minLinksAttr, LagConfig::kindAttr,
                                    LagConfig::lacpPartnerAttr, LagConfig::lacpFallbackAttr > > {};
   KIV_REACTORS( Pelt::IntfId, KivLagConfig, lagConfig );
   class KivConfig : public Kiv::Hears< LagFeeder, Config const,
                                        Kiv::Follow< Config::lagAttr, &LagFeeder::lagConfig_ >,
                                        Kiv::WhenReady< Config::lagAttr, &LagFeeder::handleLag > > {
   };
   KIV_REACTOR( KivConfig, config );

   class KivLagInputConfig
         : public Kiv::Hears< LagFeeder, Lag::Input::Config const,
                              Kiv::WhenReady< Lag::Input::Config::ethPhyIntfLagConfigAttr,
                                              &LagFeeder::handleMembership > > {};
   KIV_REACTOR( KivLagInputConfig, lagInputConfig );

   class KivPortStatus
         : public Kiv::Hears< LagFeeder, PortStatus const, Pelt::IntfId,
                              Kiv::WhenReady< PortStatus::activeAttr, &LagFeeder::handlePortActive > > {
   };
   KIV_REACTORS( Pelt::IntfId, KivPortStatus, portStatus );
   class KivPortStatusDir
         : public Kiv::Hears<
                 LagFeeder, PortStatusDir const,
                 Kiv::Follow< PortStatusDir::ethPhyIntfStatusAttr, &LagFeeder::portStatus_ >,
                 Kiv::WhenReady< PortStatusDir::ethPhyIntfStatusAttr, &LagFeeder::handlePortActive > > {
   };
   KIV_REACTOR( KivPortStatusDir, portStatusDir );

   class KivBogusAcsd : public Kiv::Hears< LagFeeder, Hoba::HobaCommonSmData const,
                                           Kiv::WhenReady< Hoba::HobaCommonSmData::intfAttr,
                                                           &LagFeeder::handleMembership > > {};
   KIV_REACTOR( KivBogusAcsd, bogusAcsd );
};

} // namespace Feeders
