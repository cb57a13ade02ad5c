// SPDX-License-Identifier: Apache-2.0
#include "agent/feeders/PortFeeder.h"

#include "Hoba/HobaHelper.h"
#include "Kiv/Reflect.h"
#include "Zipline/Zipline.h"

ZIPLINE_HANDLE( PortFeeder );

KIV_DEFINE( Feeders::PortFeeder );

namespace Feeders {

PortFeeder::PortFeeder( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
                        Kiv::Ptr< Config const > const & config,
                        Kiv::Ptr< Interface::AllEthPhyIntfStatusDir > const & ethPhyIntfStatusDir,
                        Kiv::Ptr< HobaTypes::HobaPortStatusDir > const & hobaPortStatusDir,
                        LinkOf linkOf )
      : HobaBaseSm( commonSmData ), ethPhyIntfStatusDir_( ethPhyIntfStatusDir ),
        hobaPortStatusDir_( hobaPortStatusDir ), linkOf_( std::move( linkOf ) ) {
   configIs( config );
}

void
PortFeeder::handleInitialized() {
   if( !initialized() ) {
      return;
   }
   commonSmData()->cpuIntfIs( Hoba::CpuPortName(), true );
   // The directories may be older than this machine.
   for( auto const & [ intf, status ] : ethPhyIntfStatusDir_->ethPhyIntfStatus() ) {
      if( !portConfig( intf ) ) {
         remove( intf );
      }
   }
   for( auto const & [ intf, reactor ] : portConfig() ) {
      handlePort( intf );
   }
}

void
PortFeeder::handlePort( Pelt::IntfId const & intf ) {
   auto const * reactor = portConfig( intf );
   if( !reactor ) {
      remove( intf );
   } else if( auto const status = ethPhyIntfStatusDir_->ethPhyIntfStatus( intf );
              status && commonSmData()->intfHas( intf ) ) {
      statusIs( *status, *reactor->notifier(), intf );
   } else {
      add( intf, *reactor->notifier() );
   }
}

// The status follows the configuration and the chip; what does not change tells nobody.
void
PortFeeder::statusIs( Interface::EthPhyIntfStatus & status, PortConfig const & port,
                      Pelt::IntfId intf ) {
   auto const reported = hobaPortStatusDir_->portStatus( intf );
   bool const up = port.linkUp() && !( reported && reported->linkStatus() == Interface::linkDown );
   status.speedIs( port.speed().speed() );
   status.linkStatusIs( up ? Interface::linkUp : Interface::linkDown );
   status.activeIs( port.enabled() && up );
}

// The status is complete when others first see it, and known before the port is.
void
PortFeeder::add( Pelt::IntfId intf, PortConfig const & port ) {
   ZTRACE( 3, "Adding port ", intf );
   auto status = ethPhyIntfStatusDir_->ethPhyIntfStatus( intf );
   if( !status ) {
      status = Kiv::make< Interface::EthPhyIntfStatus >( intf );
   }
   auto const reported = hobaPortStatusDir_->portStatusIs( intf );
   if( auto const link = linkOf_ ? linkOf_( intf ) : Interface::linkUnknown;
       link != Interface::linkUnknown ) {
      reported->linkStatusIs( link );
   }
   portStatusIs( intf, reported );
   statusIs( *status, port, intf );
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
   portStatusDel( intf );
   hobaPortStatusDir_->portStatusDel( intf );
}

} // namespace Feeders
