// SPDX-License-Identifier: Apache-2.0
#include "chips/sim/SimMacAccess.h"

#include "Kiv/DispatchRecorder.h"

#include <algorithm>

namespace HobaSim {

class MacAccess::Turn final : public Kiv::Timer {
 public:
   Turn( MacAccess & access, Kiv::Ptr< Kiv::Clock > const & clockOf )
         : Timer( *clockOf ), access_( access ), keptClock_( clockOf ) {}

 private:
   void onTimeout() override {
      // Who is answered may drop the whole chip: it lives until this has returned.
      Kiv::Dispatch::Frame frame;
      Kiv::DispatchRecorder::Scope recorded( Kiv::DispatchRecorder::Kind::timeout, "timeout" );
      access_.takeTurn();
   }

   MacAccess & access_;
   Kiv::Ptr< Kiv::Clock > const keptClock_;
};

MacAccess::MacAccess( MacUnit & unit )
      : unit_( unit ), turn_( std::make_unique< Turn >( *this, Kiv::make< Kiv::Clock >() ) ) {}

MacAccess::~MacAccess() = default;

void
MacAccess::attach( Answer answer ) {
   commands_.clear();
   late_.clear();
   answer_ = std::move( answer );
   arm();
}

bool
MacAccess::submit( MacCommand const & command ) {
   if( commands_.size() >= unit_.commandDepth() ) {
      return false;
   }
   Kiv::Dispatch::Frame frame;
   lastTransactionId_ = std::max( lastTransactionId_, command.transactionId );
   auto const latency = unit_.hostTable()->latency();
   if( latency <= 0 && commands_.empty() ) {
      execute( command );
   } else {
      // In order, also when the latency went down meanwhile.
      auto const due = turn_->clock().now() + std::max( latency, 0.0 );
      commands_.emplace_back( commands_.empty() ? due : std::max( due, commands_.back().first ),
                              command );
   }
   arm();
   return true;
}

bool
MacAccess::isOutstanding( std::uint64_t transactionId ) const {
   auto const isIt = [ transactionId ]( auto const & each ) {
      return each.second.transactionId == transactionId;
   };
   auto const refused = std::ranges::find_if( late_, isIt );
   return std::ranges::any_of( commands_, isIt ) ||
          ( refused != late_.end() && isRefusal( refused->second.result ) );
}

void
MacAccess::arm() {
   auto const next = commands_.empty() ? Kiv::never : commands_.front().first;
   turn_->timeMinIs( late_.empty() ? next : std::min( next, late_.begin()->first ) );
}

// What is due at one time: commands first.
void
MacAccess::takeTurn() {
   auto const now = turn_->clock().now();
   while( !commands_.empty() && commands_.front().first <= now ) {
      auto const command = std::move( commands_.front().second );
      commands_.pop_front();
      execute( command );
   }
   while( !late_.empty() && late_.begin()->first <= now ) {
      auto const executed = late_.begin()->second;
      late_.erase( late_.begin() );
      answer( executed );
   }
   arm();
}

void
MacAccess::execute( MacCommand const & command ) {
   Executed const executed{ command.transactionId, unit_.host().indexOfKey( command.station ),
                            perform( command ) };
   auto const seed = unit_.hostTable()->seed();
   if( silence_.strikes( unit_.silence(), seed,
                         [ & ]( TableFault const & left ) { unit_.silenceIs( left ); } ) ) {
      return;
   }
   if( !unit_.answersReordered() ) {
      return answer( executed );
   }
   constexpr Kiv::Seconds leastDelay = 0.01;
   auto const longest = std::max( unit_.hostTable()->latency(), leastDelay );
   auto const delay = longest * order_.draw( seed );
   late_.emplace( turn_->clock().now() + delay, executed );
}

bool
MacAccess::isStale( MacCommand const & command ) const {
   auto const place = unit_.reportedAt( command.station );
   return command.kind == MacCommand::Kind::write && command.row.isLearnt() &&
          place != command.row.intf && command.heardAt != place;
}

TableResult
MacAccess::perform( MacCommand const & command ) {
   if( isStale( command ) ) {
      return tableBusy;
   }
   switch( command.kind ) {
   case MacCommand::Kind::write:
      return unit_.hasRoomFor( command.station, command.row )
                   ? unit_.write( command.station, command.row )
                   : tableFull;
   case MacCommand::Kind::remove:
      return unit_.remove( command.station );
   case MacCommand::Kind::flush:
      break;
   }
   if( unit_.hostTable()->strikes( tableBusy ) ) {
      return tableBusy;
   }
   unit_.flushIn( command.scope );
   return tableWritten;
}

void
MacAccess::answer( Executed const & executed ) {
   if( auto const told = answer_ ) {
      told( executed.transactionId, executed.tblIndex, executed.result );
   }
}

} // namespace HobaSim
