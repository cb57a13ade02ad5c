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

   // Serves a connection that is there already.
   void clientIs( Fd fd );
   std::size_t clients() const { return clients_.size(); }
   std::string const & path() const { return path_; }

 private:
   void acceptAll();
   void turnAway( Fd fd, std::string const & reason );

   EventLoop & loop_;
   Commands const & commands_;
   std::string const path_;
   ServerLimits const limits_;
   Fd listening_;
   // Given up for a moment when descriptors run out, to take a connection and end it: it would
   // keep the loop awake otherwise.
   Fd reserve_;
   std::map< std::uint64_t, std::unique_ptr< Client > > clients_;
   std::uint64_t lastClient_ = 0;
};

} // namespace HobaAgent
