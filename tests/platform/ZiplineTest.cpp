// SPDX-License-Identifier: Apache-2.0
#include "Zipline/Zipline.h"
#include "Kiv/Value.h"
#include "Refusal.h"
#include "Zipline/Reader.h"

#include <algorithm>
#include <ctime>
#include <limits>
#include <memory>

ZIPLINE_HANDLE( ZiplineTest );

// A second file's handle, as far as Zipline can tell.
namespace Elsewhere {

ZIPLINE_HANDLE( ZiplineElsewhere );

void
speak( int value ) {
   ZTRACE( 1, "elsewhere ", value );
}

} // namespace Elsewhere

namespace {

using Zipline::Levels;
using Zipline::Query;
using Zipline::Record;

enum class Color : std::uint8_t { red = 3 };
KIV_ENUM( Mood, std::uint8_t, calm, wild = 7 );

// Trivially copyable, so it is printed when it is read; with padding, larger than what travels in
// registers, and without a default constructor.
struct Wide {
   explicit Wide( char c ) : tag( c ) {}
   char tag;
   std::int64_t numbers[ 4 ] = { 1, 2, 3, 4 };
   void print( std::string & out ) const { out += tag + std::to_string( numbers[ 3 ] ); }
};

// Not trivially copyable: printed when it is traced. Its print traces, and may fail.
struct Chatty {
   std::string name;
   void print( std::string & out ) const {
      if( name.empty() ) {
         throw Kiv::Exception( "no name" );
      }
      ZTRACE( 2, "printing ", name );
      out += '<' + name + '>';
   }
};

// Printed when it is read, and traces then.
struct LateChatty {
   int value;
   void print( std::string & out ) const {
      ZTRACE( 2, "late ", value );
      out += '#' + std::to_string( value );
   }
};

// Trivially copyable, but what it points to may be gone when somebody reads.
struct Pointing {
   int const * target;
   void print( std::string & out ) const { out += std::to_string( *target ); }
};

Kiv::Seconds virtualTime;

void
traceNumbers( int end ) {
   for( int i = 0; i < end; ++i ) {
      ZTRACE( 1, i );
   }
}

class ZiplineTest : public ::testing::Test {
 protected:
   void SetUp() override {
      Zipline::capacityIs( Zipline::minCapacity );
      Zipline::levelsIs( "ZiplineTest", Levels( Zipline::allLevelBits ) );
      virtualTime = 0;
      Zipline::timeSourceIs( []( void * ) { return virtualTime; } );
      start_ = Zipline::extent().end;
   }
   void TearDown() override {
      Zipline::sinkIs( nullptr );
      Zipline::timeSourceIs( nullptr );
      Zipline::levelsDel( "ZiplineTest" );
      Zipline::levelsDel( "ZiplineElsewhere" );
      Zipline::defaultLevelsIs( Levels::upTo( 2 ) );
   }

   // What `query` finds since the start.
   template< class Visitor >
   void visit( Query query, Visitor visitor ) const {
      query.since = std::max( query.since, start_ );
      Zipline::visit( query, [ & ]( Record const & record ) {
         visitor( record );
         return true;
      } );
   }
   // Its messages, with "|" between.
   std::string messages( Query query = {} ) const {
      std::string all;
      visit( query, [ & ]( Record const & record ) {
         all += ( all.empty() ? "" : "|" ) + std::string( record.message );
      } );
      return all;
   }
   // The messages since the last call.
   std::string taken() {
      auto const all = messages();
      start_ = Zipline::extent().end;
      return all;
   }

   std::uint64_t start_ = 0;
};

} // namespace

namespace Zipline {
template<>
inline constexpr bool printsLater< Pointing > = false;
} // namespace Zipline

TEST_F( ZiplineTest, PiecesOfEveryKind ) {
   ZTRACE( 9, "Added event to queue with index ", 17 );
   EXPECT_EQ( taken(), "Added event to queue with index 17" );
   ZTRACE( 0, std::int8_t{ -5 }, ' ', std::uint64_t{ 1 } << 63, " ", 0.1, " ", true, Color::red,
           wild );
   EXPECT_EQ( taken(), "-5 9223372036854775808 0.1 true3wild" );
   ZTRACE( 0, "", Wide( 'w' ), "x" );
   EXPECT_EQ( taken(), "w4x" );
   struct {
      unsigned bits : 3;
   } const field{ 5 };
   ZTRACE( 0, field.bits );
   EXPECT_EQ( taken(), "5" );
   ZTRACE( 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9,
           0, "|", 2 );
   EXPECT_EQ( taken(), "123456789012345678901234567890|2" );
}

