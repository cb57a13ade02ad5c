// SPDX-License-Identifier: Apache-2.0
#include "simulation/MacPipeline.h"

#include "simulation/MacProgrammerCheck.h"

#include <algorithm>

namespace Simulation {

using Hoba::HobaMacProgrammer;

namespace {

bool
isUnderWay( Hoba::IndirectAccessMacCmd const & cmd ) {
   return cmd.place() == Hoba::macCmdPending ||
          ( cmd.place() == Hoba::macCmdInProgress && !cmd.stalled() );
}

} // namespace

Kiv::Ptr< HobaMacProgrammer const >
MacPipeline::machine() const {
   return simulated_.entity< HobaMacProgrammer >( path() );
}

bool
MacPipeline::isThere() const {
   return machine() != nullptr;
}

MacPipeline::Way
MacPipeline::wayOf( Pair pair ) const {
   auto const at = machine();
   auto const cmd = at ? at->command( { pair, Hoba::macHwKeyBridge } ) : nullptr;
   if( !cmd || cmd->place() == Hoba::macCmdIdle ) {
      return none;
   }
   return isUnderWay( *cmd ) ? underWay : waits;
}

bool
MacPipeline::hasFlush() const {
   auto const at = machine();
   return at && at->hasFlush();
}

namespace {

// Any of those that are written and will come to their end, of which that holds.
template< class Wanted >
bool
anyWritten( HobaMacProgrammer const & machine, Wanted const & wanted ) {
   return std::ranges::any_of( Kiv::keysOf( machine.inProgMacOp() ), [ & ]( auto id ) {
      auto const & cmd = *machine.inProgMacOp( id );
      return isUnderWay( cmd ) && wanted( cmd );
   } );
}

} // namespace

bool
MacPipeline::isFlushUnderWay() const {
   auto const at = machine();
   return at && ( !at->pendingFlushOp().empty() ||
                  anyWritten( *at, []( auto const & cmd ) { return !cmd.addrOp(); } ) );
}

bool
MacPipeline::anyUnderWay() const {
   auto const at = machine();
   return at &&
          ( !at->pendingMacOp().empty() || anyWritten( *at, []( auto const & ) { return true; } ) );
}

std::size_t
MacPipeline::unfinished() const {
   auto const at = machine();
   return at ? at->inProgMacOp().size() + at->overflowAddrOp().size() + at->failedAddrOp().size()
             : 0;
}

bool
MacPipeline::anyInProgress() const {
   auto const at = machine();
   return at && !at->inProgMacOp().empty();
}

bool
MacPipeline::anyInOverflow() const {
   auto const at = machine();
   return at && !at->overflowAddrOp().empty();
}

bool
MacPipeline::anyFailed() const {
   auto const at = machine();
   return at && !at->failedAddrOp().empty();
}

bool
MacPipeline::isSuspended() const {
   auto const at = machine();
   return at && ( at->suspendPending() || at->suspendInProgress() );
}

std::vector< std::string >
MacPipeline::faults() const {
   auto const at = machine();
   return at ? MacProgrammerCheck::faults( *at ) : std::vector< std::string >();
}

} // namespace Simulation
