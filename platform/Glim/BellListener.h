// SPDX-License-Identifier: Apache-2.0
#pragma once

// Sleeps on the bells of many tables at once, in a thread of its own, and says by a file descriptor
// that one of them rang: what an event loop can wait for. The thread lives while there are bells.
//
// A bell that rang is heard no more until rearm(), so that a writer who commits all the time wakes
// the event loop once a turn, not at every commit.

#include "Glim/Mapping.h"

#include <atomic>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

namespace Glim {

class BellListener {
 public:
   // As many bells as one thread can sleep on.
   static constexpr std::size_t capacity = 127;

   // `eventFd` is written when a bell rings. It must stay open as long as there is a listener.
   explicit BellListener( int eventFd ) : eventFd_( eventFd ) {}
   ~BellListener();
   BellListener( BellListener const & ) = delete;
   BellListener & operator=( BellListener const & ) = delete;

   // Listens to the bell of the table whose header that is. `id` is the caller's name for it.
   // Throws std::system_error if there is no thread to be had: nothing changed then.
   void add( std::uint64_t id, Mapping header );
   // Returns whether it was here. Afterwards nobody touches that memory any more.
   bool del( std::uint64_t id );
   std::size_t bells() const { return entries_.size(); }

   // What rings from now on is heard. Called before the tables are looked at, so that nothing is
   // missed between the look and the sleep.
   void rearm();

 private:
   struct Entry {
      std::uint64_t id;
      Mapping header;
      std::uint32_t heard; // the bell when it was last looked at
      bool armed;
   };

   // A forked process has this object without the thread, and the mutex as that left it.
   bool isForked() const;
   std::unique_lock< std::mutex > lock();
   void start();
   void stop();
   void listen();
   // Wakes the thread, so that it looks at the entries anew. The lock is held.
   void disturb();

   int const eventFd_;
   std::mutex mutex_;
   std::vector< Entry > entries_; // changed by the caller's thread only
   bool stopping_ = false;
   std::atomic< bool > rang_{ false };
   std::atomic< std::uint32_t > disturbed_{ 0 };
   std::thread thread_;
   int pid_ = 0; // of the process that the thread is in
};

} // namespace Glim
