// SPDX-License-Identifier: Apache-2.0
#pragma once

// The socket at which operators find the agent. agent/Client.h describes the protocol.

#include "agent/Client.h"

#include <map>
#include <memory>
#include <string>

namespace HobaAgent {

class Server {
 public:
   // Listens at `path`. Throws Kiv::Exception as listenAt() does.
   Server( EventLoop & loop, Commands const & commands, std::string path,
           ServerLimits limits = {} );
   ~Server(); // ends all connections and removes the socket
   Server( Server const & ) = delete;
   Server & operator=( Server const & ) = delete;

   // Serves a connection that is there already. Nobody is ever turned away for want of room: the one
   // that was idle the longest is dismissed, and of those that watch something none before the others.
   void clientIs( Fd fd );
   // Those that are served.
   std::size_t clients() const { return count( Client::State::serving ); }
   // Bytes that all of them have yet to read.
   std::size_t waiting() const { return traffic_.waiting; }
   std::string const & path() const { return path_; }

 private:
   void acceptSome();
   void turnAway( Fd fd, std::string const & reason );
   // Dismisses whoever lets most wait until what waits is within its bound.
   void boundWaiting();
   std::size_t count( Client::State state ) const;
   // The client in that state of which `isWorse` says so against all others; null if there is none.
   template< class IsWorse >
   Client * worst( Client::State state, IsWorse isWorse ) const;

   EventLoop & loop_;
   Commands const & commands_;
   std::string const path_;
   ServerLimits const limits_;
   Fd listening_;
   // Given up for a moment when descriptors run out, to take a connection and end it: it would
   // keep the loop awake otherwise.
   Fd reserve_;
   Traffic traffic_;
   std::map< std::uint64_t, std::unique_ptr< Client > > clients_;
   std::uint64_t lastClient_ = 0;
};

} // namespace HobaAgent
