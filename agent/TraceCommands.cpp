// SPDX-License-Identifier: Apache-2.0
#include "agent/TraceCommands.h"

#include "Kiv/Type.h"
#include "Zipline/Control.h"
#include "Zipline/Reader.h"
#include "agent/Timeline.h"

#include <limits>

namespace HobaAgent {

using Kiv::Datum;
using Kiv::String;

namespace {

// An answer holds no more records than this; the next question goes on where it ended.
constexpr std::size_t maxRecords = 20'000;

Datum
recordDatum( Zipline::Record const & record ) {
   Datum datum( Datum::Object{} );
   datum.add( "sequence", record.sequence );
   datum.add( "time", record.time );
   datum.add( "handle", record.handle );
   datum.add( "level", record.level );
   datum.add( "file", record.file );
   datum.add( "line", record.line );
   datum.add( "function", record.function );
   datum.add( "message", record.message );
   return datum;
}

Datum
records( Request const & request ) {
   Zipline::Query query;
   query.since = request.value< std::uint64_t >( "since" );
   query.handle = request.text( "handle" );
   query.levels = request.value( "levels", Zipline::Levels( Zipline::allLevelBits ) );
   query.text = request.text( "text" );
   query.last = std::min( request.value( "last", maxRecords ), maxRecords );
   Datum::Array all;
   auto progress = Zipline::visit( query, [ & ]( Zipline::Record const & record ) {
      all.push_back( recordDatum( record ) );
      return true;
   } );
   Datum answer( Datum::Object{} );
   answer.add( "records", std::move( all ) );
   answer.add( "next", progress.next );
   answer.add( "lost", progress.lost );
   return answer;
}

Datum
handles() {
   TableAnswer table( { "HANDLE", "LEVELS", "SET", "FILES" } );
   for( auto const & handle : Zipline::handles() ) {
      table.row( { handle.name, Kiv::toText( handle.levels ), handle.configured, handle.handles } );
   }
   table.note( "handles that are not set have levels " + Kiv::toText( Zipline::defaultLevels() ) );
   return table.take();
}

Datum
levels( Request const & request ) {
   auto name = request.text( "handle" );
   auto text = request.text( "levels" );
   if( text == "default" && name != "*" ) {
      Zipline::levelsDel( name );
      return {};
   }
   auto wanted = Kiv::inPlace( "levels", [ & ] { return Zipline::Levels::parse( text ); } );
   if( name == "*" ) {
      Zipline::defaultLevelsIs( wanted );
   } else {
      Zipline::levelsIs( name, wanted );
   }
   return {};
}

Datum
record( Kiv::DispatchRecorder & recorder, Request const & request ) {
   bool const on = request.oneOf< bool >( "state", { { "on", true }, { "off", false } } );
   if( on && !recorder.active() ) {
      recorder.clear();
   }
   recorder.activeIs( on );
   return {};
}

Datum
types() {
   TableAnswer table( { "TYPE", "LIVE", "MADE" } );
   for( auto const * type : Kiv::Type::all() ) {
      table.row( { type->name(), type->live(), type->made() } );
   }
   table.count( "type" );
   return table.take();
}

} // namespace

void
addTraceCommands( Commands & commands, Kiv::DispatchRecorder & recorder ) {
   commands.add( { .name = "trace",
                   .help = "Trace records, oldest first",
                   .arguments = { { "handle", "Only of this source file" },
                                  { "levels", "Only of these levels, as in 0-5,9" },
                                  { "text", "Only with this text in the message" },
                                  { "last", "Only so many, the newest" },
                                  { "since", "Only from this sequence number on" } },
                   .handler = records } );
   commands.add( { .name = "trace handles",
                   .help = "The source files that trace, and their levels",
                   .handler = []( Request const & ) { return handles(); } } );
   commands.add( { .name = "trace levels",
                   .help = "Set what a source file traces",
                   .arguments = { { "handle", "Its name; * for all that have not been set", true },
                                  { "levels", "As in 0-5,9, or all, none, default", true } },
                   .handler = levels } );
   commands.add(
         { .name = "trace record",
           .help = "Start or stop recording what causes what",
           .arguments = { { "state", "on or off", true } },
           .handler = [ & ]( Request const & request ) { return record( recorder, request ); } } );
   commands.add( { .name = "trace tree",
                   .help = "What the last input or timer caused, as recorded",
                   .arguments = { { "count", "Of so many last ones; 1 if it is left out" } },
                   .handler = [ & ]( Request const & request ) {
                      return causalTree( recorder, request.value< std::size_t >( "count", 1 ) );
                   } } );
   commands.add( { .name = "trace export",
                   .help = "All that is recorded, for trace viewers",
                   .handler = [ & ]( Request const & ) { return traceEvents( recorder ); } } );
   commands.add( { .name = "types",
                   .help = "How many objects of every class exist, and were made",
                   .handler = []( Request const & ) { return types(); } } );
}

} // namespace HobaAgent
