// SPDX-License-Identifier: Apache-2.0
#include "agent/Features.h"

#include "agent/features/FeatureCommands.h"
#include "agent/features/Switch.h"
#include "agent/import/ConfigDb.h"

#include <algorithm>

namespace HobaAgent {

using Kiv::String;

struct Features::Imported {
   std::vector< Import::ReportLine > report;

   // What was said about a table's rows that were not taken to the letter.
   std::vector< String > about( std::string_view table ) const {
      std::vector< String > lines;
      for( auto const & line : report ) {
         if( line.table == table && line.kind != Import::imported ) {
            lines.push_back( line.text() );
         }
      }
      return lines;
   }
};

Features::Features( Tessera::Database & database, Commands & commands,
                    std::function< void( String const & reason ) > restart )
      : database_( database ), imported_( std::make_unique< Imported >() ),
        switch_( std::make_unique< Switch >() ) {
   switch_->context->agentRestartCallbackIs( std::move( restart ) );
   switch_->mount( database );
   addStormControlCommands( commands, *switch_,
                            [ this ] { return imported_->about( "PORT_STORM_CONTROL" ); } );
   addInterfaceCommands( commands, *switch_ );
   addSimCommands( commands, *switch_ );
   addEventCommands( commands, *switch_ );
   addMacCommands( commands, *switch_ );
   addVerifyCommand( commands );
   addLogCommands( commands );
   addImportCommand( commands );
}

Features::~Features() {
   switch_->unmount( database_ );
}

void
Features::addImportCommand( Commands & commands ) {
   commands.add( { .name = "show import",
                   .help = "What became of the rows of the imported configuration",
                   .handler = [ this ]( Request const & ) {
                      TableAnswer table( { "Row", "", "What" } );
                      for( auto const & line : imported_->report ) {
                         table.row( { line.table + ( line.key.empty() ? "" : "|" + line.key ),
                                      Kiv::toText( line.kind ), line.what } );
                      }
                      return table.take();
                   } } );
}

namespace {

// The lines of one kind. What is the same of several rows of a table is said once: 39 ports of one
// odd speed must not hide the one row that was refused.
void
fold( std::vector< Import::ReportLine > const & report, Import::LineKind kind,
      std::vector< String > & lines ) {
   std::vector< std::pair< Import::ReportLine const *, std::size_t > > folded;
   for( auto const & line : report ) {
      if( line.kind != kind ) {
         continue;
      }
      auto const same = std::find_if( folded.begin(), folded.end(), [ & ]( auto const & other ) {
         return other.first->table == line.table && other.first->what == line.what;
      } );
      if( same == folded.end() ) {
         folded.emplace_back( &line, 1 );
      } else {
         ++same->second;
      }
   }
   for( auto const & [ line, rows ] : folded ) {
      lines.push_back( rows == 1 ? line->text()
                                 : line->text() + " (and " + std::to_string( rows - 1 ) +
                                         " more rows of " + line->table + ")" );
   }
}

} // namespace

std::vector< String >
Features::importConfigDb( Kiv::Datum const & file ) {
   auto import = Import::importConfigDb( file, { switch_->feederConfig, switch_->lagInputConfig,
                                                 switch_->stormControlConfig, switch_->context } );
   import.apply();
   std::vector< String > lines;
   for( auto kind : { Import::notImported, Import::remark, Import::refused } ) {
      fold( import.report, kind, lines );
   }
   lines.push_back( import.summary() );
   imported_->report = std::move( import.report );
   return lines;
}

void
Features::start() {
   switch_->start();
}

} // namespace HobaAgent
