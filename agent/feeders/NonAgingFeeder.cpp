// SPDX-License-Identifier: Apache-2.0
#include "agent/feeders/NonAgingFeeder.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( Feeders::NonAgingFeeder );

namespace Feeders {

NonAgingFeeder::NonAgingFeeder( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
                                Kiv::Ptr< Config > const & config,
                                Kiv::Ptr< Kiv::Dir > const & nonAgingConfigDir )
      : HobaBaseSm( commonSmData ), nonAgingConfigDir_( nonAgingConfigDir ) {
   configIs( config );
}

void
NonAgingFeeder::handleInitialized() {
   // The directory may be older than this machine, and clients have gone meanwhile.
   if( initialized() ) {
      for( auto const & [ client, wishes ] : nonAgingConfigDir_->entry() ) {
         handleClient( client );
      }
   }
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
