// SPDX-License-Identifier: Apache-2.0
#pragma once

// System log messages. Each is declared once, at namespace scope:
//
//    HOBA_LOG_MESSAGE( HARDWARE_VERIFY_AGENT_FAILED, 3, "%s Agent will restart.",
//                      "Verification of forwarding agent failed.", "..." );
//
// and emitted with arguments that are checked against its format at compile time (%s takes
// anything with a printed form, %u and %d take integers):
//
//    hobaLog< HARDWARE_VERIFY_AGENT_FAILED >( output );
//
// Every declared message is in the catalogue; the last emitted ones are kept, and handed on to
// whoever set a sink.

#include "Kiv/Text.h"

#include <cstdint>
#include <deque>
#include <vector>

namespace Hoba {

struct LogMessage {
   char const * name;
   std::uint8_t severity; // as in syslog: 0 emergency to 7 debugging
   char const * format;
   char const * explanation;
   char const * action;
};

struct LogEntry {
   std::uint64_t sequence = 0; // ascending from 1
   Kiv::Seconds time = 0;      // of the ambient clock driver
   LogMessage const * message = nullptr;
   Kiv::String text;
};

// All declared messages, by name.
std::vector< LogMessage const * > logCatalogue();
// The last 1000 entries, oldest first.
std::deque< LogEntry > const & logEntries();
// Null for none.
using LogSink = void ( * )( LogEntry const & entry );
void logSinkIs( LogSink sink );

// Enrols a message in the catalogue.
struct LogDeclaration {
   explicit LogDeclaration( LogMessage const & message );
};

void emitLog( LogMessage const & message, std::vector< Kiv::String > const & arguments );

// Whether the conversions of `format` are as many as there are Args, and take what they are.
template< class... Args >
consteval bool
logFormatFits( char const * format ) {
   bool const integers[] = { std::is_integral_v< Args >..., false };
   std::size_t n = 0;
   for( char const * c = format; *c; ++c ) {
      if( *c != '%' ) {
         continue;
      }
      ++c;
      if( *c == '%' ) {
         continue;
      }
      bool const integer = *c == 'u' || *c == 'd';
      if( n == sizeof...( Args ) || ( !integer && *c != 's' ) || ( integer && !integers[ n ] ) ) {
         return false;
      }
      ++n;
   }
   return n == sizeof...( Args );
}

template< LogMessage const & message, class... Args >
void
hobaLog( Args const &... args ) {
   static_assert( logFormatFits< std::decay_t< Args >... >( message.format ),
                  "the arguments do not fit the format of the message" );
   emitLog( message, { Kiv::toText( args )... } );
}

} // namespace Hoba

#define HOBA_LOG_MESSAGE( name, severity, format, explanation, action )                            \
   inline constexpr ::Hoba::LogMessage name{ #name, severity, format, explanation, action };       \
   inline ::Hoba::LogDeclaration const name##Declaration {                                         \
      name                                                                                         \
   }
