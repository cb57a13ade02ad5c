// SPDX-License-Identifier: Apache-2.0
#pragma once

// What connects the collections of entities (Collection.h) with the event loop of the process:
//
//    auto & tables = Glim::Loop::instance();
//    loop.fdIs( tables.fd(), EPOLLIN, [ &tables ]( auto ) { tables.run(); } );
//
// All collections belong to one thread, that of the event loop. A reader that waits for its table
// to appear is asked again by a timer of the ambient clock driver.

#include "Glim/BellListener.h"
#include "Glim/Segment.h"
#include "Kiv/Clock.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace Glim {

class CollectionControl;

class Loop {
 public:
   // How many changed keys one collection tells in a turn. Collections with more go on in the next.
   static constexpr std::uint64_t keysPerTurn = 256;
   // How often tables that are not there are looked for, in seconds.
   static constexpr Kiv::Seconds retryInterval = 0.1;

   // Of the process. Throws Error at first if the system gives no descriptor.
   static Loop & instance();
   Loop( Loop const & ) = delete;
   Loop & operator=( Loop const & ) = delete;

   // Readable (level-triggered) while run() has something to do.
   int fd() const { return event_.get(); }

   // One turn: every reader tells what changed, and then every writer that wrote commits. What a
   // commit hook throws passes through; the others have their turn in the next run(). Nothing happens when it is called from inside of one of them.
   void run();

   // Attached collections, and bells that are listened to.
   std::size_t collections() const;
   std::size_t bells() const;

 private:
   friend class CollectionControl;
   Loop();
   // Never: collections may be destroyed later than anything else.
   ~Loop() = delete;

   void add( CollectionControl & collection );
   void del( CollectionControl & collection );
   // run() has something to do.
   void wake();
   // Runs whenever that table's bell rings. Throws Error. Returns a number for unlisten().
   std::uint64_t listen( Mapping header );
   void unlisten( std::uint64_t bell );

   class Retry final : public Kiv::Timer {
    public:
      using Timer::Timer;
      void onTimeout() override { Loop::instance().run(); }
   };
   void turn();
   void retryIs( bool wanted );

   Fd event_;
   bool woken_ = false;
   bool running_ = false;
   std::vector< CollectionControl * > collections_; // null: gone during a run
   std::vector< std::unique_ptr< BellListener > > listeners_;
   std::uint64_t lastBell_ = 0;
   Kiv::Ptr< Kiv::Clock > clock_;
   std::optional< Retry > retry_;
};

} // namespace Glim
