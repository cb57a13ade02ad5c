// SPDX-License-Identifier: Apache-2.0
#include "agent/feeders/MlagFeeder.h"

#include "Kiv/Reflect.h"

#include <utility>

KIV_DEFINE( Feeders::MlagFeeder );

namespace Feeders {

MlagFeeder::MlagFeeder( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
                        Kiv::Ptr< Mlag::Status const > const & mlagStatus )
      : HobaBaseSm( commonSmData ) {
   statusIs( mlagStatus );
   bogusAcsdIs( commonSmData );
}

void
MlagFeeder::handleInitialized() {
   if( initialized() ) {
      for( auto const & [ lag, list ] : commonSmData()->lagToPortConfig() ) {
         handleLag( lag );
      }
      handleState();
   }
}

void
MlagFeeder::handleState() {
   handlePeerLink();
   for( auto const & [ intf, state ] : status()->notifier()->mlagIntf() ) {
      review( intf );
   }
}

void
MlagFeeder::handlePeerLink() {
   auto const now = status()->notifier()->peerLinkIntf();
   auto const before = std::exchange( peerLink_, now );
   review( before );
   review( now );
}

void
MlagFeeder::handleLag( Pelt::IntfId const & lag ) {
   auto const now = commonSmData()->lagToPortConfig( lag ).port;
   auto const * known = ports_.find( lag );
   auto const before = known ? *known : std::vector< Pelt::IntfId >();
   for( auto const port : before ) {
      if( auto const * inLag = lagOf_.find( port ); inLag && *inLag == lag ) {
         lagOf_.erase( port );
      }
   }
   for( auto const port : now ) {
      lagOf_.insertOrAssign( port, lag );
   }
   ports_.insertOrAssign( lag, now );
   for( auto const * list : { &before, &now } ) {
      for( auto const port : *list ) {
         reviewPort( port );
      }
   }
   if( now.empty() ) {
      ports_.erase( lag );
   }
}

void
MlagFeeder::review( Pelt::IntfId const & intf ) {
   if( Pelt::EthIntfId::isEthIntfId( intf ) ) {
      reviewPort( intf );
   } else if( auto const * found = ports_.find( intf ) ) {
      auto const list = *found; // who hears of a mark may change it
      for( auto const port : list ) {
         reviewPort( port );
      }
   }
}

// Every set calls a hook of the context: only what differs is set.
void
MlagFeeder::reviewPort( Pelt::IntfId port ) {
   auto const * found = lagOf_.find( port );
   auto const lag = found ? *found : Pelt::IntfId();
   auto & context = *commonSmData();
   bool const isPeer = isPeerLink( port ) || isPeerLink( lag );
   if( isPeer != context.mlagPeerLinkPortHas( port ) ) {
      isPeer ? context.mlagPeerLinkPortIs( port, true ) : context.mlagPeerLinkPortDel( port );
   }
   bool const isOfBoth = isShared( port ) || isShared( lag );
   if( isOfBoth != context.mlagIntfPortHas( port ) ) {
      isOfBoth ? context.mlagIntfPortIs( port, true ) : context.mlagIntfPortDel( port );
   }
}

bool
MlagFeeder::isPeerLink( Pelt::IntfId intf ) const {
   auto const & mlag = *status()->notifier();
   return intf && mlag.state() != Mlag::mlagDisabled && mlag.peerLinkIntf() == intf;
}

bool
MlagFeeder::isShared( Pelt::IntfId intf ) const {
   auto const & mlag = *status()->notifier();
   return mlag.state() != Mlag::mlagDisabled && mlag.mlagIntfHas( intf ) &&
          mlag.mlagIntf( intf ) != Mlag::mlagIntfDisabled;
}

} // namespace Feeders
