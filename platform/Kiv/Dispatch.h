// SPDX-License-Identifier: Apache-2.0
#pragma once

// What is going on in the event loop right now: the notifications in flight, innermost first, the
// objects that wait for the outermost one to return, and who records all of it.

#include "Kiv/Ptr.h"

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
};

} // namespace Kiv
