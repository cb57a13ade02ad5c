// SPDX-License-Identifier: Apache-2.0
#pragma once

// What is going on in the event loop right now: the notifications in flight, innermost first, the
// objects that wait for the outermost one to return, and who records all of it.

#include "Kiv/Ptr.h"

#include <string_view>

namespace Kiv {

class DispatchRecorder;

struct Dispatch {
   // One notification on its way through an entity's reactors. Reactors that leave while it is
   // under way move `next` and `last` past themselves; reactors that join are behind `last` and
   // hear nothing of it (they have just synchronised with the new value).
   struct Frame {
      explicit Frame( PtrInterface::NotifieeConst * first = nullptr,
                      PtrInterface::NotifieeConst * lastOne = nullptr )
            : outer( top ), next( first ), last( lastOne ) {
         top = this;
      }
      Frame( Frame const & ) = delete;
      Frame & operator=( Frame const & ) = delete;
      ~Frame() {
         top = outer;
         if( !outer && waiting ) [[unlikely]] {
            releaseWaiting();
         }
      }

      Frame * outer;
      PtrInterface::NotifieeConst * next;
      PtrInterface::NotifieeConst * last;
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
