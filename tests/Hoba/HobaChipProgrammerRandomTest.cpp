// SPDX-License-Identifier: Apache-2.0

// The MAC programmer on a chip that does whatever a chip may do, with everybody who is told of a step handing
// over more in the middle of it.

#include "MacProgrammerTest.h"

#include <random>

namespace {

using namespace HobaTest;

constexpr std::uint64_t keys = 24;

// Executes in the order written, and answers when it is told to.
class RandomChip : public Hoba::HobaMacProgrammer {
 public:
   KIV_TYPE( RandomChip );

   struct Answer {
      std::uint64_t id;
      MacProgramStatus status;
   };
   bool isKind = false; // from now on all succeeds
   std::function< void() > inCall;
   std::vector< Answer > answers;         // to come
   std::set< std::uint64_t > unanswered;  // for ever
   std::map< MacEntryKey, MacCmd > table; // what it holds
   std::set< MacEntryKey > unsure;        // what a flush may have left, or taken
   std::map< Hoba::IndirectAccessMacCmd const *, std::uint64_t >
         order; // in which they were accepted
   std::map< MacProgramStatus, unsigned > seen;
   unsigned exceptions = 0;

   MacProgramStatus writeToHw( MacCmd const & cmd ) override {
      happens( inCall );
      auto const draw = isKind ? 50 : random_() % 100;
      if( draw < 3 ) {
         return note( Hoba::macProgramBusy );
      }
      if( draw < 5 ) {
         flushFails( cmd );
         ++exceptions;
         throw Kiv::Exception( "no answer from the bus" );
      }
      if( draw < 20 ) {
         bool const isFull = cmd->op() != Hoba::removeHost && cmd->addrOp() &&
                             !table.contains( cmd->key() ) && table.size() >= capacity();
         if( !isFull ) {
            execute( cmd );
            return note( Hoba::macProgramSuccess );
         }
      }
      auto const status = note( outcome( cmd, draw ) );
      status == Hoba::macProgramSuccess ? execute( cmd ) : flushFails( cmd );
      if( draw == 99 && unanswered.size() < 30 ) {
         unanswered.insert( cmd->transactionId() );
      } else if( draw > 85 ) {
         handleCmdResponse( cmd->transactionId(), 7, status );
      } else {
         answers.push_back( { cmd->transactionId(), status } );
      }
      bool const saysFlush = !cmd->addrOp() && draw % 2;
      return saysFlush ? Hoba::macProgramFlushInProgress : Hoba::macProgramInProgress;
   }
   // Of those to come any one; sometimes it comes again.
   void answer() {
      auto const at = random_() % answers.size();
      auto const answer = answers[ at ];
      if( isKind || random_() % 8 ) {
         answers.erase( answers.begin() + static_cast< std::ptrdiff_t >( at ) );
      }
      handleCmdResponse( answer.id, 7, answer.status );
   }

 protected:
   RandomChip( Kiv::Ptr< Mox::TimerWheel > const & wheel, std::uint64_t seed )
         : HobaMacProgrammer( wheel ), random_( seed ) {}

 private:
   std::size_t capacity() const { return isKind ? keys : keys / 4; }
   MacProgramStatus note( MacProgramStatus status ) {
      ++seen[ status ];
      return status;
   }
   MacProgramStatus outcome( MacCmd const & cmd, std::uint64_t draw ) const {
      if( draw < 25 || draw == 99 ) {
         return Hoba::macProgramFailed;
      }
      if( draw < 30 ) {
         return Hoba::macProgramBusy;
      }
      bool const isAdd = cmd->addrOp() && cmd->op() != Hoba::removeHost;
      bool const isFull = isAdd && !table.contains( cmd->key() ) && table.size() >= capacity();
      return isFull || ( draw < 32 && isAdd ) ? Hoba::macProgramFull : Hoba::macProgramSuccess;
   }
   // A flush that was queued again takes also what was asked for since.
   void execute( MacCmd const & cmd ) {
      if( cmd->op() == Hoba::removeHost ) {
         table.erase( cmd->key() );
      } else if( cmd->addrOp() ) {
         table.insert_or_assign( cmd->key(), cmd );
      } else {
         for( auto const & [ key, held ] : table ) {
            if( order.at( held.get() ) > order.at( cmd.get() ) ) {
               unsure.insert( key );
            }
         }
         table.clear();
      }
   }
   void flushFails( MacCmd const & cmd ) {
      if( !cmd->addrOp() ) {
         for( auto const & [ key, held ] : table ) {
            unsure.insert( key );
         }
      }
   }

