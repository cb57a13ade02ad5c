// SPDX-License-Identifier: Apache-2.0
#include "agent/Features.h"

#include "agent/features/FeatureCommands.h"
#include "agent/features/Switch.h"
#include "agent/import/ConfigDbMappers.h"

namespace HobaAgent {

using Kiv::String;

Features::Features( Tessera::Database & database, Commands & commands,
                    std::function< void( String const & reason ) > restart )
      : database_( database ), imports_( commands ),
        switch_( std::make_unique< Switch >() ) {
   switch_->context->agentRestartCallbackIs( std::move( restart ) );
   switch_->mount( database );
   addStormControlCommands( commands, *switch_,
                            [ this ] { return imports_.last().digest( "PORT_STORM_CONTROL" ); } );
   addInterfaceCommands( commands, *switch_ );
   addSimCommands( commands, *switch_ );
   addEventCommands( commands, *switch_ );
   addMacCommands( commands, *switch_ );
   addVerifyCommand( commands );
   addLogCommands( commands );
   auto & tables = imports_.tables();
   Import::addPortTables( tables, switch_->feederConfig );
   Import::addLagTables( tables, switch_->feederConfig, switch_->lagInputConfig );
   Import::addVlanTables( tables, switch_->feederConfig, switch_->lagInputConfig );
   Import::addStormControlTables( tables, switch_->stormControlConfig );
}

Features::~Features() {
   switch_->unmount( database_ );
}

std::vector< String >
Features::importConfigDb( Kiv::Datum const & file ) {
   return imports_.take( file );
}

void
Features::start() {
   switch_->start( database_ );
}

} // namespace HobaAgent
