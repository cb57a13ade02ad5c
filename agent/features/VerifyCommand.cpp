// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaCliCallback.h"
#include "agent/common/Json.h"
#include "agent/features/FeatureCommands.h"

namespace HobaAgent {

using Kiv::Datum;
using Kiv::String;

namespace {

// {"command": [{"item": "text"}, ...]}, as a table.
Datum
tableOf( Datum const & reply ) {
   TableAnswer table( { "Item", "Result" } );
   std::size_t mismatches = 0, items = 0;
   for( auto const & [ command, list ] : *reply.as< Datum::Object >() ) {
      for( auto const & element : *list.as< Datum::Array >() ) {
         for( auto const & [ item, text ] : *element.as< Datum::Object >() ) {
            ++items;
            mismatches += *text.as< String >() == "ok" ? 0 : 1;
            table.row( { item, text } );
         }
      }
   }
   table.note( mismatches == 0
                     ? "verified: " + std::to_string( items ) + " items, all as they should be"
                     : "MISMATCH: " + std::to_string( mismatches ) + " of " +
                             std::to_string( items ) + " items differ from the hardware" );
   table.member( "items", items );
   table.member( "mismatches", mismatches );
   return table.take();
}

Datum
verify( std::uint32_t socket ) {
   auto * callback = Hoba::CliCallback::find( "VerifyAgentCli" );
   if( !callback ) {
      throw Kiv::ParseError( "verification is not possible before the agent is initialized" );
   }
   return tableOf( parseJson( callback->handleCommand( socket, "VTS#verify" ) ) );
}

} // namespace

void
addVerifyCommand( Commands & commands ) {
   commands.add( { .name = "verify",
                   .help = "Compares what the machines believe with what the hardware holds",
                   // One connection is like another to the machines, as long as it is not 0.
                   .handler = []( Request const & ) { return verify( 1 ); },
                   .isInput = true } );
}

} // namespace HobaAgent
