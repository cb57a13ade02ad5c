// SPDX-License-Identifier: Apache-2.0
#include "FastPortSm.h"

#include "Kiv/Reflect.h"
#include "Zipline/Zipline.h"

ZIPLINE_HANDLE( FastPortSm );

KIV_DEFINE( FastPort::Config );
KIV_DEFINE( FastPort::Helper );
KIV_DEFINE( FastPort::FastPortSm );

namespace FastPort {

FastPortSm::FastPortSm( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
                        Kiv::Ptr< Config const > const & config,
                        Kiv::Ptr< Interface::AllEthPhyIntfStatusDir const > const & ports,
                        Kiv::Ptr< Helper > const & helper )
      : HobaBaseSm( commonSmData ), helper_( helper ) {
   HOBA_INVARIANT( helper, "fast ports are a matter of the chip" );
   configIs( config );
   portsIs( ports );
}

void
FastPortSm::handleInitialized() {
   initialized() ? reactorsInitialize() : reactorsUninitialize();
}

void
FastPortSm::handleThreshold() {
   for( auto const & intf : Kiv::keysOf( port() ) ) {
      handlePort( intf );
   }
}

void
FastPortSm::handlePort( Pelt::IntfId const & intf ) {
   apply( intf, wanted( intf ) );
}

bool
FastPortSm::wanted( Pelt::IntfId intf ) const {
   return config() && Interface::speedToKbps( port( intf )->notifier()->speed() ) >=
                            config()->notifier()->thresholdKbps();
}

void
FastPortSm::apply( Pelt::IntfId intf, bool isWanted ) {
   bool const isFast = isWanted && ( fastHas( intf ) || fast().size() < helper_->deepBuffers() );
   if( isWanted && !isFast ) {
      ZTRACE( 3, intf, " is fast, but no buffer is left" );
      waitingIs( intf );
      return;
   }
   waitingDel( intf );
   if( isFast != fastHas( intf ) ) {
      helper_.call< &Helper::setFast >( intf, isFast );
      isFast ? fastIs( intf ) : fastDel( intf );
   }
   if( !isFast && !waiting().empty() && fast().size() < helper_->deepBuffers() ) {
      handlePort( *waiting().begin() );
   }
}

} // namespace FastPort
