// SPDX-License-Identifier: Apache-2.0
#include "simulation/observers/MacProgrammerObserver.h"

#include <algorithm>
#include <array>
#include <set>

namespace Simulation {

using Hoba::HobaMacProgrammer;
using Kiv::String;
using Kiv::toText;

namespace {

String const unitPath = "/sim/chip/mac/";
String const machinePath = "/hoba/machines/macProgrammer";

// What describes the interface, and what may be said of each.
struct Setting {
   char const * name;
   std::initializer_list< char const * > values;
};
Setting const settings[] = { { "indirectAccess", { "true", "true", "false" } },
                             { "answersReordered", { "true", "false" } },
                             { "commandDepth", { "1", "2", "1024" } },
                             { "silence/next", { "1", "2" } },
                             { "silence/chance", { "0.2" } } };
Setting const tuning[] = { { "suspendPending", { "true", "false" } },
                           { "suspendInProgress", { "true", "false" } },
                           { "updateQuantumofTimes", { "1", "3", "128" } },
                           { "updateDelay", { "0.01", "0.2", "1.5" } },
                           { "pollReqQuantumofTimes", { "1", "2", "128" } },
                           { "pollReqFreq", { "0.01", "0.1", "1.5" } },
                           { "maxExecTime", { "0.01", "1" } },
                           { "updateOverflowAddressMaxDelay", { "5", "30" } } };

Step const wrong[] = { "sim mac-table mode=late",
                       "sim mac-table latency=-1",
                       "sim mac-table latency=soon",
                       "sim mac-table busy=often",
                       "sim mac-table full=1.5",
                       "sim mac-table order=none",
                       "sim mac-table mode=indirect capacity=-1",
                       "set /hoba/machines/macProgrammer/updateDelay 0",
                       "set /hoba/machines/macProgrammer/updateQuantum -1",
                       "set /hoba/machines/macProgrammer/updateQuantumofTimes 0",
                       "set /hoba/machines/macProgrammer/inProgMacOpBookmark 7",
                       "set /hoba/machines/macProgrammer/lastTransactionId 7",
                       "del /hoba/machines/macProgrammer/failedAddrOp/00:00:5e:00:53:01@1" };

Setting const *
settingOf( Step const & step, String const & path, std::span< Setting const > all ) {
   if( step[ 0 ] != "set" || !step[ 1 ].starts_with( path ) ) {
      return nullptr;
   }
   auto const name = step[ 1 ].substr( path.size() );
   auto const found = std::ranges::find( all, name, &Setting::name );
   return found == all.end() ? nullptr : &*found;
}

bool
isUnderWay( Hoba::IndirectAccessMacCmd const & cmd ) {
   return cmd.place() == Hoba::macCmdPending ||
          ( cmd.place() == Hoba::macCmdInProgress && !cmd.stalled() );
}

} // namespace

Kiv::Ptr< HobaMacProgrammer const >
MacProgrammerObserver::programmer() const {
   return simulated().entity< HobaMacProgrammer >( machinePath );
}

// ---- What happens

void
MacProgrammerObserver::prepare( Draw & draw, Steps & steps ) {
   if( draw.chance( 50 ) ) {
      steps.push_back( "set " + unitPath + "indirectAccess true" );
   }
   if( draw.chance( 30 ) ) {
      steps.push_back( "set " + unitPath + "answersReordered true" );
   }
}

void
MacProgrammerObserver::propose( Draw & draw, Steps & steps ) {
   auto const kind = draw.below( 10 );
   if( kind == 0 ) {
      return steps.push_back( wrong[ draw.below( std::size( wrong ) ) ] );
   }
   bool const isMachine = kind < 5;
   auto const & setting = isMachine ? tuning[ draw.below( std::size( tuning ) ) ]
                                    : settings[ draw.below( std::size( settings ) ) ];
   auto const value = draw.oneOf( setting.values );
   steps.push_back( "set " + ( isMachine ? machinePath + '/' : unitPath ) + setting.name + ' ' +
                    value );
}

Observer::Verdict
MacProgrammerObserver::judge( Step const & step ) const {
   if( std::ranges::find( wrong, step ) != std::end( wrong ) ) {
      return refuses;
   }
   if( settingOf( step, machinePath + '/', tuning ) ) {
      return verdict( programmer() != nullptr );
   }
   return settingOf( step, unitPath, settings ) ? accepts : notMine;
}

void
MacProgrammerObserver::heard( Step const & step, Kiv::Datum const & ) {
   if( auto const * setting = settingOf( step, unitPath, settings );
       setting && String( setting->name ).starts_with( "silence" ) ) {
      wasSilent_ = true;
   }
}

bool
MacProgrammerObserver::hasFaults() const {
   auto const machine = programmer();
   return textAt( unitPath + "silence/next" ) != "0" ||
          textAt( unitPath + "silence/chance" ) != "0" ||
          ( machine && ( machine->suspendPending() || machine->suspendInProgress() ) );
}

// What was not answered, or has failed, somebody has to ask for anew: a machine that begins does.
Steps
MacProgrammerObserver::heal() {
   Steps steps = { "set " + unitPath + "silence/next 0", "set " + unitPath + "silence/chance 0" };
   auto const machine = programmer();
   if( !machine ) {
      return steps;
   }
   for( auto const * flag : { "suspendPending", "suspendInProgress" } ) {
      steps.push_back( "set " + machinePath + '/' + flag + " false" );
   }
   // What is not answered is polled for ever: the machines go at once. All else they do again later.
   if( wasSilent_ && !machine->inProgMacOp().empty() ) {
      steps.insert( steps.end(), { "stop", "start" } );
   }
   if( wasSilent_ || !machine->inProgMacOp().empty() || !machine->failedAddrOp().empty() ) {
      steps.push_back( "sim restart hitless" );
   }
   return steps;
}

// A table that was full is tried again within half a minute.
bool
MacProgrammerObserver::isWaiting() const {
   auto const machine = programmer();
   return anyUnderWay() || ( machine && !machine->overflowAddrOp().empty() );
}

void
MacProgrammerObserver::began( HobaAgent::RestartKind ) {
   isIndirect_ = textAt( unitPath + "indirectAccess" ) == "true";
   wasSilent_ = hasFaults();
}

// ---- For the observer of stations

MacProgrammerObserver::Way
MacProgrammerObserver::wayOf( Pair pair ) const {
   auto const machine = programmer();
   auto const cmd = machine ? machine->command( { pair, Hoba::macHwKeyBridge } ) : nullptr;
   if( !cmd || cmd->place() == Hoba::macCmdIdle ) {
      return none;
   }
   return isUnderWay( *cmd ) ? underWay : waits;
}

bool
MacProgrammerObserver::hasFlush() const {
   auto const machine = programmer();
   return machine && machine->hasFlush();
}

bool
MacProgrammerObserver::anyUnderWay() const {
   auto const machine = programmer();
   return machine && ( !machine->pendingMacOp().empty() ||
                       std::ranges::any_of( keysOf( machine->inProgMacOp() ), [ & ]( auto id ) {
                          return isUnderWay( *machine->inProgMacOp( id ) );
                       } ) );
}

bool
MacProgrammerObserver::anyWaits() const {
   auto const machine = programmer();
   return machine && ( !machine->isIdle() || !machine->overflowAddrOp().empty() );
}

bool
MacProgrammerObserver::anyFailed() const {
   auto const machine = programmer();
   return machine && !machine->failedAddrOp().empty();
}

// ---- What must be

void
MacProgrammerObserver::timeIs( Kiv::Seconds ) {
   auto const machine = programmer();
   if( simulated().isRunning() && isIndirect_ != ( machine != nullptr ) ) {
      found( "there is a pipeline, or none, against what was said when the machines began" );
   }
   if( machine ) {
      checkQueues( *machine );
      checkCounts( *machine );
      checkClocks( *machine );
   }
}

// Each valid address command is in one place, and its key's only one. Others wait to be consumed.
void
MacProgrammerObserver::checkQueues( HobaMacProgrammer const & machine ) {
   std::map< Hoba::MacEntryKey, int > places;
   std::set< std::uint64_t > flushes;
   auto const look = [ & ]( Cmd const & cmd, Hoba::MacCmdPlace place, Cmd const * known ) {
      if( cmd.place() != place ) {
         found( toText( cmd ) + " is said to be " + toText( cmd.place() ) + ", and is " +
                toText( place ) );
      }
      if( !cmd.addrOp() || cmd.invalid() ) {
         return;
      }
      if( known != &cmd ) {
         found( toText( cmd ) + " is valid, and not found by its key" );
      }
      if( ++places[ cmd.key() ] == 2 ) {
         found( toText( cmd.key() ) + " has two valid commands" );
      }
   };
   for( auto const & cmd : machine.pendingMacOp() ) {
      look( *cmd, Hoba::macCmdPending, machine.pendingAddrOp( cmd->key() ).get() );
      if( !cmd->addrOp() ) {
         flushes.insert( cmd->transactionId() );
      }
   }
   for( auto const & [ id, cmd ] : machine.inProgMacOp() ) {
      look( *cmd, Hoba::macCmdInProgress, machine.inProgAddrOp( cmd->key() ).get() );
   }
   for( auto const & [ key, cmd ] : machine.overflowAddrOp() ) {
      look( *cmd, Hoba::macCmdOverflow, cmd.get() );
      if( cmd->invalid() ) {
         found( toText( *cmd ) + " is superseded, and waits for room" );
      }
   }
   auto const mapped = machine.pendingAddrOp().size() + machine.inProgAddrOp().size() +
                       machine.overflowAddrOp().size();
   if( places.size() != mapped ) {
      found( "the maps by key have " + toText( mapped ) + " commands, of which " +
             toText( places.size() ) + " are in a queue" );
   }
   if( flushes.size() != machine.pendingFlushOp().size() ) {
      found( "the map of flushes has others than the queue" );
   }
   for( auto const & [ key, cmd ] : machine.failedAddrOp() ) {
      if( places.contains( key ) || cmd->place() != Hoba::macCmdIdle ) {
         found( toText( *cmd ) + " has failed, and is on its way" );
      }
   }
}

void
MacProgrammerObserver::checkCounts( HobaMacProgrammer const & machine ) {
   std::size_t const depths[ Hoba::macCmdPlaces ] = { 0, machine.pendingMacOp().size(),
                                                      machine.inProgMacOp().size(),
                                                      machine.overflowAddrOp().size() };
   for( std::size_t i = Hoba::macCmdPending; i < Hoba::macCmdPlaces; ++i ) {
      auto const place = static_cast< Hoba::MacCmdPlace >( i );
      std::uint64_t sum = 0;
      for( std::size_t type = 0; type < Hoba::indirectAccessMacCmdTypes; ++type ) {
         sum += machine.count( static_cast< Hoba::IndirectAccessMacCmdType >( type ), place );
      }
      auto const depth = machine.depth( place );
      if( depth.now != depths[ i ] || sum != depths[ i ] || depth.most < depth.now ) {
         found( toText( place ) + " has " + toText( depths[ i ] ) + " commands, and counts " +
                toText( depth.now ) + ", by kind " + toText( sum ) );
      }
   }
}

void
MacProgrammerObserver::checkClocks( HobaMacProgrammer const & machine ) {
   if( !machine.initialized() ) {
      return;
   }
   auto const never = []( auto const & clock ) { return clock->timeMin() == Kiv::never; };
   if( !machine.suspendPending() && !machine.pendingMacOp().empty() &&
       never( machine.updatePendingAddressClock() ) ) {
      found( "commands are pending, and nobody is to write them" );
   }
   if( !machine.suspendInProgress() && !machine.inProgMacOp().empty() &&
       never( machine.pollReqClock() ) ) {
      found( "commands are in progress, and nobody is to poll them" );
   }
   if( !machine.suspendPending() && !machine.overflowAddrOp().empty() &&
       never( machine.updateOverflowAddressClock() ) ) {
      found( "commands wait for room, and nobody is to try them again" );
   }
}

// Nothing is pending but what was never answered.
void
MacProgrammerObserver::settled() {
   auto const machine = programmer();
   if( machine && ( !machine->pendingMacOp().empty() || !machine->overflowAddrOp().empty() ||
                    anyUnderWay() ) ) {
      found( "commands are left that nothing stands before" );
   }
   if( machine && !machine->inProgMacOp().empty() && !wasSilent_ ) {
      found( "a command is not answered, though the chip was never silent" );
   }
}

void
MacProgrammerObserver::check() {
   timeIs( simulated().now() );
   auto const machine = programmer();
   if( !machine ) {
      return;
   }
   settled();
   if( anyWaits() || anyFailed() ) {
      found( "commands are not answered, or have failed, and were not asked for anew" );
   }
   if( machine->accepted() < machine->succeeded() + machine->failed() ) {
      found( "more commands have ended than begun" );
   }
}

SIMULATION_OBSERVER( MacProgrammerObserver );

} // namespace Simulation
