// SPDX-License-Identifier: Apache-2.0
#include "Bridging/StormControl.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( Bridging::StormControl::IntfConfig );
KIV_DEFINE( Bridging::StormControl::AggregateTcConfig );
KIV_DEFINE( Bridging::StormControl::BurstConfig );
KIV_DEFINE( Bridging::StormControl::Config );
KIV_DEFINE( Bridging::StormControl::IntfStatus );
KIV_DEFINE( Bridging::StormControl::Status );

namespace Bridging::StormControl {

void
Threshold::check() const {
   if( level > wholeLink ) {
      throw Kiv::RangeException( "level: " + Kiv::toText( level ) +
                                 " is not a number from 0 to 10000, in hundredths of a percent" );
   }
}

Period::Period( Kiv::Seconds seconds ) : seconds_( seconds ) {
   if( !( seconds <= 0 || seconds >= shortest ) ) {
      throw Kiv::RangeException( Kiv::toText( seconds ) + " is not a period: at least " +
                                 Kiv::toText( shortest ) + " seconds, or 0 for none" );
   }
}

std::uint64_t
Threshold::rateKbps() const {
   if( mode != meteringBps ) {
      return 0;
   }
   switch( unit ) {
   case unitBps:
      return rate / 1000;
   case unitMbps:
      return std::uint64_t( rate ) * 1000;
   default:
      return rate;
   }
}

} // namespace Bridging::StormControl
