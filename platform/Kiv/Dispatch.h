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
   // under way move `next` and `last` past themselves, and say so; reactors that join are behind
   // `last` and hear nothing of it (they have just synchronised with the new value).
   struct Round {
      Round * outer = nullptr;
      PtrInterface::NotifieeConst * next = nullptr;
      PtrInterface::NotifieeConst * last = nullptr;
      bool moved = false;
   };

   // Puts `round` in flight for the length of a scope. Apart from the round, whose address is known
   // elsewhere, so that `outer_` stays in a register.
   class InFlight {
    public:
      explicit InFlight( Round & round ) : outer_( top ) {
         round.outer = outer_;
         top = &round;
      }
      InFlight( InFlight const & ) = delete;
      InFlight & operator=( InFlight const & ) = delete;
      [[gnu::always_inline]] ~InFlight() {
         // A constant for the outermost round: the next one then need not wait for `outer_`.
         if( !outer_ ) [[likely]] {
            top = nullptr;
            if( waiting ) [[unlikely]] {
               releaseWaiting();
            }
         } else {
            top = outer_;
         }
      }

    private:
      Round * const outer_;
   };

   // Something is in flight, though it goes through no reactors: whatever is removed in its scope
   // outlives it.
   class Frame {
      Round round_;
      InFlight inFlight_{ round_ };
   };

   static bool inFlight() { return top != nullptr; }

   // Keeps `object` until the outermost notification has returned.
   static void keep( PtrInterface * object );
   static void releaseWaiting();

   static inline Round * top = nullptr;
   static inline bool waiting = false;
   // Null unless somebody records: one load and one branch is all that recording costs then.
   static inline DispatchRecorder * recorder = nullptr;
};

} // namespace Kiv