TEST_F( ZiplineTest, TextsAreCopied ) {
   {
      char buffer[] = "buffer";
      char const constant[] = "constant";
      auto heap = std::make_unique< std::string >( "heap" );
      char const * null = nullptr;
      ZTRACE( 1, buffer, ",", constant, ",", *heap, ",", std::string_view( *heap ).substr( 2 ), ",",
              null, ",", heap ? "yes" : "no", ",", *heap + "!", std::string_view() );
      buffer[ 0 ] = 'B';
   }
   EXPECT_EQ( taken(), "buffer,constant,heap,ap,(null),yes,heap!" );

   std::string const x251( 251, 'x' ), zero( "a\0b", 3 );
   std::pair< std::string, std::string > const cases[] = {
         { x251 + "xxxx", x251 + "xxxx" },
         { x251 + "xxxxx", x251 + "x..." },
         { std::string( 70'000, 'x' ), x251 + "x..." },
         { x251 + "\u00e9" + x251, x251 + "..." }, // not in the middle of a two-byte character
         { zero, zero },
   };
   for( auto const & [ text, read ] : cases ) {
      ZTRACE( 1, "<", text, ">", 42, text );
      EXPECT_EQ( taken(), "<" + read + ">42" + read );
   }
}

TEST_F( ZiplineTest, DisabledStatementEvaluatesNothing ) {
   Zipline::levelsIs( "ZiplineTest", Levels::parse( "0-5,9" ) );
   int evaluated = 0;
   ZTRACE( 6, ++evaluated );
   ZTRACE_AT( 5 + 1, ++evaluated );
   ZTRACE_ENTRY( 8 );
   EXPECT_EQ( evaluated, 0 );
   ZTRACE( 9, ++evaluated );
   ZTRACE( 5, "twice? ", evaluated++ );
   EXPECT_EQ( evaluated, 2 );
   EXPECT_EQ( messages(), "1|twice? 1" );
}

TEST_F( ZiplineTest, LevelKnownOnlyAtRunTime ) {
   for( int level : { -1, 3, 9, 200 } ) {
      ZTRACE_AT( level, level, std::string( "." ) );
   }
   EXPECT_EQ( messages( { .levels = Levels::parse( "0" ) } ), "-1." );
   EXPECT_EQ( messages( { .levels = Levels::parse( "0-3" ) } ), "-1.|3." );
   EXPECT_EQ( messages( { .levels = Levels::parse( "9" ) } ), "9.|200." );
}

namespace Hoba {
struct Machine {
   void handleInitialized() { ZTRACE_ENTRY( 8 ); }
   template< class T >
   void handle( T value ) {
      [ &value ] { ZTRACE( 4, "handling ", value ); }();
      ZTRACE_ENTRY( 8 );
   }
};
} // namespace Hoba

TEST_F( ZiplineTest, EntryTracesTheSignature ) {
   Hoba::Machine machine;
   machine.handleInitialized();
   EXPECT_EQ( taken(), "void Hoba::Machine::handleInitialized()" );
   machine.handle( 5 );
   auto const both = taken();
   EXPECT_EQ( both.substr( 0, 11 ), "handling 5|" );
   EXPECT_NE( both.find( "Hoba::Machine::handle(T)" ), std::string::npos );
}

TEST_F( ZiplineTest, LineShowsWhereAndWhen ) {
   virtualTime = 1'795'228'801.123456;
   unsigned const line = __LINE__ + 1;
   ZTRACE( 5, "two\nlines\x1b[2J" );
   EXPECT_EQ( Zipline::text( { .since = start_ } ),
              "2026-11-21 02:40:01.123456 ZiplineTest 5 TestBody:" + std::to_string( line ) +
                    " two\\nlines\\x1b[2J\n" );
   visit( {}, [ & ]( Record const & record ) {
      EXPECT_EQ( record.file, "ZiplineTest.cpp" );
      EXPECT_EQ( record.line, line );
   } );
   std::pair< Kiv::Seconds, char const * > const cases[] = {
         { 951'782'399.9999996, "2000-02-29 00:00:00.000000" },
         { 951'868'799.5, "2000-02-29 23:59:59.500000" },
         { 4'107'542'400, "2100-03-01 00:00:00.000000" },
         { -1, "1970-01-01 00:00:00.000000" },
         { std::numeric_limits< double >::quiet_NaN(), "1970-01-01 00:00:00.000000" },
         { 1e300, "9999-12-31 23:59:59.000000" },
   };
   for( auto const & [ time, begin ] : cases ) {
      Record record{};
      record.time = time;
      EXPECT_EQ( Kiv::toText( record ).substr( 0, 26 ), begin );
   }
}

TEST_F( ZiplineTest, ProcessorTimeIsNearTheClockAndInOrder ) {
   auto const times = [ this ] {
      std::vector< Kiv::Seconds > all;
      visit( {}, [ & ]( Record const & record ) { all.push_back( record.time ); } );
      return all;
   };
   Zipline::timeSourceIs( nullptr );
   auto const before = static_cast< double >( std::time( nullptr ) );
   traceNumbers( 3000 ); // more than a block
   auto const processor = times();
   ASSERT_FALSE( processor.empty() );
   EXPECT_TRUE( std::is_sorted( processor.begin(), processor.end() ) );
   EXPECT_GE( processor.front(), before - 1 );
   EXPECT_LE( processor.back(), static_cast< double >( std::time( nullptr ) ) + 2 );

   // Both kinds of stamps in one ring.
   start_ = Zipline::extent().end;
   virtualTime = 7;
   Zipline::timeSourceIs( []( void * at ) { return *static_cast< double * >( at ); },
                          &virtualTime );
   ZTRACE( 1, "virtual" );
   Zipline::timeSourceIs( nullptr );
   Zipline::sinkIs( []( Record const & ) {} ); // must not open the fast path into the old block
   Zipline::sinkIs( nullptr );
   ZTRACE( 1, "real" );
   auto const both = times();
   ASSERT_EQ( both.size(), 2u );
   EXPECT_EQ( both[ 0 ], 7 );
   EXPECT_GT( both[ 1 ], 1e9 );
}

// Records of many sizes through a ring that holds a few hundred of them: whatever is still held
// must be the newest, complete and in order, at every moment.
TEST_F( ZiplineTest, WrapsAroundWithRecordsOfManySizes ) {
   auto const textOf = []( unsigned i ) {
      return std::string( i * 7919 % 300 % 256, 'a' + i % 26 );
   };
   for( bool sourced : { true, false } ) {
      if( !sourced ) {
         Zipline::timeSourceIs( nullptr );
      }
      std::uint64_t const first = Zipline::extent().end;
      for( unsigned i = 0; i < 5000; ++i ) {
         if( i % 3 == 0 ) {
            ZTRACE( 1, i );
         } else {
            ZTRACE( 2, i, " ", textOf( i ), Wide( 'w' ), textOf( i + 1 ) );
         }
         if( i % 611 != 0 && i != 4999 ) {
            continue;
         }
         auto const [ begin, end ] = Zipline::extent();
         ASSERT_EQ( end, first + i + 1 );
         std::uint64_t sequence = begin;
         auto const progress = Zipline::visit( {}, [ & ]( Record const & record ) {
            EXPECT_EQ( record.sequence, sequence++ );
            if( record.sequence < first ) {
               return true;
            }
            auto const n = static_cast< unsigned >( record.sequence - first );
            std::string expected = std::to_string( n );
            if( n % 3 != 0 ) {
               expected += " " + textOf( n ) + "w4" + textOf( n + 1 );
            }
            EXPECT_EQ( record.message, expected );
            return true;
         } );
         ASSERT_EQ( sequence, end );
         ASSERT_EQ( progress.next, end );
         ASSERT_EQ( progress.lost, begin );
      }
      // Three quarters of the ring at the least are in use.
      EXPECT_GT( Zipline::extent().end - Zipline::extent().begin, 140u );
   }
}

TEST_F( ZiplineTest, ReaderThatFellBehindLearnsWhatItLost ) {
   traceNumbers( 10 );
   auto const some = Zipline::visit( { .since = start_ }, [ & ]( Record const & record ) {
      return record.sequence < start_ + 3;
   } );
   EXPECT_EQ( some.next, start_ + 4 );
   EXPECT_EQ( some.lost, 0u );
   EXPECT_EQ( messages( { .since = some.next } ), "4|5|6|7|8|9" );

   // A reader from the future, and a ring emptied under a reader.
   auto const none = []( Record const & ) { return ADD_FAILURE(), true; };
   EXPECT_EQ( Zipline::visit( { .since = start_ + 60 }, none ).next, start_ + 10 );
   ZTRACE( 1, "gone" );
   Zipline::recordsDelAll();
   auto const emptied = Zipline::visit( { .since = start_ + 10 }, none );
   EXPECT_EQ( emptied.lost, 1u );
   EXPECT_EQ( emptied.next, start_ + 11 );
}

TEST_F( ZiplineTest, RingTurnsOrGoesUnderTheVisitor ) {
   std::pair< std::function< void() >, std::size_t > const cases[] = {
         // During the visit, and how many records are visited.
         { [] { traceNumbers( 5000 ); }, 1 },
         { Zipline::recordsDelAll, 1 },
         { [] { Zipline::capacityIs( 200'000 ); }, 1 },
         { [] { ZTRACE( 1, "one more" ); }, 100 },
   };
   for( auto const & [ during, visited ] : cases ) {
      Zipline::capacityIs( Zipline::minCapacity );
      std::uint64_t const first = Zipline::extent().end;
      for( int i = 0; i < 100; ++i ) {
         ZTRACE( 1, std::string( 50, 'x' ), i );
      }
      std::size_t count = 0;
      auto const visitor = [ &, &during = during ]( Record const & record ) {
         during();
         EXPECT_EQ( record.message, std::string( 50, 'x' ) + std::to_string( count ) );
         return ++count > 0;
      };
      auto const progress = Zipline::visit( { .since = first }, visitor );
      EXPECT_EQ( count, visited );
      EXPECT_EQ( progress.next, first + 100 );
      EXPECT_EQ( progress.lost, 100 - visited );
   }
   Zipline::capacityIs( 200'000 );
   EXPECT_THROW( Zipline::capacityIs( 100 ), Kiv::RangeException );
   EXPECT_EQ( Zipline::capacity(), 262'144u );
}

TEST_F( ZiplineTest, PrintFunctionsMayTraceAndFail ) {
   Chatty named{ "bob" };
   ZTRACE( 1, "hello ", named );
   named.name = "changed";
   EXPECT_EQ( taken(), "printing bob|hello <bob>" );
   ZTRACE( 1, "hello ", Chatty{}, 7 );
   EXPECT_EQ( taken(), "hello <not printable: no name>7" );

   ZTRACE( 1, LateChatty{ 1 }, LateChatty{ 2 } );
   EXPECT_EQ( messages(), "#1#2" );
   // The traces of the reading itself are for the next reading.
   EXPECT_EQ( taken(), "#1#2|late 1|late 2" );

   int value = 1;
   ZTRACE( 1, Pointing{ &value } );
   value = 2;
   EXPECT_EQ( taken(), "1" );
}

TEST_F( ZiplineTest, SinkSeesEveryRecordAtOnce ) {
   std::string seen;
   Zipline::sinkIs( [ & ]( Record const & record ) {
      ZTRACE( 1, "from inside" );
      seen += record.message;
   } );
   ZTRACE( 1, "one ", std::string( "x" ) );
   EXPECT_EQ( seen, "one x" );
   ZTRACE( 1, LateChatty{ 3 } );
   EXPECT_EQ( seen, "one x#3" );

   Zipline::sinkIs( []( Record const & ) { throw Kiv::Exception( "full" ); } );
   auto const trace = [] { ZTRACE( 1, "kept" ); };
   EXPECT_THROW( trace(), Kiv::Exception );
   Zipline::sinkIs( [ & ]( Record const & record ) {
      Zipline::sinkIs( nullptr );
      seen += record.message;
   } );
   ZTRACE( 1, "last" );
   ZTRACE( 1, "unseen" );
   EXPECT_EQ( seen, "one x#3last" );
   EXPECT_EQ( messages( { .last = 3 } ), "kept|last|unseen" );
}

TEST_F( ZiplineTest, QueriesNarrow ) {
   ZTRACE( 1, "apple ", 1 );
   ZTRACE( 7, "apple ", 2 );
   Elsewhere::speak( 3 );
   ZTRACE( 1, "pear" );
   EXPECT_EQ( messages( { .handle = "ZiplineElsewhere" } ), "elsewhere 3" );
   EXPECT_EQ( messages( { .text = "apple" } ), "apple 1|apple 2" );
   EXPECT_EQ( messages( { .text = "apple", .last = 1 } ), "apple 2" );
   EXPECT_EQ( messages( { .last = 2 } ), "elsewhere 3|pear" );
   EXPECT_EQ( messages( { .last = 0 } ), "" );
   EXPECT_EQ( messages( { .handle = "ZiplineTest", .levels = Levels::parse( "7" ) } ), "apple 2" );
}

TEST_F( ZiplineTest, HandleConfiguredBeforeItExists ) {
   Zipline::levelsIs( "ZiplineFuture", Levels::parse( "3,8" ) );
   Zipline::Handle handle( "ZiplineFuture" );
   EXPECT_TRUE( handle.enabled( 0 ) ); // not enrolled yet: what a handle begins with
   Zipline::Handle twin( "ZiplineFuture" );
   {
      Zipline::Enrolment const enrolment( handle );
      Zipline::Enrolment const twinEnrolment( twin );
      EXPECT_EQ( Levels( handle.levelBits() ), Levels::parse( "3,8" ) );
      Zipline::levelsIs( "ZiplineFuture", Levels::upTo( 4 ) );
      EXPECT_EQ( Levels( twin.levelBits() ), Levels::upTo( 4 ) );
      Zipline::levelsDel( "ZiplineFuture" );
      Zipline::defaultLevelsIs( Levels::parse( "9" ) );
      EXPECT_EQ( Levels( handle.levelBits() ), Levels::parse( "9" ) );
      Elsewhere::speak( 1 );
      ZTRACE( 1, "enabled by name" );
      EXPECT_EQ( messages(), "enabled by name" );
      EXPECT_EQ( Zipline::levels( "ZiplineTest" ), Levels( Zipline::allLevelBits ) );
   }
   // A handle goes with its library, and the sites that records point at with it.
   EXPECT_EQ( handle.levelBits(), 0 );
   EXPECT_EQ( Zipline::extent().begin, Zipline::extent().end );
}

TEST_F( ZiplineTest, HandlesAreListedByName ) {
   Zipline::levelsIs( "ZiplineZ", Levels::upTo( 0 ) );
   Zipline::levelsIs( "ZiplineA", Levels() );
   for( std::string const & bad : { std::string(), std::string( 129, 'a' ), std::string( "a b" ),
                                    std::string( "9a" ), std::string( "a*" ) } ) {
      EXPECT_THROW( Zipline::levelsIs( bad, Levels() ), Kiv::ParseError ) << bad;
   }
   std::string list;
   for( auto const & [ name, levels, configured, count ] : Zipline::handles() ) {
      list += name + " " + Kiv::toText( levels ) + ( configured ? " set " : " default " ) +
              std::to_string( count ) + "\n";
   }
   EXPECT_EQ( list, "ZiplineA none set 0\n"
                    "ZiplineElsewhere 0-2 default 1\n"
                    "ZiplineTest 0-9 set 1\n"
                    "ZiplineZ 0 set 0\n" );
   Zipline::levelsDel( "ZiplineZ" );
   Zipline::levelsDel( "ZiplineA" );
   EXPECT_EQ( Zipline::handles().size(), 2u );
}

TEST( ZiplineLevelsTest, TextForms ) {
   std::pair< char const *, char const * > const good[] = {
         { "0-5,9", "0-5,9" }, { "9,0-5", "0-5,9" }, { "none", "none" },      { "all", "0-9" },
         { "1,2,3", "1-3" },   { "4-4", "4" },       { "0,2,4-8", "0,2,4-8" } };
   for( auto const & [ text, printed ] : good ) {
      EXPECT_EQ( Kiv::toText( Kiv::fromText< Levels >( text ) ), printed );
   }
   Refusals::expectRefused< Levels >( " is not ", { "", ",", "1,", ",1", "10", "5-3", "1-", "-1",
                                                    "a", "0 - 5", "0-5,", "1--2", "ALL", "\xff" } );
   EXPECT_EQ( Levels::upTo( 9 ), Levels::parse( "all" ) );
   EXPECT_THROW( Levels::upTo( 10 ), Kiv::RangeException );
   EXPECT_THROW( Levels::upTo( -1 ), Kiv::RangeException );
   EXPECT_FALSE( Levels::parse( "all" ).has( 10 ) );
}
