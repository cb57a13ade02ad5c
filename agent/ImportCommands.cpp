// SPDX-License-Identifier: Apache-2.0
#include "agent/ImportCommands.h"

#include "agent/common/File.h"
#include "agent/import/ConfigDb.h"
#include "agent/import/MacTable.h"

namespace HobaAgent {

using Kiv::Datum;
using Kiv::String;

namespace {

[[noreturn]] void
isMacTable() {
   throw Kiv::ParseError( "a MAC table is no configuration: sim macs takes it" );
}

} // namespace

Imports::Imports( Commands & commands ) {
   commands.add( { .name = "import",
                   .help =
                         "Take over a configuration of the config_db.json shape, or a file of SET "
                         "and DEL operations",
                   .arguments = { { .name = "file",
                                    .help = "What to take over",
                                    .required = true,
                                    .isFile = true } },
                   .handler =
                         [ this ]( Request const & request ) {
                            auto const file = request.text( "file" );
                            if( Import::MacTable::isPrinted( readFile( file ) ) ) {
                               Kiv::inPlace( file, isMacTable );
                            }
                            auto const content = parseJsonFile( file );
                            return Kiv::inPlace( file, [ & ] {
                               auto const lines = take( content );
                               return Datum( Datum::Array( lines.begin(), lines.end() ) );
                            } );
                         },
                   .isInput = true } );
   commands.add( { .name = "show import",
                   .help = "What became of the rows of the configuration that was imported last",
                   .handler = [ this ]( Request const & ) { return show(); } } );
}

Datum
Imports::show() const {
   TableAnswer table( { "Row", "Outcome", "What" } );
   for( auto const & line : last_.lines ) {
      table.row( { line.row(), Kiv::toText( line.kind ), line.what } );
   }
   table.words( "Outcome", Kiv::toText( Import::notImported ), "not imported" );
   table.note( last_.summary() );
   return table.take();
}

std::vector< String >
Imports::take( Datum const & file ) {
   if( Import::MacTable::isOperations( file ) ) {
      isMacTable();
   }
   last_ = Import::importConfiguration( file, tables_ );
   auto lines = last_.digest();
   lines.push_back( last_.summary() );
   return lines;
}

} // namespace HobaAgent
