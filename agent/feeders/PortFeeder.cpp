// SPDX-License-Identifier: Apache-2.0
#include "agent/feeders/PortFeeder.h"

#include "Hoba/HobaHelper.h"
#include "Zipline/Zipline.h"

ZIPLINE_HANDLE( PortFeeder );

namespace Feeders {

namespace {

// The status follows the configuration; what does not change tells nobody.
void
statusIs( Interface::EthPhyIntfStatus & status, PortConfig const & port ) {
   status.speedIs( Interface::speedFromMbps( port.speed() ) );
   status.linkStatusIs( port.linkUp() ? Interface::linkUp : Interface::linkDown );
   status.activeIs( port.enabled() && port.linkUp() );
}

} // namespace

PortFeeder::PortFeeder( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
                        Kiv::Ptr< Config const > const & config,
                        Kiv::Ptr< Interface::AllEthPhyIntfStatusDir > const & ethPhyIntfStatusDir )
      : HobaBaseSm( commonSmData ), ethPhyIntfStatusDir_( ethPhyIntfStatusDir ) {
   configIs( config );
}

Kiv::Ptr< PortFeeder >
PortFeeder::PortFeederIs(
      Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
      Kiv::Ptr< Config const > const & config,
      Kiv::Ptr< Interface::AllEthPhyIntfStatusDir > const & ethPhyIntfStatusDir ) {
   return Hoba::smIs< PortFeeder >( commonSmData, config, ethPhyIntfStatusDir );
}

void
PortFeeder::handleInitialized() {
   if( !initialized() ) {
      return;
   }
   commonSmData()->cpuIntfIs( Hoba::CpuPortName(), true );
   for( auto const & [ intf, reactor ] : portConfig() ) {
      handlePortConfig( intf );
   }
}

void
PortFeeder::handlePort( Pelt::EthIntfId const & intf ) {
   portConfigIs( intf, config()->notifier()->port( intf ) );
   handlePortConfig( intf );
}

void
PortFeeder::handlePortConfig( Pelt::IntfId const & intf ) {
   if( !initialized() ) {
      return;
   }
   auto const * reactor = portConfig( intf );
   if( !reactor ) {
      remove( intf );
   } else if( auto const status = ethPhyIntfStatusDir_->ethPhyIntfStatus( intf ) ) {
      statusIs( *status, *reactor->notifier() );
   } else {
      add( intf, *reactor->notifier() );
   }
}

// The status is complete when others first see it, and known before the port is.
void
PortFeeder::add( Pelt::IntfId intf, PortConfig const & port ) {
   ZTRACE( 3, "Adding port ", intf );
   auto const status = Kiv::make< Interface::EthPhyIntfStatus >( intf );
   statusIs( *status, port );
   ethPhyIntfStatusDir_->ethPhyIntfStatusIs( intf, status );
   commonSmData()->intfIs( intf, true );
}

// Out of service first, so that its LAG lets go of a port that still is there.
void
PortFeeder::remove( Pelt::IntfId intf ) {
   ZTRACE( 3, "Removing port ", intf );
   if( auto const status = ethPhyIntfStatusDir_->ethPhyIntfStatus( intf ) ) {
      status->activeIs( false );
   }
   commonSmData()->intfDel( intf );
   ethPhyIntfStatusDir_->ethPhyIntfStatusDel( intf );
}

} // namespace Feeders
