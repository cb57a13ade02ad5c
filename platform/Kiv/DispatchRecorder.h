// SPDX-License-Identifier: Apache-2.0
#pragma once

// Records what the event loop does, so that one can ask "why did it do that?": this attribute
// changed, so this handler ran, so that attribute was written, so this hardware hook was called.
//
//    Kiv::DispatchRecorder recorder( 100'000 );
//    recorder.activeIs( true );
//    ...
//    for( auto const & event : recorder.events() ) ...
//
// Nothing is recorded, and nothing paid but one load and one branch at each site, while no recorder
// is active. At most one recorder is active at a time.

#include "Kiv/Dispatch.h"
#include "Kiv/Text.h"

#include <cstdint>
#include <deque>

namespace Kiv {

class DispatchRecorder {
 public:
   // What an event is: an attribute was written, a handler ran, a hook of the hardware was called,
   // a timer fired, or something from outside (a command, a frame) came in.
   enum class Kind : std::uint8_t { write, handler, hook, timeout, input };

   // What an event is about: a name that is the same each time, and the values of this time behind
   // it, as "set" and " {...}".
   struct Text {
      Text( String textName = {}, String textValues = {} )
            : name( std::move( textName ) ), values( std::move( textValues ) ) {}
      String name, values;
   };

   struct Event {
      std::uint64_t id = 0;     // ascending from 1 in the order of beginning
      std::uint64_t parent = 0; // the event during which this one began; 0 for none
      Kind kind = Kind::input;
      Seconds begin = 0;
      Seconds end = 0; // 0 while it is under way
      Text about;

      String text() const { return about.name + about.values; }
   };

   // Keeps at most `capacity` events: the oldest make room, and are counted as dropped.
   explicit DispatchRecorder( std::size_t capacity, Seconds ( *now )() = &monotonicNow );
   ~DispatchRecorder();
   DispatchRecorder( DispatchRecorder const & ) = delete;
   DispatchRecorder & operator=( DispatchRecorder const & ) = delete;

   void activeIs( bool active );
   bool active() const { return Dispatch::recorder == this; }
   std::deque< Event > const & events() const { return events_; }
   std::uint64_t dropped() const { return dropped_; }
   // Null when the event is no longer, or not yet, kept.
   Event const * event( std::uint64_t id ) const;
   void clear();

   // An event from here to the end of the scope.
   class Scope {
    public:
      Scope( Kind kind, std::string_view name ) {
         if( Dispatch::recorder ) [[unlikely]] {
            begin( kind, String( name ) );
         }
      }
      // `makeText` is called only if the event is recorded.
      template< class MakeText >
         requires std::is_invocable_r_v< Text, MakeText >
      Scope( Kind kind, MakeText makeText ) {
         if( Dispatch::recorder ) [[unlikely]] {
            begin( kind, makeText() );
         }
      }
      ~Scope() {
         if( recorder_ ) [[unlikely]] {
            end();
         }
      }
      Scope( Scope const & ) = delete;
      Scope & operator=( Scope const & ) = delete;

    private:
      void begin( Kind kind, Text text );
      void end();
      DispatchRecorder * recorder_ = nullptr; // null unless the event is recorded
      std::uint64_t id_ = 0;
   };

   // Seconds on the machine's monotonic clock.
   static Seconds monotonicNow();

 private:
   std::uint64_t begin( Kind kind, Text text );
   void end( std::uint64_t id );
   Event * find( std::uint64_t id );

   std::size_t const capacity_;
   Seconds ( *const now_ )();
   std::deque< Event > events_;
   std::uint64_t lastId_ = 0;
   std::uint64_t current_ = 0;
   std::uint64_t dropped_ = 0;
};

} // namespace Kiv
