// SPDX-License-Identifier: Apache-2.0
#include "chips/sim/SimMacProgrammer.h"

#include "Kiv/Reflect.h"

#include <algorithm>

KIV_DEFINE( HobaSim::MacProgrammer );

namespace HobaSim {

using Bridging::MacVlanPair;
using Hoba::MacProgramStatus;
using MacCmdPtr = Kiv::Ptr< Hoba::IndirectAccessMacCmd >;

MacProgramStatus
macProgramStatusOf( TableResult result ) {
   switch( result ) {
   case tableUnchanged:
   case tableWritten:
      return Hoba::macProgramSuccess;
   case tableParity:
      return Hoba::macProgramParityError;
   case tableBusy:
      return Hoba::macProgramBusy;
   case tableFull:
      return Hoba::macProgramFull;
   case tableFailed:
      break;
   }
   return Hoba::macProgramFailed;
}

// ---- Life

MacProgrammer::MacProgrammer( Kiv::Ptr< Mox::TimerWheel > const & timerWheel,
                              Kiv::Ptr< MacUnit > const & unit )
      : HobaMacProgrammer( timerWheel ), unit_( unit ) {
   auto & access = unit_->access();
   lastTransactionIdIs( access.lastTransactionId() );
   access.attach( [ this ]( std::uint64_t id, std::uint32_t tblIndex, TableResult result ) {
      handleCmdResponse( id, tblIndex, macProgramStatusOf( result ) );
   } );
}

// ---- Writing

namespace {

MacScope
scopeOf( Hoba::IndirectAccessMacCmd const & flush ) {
   return { flush.intf(), flush.key().key.vlanId().value() };
}

MacCommand
commandOf( Hoba::IndirectAccessMacCmd const & cmd ) {
   MacCommand command;
   command.transactionId = cmd.transactionId();
   command.station = cmd.key().key;
   if( !cmd.addrOp() ) {
      command.kind = MacCommand::Kind::flush;
      command.scope = scopeOf( cmd );
   } else if( cmd.op() == Hoba::removeHost ) {
      command.kind = MacCommand::Kind::remove;
   } else {
      auto const & entry = static_cast< MacCmd const & >( cmd );
      command.row = entry.row();
      command.heardAt = entry.heardAt();
   }
   return command;
}

} // namespace

MacProgramStatus
MacProgrammer::writeToHw( MacCmdPtr const & cmd ) {
   auto & access = unit_->access();
   auto command = commandOf( *cmd );
   if( command.kind == MacCommand::Kind::write && cmd->tries() > 1 &&
       isFlushedSince( static_cast< MacCmd const & >( *cmd ) ) ) {
      command.kind = MacCommand::Kind::remove;
   }
   if( access.isStale( command ) ) {
      static_cast< MacCmd & >( *cmd ).heardAtIs( unit_->reportedAt( command.station ) );
      handleCmdResponse( command.transactionId, 0, Hoba::macProgramBusy );
      return Hoba::macProgramInProgress;
   }
   return access.submit( command ) ? Hoba::macProgramInProgress : Hoba::macProgramBusy;
}

// What is written or removed whoever begins anew reads back. What is to be flushed nobody knows any more; what was
// flushed stays so, though it was never answered: stations have been learnt since.
void
MacProgrammer::kivDoZombieReactors( bool marked ) {
   Kiv::Dispatch::Frame frame;
   bool const isEnd = marked && !kivMarkedForDeletion();
   std::vector< MacScope > flushes;
   if( isEnd ) {
      auto & access = unit_->access();
      access.detach();
      for( auto const & [ id, cmd ] : inProgMacOp() ) {
         bool const isDone = cmd->status() != Hoba::macProgramBusy && !access.isOutstanding( id );
         if( !cmd->addrOp() && !isDone ) {
            flushes.push_back( scopeOf( *cmd ) );
         }
      }
      for( auto const & cmd : pendingMacOp() ) {
         if( !cmd->addrOp() ) {
            flushes.push_back( scopeOf( *cmd ) );
         }
      }
   }
   HobaMacProgrammer::kivDoZombieReactors( marked );
   for( auto const & scope : flushes ) {
      unit_->flushIn( scope );
   }
}

// ---- For the helper

void
MacProgrammer::write( MacVlanPair station, HostRow const & row ) {
   auto const cmd = Kiv::make< MacCmd >( Hoba::addHost, station, row );
   handleAddrOp( cmd );
   cmd->acceptedAsIs( cmd->transactionId() );
}

void
MacProgrammer::remove( MacVlanPair station ) {
   handleAddrOp( Kiv::make< MacCmd >( Hoba::removeHost, station, HostRow() ) );
}

MacCmdPtr
MacProgrammer::onItsWay( MacVlanPair station ) const {
   auto const cmd = command( { station, Hoba::macHwKeyBridge } );
   return cmd && cmd->place() != Hoba::macCmdIdle ? cmd : nullptr;
}

bool
MacProgrammer::isUnderWay( Hoba::IndirectAccessMacCmd const & cmd ) {
   return cmd.place() == Hoba::macCmdPending ||
          ( cmd.place() == Hoba::macCmdInProgress && !cmd.stalled() );
}

template< class Wanted >
bool
MacProgrammer::anyWritten( Wanted const & wanted ) const {
   for( auto const & [ id, cmd ] : inProgMacOp() ) {
      if( isUnderWay( *cmd ) && wanted( *cmd ) ) {
         return true;
      }
   }
   return false;
}

bool
MacProgrammer::isUnderWay() const {
   return !pendingMacOp().empty() || anyWritten( []( auto const & ) { return true; } );
}

bool
MacProgrammer::isFlushUnderWay() const {
   return !pendingFlushOp().empty() ||
          ( hasFlush() && anyWritten( []( auto const & cmd ) { return !cmd.addrOp(); } ) );
}

namespace {

bool
isIn( MacScope const & scope, Hoba::IndirectAccessMacCmd const & cmd ) {
   return cmd.addrOp() && cmd.op() != Hoba::removeHost &&
          static_cast< MacCmd const & >( cmd ).row().ages &&
          ( !scope.intf || scope.intf == cmd.intf() ) &&
          ( scope.vlan == 0 || scope.vlan == cmd.key().key.vlanId().value() );
}

Hoba::IndirectAccessMacCmdType
typeOf( MacScope const & scope ) {
   bool const isLag = Pelt::PortChannelIntfId::isPortChannelIntfId( scope.intf );
   if( !scope.intf ) {
      return scope.vlan ? Hoba::flushVlan : Hoba::flushAll;
   }
   return scope.vlan ? ( isLag ? Hoba::flushVlanLag : Hoba::flushVlanPort )
                     : ( isLag ? Hoba::flushLag : Hoba::flushPort );
}

} // namespace

bool
MacProgrammer::isFlushedSince( MacCmd const & cmd ) const {
   if( flushed_.empty() || !cmd.row().ages ) {
      return false;
   }
   std::uint64_t const vlan = cmd.key().key.vlanId().value();
   for( auto const intf : { Pelt::IntfId(), cmd.intf() } ) {
      for( auto const of : { std::uint64_t( 0 ), vlan } ) {
         auto const found = flushed_.find( { intf, of } );
         if( found != flushed_.end() && found->second > cmd.acceptedAs() ) {
            return true;
         }
      }
   }
   return false;
}

// The chip may yet say that it was busy, or full: what is queued again comes behind the flush. Of what is pending, which
// may be very much, writeToHw() sees that itself.
void
MacProgrammer::flush( MacScope const & scope ) {
   std::vector< MacVlanPair > stations;
   auto const look = [ & ]( auto const & ops ) {
      for( auto const & [ key, cmd ] : ops ) {
         if( isIn( scope, *cmd ) ) {
            stations.push_back( cmd->key().key );
         }
      }
   };
   look( inProgAddrOp() );
   look( overflowAddrOp() );
   look( failedAddrOp() ); // nobody else will ask for these anew
   std::sort( stations.begin(), stations.end() );
   for( auto const station : stations ) {
      remove( station );
   }
   MacVlanPair const key( Pelt::EthAddr(),
                          Bridging::VlanIdOrNone( static_cast< std::uint16_t >( scope.vlan ) ) );
   auto const cmd = Hoba::indirectAccessMacCmdFactory( typeOf( scope ),
                                                       { key, Hoba::macHwKeyBridge }, scope.intf );
   handleFlushOp( cmd );
   flushed_[ scope ] = cmd->transactionId();
}

} // namespace HobaSim
