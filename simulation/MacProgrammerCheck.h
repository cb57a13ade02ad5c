// SPDX-License-Identifier: Apache-2.0
#pragma once

// What must hold of a MAC programmer whatever has happened, for all who run one at random.

#include "Hoba/HobaChipProgrammer.h"

#include <set>
#include <unordered_set>
#include <vector>

namespace Simulation {

// Looks through everything, and says what must not be between any two steps.
class MacProgrammerCheck {
 public:
   static std::vector< std::string > faults( Hoba::HobaMacProgrammer const & programmer ) {
      MacProgrammerCheck check( programmer );
      check.queues();
      check.keys();
      check.counts();
      check.clocks();
      return check.faults_;
   }

 private:
   explicit MacProgrammerCheck( Hoba::HobaMacProgrammer const & programmer ) : p_( programmer ) {}

   void expect( bool holds, std::string_view what,
                Hoba::IndirectAccessMacCmd const * cmd = nullptr ) {
      if( !holds ) {
         faults_.push_back( std::string( what ) + ( cmd ? ": " + Kiv::toText( *cmd ) : "" ) );
      }
   }
   void seen( Kiv::Ptr< Hoba::IndirectAccessMacCmd > const & cmd, Hoba::MacCmdPlace place,
              bool isInKeyMap, bool mayBeInvalid ) {
      expect( seen_.insert( cmd.get() ).second, "twice", cmd.get() );
      expect( cmd->place() == place, "in another place", cmd.get() );
      expect( isInKeyMap == ( cmd->valid() || !cmd->addrOp() ), "in the key map?", cmd.get() );
      expect( cmd->valid() || mayBeInvalid, "superseded", cmd.get() );
      if( cmd->valid() && cmd->addrOp() ) {
         expect( valid_.insert( cmd->key() ).second, "two that are valid", cmd.get() );
         expect( p_.command( cmd->key() ) == cmd, "not the newest", cmd.get() );
      }
      ++counts_[ cmd->op() ][ place ];
      ++inPlace_[ place ];
   }
   void queues() {
      std::size_t flushes = 0;
      for( auto const & cmd : p_.pendingMacOp() ) {
         flushes += !cmd->addrOp();
         seen( cmd, Hoba::macCmdPending,
               cmd->addrOp() ? p_.pendingAddrOp( cmd->key() ) == cmd
                             : p_.pendingFlushOp( cmd->transactionId() ) == cmd,
               true );
      }
      expect( p_.pendingAddrOp().size() == valid_.size(), "pendingAddrOp" );
      expect( p_.pendingFlushOp().size() == flushes, "pendingFlushOp" );
      auto const pending = valid_.size();
      for( auto const & [ id, cmd ] : p_.inProgMacOp() ) {
         expect( id == cmd->transactionId() && id <= p_.lastTransactionId(), "transaction" );
         seen( cmd, Hoba::macCmdInProgress, !cmd->addrOp() || p_.inProgAddrOp( cmd->key() ) == cmd,
               true );
      }
      expect( p_.inProgAddrOp().size() == valid_.size() - pending, "inProgAddrOp" );
   }
   void keys() {
      for( auto const & [ key, cmd ] : p_.overflowAddrOp() ) {
         seen( cmd, Hoba::macCmdOverflow, cmd->key() == key, false );
      }
      for( auto const & [ key, cmd ] : p_.failedAddrOp() ) {
         expect( cmd->place() == Hoba::macCmdIdle && cmd->valid() && !valid_.contains( key ),
                 "failed", cmd.get() );
      }
   }
   void counts() {
      for( std::size_t place = Hoba::macCmdPending; place < Hoba::macCmdPlaces; ++place ) {
         auto const at = static_cast< Hoba::MacCmdPlace >( place );
         auto const depth = p_.depth( at );
         expect( depth.now == inPlace_[ at ] && depth.most >= depth.now, "depth" );
         for( std::size_t type = 0; type < Hoba::indirectAccessMacCmdTypes; ++type ) {
            auto const op = static_cast< Hoba::IndirectAccessMacCmdType >( type );
            expect( p_.count( op, at ) == counts_[ op ][ at ], "count" );
         }
      }
   }
   // Each waits exactly if there is something to do.
   void clocks() {
      bool const writes = p_.initialized() && !p_.suspendPending();
      bool const polls = p_.initialized() && !p_.suspendInProgress();
      bool const isRaised = p_.updateOverflowAddressDelay() > p_.updateOverflowAddressMinDelay();
      waits( *p_.updatePendingAddressClock(), writes, !p_.pendingMacOp().empty(),
             "clock of pending" );
      waits( *p_.pollReqClock(), polls, !p_.inProgMacOp().empty(), "clock of polls" );
      waits( *p_.updateOverflowAddressClock(), writes,
             !p_.overflowAddrOp().empty() || p_.overflowLogged() || isRaised, "clock of overflow" );
   }
   void waits( auto const & clock, bool may, bool isWork, std::string_view what ) {
      expect( !may || ( clock.timeMin() != Kiv::never ) == isWork, what );
   }

   Hoba::HobaMacProgrammer const & p_;
   std::vector< std::string > faults_;
   std::unordered_set< Hoba::IndirectAccessMacCmd const * > seen_;
   std::set< Hoba::MacEntryKey > valid_;
   std::array< std::array< std::uint64_t, Hoba::macCmdPlaces >, Hoba::indirectAccessMacCmdTypes >
         counts_{};
   std::array< std::uint64_t, Hoba::macCmdPlaces > inPlace_{};
};

} // namespace Simulation
