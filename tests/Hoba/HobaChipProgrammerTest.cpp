// SPDX-License-Identifier: Apache-2.0

// The MAC programmer, case by case, on a chip that does what the test says. What all of them together lead to
// is the matter of HobaChipProgrammerRandomTest.cpp.

#include "Kiv/Reflect.h"
#include "MacProgrammerTest.h"
#include "Tessera/Database.h"

#include <cmath>
#include <deque>

namespace {

using namespace HobaTest;
using namespace Hoba;

class ScriptedChip : public HobaMacProgrammer {
   HOBA_MACHINE( ScriptedChip, Hoba::HobaMacProgrammer );

 public:
   std::deque< MacProgramStatus > results; // of the writes to come; then `result`
   MacProgramStatus result = macProgramInProgress;
   std::function< void() > inCall;
   std::vector< MacCmd > written;
   std::vector< std::uint64_t > ids;

   MacProgramStatus writeToHw( MacCmd const & cmd ) override {
      written.push_back( cmd );
      ids.push_back( cmd->transactionId() );
      happens( inCall );
      auto const now = results.empty() ? result : results.front();
      results.empty() ? void() : results.pop_front();
      return now;
   }
   void answer( std::size_t nth, MacProgramStatus status ) {
      handleCmdResponse( ids.at( nth ), 7, status );
   }
   // Each write, in the call.
   void answersIs( MacProgramStatus status ) {
      inCall = [ this, status ] { answer( ids.size() - 1, status ); };
   }

 protected:
   explicit ScriptedChip( Kiv::Ptr< Mox::TimerWheel > const & wheel )
         : HobaMacProgrammer( wheel ) {}
};
KIV_DEFINE( ScriptedChip );

class PlainChip : public HobaMacProgrammer {
 public:
   KIV_TYPE( PlainChip );

 protected:
   explicit PlainChip( Kiv::Ptr< Mox::TimerWheel > const & wheel ) : HobaMacProgrammer( wheel ) {}
};

// Another clock's, every hundredth of a second.
class Ticker : private Kiv::Timer {
 public:
   Ticker( Kiv::Clock & clock, std::function< void() > then )
         : Timer( clock ), then_( std::move( then ) ) {
      onTimeout();
   }

 private:
   void onTimeout() override {
      then_();
      timeMinIs( clock().now() + 0.01 );
   }
   std::function< void() > const then_;
};

class MacProgrammer : public ContextFixture {
 protected:
   MacProgrammer() { begin(); }
   void begin() {
      letGo( chip );
      chip = ScriptedChip::ScriptedChipIs( wheel );
      chip->handleInitialized();
   }
   MacCmd ask( IndirectAccessMacCmdType op, std::uint64_t number = 0 ) {
      auto const cmd = macCmd( op, number );
      cmd->addrOp() ? chip->handleAddrOp( cmd ) : chip->handleFlushOp( cmd );
      return cmd;
   }
   void advance( Kiv::Seconds seconds ) {
      driver.advance( seconds );
      ASSERT_EQ( MacProgrammerCheck::faults( *chip ), Strings{} );
   }
   // Of 0x770 and those that follow.
   static std::size_t fullLogs() {
      return static_cast< std::size_t >(
            std::count_if( logEntries().begin(), logEntries().end(), []( auto const & entry ) {
               return entry.text.find( "no room for the MAC address 02:00:00:00:07:7" ) !=
                      entry.text.npos;
            } ) );
   }

   // Whoever hears of it drops it.
   template< auto const & attribute >
   void dropIn( MacProgramStatus answer ) {
      begin();
      chip->answersIs( answer );
      auto watcher = smIs< Watcher< HobaMacProgrammer, attribute > >( chip );
      watcher->then = [ & ] {
         watcher = nullptr;
         chip = nullptr;
      };
      ask( addHost, 1 );
      driver.advance( 10 );
      EXPECT_FALSE( chip ) << attribute.name;
   }

