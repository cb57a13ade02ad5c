// SPDX-License-Identifier: Apache-2.0
#pragma once

// One of the switch's agents that have stations forgotten: the operator's, under the name "cli". It asks in its
// directory of requests, and takes a request away when it has been answered.

#include "Bridging/HostTableFlush.h"
#include "Hoba/HobaBaseSm.h"

namespace Feeders {

class FlushClient : public Hoba::HobaBaseSm {
   HOBA_MACHINE( FlushClient );
   // Requests of this client that have been answered since it began.
   KIV_COUNTER( std::uint64_t, answered );

 public:
   static constexpr char const * name = "cli";

   void handleInitialized() override;

   // Returns the key under which it stands among the requests. What asks for nothing in particular asks for
   // all.
   Kiv::String ask( Bridging::HostTableFlushRequest const & request );

 protected:
   FlushClient( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
                Kiv::Ptr< Bridging::AllHostTableFlushRequestDir > const & requestDir,
                Kiv::Ptr< Bridging::AllHostTableFlushReplyDir const > const & replyDir );

 private:
   void handleReply( Kiv::String const & key );

   class KivReply : public Kiv::Reactor< KivReply, Bridging::HostTableFlushReplyDir const,
                                         FlushClient, Kiv::String > {
      void handleReply( Kiv::String const & request ) {
         if( key() == name ) {
            owner().handleReply( request );
         }
      }

    public:
      static constexpr auto handlers =
            Kiv::handlers( Kiv::OnceReady< Bridging::HostTableFlushReplyDir::replyAttr,
                                           &KivReply::handleReply >() );
   };
   KIV_REACTORS( Kiv::String, KivReply, reply );
   class KivReplyDir
         : public Kiv::Hears< FlushClient, Bridging::AllHostTableFlushReplyDir const,
                              Kiv::Follow< Bridging::AllHostTableFlushReplyDir::agentAttr,
                                           &FlushClient::reply_ > > {};
   KIV_REACTOR( KivReplyDir, replyDir );

   Kiv::Ptr< Bridging::AllHostTableFlushRequestDir > const requestDir_;
   std::uint64_t lastKey_ = 0;
};

} // namespace Feeders
