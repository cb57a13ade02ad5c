// SPDX-License-Identifier: Apache-2.0
#include "agent/LogCommands.h"
#include "Hoba/HobaHelper.h"
#include "Hoba/HobaLog.h"
#include "Kiv/ClockDriver.h"

namespace HobaAgent {

using Kiv::Datum;

namespace {

char const *
severityText( std::uint8_t severity ) {
   constexpr char const * names[] = { "emergency", "alert",  "critical", "error",
                                      "warning",   "notice", "info",     "debug" };
   return severity < std::size( names ) ? names[ severity ] : "?";
}

Datum
emitted( std::size_t last ) {
   TableAnswer table( { "Time", "Severity", "Name", "Message" } );
   auto const & entries = Hoba::logEntries();
   auto const skipped = entries.size() > last ? entries.size() - last : 0;
   for( std::size_t n = skipped; n != entries.size(); ++n ) {
      auto const & entry = entries[ n ];
      table.row( { Hoba::doubleToDateTimeStr( Kiv::ClockDriver::ambient().wallTime( entry.time ) ),
                   severityText( entry.message->severity ), entry.message->name, entry.text } );
   }
   table.count( "message", skipped ? ", the last of " + std::to_string( entries.size() ) : "" );
   return table.take();
}

Datum
catalogue() {
   TableAnswer table( { "Name", "Severity", "Format", "Explanation", "Action" } );
   for( auto const * message : Hoba::logCatalogue() ) {
      table.row( { message->name, severityText( message->severity ), message->format,
                   message->explanation, message->action } );
   }
   return table.take();
}

} // namespace

void
addLogCommands( Commands & commands ) {
   commands.add( { .name = "logs",
                   .help = "System log messages that were emitted",
                   .arguments = { { "last", "Only so many; 50 unless given" } },
                   .handler = []( Request const & request ) {
                      return emitted( request.value< std::size_t >( "last", 50 ) );
                   } } );
   commands.add( { .name = "logs catalogue",
                   .help = "Every system log message there is, and what to do about it",
                   .handler = []( Request const & ) { return catalogue(); } } );
}

} // namespace HobaAgent
