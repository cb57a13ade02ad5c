// SPDX-License-Identifier: Apache-2.0
#include "agent/feeders/FlushClient.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( Feeders::FlushClient );

namespace Feeders {

FlushClient::FlushClient( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
                          Kiv::Ptr< Bridging::AllHostTableFlushRequestDir > const & requestDir,
                          Kiv::Ptr< Bridging::AllHostTableFlushReplyDir const > const & replies )
      : HobaBaseSm( commonSmData ), requestDir_( requestDir ) {
   replyDirIs( replies );
}

void
FlushClient::handleInitialized() {
   initialized() ? reactorsInitialize() : reactorsUninitialize();
}

Kiv::String
FlushClient::ask( Bridging::HostTableFlushRequest const & request ) {
   auto const mine = requestDir_->agentIs( name );
   auto const * replies = reply( name );
   Kiv::String key;
   // One that was asked before a restart may still stand there, and so may its answer.
   do {
      key = Kiv::toText( ++lastKey_ );
   } while( mine->requestHas( key ) || ( replies && replies->notifier()->replyHas( key ) ) );
   mine->requestIs( key, request );
   return key;
}

void
FlushClient::handleReply( Kiv::String const & key ) {
   auto const * replies = reply( name );
   auto const mine = requestDir_->agent( name );
   if( mine && mine->requestHas( key ) && replies && replies->notifier()->reply( key ) ) {
      answeredInc( 1 );
      mine->requestDel( key );
   }
}

} // namespace Feeders
