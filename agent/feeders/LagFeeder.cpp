// SPDX-License-Identifier: Apache-2.0
#include "agent/feeders/LagFeeder.h"

#include "Kiv/Reflect.h"
#include "Zipline/Zipline.h"

#include <algorithm>

ZIPLINE_HANDLE( LagFeeder );

KIV_DEFINE( Feeders::LagFeeder );

namespace Feeders {

namespace {

using Ports = std::vector< Pelt::IntfId >;

Kiv::HashSet< Pelt::IntfId >
setOf( Ports const & ports ) {
   Kiv::HashSet< Pelt::IntfId > set;
   for( auto const port : ports ) {
      set.insert( port );
   }
   return set;
}

bool
negotiates( LagConfig const & lag ) {
   return lag.kind() == HobaTypes::lagTypeLacp;
}

bool
runsIndividually( LagConfig const & lag ) {
   return lag.enabled() && negotiates( lag ) && !lag.lacpPartner() && lag.lacpFallback();
}

// The active members that a LAG ought to have, of the ports that could be: those that are stay
// where they are, the others follow.
Ports
wantedActive( LagConfig const & lag, Ports const & active, Ports const & candidates ) {
   if( !lag.enabled() || ( negotiates( lag ) && !lag.lacpPartner() ) ||
       candidates.size() < lag.minLinks() ) {
      return {};
   }
   auto const canBe = setOf( candidates ), are = setOf( active );
   Ports wanted;
   for( auto const port : active ) {
      if( canBe.has( port ) ) {
         wanted.push_back( port );
      }
   }
   for( auto const port : candidates ) {
      if( !are.has( port ) ) {
         wanted.push_back( port );
      }
   }
   return wanted;
}

} // namespace

LagFeeder::LagFeeder(
      Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
      Kiv::Ptr< Config const > const & config,
      Kiv::Ptr< Lag::Input::Config const > const & lagInputConfig,
      Kiv::Ptr< Interface::AllEthPhyIntfStatusDir const > const & ethPhyIntfStatusDir )
      : HobaBaseSm( commonSmData ) {
   configIs( config );
   lagInputConfigIs( lagInputConfig );
   portStatusDirIs( ethPhyIntfStatusDir );
   bogusAcsdIs( commonSmData );
}

void
LagFeeder::handleInitialized() {
   if( initialized() ) {
      for( auto const & [ lag, reactor ] : lagConfig() ) {
         addLag( lag );
      }
   }
}

// ---- The LAGs

void
LagFeeder::handleLag( Pelt::IntfId const & lag ) {
   lagConfig( lag ) ? addLag( lag ) : removeLag( lag );
}

void
LagFeeder::addLag( Pelt::IntfId lag ) {
   ZTRACE( 3, "Adding ", lag );
   Hoba::HobaPortList const members{ wantedMembers( lag ) };
   for( auto const port : members.port ) {
      configuredLagIs( port, lag );
   }
   commonSmData()->lagToPortConfigIs( lag, members );
   commonSmData()->lagToPortIs( lag, commonSmData()->lagToPort( lag ) );
   handleLagConfig( lag );
}

void
LagFeeder::removeLag( Pelt::IntfId lag ) {
   ZTRACE( 3, "Removing ", lag );
   for( auto const port : commonSmData()->lagToPortConfig( lag ).port ) {
      configuredLagDel( port );
   }
   membersLeave( lag, {} );
   commonSmData()->lagToPortDel( lag );
   commonSmData()->lagToPortConfigDel( lag );
   commonSmData()->lagInLacpFallbackIndividualModeDel( lag );
   commonSmData()->lagToLagTypeDel( lag );
}

void
LagFeeder::handleLagConfig( Pelt::IntfId const & lag ) {
   auto const * reactor = lagConfig( lag );
   if( !reactor ) {
      return;
   }
   auto const & asked = *reactor->notifier();
   commonSmData()->lagToLagTypeIs( lag, asked.kind() );
   if( runsIndividually( asked ) ) {
      // No port counts as individual that still is a member.
      review( lag );
      commonSmData()->lagInLacpFallbackIndividualModeIs( lag, true );
   } else {
      commonSmData()->lagInLacpFallbackIndividualModeDel( lag );
      review( lag );
   }
}

// ---- The ports

Pelt::IntfId
LagFeeder::wantedLag( Pelt::IntfId intf ) const {
   auto const lag = lagInputConfig()->notifier()->ethPhyIntfLagConfig( intf );
   return commonSmData()->intfHas( intf ) && lagConfig( lag ) ? lag : Pelt::IntfId();
}

std::vector< Pelt::IntfId >
LagFeeder::wantedMembers( Pelt::IntfId lag ) const {
   Ports members;
   for( auto const & [ port, inLag ] : lagInputConfig()->notifier()->ethPhyIntfLagConfig() ) {
      if( inLag == lag && wantedLag( port ) ) {
         members.push_back( port );
      }
   }
   return members;
}

void
LagFeeder::handlePortActive( Pelt::IntfId const & intf ) {
   review( configuredLag( intf ) );
}

void
LagFeeder::handleMembership( Pelt::IntfId const & intf ) {
   auto const before = configuredLag( intf );
   auto const after = wantedLag( intf );
   if( before == after ) {
      return;
   }
   // Out of the one LAG altogether before it is in the other.
   if( before ) {
      configuredLagDel( intf );
      auto members = commonSmData()->lagToPortConfig( before );
      std::erase( members.port, intf );
      commonSmData()->lagToPortConfigIs( before, members );
      review( before );
   }
   if( after ) {
      configuredLagIs( intf, after );
      auto members = commonSmData()->lagToPortConfig( after );
      members.port.push_back( intf );
      commonSmData()->lagToPortConfigIs( after, members );
      review( after );
   }
}

// ---- The active members

void
LagFeeder::review( Pelt::IntfId lag ) {
   auto const * reactor = lagConfig( lag );
   if( !reactor ) {
      return;
   }
   auto candidates = commonSmData()->lagToPortConfig( lag ).port;
   std::erase_if( candidates, [ this ]( Pelt::IntfId port ) {
      auto const * status = portStatus( port );
      return !status || !status->notifier()->active();
   } );
   auto const members =
         wantedActive( *reactor->notifier(), commonSmData()->lagToPort( lag ).port, candidates );
   membersLeave( lag, members );
   membersJoin( lag, members );
}

void
LagFeeder::membersLeave( Pelt::IntfId lag, std::vector< Pelt::IntfId > const & staying ) {
   auto const before = commonSmData()->lagToPort( lag );
   auto after = before;
   auto const stay = setOf( staying );
   std::erase_if( after.port, [ & ]( Pelt::IntfId port ) { return !stay.has( port ); } );
   if( after == before ) {
      return;
   }
   commonSmData()->lagToPortIs( lag, after );
   for( auto const port : before.port ) {
      if( !stay.has( port ) && commonSmData()->portToLag( port ) == lag ) {
         ZTRACE( 3, port, " leaves ", lag );
         commonSmData()->portToLagDel( port );
      }
   }
}

void
LagFeeder::membersJoin( Pelt::IntfId lag, std::vector< Pelt::IntfId > const & members ) {
   for( auto const port : members ) {
      if( commonSmData()->portToLag( port ) != lag ) {
         ZTRACE( 3, port, " joins ", lag );
         commonSmData()->portToLagIs( port, lag );
      }
   }
   commonSmData()->lagToPortIs( lag, Hoba::HobaLagPortList{ members } );
}

} // namespace Feeders