   std::mt19937_64 random_;
};

// Tells of every change of the queues.
class EveryStep : public Hoba::HobaBaseSm {
   using P = Hoba::HobaMacProgrammer;

 public:
   KIV_TYPE( EveryStep );
   std::function< void() > then;

 protected:
   explicit EveryStep( Kiv::Ptr< P const > const & programmer ) : HobaBaseSm( nullptr ) {
      programmerIs( programmer );
   }

 private:
   void handleChange() { happens( then ); }
   class KivProgrammer
         : public Kiv::Hears<
                 EveryStep, P const,
                 Kiv::OnAnyChange< &EveryStep::handleChange, P::pendingMacOpAttr,
                                   P::pendingAddrOpAttr, P::inProgMacOpAttr, P::inProgAddrOpAttr,
                                   P::overflowAddrOpAttr, P::failedAddrOpAttr, P::acceptedAttr,
                                   P::supersededAttr, P::succeededAttr, P::failedAttr,
                                   P::retriedAttr, P::lastTransactionIdAttr,
                                   P::overflowLoggedAttr > > {};
   KIV_REACTOR( KivProgrammer, programmer );
};

class MacProgrammerRandom : public ContextFixture {
 protected:
   void begin( std::uint64_t seed ) {
      random.seed( seed );
      newest.clear();
      lastFlush = 0;
      chip = Hoba::smIs< RandomChip >( wheel, seed );
      watcher = Hoba::smIs< EveryStep >( chip );
      watcher->then = chip->inCall = [ this ] { maybeMore(); };
      chip->updateQuantumofTimesIs( 1 + draw( 8 ) );
      chip->pollReqQuantumofTimesIs( 1 + draw( 8 ) );
      chip->updateDelayIs( 0.05 );
      chip->updateOverflowAddressMinDelayIs( 0.5 );
      chip->updateOverflowAddressMaxDelayIs( 3 );
   }
   std::uint32_t draw( std::uint32_t below ) {
      return static_cast< std::uint32_t >( random() % below );
   }

   // In the middle of a step.
   void maybeMore() {
      if( depth < 3 && more && draw( 40 ) == 0 ) {
         ask();
      }
   }
   void ask() {
      ++depth;
      auto const number = draw( keys );
      draw( 100 ) ? add( draw( 4 ) ? Hoba::addHost : Hoba::removeHost, number ) : flush();
      --depth;
   }
   // What was queued last is what is wanted. What is finished may come again.
   void add( IndirectAccessMacCmdType op, std::uint64_t number ) {
      auto & known = newest[ macKey( number ) ];
      bool const isOver = known && known->place() == Hoba::macCmdIdle && known->op() == op;
      auto const cmd = isOver ? known : macCmd( op, number );
      chip->unsure.erase( cmd->key() );
      chip->handleAddrOp( cmd );
      if( !known || cmd->transactionId() > chip->order.at( known.get() ) ) {
         known = cmd;
      }
      accepted( cmd );
   }
   // And what its keys still have on the way is removed.
   void flush() {
      auto const cmd = macCmd( Hoba::flushAll );
      chip->handleFlushOp( cmd );
      lastFlush = std::max( lastFlush, cmd->transactionId() );
      accepted( cmd );
      for( std::uint64_t number = 0; number < keys; ++number ) {
         if( chip->command( macKey( number ) ) ) {
            add( Hoba::removeHost, number );
         }
      }
   }
   void accepted( MacCmd const & cmd ) {
      chip->order[ cmd.get() ] = cmd->transactionId();
      all.push_back( cmd );
   }

