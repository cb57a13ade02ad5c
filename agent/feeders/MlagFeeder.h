// SPDX-License-Identifier: Apache-2.0
#pragma once

// Stands in for the MLAG agent, as far as it tells the shared context: of Mlag::Status and the LAGs it makes
//
//    HobaCommonSmData::mlagPeerLinkPort    the ports of the link to the peer
//    HobaCommonSmData::mlagIntfPort        the ports of the LAGs that both share
//
// and is the only one to write these. A LAG's ports are those that are configured into it. While MLAG is
// disabled there are none, and a shared LAG that is disabled has none.

#include "Hoba/HobaBaseSm.h"
#include "Hoba/HobaCommon.h"
#include "Kiv/HashMap.h"
#include "Mlag/Mlag.h"

namespace Feeders {

class MlagFeeder : public Hoba::HobaBaseSm {
   HOBA_MACHINE( MlagFeeder );

 public:
   void handleInitialized() override;

 protected:
   // Reads `status` and of `commonSmData` what the LAGs are; writes `commonSmData`, but not before its
   // owner says initializedIs( true ).
   MlagFeeder( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
               Kiv::Ptr< Mlag::Status const > const & status );

 private:
   void handleState();
   void handlePeerLink();
   void handleLag( Pelt::IntfId const & lag );
   // What the interface is for may have changed: its own mark, or those of its ports.
   void review( Pelt::IntfId const & intf );
   void reviewPort( Pelt::IntfId port );
   bool isPeerLink( Pelt::IntfId intf ) const;
   bool isShared( Pelt::IntfId intf ) const;

   class KivMlagStatus
         : public Kiv::Hears<
                 MlagFeeder, Mlag::Status const,
                 Kiv::WhenReady< Mlag::Status::stateAttr, &MlagFeeder::handleState >,
                 Kiv::WhenReady< Mlag::Status::peerLinkIntfAttr, &MlagFeeder::handlePeerLink >,
                 Kiv::WhenReady< Mlag::Status::mlagIntfAttr, &MlagFeeder::review > > {};
   KIV_REACTOR( KivMlagStatus, status );
   class KivBogusAcsd
         : public Kiv::Hears< MlagFeeder, Hoba::HobaCommonSmData const,
                              Kiv::WhenReady< Hoba::HobaCommonSmData::lagToPortConfigAttr,
                                              &MlagFeeder::handleLag > > {};
   KIV_REACTOR( KivBogusAcsd, bogusAcsd );

   // By LAG: its ports, as they were when it was looked at; and the way back.
   Kiv::HashMap< Pelt::IntfId, std::vector< Pelt::IntfId > > ports_;
   Kiv::HashMap< Pelt::IntfId, Pelt::IntfId > lagOf_;
   Pelt::IntfId peerLink_;
};

} // namespace Feeders
