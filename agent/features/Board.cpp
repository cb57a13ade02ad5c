// SPDX-License-Identifier: Apache-2.0
#include "agent/features/Board.h"

#include "chips/sim/SimChip.h"

namespace HobaAgent {

Board::Board( Tessera::Database & sharedDatabase, Kiv::Ptr< HobaSim::Chip > const & sharedChip,
              Restart restart )
      : database( sharedDatabase ), chip( sharedChip ),
        importNotes( []( std::string_view ) { return std::vector< Kiv::String >(); } ),
        restart_( std::move( restart ) ) {}

Board::~Board() = default;

Kiv::Ptr< Hoba::HobaCommonSmData > const &
Board::context() const {
   if( !context_ ) {
      throw Kiv::Exception( "no machine runs: see show restarts" );
   }
   return context_;
}

void
Board::contextIs() {
   context_ = Kiv::make< Hoba::HobaCommonSmData >( "hoba-agent" );
   context_->agentRestartCallbackIs( restart_ );
   clock_ = Kiv::make< Mox::TimerWheel >();
}

void
Board::contextDel() {
   if( auto const context = std::exchange( context_, nullptr ) ) {
      context->cleanup();
   }
   clock_ = nullptr;
}

bool
Board::hasIntf( Pelt::IntfId intf ) const {
   return context()->intfHas( intf ) || context()->lagToPortConfigHas( intf ) ||
          context()->cpuIntfHas( intf ) || Pelt::VxlanIntfId::isVxlanIntfId( intf );
}

} // namespace HobaAgent
