// SPDX-License-Identifier: Apache-2.0
#include "agent/Features.h"

#include "agent/features/FeatureCommands.h"
#include "agent/features/Switch.h"
#include "agent/import/ConfigDb.h"

namespace HobaAgent {

using Kiv::String;

struct Features::Imported : Import::ConfigDbImport {};

Features::Features( Tessera::Database & database, Commands & commands,
                    std::function< void( String const & reason ) > restart )
      : database_( database ), imported_( std::make_unique< Imported >() ),
        switch_( std::make_unique< Switch >() ) {
   switch_->context->agentRestartCallbackIs( std::move( restart ) );
   switch_->mount( database );
   addStormControlCommands( commands, *switch_,
                            [ this ] { return imported_->digest( "PORT_STORM_CONTROL" ); } );
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
                      TableAnswer table( { "Row", "Outcome", "What" } );
                      for( auto const & line : imported_->report ) {
                         auto const kind = Kiv::toText( line.kind );
                         table.row( { line.row(), kind, line.what } );
                         table.words( "Outcome", kind, spelled( kind ) );
                      }
                      table.note( imported_->summary() );
                      return table.take();
                   } } );
}

std::vector< String >
Features::importConfigDb( Kiv::Datum const & file ) {
   auto import = Import::importConfigDb( file, { switch_->feederConfig, switch_->lagInputConfig,
                                                 switch_->stormControlConfig, switch_->context } );
   import.apply();
   auto lines = import.digest();
   lines.push_back( import.summary() );
   import.operations.clear();
   *imported_ = { std::move( import ) };
   return lines;
}

void
Features::start() {
   switch_->start( database_ );
}

} // namespace HobaAgent
