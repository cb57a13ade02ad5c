// SPDX-License-Identifier: Apache-2.0
#include "agent/Timeline.h"

#include "agent/Commands.h"
#include "agent/common/Json.h"

#include <algorithm>
#include <deque>
#include <vector>

namespace HobaAgent {

using Kiv::Datum;
using Kiv::String;
using Event = Kiv::DispatchRecorder::Event;
using Kind = Kiv::DispatchRecorder::Kind;

namespace {

std::string_view
kindName( Kind kind ) {
   constexpr std::string_view names[] = { "write", "handler", "hook", "timeout", "input" };
   return names[ static_cast< std::size_t >( kind ) ];
}

double
microseconds( Kiv::Seconds seconds ) {
   // To the nanosecond: the rest is noise of the subtraction.
   return static_cast< double >( static_cast< std::int64_t >( seconds * 1e9 + 0.5 ) ) / 1000;
}

// Behind an input come the timers that it armed, and then others for as long as the switch runs: of
// each input so many are shown.
constexpr std::size_t timersShown = 10;

bool
isInput( Event const & event ) {
   return event.kind == Kind::input;
}

// By event: how many others it began in.
std::vector< std::size_t >
depthsOf( std::deque< Event > const & events ) {
   std::vector< std::size_t > depths( events.size() );
   for( std::size_t i = 0; i != events.size(); ++i ) {
      auto const parent = events[ i ].parent;
      if( parent && parent >= events.front().id ) {
         depths[ i ] = depths[ parent - events.front().id ] + 1;
      }
   }
   return depths;
}

// The last `count` inputs begin there; without an input, the last `count` of what there is.
std::size_t
beginOf( std::deque< Event > const & events, std::vector< std::size_t > const & depths,
         std::size_t count ) {
   std::vector< std::size_t > inputs, roots;
   for( std::size_t i = 0; i != events.size(); ++i ) {
      if( depths[ i ] == 0 ) {
         roots.push_back( i );
         if( isInput( events[ i ] ) ) {
            inputs.push_back( i );
         }
      }
   }
   auto const & begins = inputs.empty() ? roots : inputs;
   return begins.empty() || count == 0 ? events.size()
                                       : begins[ begins.size() - std::min( count, begins.size() ) ];
}

// The last `parts` of a qualified name.
String
lastOf( std::string_view name, int parts ) {
   auto begin = name.size();
   for( ; parts > 0; --parts ) {
      begin = name.rfind( "::", begin - 1 );
      if( begin == std::string_view::npos ) {
         return String( name );
      }
   }
   return String( name.substr( begin + 2 ) );
}

// "IntfConfig.broadcast" of "Bridging::StormControl::IntfConfig(Ethernet1).broadcast": without which
// one it was, so that viewers add up what is alike.
String
shortName( Event const & event ) {
   auto const & name = event.about.name;
   switch( event.kind ) {
   case Kind::write: {
      auto const begin = name.find( '(' );
      auto const end = name.rfind( ")." );
      if( begin == String::npos || end == String::npos ) {
         return name;
      }
      auto const attribute = name.substr( end + 1 );
      return lastOf( name.substr( 0, begin ), 1 ) + attribute.substr( 0, attribute.find( '[' ) );
   }
   case Kind::handler:
      return lastOf( name, 2 );
   case Kind::hook:
      return lastOf( name, 1 );
   case Kind::timeout:
   case Kind::input:
      break;
   }
   return name;
}

// The values as data where they are some, else as text.
Datum
valuesOf( Event const & event ) {
   std::string_view text = event.about.values;
   if( text.starts_with( " = " ) ) {
      text.remove_prefix( 3 );
   }
   text.remove_prefix( std::min( text.find_first_not_of( ' ' ), text.size() ) );
   try {
      return parseJson( text );
   } catch( JsonError const & ) {
      return text;
   }
}

Datum
argumentsOf( Event const & event ) {
   Datum arguments( Datum::Object{} );
   if( shortName( event ) != event.about.name ) {
      arguments.add( "what", event.about.name );
   }
   if( !event.about.values.empty() ) {
      arguments.add( "values", valuesOf( event ) );
   }
   arguments.add( "id", event.id );
   arguments.add( "cause", event.parent );
   return arguments;
}

// Says what viewers write in front of the lines of a process or thread.
Datum
nameEvent( char const * which, char const * name ) {
   Datum details( Datum::Object{} );
   details.add( "name", name );
   Datum datum( Datum::Object{} );
   datum.add( "name", which );
   datum.add( "ph", "M" );
   datum.add( "pid", 1 );
   datum.add( "tid", 1 );
   datum.add( "args", std::move( details ) );
   return datum;
}

} // namespace

Datum
causalTree( Kiv::DispatchRecorder const & recorder, std::size_t count ) {
   auto const & events = recorder.events();
   auto const depths = depthsOf( events );
   TableAnswer table( { "AT us", "TOOK us", "KIND", "EVENT" } );
   Kiv::Seconds origin = 0;
   std::size_t timers = 0, left = 0;
   bool behindInput = false;
   for( auto i = beginOf( events, depths, count ); i < events.size(); ++i ) {
      auto const & event = events[ i ];
      if( depths[ i ] == 0 ) {
         behindInput = behindInput || isInput( event );
         timers = isInput( event ) || !behindInput ? 0 : timers + 1;
         left += timers > timersShown ? 1 : 0;
         // Times count from the input, also those of what it caused later.
         origin = timers ? origin : event.begin;
      }
      if( timers <= timersShown ) {
         table.row( { microseconds( event.begin - origin ),
                      event.end > 0 ? Datum( microseconds( event.end - event.begin ) ) : Datum(),
                      kindName( event.kind ), String( 2 * depths[ i ], ' ' ) + event.text() } );
      }
   }
   if( left ) {
      table.note( std::to_string( left ) +
                  " later timers are left out; trace --export has them all" );
   }
   if( !recorder.active() ) {
      table.note( "recording is off; turn it on with: hobactl trace --tree on" );
   }
   if( recorder.dropped() ) {
      table.note( std::to_string( recorder.dropped() ) + " older events made room" );
   }
   return table.take();
}

Datum
traceEvents( Kiv::DispatchRecorder const & recorder ) {
   Datum::Array events{ nameEvent( "process_name", "hoba-agent" ),
                        nameEvent( "thread_name", "event loop" ) };
   for( auto const & event : recorder.events() ) {
      Datum datum( Datum::Object{} );
      datum.add( "name", shortName( event ) );
      datum.add( "cat", kindName( event.kind ) );
      datum.add( "ph", "X" );
      datum.add( "ts", microseconds( event.begin ) );
      datum.add( "dur", event.end > 0 ? microseconds( event.end - event.begin ) : 0.0 );
      datum.add( "pid", 1 );
      datum.add( "tid", 1 );
      datum.add( "args", argumentsOf( event ) );
      events.push_back( std::move( datum ) );
   }
   Datum answer( Datum::Object{} );
   answer.add( "displayTimeUnit", "ns" );
   answer.add( "traceEvents", std::move( events ) );
   return answer;
}

} // namespace HobaAgent
