// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaLog.h"

#include "Kiv/ClockDriver.h"

#include <algorithm>
#include <string_view>

namespace Hoba {

namespace {

constexpr std::size_t entriesKept = 1000;

struct Log {
   std::vector< LogMessage const * > catalogue;
   std::deque< LogEntry > entries;
   std::uint64_t lastSequence = 0;
   LogSink sink = nullptr;
};

// Declarations in other files enrol before this file's own variables would be ready.
Log &
log() {
   static Log instance;
   return instance;
}

Kiv::String
formatted( char const * format, std::vector< Kiv::String > const & arguments ) {
   Kiv::String text;
   auto next = arguments.begin();
   for( char const * c = format; *c; ++c ) {
      if( *c != '%' ) {
         text += *c;
      } else if( *++c == '%' ) {
         text += '%';
      } else {
         text += *next++;
      }
   }
   return text;
}

} // namespace

LogDeclaration::LogDeclaration( LogMessage const & message ) {
   log().catalogue.push_back( &message );
}

std::vector< LogMessage const * >
logCatalogue() {
   auto catalogue = log().catalogue;
   std::ranges::sort( catalogue, {},
                      []( auto const * message ) { return std::string_view( message->name ); } );
   return catalogue;
}

std::deque< LogEntry > const &
logEntries() {
   return log().entries;
}

void
logSinkIs( LogSink sink ) {
   log().sink = sink;
}

void
emitLog( LogMessage const & message, std::vector< Kiv::String > const & arguments ) {
   auto & state = log();
   if( state.entries.size() == entriesKept ) {
      state.entries.pop_front();
   }
   state.entries.push_back( { ++state.lastSequence, Kiv::ClockDriver::ambient().now(), &message,
                              formatted( message.format, arguments ) } );
   if( state.sink ) {
      // A copy: a sink may log.
      auto const entry = state.entries.back();
      state.sink( entry );
   }
}

} // namespace Hoba
