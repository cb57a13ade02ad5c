// SPDX-License-Identifier: Apache-2.0
#pragma once

// What is going on in the event loop right now: the notifications in flight, innermost first, the
// objects that wait for the outermost one to return, who records all of it, and what failed.

#include "Kiv/Ptr.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace Kiv {

class DispatchRecorder;

struct Dispatch {
   // One notification on its way through an entity's reactors, or, without any, just a scope that
   // whatever is removed in it outlives. Reactors that leave move `next` and `last` of all that is
   // in flight past themselves; reactors that join are behind `last` and hear nothing of it (they
   // have just synchronised with the new value).
   struct Frame {
      explicit Frame( PtrInterface::NotifieeConst * lastOne = nullptr )
            : outer( top ), last( lastOne ) {
         top = this;
      }
      Frame( Frame const & ) = delete;
      Frame & operator=( Frame const & ) = delete;
      [[gnu::always_inline]] ~Frame() {
         // A constant for the outermost frame: the next one then need not wait for `outer`.
         if( !outer ) [[likely]] {
            top = nullptr;
            if( waiting ) [[unlikely]] {
               releaseWaiting();
            }
         } else {
            top = outer;
         }
      }

      Frame * const outer;
      PtrInterface::NotifieeConst * next = nullptr;
      PtrInterface::NotifieeConst * last;
      bool moved = false; // somebody left: `next` and `last` are to be looked at
   };

   static bool inFlight() { return top != nullptr; }

   // Keeps `object` until the outermost notification has returned.
   static void keep( PtrInterface * object );
   static void releaseWaiting();

   static inline Frame * top = nullptr;
   static inline bool waiting = false;
   // Null unless somebody records: one load and one branch is all that recording costs then.
   static inline DispatchRecorder * recorder = nullptr;

   // Says that `step`, at work on what is called `on`, failed with the exception being handled:
   // called inside a catch block.
   static void failed( std::string_view step, std::string_view on = {} ) noexcept;
   // How often that was said since the process started.
   static inline std::uint64_t failures = 0;
   // Who is told of it; null for a line on standard error. What it throws itself is lost.
   static inline void ( *failureSink )( std::string_view step, std::string_view why ) = nullptr;
};

// What the exception being handled says: called inside a catch block.
std::string exceptionText();

// Runs a step whose failure is its own: what it throws is told (Dispatch::failed()) and ends here.
// Returns whether it succeeded. Handlers, timeouts and first passes run like this, so that no one's
// failure keeps others from their turn, or is taken for the failure of whoever wrote an attribute.
template< class Step >
bool
guarded( std::string_view name, std::string_view on, Step && step ) {
   try {
      step();
      return true;
   } catch( ... ) {
      Dispatch::failed( name, on );
      return false;
   }
}

} // namespace Kiv