   Kiv::Ptr< Mox::TimerWheel > wheel = Kiv::make< Mox::TimerWheel >();
   Kiv::Ptr< ScriptedChip > chip;
};

enum class End { succeeded, failed, inProgress, pending, overflow, gone, assertion };
using enum End;

struct Row {
   MacProgramStatus status;
   End addrWritten, flushWritten, addrPolled, supersededPolled, flushPolled;
};
constexpr Row rows[] = {
      { macProgramSuccess, succeeded, succeeded, succeeded, succeeded, succeeded },
      { macProgramFailed, assertion, assertion, failed, failed, failed },
      { macProgramInProgress, inProgress, inProgress, inProgress, inProgress, inProgress },
      { macProgramBusy, pending, pending, pending, gone, pending },
      { macProgramFull, assertion, assertion, overflow, gone, failed },
      { macProgramFlushInProgress, assertion, inProgress, inProgress, inProgress, inProgress },
      { macProgramParityError, assertion, assertion, assertion, assertion, assertion },
      { MacProgramStatus( 99 ), assertion, assertion, assertion, assertion, assertion } };

TEST_F( MacProgrammer, everyStatusOfEveryKind ) {
   auto const endsAs = [ & ]( MacCmd const & cmd, End wanted ) {
      static constexpr MacCmdPlace places[] = { macCmdIdle,    macCmdIdle,     macCmdInProgress,
                                                macCmdPending, macCmdOverflow, macCmdIdle };
      auto const end = wanted == assertion ? failed : wanted;
      EXPECT_EQ( cmd->place(), places[ static_cast< unsigned >( end ) ] );
      EXPECT_EQ( chip->succeeded(), end == succeeded );
      EXPECT_EQ( chip->failed(), end == failed );
      EXPECT_EQ( chip->command( cmd->key() ) == cmd,
                 cmd->addrOp() && cmd->valid() && end != succeeded && end != gone );
   };
   // Runs it as it is, and then where it may go on.
   auto const run = [ & ]( Kiv::Seconds seconds, End end ) {
      if( end == assertion ) {
         EXPECT_DEATH( driver.advance( seconds ), "^unexpected mac program status" );
      }
      Environment const simulation( "SIMULATION_VMID", "1" );
      advance( seconds );
   };
   for( auto const & row : rows ) {
      for( auto op = std::size_t( addHost ); op < indirectAccessMacCmdTypes; ++op ) {
         auto const type = static_cast< IndirectAccessMacCmdType >( op );
         bool const isAddr = type <= removeHost;
         SCOPED_TRACE( Kiv::toText( type ) + " " + Kiv::toText( row.status ) );
         begin();
         chip->result = row.status;
         auto cmd = ask( type, 1 );
         run( 0, isAddr ? row.addrWritten : row.flushWritten );
         endsAs( cmd, isAddr ? row.addrWritten : row.flushWritten );
         for( bool supersedes : { false, true } ) {
            begin();
            cmd = ask( type, 1 );
            advance( 0 );
            auto const first = cmd->transactionId();
            chip->answer( 0, row.status );
            chip->result = macProgramBusy; // of what comes then
            MacCmd const newer = supersedes ? ask( removeHost, 1 ) : nullptr;
            auto const end = !isAddr       ? row.flushPolled
                             : !supersedes ? row.addrPolled
                                           : row.supersededPolled;
            run( 0.1, end );
            endsAs( cmd, end );
            EXPECT_EQ( cmd->transactionId() > first, end == pending ) << "anew, for a new try";
            EXPECT_EQ( chip->retried(), end == pending );
            EXPECT_TRUE( !newer || chip->command( newer->key() ) == newer );
         }
      }
   }
}

TEST_F( MacProgrammer, theNewestWins ) {
   auto const written = [ & ] {
      Strings all;
      for( auto const & cmd : std::exchange( chip->written, {} ) ) {
         all.push_back( Kiv::toText( cmd->op() ) );
      }
      return all;
   };
   ask( addHost, 1 );
   ask( removeHost, 1 );
   advance( 0 );
   EXPECT_EQ( written(), Strings{ "removeHost" } )
         << "the add was superseded before it was written";
   auto const add = ask( addHost, 1 );
   advance( 0.05 );
   auto const remove = ask( removeHost, 1 );
   EXPECT_TRUE( add->invalid() );
   advance( 0 );
   EXPECT_EQ( written(), ( Strings{ "addHost", "removeHost" } ) );
   EXPECT_EQ( chip->inProgMacOp().size(), 3u );
   EXPECT_EQ( chip->inProgAddrOp().size(), 1u );
   chip->answer( 1, macProgramSuccess ); // the add; then, in no order, a wrong one and the first
   chip->handleCmdResponse( 5, 0, macProgramSuccess );
   chip->answer( 0, macProgramFull );
   advance( 0.1 );
   EXPECT_EQ( chip->inProgAddrOp( remove->key() ), remove );
   chip->answer( 1, macProgramFailed ); // once more, late
   chip->answer( 2, macProgramFailed ); // replaced by another before the poll
   chip->answer( 2, macProgramSuccess );
   advance( 0.1 );
   EXPECT_EQ( chip->unknownAnswers(), 2u );
   EXPECT_EQ( remove->tblIndex(), 7 );
   EXPECT_TRUE( chip->isIdle() && chip->overflowAddrOp().empty() && chip->failedAddrOp().empty() );
   EXPECT_EQ( chip->superseded(), 3u );

   // In the call: the result does not take it back.
   chip->answersIs( macProgramSuccess );
   ask( addHost, 2 );
   advance( 0 );
   EXPECT_EQ( chip->inProgMacOp().size(), 1u );
   advance( 0.1 );
   EXPECT_TRUE( chip->isIdle() );
   EXPECT_EQ( thrown< Kiv::Exception >( [ & ] { chip->handleAddrOp( nullptr ); } ),
              "a MAC programmer was given no command" );
   chip->handleAddrOp( remove ); // what is finished may come again, but not twice
   EXPECT_TRUE( remove->valid() );
   EXPECT_TRUE( has( thrown< Kiv::Exception >( [ & ] { chip->handleAddrOp( remove ); } ),
                     "a command that is on its way: removeHost 02:00:00:00:00:01@10" ) );
}

TEST_F( MacProgrammer, busyWaitsAndSoDoesWhatIsSuspended ) {
   chip->results = { macProgramBusy, macProgramBusy };
   auto const first = ask( addHost, 1 );
   for( unsigned i = 2; i < 22; ++i ) {
      advance( 0.0099 );
      ask( addHost, i );
   }
   EXPECT_EQ( first->tries(), 1u ) << "new ones do not hasten it";
   advance( 0.01 );
   EXPECT_EQ( first->tries(), 2u );
   chip->suspendPendingIs( true );
   advance( 10 );
   EXPECT_EQ( chip->written.size(), 2u );
   EXPECT_EQ( chip->drainTime(), Kiv::never );
   chip->suspendPendingIs( false );
   chip->suspendInProgressIs( true );
   advance( 0 );
   EXPECT_EQ( chip->written.size(), 23u );
   EXPECT_EQ( chip->written.back()->key(), macKey( 21 ) ) << "in their order";
   chip->answer( 2, macProgramSuccess );
   advance( 10 );
   EXPECT_EQ( chip->succeeded(), 0u );
   EXPECT_EQ( chip->stalled(), 0u );
   chip->suspendInProgressIs( false );
   advance( 0.5 );
   EXPECT_EQ( chip->succeeded(), 1u );
   EXPECT_EQ( chip->stalled(), 20u ) << "each once";

   // Suspended in the middle of a turn, by whoever hears of it: it ends with that one.
   begin();
   auto const suspendsAt = [ & ]< class W >( Kiv::Ptr< W > watcher, Kiv::Seconds until ) {
      chip->suspendPendingIs( false );
      chip->suspendInProgressIs( false );
      watcher->then = [ & ] {
         chip->suspendPendingIs( true );
         chip->suspendInProgressIs( true );
      };
      advance( until );
      letGo( watcher );
   };
   using P = HobaMacProgrammer;
   chip->answersIs( macProgramFull );
   ask( addHost, 1 );
   ask( addHost, 2 );
   suspendsAt( smIs< Watcher< P, P::inProgAddrOpAttr > >( chip ), 0 );
   EXPECT_EQ( chip->written.size(), 1u );
   advance( 10 );
   chip->suspendPendingIs( false );
   advance( 0 );
   suspendsAt( smIs< Watcher< P, P::overflowAddrOpAttr > >( chip ), 1 );
   EXPECT_EQ( chip->overflowAddrOp().size(), 1u );
   chip->suspendInProgressIs( false );
   advance( 1 );
   suspendsAt( smIs< Watcher< P, P::retriedAttr > >( chip ), 10 );
   EXPECT_EQ( chip->overflowAddrOp().size(), 1u );
   chip->initializedIs( false );
   chip->suspendPendingIs( false );
   advance( 1 );
   EXPECT_EQ( chip->written.size(), 2u ) << "nothing before it is initialized";
   chip->handleInitialized();
   advance( 0 );
   EXPECT_EQ( chip->written.size(), 3u );
}

TEST_F( MacProgrammer, anybodyMayDropIt ) {
   using P = HobaMacProgrammer;
   dropIn< P::acceptedAttr >( macProgramSuccess );
   dropIn< P::pendingAddrOpAttr >( macProgramSuccess );
   dropIn< P::pendingMacOpAttr >( macProgramSuccess );
   dropIn< P::inProgMacOpAttr >( macProgramSuccess );
   dropIn< P::inProgAddrOpAttr >( macProgramSuccess );
   dropIn< P::succeededAttr >( macProgramSuccess );
   dropIn< P::failedAddrOpAttr >( macProgramFailed );
   dropIn< P::overflowAddrOpAttr >( macProgramFull );
   dropIn< P::overflowLoggedAttr >( macProgramFull );
   dropIn< P::updateOverflowAddressDelayAttr >( macProgramFull );
   dropIn< P::retriedAttr >( macProgramBusy );
   begin();
   chip->inCall = [ & ] { chip = nullptr; };
   ask( addHost, 1 );
   driver.advance( 1 );
   EXPECT_FALSE( chip );
}

TEST_F( MacProgrammer, theDelayAdaptsOnceARound ) {
   std::vector< long > tries, delays; // in tenths of a second, in seconds
   auto last = driver.now();
   chip->inCall = [ & ] {
      if( chip->written.back()->key() == macKey( 0x771 ) ) {
         tries.push_back( std::lround( 10 * ( driver.now() - last ) ) );
         last = driver.now();
      }
      chip->answer( chip->ids.size() - 1, macProgramFull );
   };
   auto watcher =
         smIs< Watcher< HobaMacProgrammer, HobaMacProgrammer::updateOverflowAddressDelayAttr > >(
               chip );
   watcher->then = [ & ] { delays.push_back( std::lround( chip->updateOverflowAddressDelay() ) ); };
   ask( addHost, 0x771 );
   while( tries.size() < 6 ) {
      advance( 0.3 );
      ask( addHost, 0x772 ); // polls and other commands postpone nothing
      advance( 0.3 );
      ask( removeHost, 0x772 );
   }
   EXPECT_EQ( tries, ( std::vector< long >{ 0, 51, 100, 200, 300, 300 } ) );
   EXPECT_EQ( fullLogs(), 1u );
   chip->answersIs( macProgramSuccess );
   while( chip->updateOverflowAddressClock()->timeMin() != Kiv::never ) {
      advance( 1 );
   }
   std::vector< long > wanted{ 10, 20, 30 };
   for( long delay = 29; delay >= 5; --delay ) {
      wanted.push_back( delay );
   }
   EXPECT_EQ( delays, wanted );
   EXPECT_FALSE( chip->overflowLogged() );
   chip->answersIs( macProgramFull );
   ask( addHost, 0x773 );
   advance( 60 );
   EXPECT_EQ( fullLogs(), 2u );
   letGo( watcher );
}

TEST_F( MacProgrammer, aLargeOverflowReturns ) {
   constexpr unsigned many = 100'000;
   chip->updateOverflowAddressMaxDelayIs( 1000 );
   chip->updateOverflowAddressMinDelayIs( 200 );
   chip->updateOverflowAddressDelayIs( 200 );
   chip->answersIs( macProgramFull );
   for( unsigned number = 0; number < many; ++number ) {
      chip->handleAddrOp( macCmd( addHost, number ) );
   }
   driver.advance( 190 );
   EXPECT_EQ( chip->overflowAddrOp().size(), many );
   auto adapted =
         smIs< Watcher< HobaMacProgrammer, HobaMacProgrammer::updateOverflowAddressDelayAttr > >(
               chip );
   chip->answersIs( macProgramSuccess );
   driver.advance( 20 );
   EXPECT_GT( chip->overflowAddrOp().size(), many - 10'000 ) << "in slices";
   driver.advance( 150 );
   EXPECT_EQ( chip->succeeded(), many );
   EXPECT_EQ( adapted->changes, 1u );
   EXPECT_EQ( chip->updateOverflowAddressDelay(), 400 );
   letGo( adapted );
}

TEST_F( MacProgrammer, aBurstKeepsBothBounds ) {
   constexpr unsigned many = 200'000, slow = 5'000;
   chip->answersIs( macProgramSuccess );
   auto const answer = chip->inCall;
   unsigned writes = 0;
   double cost = 0, spent = 0;
   auto const spend = [ & ] {
      driver.timeIs( driver.now() + cost );
      spent += cost;
   };
   chip->inCall = [ & ] {
      answer();
      ++writes;
      cost = chip->written.size() < slow ? 0.0005 : 0.00005;
      spend();
   };
   auto polled = smIs< Watcher< HobaMacProgrammer, HobaMacProgrammer::succeededAttr > >( chip );
   polled->then = spend;
   for( unsigned number = 0; number < many; ++number ) {
      chip->handleAddrOp( macCmd( addHost, number ) );
   }
   unsigned most = 0, polls = 0;
   double longest = 0;
   Ticker ticker( *wheel, [ & ] {
      most = std::max( { most, std::exchange( writes, 0 ), polled->changes - polls } );
      longest = std::max( longest, std::exchange( spent, 0 ) );
      polls = polled->changes;
   } );
   driver.advance( 450 );
   EXPECT_EQ( chip->succeeded(), many );
   EXPECT_EQ( most, 128u );
   EXPECT_LT( longest, 0.01 + 0.0006 );
   EXPECT_GT( longest, 0.0095 );
   letGo( polled );
}

TEST_F( MacProgrammer, refusesWhatMustNotBe ) {
   EXPECT_DEATH( chip->handleAddrOp( macCmd( flushAll ) ), "^cmd->addrOp\\(\\)\n" );
   EXPECT_DEATH( chip->handleFlushOp( macCmd( addHost ) ), "^!\\( cmd->addrOp\\(\\) \\)\n" );
   EXPECT_DEATH( chip->HobaMacProgrammer::writeToHw( macCmd( addHost ) ),
                 "^Call to unimplemented function writeToHw\n" );
   EXPECT_DEATH( chip->HobaMacProgrammer::writeToHwShadow( macCmd( addHost ) ),
                 "^Call to unimplemented function writeToHwShadow\n" );
   EXPECT_THROW( ScriptedChip::ScriptedChipIs( nullptr ), Kiv::Exception );
   {
      Environment const simulation( "SIMULATION_VMID", "1" );
      chip->handleAddrOp( macCmd( flushAll ) );
      chip->handleFlushOp( macCmd( addHost ) );
      EXPECT_TRUE( chip->isIdle() );
   }
   Environment const noop( "HOBA_NOOP_AGENT", "1" );
   auto plain = smIs< PlainChip >( wheel );
   plain->handleInitialized();
   plain->handleAddrOp( macCmd( addHost ) );
   driver.advance( 1 );
   EXPECT_TRUE( plain->isIdle() );
   // A bus that throws.
   chip->inCall = [] { throw Kiv::Exception( "the bus is stuck" ); };
   auto const cmd = ask( addHost, 1 );
   ask( flushAll );
   advance( 0 );
   EXPECT_EQ( failures(), 2u );
   EXPECT_EQ( chip->failedAddrOp( macKey( 1 ) ), cmd );
}

TEST_F( MacProgrammer, operatorsTuneItAndNoMore ) {
   Tessera::Database database;
   database.mount( "/mac", chip, Tessera::Access::writable );
   auto const refused = [ & ]( std::string const & path, Kiv::Datum const & value ) {
      return has( thrown< Tessera::Error >( [ & ] { database.set( "/mac/" + path, value ); } ),
                  "/mac/" + path + ": " );
   };
   for( auto const * time : { "updateQuantum", "updateDelay", "pollReqQuantum", "pollReqFreq",
                              "maxExecTime", "updateOverflowAddressMinDelay",
                              "updateOverflowAddressDelay", "updateOverflowAddressMaxDelay" } ) {
      EXPECT_TRUE( refused( time, 0 ) );
      EXPECT_TRUE( refused( time, -0.5 ) );
      database.set( std::string( "/mac/" ) + time, 0.5 );
   }
   for( auto const * count : { "updateQuantumofTimes", "pollReqQuantumofTimes" } ) {
      EXPECT_TRUE( refused( count, 0 ) );
      database.set( std::string( "/mac/" ) + count, 2 );
   }
   EXPECT_EQ( thrown< Kiv::RangeException >( [ & ] { chip->updateDelayIs( Kiv::never ); } ),
              "a time of inf is not above 0 and finite" );
   database.set( "/mac/suspendPending", true );
   ask( addHost, 1 );
   ask( addHost, 2 );
   ask( addHost, 3 );
   ask( flushAll );
   advance( 1 );
   database.set( "/mac/suspendPending", false );
   advance( 0.4 );
   EXPECT_EQ( chip->written.size(), 2u ) << "two a turn";
   advance( 0.2 );
   EXPECT_EQ( chip->written.size(), 4u ) << "half a second later";
   for( auto const & [ path, value ] :
        std::map< std::string, Kiv::Datum >{ { "accepted", 77 },
                                             { "initialized", false },
                                             { "lastTransactionId", 1 },
                                             { "inProgMacOpBookmark", 1 },
                                             { "overflowLogged", true },
                                             { "pendingMacOp", Kiv::Datum::Array{ 1 } },
                                             { "inProgMacOp", Kiv::Datum::Object{} },
                                             { "inProgAddrOp", Kiv::Datum::Object{} } } ) {
      EXPECT_TRUE( refused( path, value ) );
   }
   auto const id = Kiv::toText( chip->inProgMacOp().first()->key );
   EXPECT_THROW( database.del( "/mac/inProgMacOp/" + id ), Tessera::Error );
   EXPECT_EQ( Kiv::datumText( database.get( "/mac/inProgMacOp/" + id ) ),
              "addHost 02:00:00:00:00:01@10 Ethernet1, transaction " + id + ", in progress" );
   for( auto const & key : { macKey( 1 ), MacEntryKey{ macKey( 2 ).key, macHwKeyVfi } } ) {
      EXPECT_EQ( MacEntryKey::parse( Kiv::toText( key ) ), key );
   }
   EXPECT_THROW( database.del( "/mac/inProgAddrOp[" + Kiv::toText( macKey( 1 ) ) + "]" ),
                 Tessera::Error );
}

} // namespace
