// SPDX-License-Identifier: Apache-2.0
#pragma once

// The agent's event loop: file descriptors, timers, signals, one thread.

#include "Kiv/ClockDriver.h"
#include "agent/common/Socket.h"

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <unordered_map>
#include <vector>

namespace HobaAgent {

class EventLoop {
 public:
   // Its clock driver is the ambient one from now on, until the loop is destroyed.
   // Throws Kiv::Exception if the system gives no epoll descriptor.
   EventLoop();
   ~EventLoop();
   EventLoop( EventLoop const & ) = delete;
   EventLoop & operator=( EventLoop const & ) = delete;

   // Called with the EPOLL* bits that are set. It may add and delete any descriptor, its own too.
   using Ready = std::function< void( std::uint32_t events ) >;
   // Calls `ready` whenever one of `events` is so (level-triggered). Throws Kiv::Exception if the
   // descriptor cannot be waited for. The caller deletes it before it is closed.
   void fdIs( int fd, std::uint32_t events, Ready ready );
   void eventsIs( int fd, std::uint32_t events );
   void fdDel( int fd );

   // Calls `work` once, after all that is going on now has returned to the loop.
   void later( std::function< void() > work );

   // These signals end run() from now on, instead of the process.
   void stopOn( std::initializer_list< int > signals );

   // Until stop(), at once if that was said before. An exception out of a callback ends it, too, and
   // passes through.
   void run();
   void stop() { stopped_ = true; }
   // One round: waits for at most `maxWait` milliseconds (-1: as long as it takes) until something is
   // ready or a timer is due.
   void runOnce( int maxWait );

   Kiv::RealDriver & driver() { return driver_; }

 private:
   struct Entry {
      std::uint64_t token;
      Ready ready;
   };

   void runLater();

   Kiv::RealDriver driver_;
   Fd epoll_;
   Fd signals_;
   // Descriptor numbers are used again, tokens are not: what epoll reported for a descriptor that
   // has been deleted meanwhile finds nobody.
   std::unordered_map< int, std::shared_ptr< Entry > > entries_;
   std::unordered_map< std::uint64_t, std::shared_ptr< Entry > > byToken_;
   std::uint64_t lastToken_ = 0;
   std::vector< std::function< void() > > later_;
   bool stopped_ = false;
};

} // namespace HobaAgent
