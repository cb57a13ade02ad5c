// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaMacVerify.h"

#include "Hoba/HobaMacAddrSm.h"

namespace Hoba {

void
MacVerify::handleVerify() {
   auto const verify = sm_.verifyData();
   if( !verify || !sm_.isReady() ) {
      return;
   }
   if( !begun_ ) {
      begin();
   }
   goOn();
   auto const all = Kiv::toText( sm_.fdb().size() );
   bool const isOver = walks_.empty();
   auto const found = mismatches_ == 0 ? Kiv::String( "ok" )
                      : mismatches_ == 1
                            ? first_
                            : first_ + "; and " + Kiv::toText( mismatches_ - 1 ) + " more";
   verify->updateCliVerifyOutput(
         "MAC addresses, " + Kiv::toText( compared_ ) + " of " + all + " compared", found );
   if( isOver ) {
      begun_ = false;
   } else {
      verify->retryVerifyIs( true );
   }
}

void
MacVerify::begin() {
   clear();
   begun_ = true;
   verifyLearning();
   mismatch(
         sm_.helper()->verifyNumRemoteHost( static_cast< std::uint32_t >( sm_.fdb().remotes() ) ) );
   walks_.addStatus( *sm_.inputs().bridgingStatus,
                     [ this ]( Bridging::MacVlanPair pair ) { verifyEntry( pair ); } );
}

void
MacVerify::goOn() {
   if( !walks_.empty() ) {
      walks_.run( sm_, *sm_.walkClock(), atOnce );
   }
}

void
MacVerify::clear() {
   walks_.clear();
   begun_ = false;
   compared_ = mismatches_ = 0;
   first_.clear();
}

void
MacVerify::verifyLearning() {
   for( auto const & [ intf, learns ] : sm_.portLearning() ) {
      mismatch( sm_.helper()->verifyLearning( intf, learns ) );
   }
   for( auto const & [ vlanId, learns ] : sm_.vlanLearning() ) {
      mismatch( sm_.helper()->verifyLearningOnVlan( vlanId, learns ) );
   }
}

// What is decided and not done is not to be there yet.
void
MacVerify::verifyEntry( Bridging::MacVlanPair pair ) {
   auto const entry = sm_.fdb().entry( pair );
   if( !entry || sm_.updateListHas( pair ) || sm_.refusedListHas( pair ) ) {
      return;
   }
   ++compared_;
   try {
      mismatch( sm_.verifyHost( *entry ) );
   } catch( ... ) {
      mismatch( Kiv::toText( pair ) + ": " + Kiv::exceptionText() );
   }
}

void
MacVerify::mismatch( Kiv::String const & text ) {
   if( !text.empty() && ++mismatches_ == 1 ) {
      first_ = text;
   }
}

} // namespace Hoba
