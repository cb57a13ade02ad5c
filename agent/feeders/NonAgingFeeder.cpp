// SPDX-License-Identifier: Apache-2.0
#include "agent/feeders/NonAgingFeeder.h"

namespace Feeders {

NonAgingFeeder::NonAgingFeeder( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
                                Kiv::Ptr< Config > const & config,
                                Kiv::Ptr< Kiv::Dir > const & nonAgingConfigDir )
      : HobaBaseSm( commonSmData ), nonAgingConfigDir_( nonAgingConfigDir ) {
   configIs( config );
}

Kiv::Ptr< NonAgingFeeder >
NonAgingFeeder::NonAgingFeederIs( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
                                  Kiv::Ptr< Config > const & config,
                                  Kiv::Ptr< Kiv::Dir > const & nonAgingConfigDir ) {
   return Hoba::smIs< NonAgingFeeder >( commonSmData, config, nonAgingConfigDir );
}

void
NonAgingFeeder::handleClient( Kiv::String const & client ) {
   if( auto const wishes = config()->notifier()->nonAgingClient( client ) ) {
      nonAgingConfigDir_->entryIs( client, wishes );
   } else {
      nonAgingConfigDir_->entryDel( client );
   }
}

} // namespace Feeders