   void step() {
      switch( auto const what = draw( 200 ) ) {
      case 0:
         return chip->suspendPendingIs( true );
      case 1:
         return chip->suspendInProgressIs( true );
      case 2:
         return chip->initializedIs( false );
      case 3:
      case 4:
      case 5:
         return goOn();
      case 6:
         return chip->handleCmdResponse( draw( 1000 ), 0, Hoba::macProgramParityError );
      default:
         if( what < 50 ) {
            ask();
         } else if( what < 110 && !chip->answers.empty() ) {
            chip->answer();
         } else {
            driver.advance( 0.001 * draw( 200 ) );
         }
      }
   }
   void goOn() {
      chip->suspendPendingIs( false );
      chip->suspendInProgressIs( false );
      chip->initializedIs( true );
   }
   void settle() {
      chip->isKind = true;
      more = false;
      goOn();
      for( unsigned round = 0; round < 200; ++round ) {
         while( !chip->answers.empty() ) {
            chip->answer();
         }
         driver.advance( 1 );
      }
      more = true;
   }
   // What the chip holds is what was asked for last.
   void agree() {
      for( auto const & [ key, cmd ] : newest ) {
         auto const left = chip->command( key );
         bool const isLost = left && left->place() == Hoba::macCmdInProgress;
         if( isLost || chip->failedAddrOpHas( key ) || chip->unsure.contains( key ) ) {
            ++excluded;
            continue;
         }
         ASSERT_FALSE( left ) << Kiv::toText( *left );
         bool const isWanted =
               cmd->op() == Hoba::addHost && chip->order.at( cmd.get() ) > lastFlush;
         auto const held = chip->table.find( key );
         ASSERT_EQ( held != chip->table.end(), isWanted ) << Kiv::toText( *cmd );
         ASSERT_TRUE( !isWanted || held->second == cmd ) << Kiv::toText( *cmd );
         ++compared;
      }
      EXPECT_EQ( chip->inProgMacOp().size(), chip->unanswered.size() );
   }

   Kiv::Ptr< Mox::TimerWheel > wheel = Kiv::make< Mox::TimerWheel >();
   Kiv::Ptr< RandomChip > chip;
   Kiv::Ptr< EveryStep > watcher;
   std::mt19937_64 random;
   std::map< MacEntryKey, MacCmd > newest;
   std::vector< MacCmd > all;
   std::uint64_t lastFlush = 0;
   unsigned depth = 0, compared = 0, excluded = 0;
   bool more = true;
};

TEST_F( MacProgrammerRandom, keepsItsOrderWhateverTheChipDoes ) {
   std::map< MacProgramStatus, unsigned > seen;
   unsigned exceptions = 0;
   for( std::uint64_t seed = 1; seed <= 100; ++seed ) {
      begin( seed );

      for( unsigned at = 0; at < 1200; ++at ) {
         step();
         ASSERT_EQ( MacProgrammerCheck::faults( *chip ), Strings{} )
               << "seed " << seed << ", step " << at;
      }
      if( seed % 4 == 0 ) {
         // It ends in the middle of all that, and is asked by who still holds it.
         auto const held = chip;
         Hoba::letGo( watcher );
         Hoba::letGo( chip );
         EXPECT_TRUE( held->isIdle() && held->overflowAddrOp().empty() && !held->hasFlush() );
         for( auto const & cmd : all ) {
            ASSERT_EQ( cmd->place(), Hoba::macCmdIdle );
         }
         held->handleCmdResponse( held->lastTransactionId(), 0, Hoba::macProgramSuccess );
         held->handleAddrOp( all.back() );
         EXPECT_FALSE( held->command( all.back()->key() ) );
         EXPECT_EQ( held->drainTime() + held->now(), 0 );
         EXPECT_EQ( held->nextOverflowTry(), Kiv::never );
         EXPECT_FALSE( wheel->timers() );
         driver.advance( 1 );
         EXPECT_GT( Hoba::smIs< RandomChip >( wheel, 0u )->lastTransactionId(),
                    held->lastTransactionId() );
      } else {
         settle();
         agree();
         ASSERT_FALSE( HasFatalFailure() ) << "seed " << seed;
         for( auto const & [ status, count ] : chip->seen ) {
            seen[ status ] += count;
         }
         exceptions += chip->exceptions;
      }
      Hoba::letGo( watcher );
      Hoba::letGo( chip );
      all.clear();
   }
   EXPECT_GE( failures(), exceptions );
   EXPECT_GT( exceptions, 100u );
   EXPECT_EQ( seen.size(), 4u ) << "each status was drawn";
   EXPECT_GT( compared, 2 * excluded );
}

} // namespace
