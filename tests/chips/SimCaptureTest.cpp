// SPDX-License-Identifier: Apache-2.0

// Packet captures, written octet by octet: every form of them, every way in which they end, and the
// pace at which they are played.

#include "Helpers.h"
#include "Kiv/Exception.h"
#include "chips/SimEventsFixture.h"

namespace {

using namespace HobaSim;
using Bridging::VlanId;

constexpr unsigned ethernet = 1;

// An untagged frame from station 02:00:00:00:00:<last>.
Kiv::String
frameFrom( unsigned last ) {
   Kiv::String frame( 60, '\0' );
   frame[ 6 ] = 2;
   frame[ 11 ] = static_cast< char >( last );
   frame[ 12 ] = 8;
   return frame;
}

// Files as machines like this one write them.
Kiv::String
number( std::uint64_t value, unsigned octets ) {
   return Kiv::String( reinterpret_cast< char const * >( &value ), octets );
}

Kiv::String
pcapHeader( std::uint32_t magic = 0xa1b2c3d4, unsigned linkType = ethernet ) {
   return number( magic, 4 ) + number( 2, 2 ) + number( 4, 2 ) + number( 0, 8 ) +
          number( 65535, 4 ) + number( linkType, 4 );
}

// `fraction` in micro- or nanoseconds, as the magic number says.
Kiv::String
record( unsigned seconds, unsigned fraction, Kiv::String const & frame, unsigned length = 0 ) {
   return number( seconds, 4 ) + number( fraction, 4 ) +
          number( length ? length : frame.size(), 4 ) + number( frame.size(), 4 ) + frame;
}

Kiv::String
block( unsigned type, Kiv::String const & body ) {
   auto const length = number( body.size() + 12, 4 );
   return number( type, 4 ) + length + body + length;
}

Kiv::String
pcapngHeader( unsigned linkType = ethernet ) {
   return block( 0x0a0d0d0a, number( 0x1a2b3c4d, 4 ) + number( 1, 4 ) + number( ~0ull, 8 ) ) +
          block( 1, number( linkType, 4 ) + number( 65535, 4 ) );
}

Kiv::String
packetBlock( unsigned microseconds, Kiv::String const & frame ) {
   return block( 6, number( 0, 8 ) + number( microseconds, 4 ) + number( frame.size(), 4 ) +
                          number( frame.size(), 4 ) + frame );
}

class SimCaptureTest : public SimEventsFixture {
 protected:
   SimCaptureTest() {
      chip->vlan()->vlanIs( VlanId( 10 ), true );
      for( auto const port : { et1, et2 } ) {
         chip->vlan()->memberIs( { VlanId( 10 ), port }, Hoba::vlanUntagged );
         chip->vlan()->nativeIs( port, Bridging::VlanIdOrNone( 10 ) );
      }
   }
   Kiv::String write( Kiv::String const & content ) const {
      return folder.file( "capture", content );
   }
   std::uint64_t playAll( Kiv::String const & file ) {
      return replay.playAll( file, et1 );
   }
   // What playing the file is refused with, or ends with; without the name of the file.
   Kiv::String errorOf( Kiv::String const & file ) {
      auto const error = HobaTests::errorOf< Kiv::ParseError >( [ & ] { playAll( file ); } );
      auto const name = "capture \"" + file + "\": ";
      EXPECT_TRUE( error.empty() || error.starts_with( name ) ) << error;
      return error.substr( std::min( error.size(), name.size() ) );
   }
   // The same of what is written to a file.
   Kiv::String errorIn( Kiv::String const & content ) { return errorOf( write( content ) ); }

   Kiv::String const first = frameFrom( 1 ), second = frameFrom( 2 );
   CaptureReplay & replay = *chip->capture();
   HobaTests::Folder folder;
};

TEST_F( SimCaptureTest, readsEveryForm ) {
   Kiv::String const captures[] = {
         pcapHeader() + record( 1, 0, first ) + record( 1, 250'000, second ),
         pcapHeader( 0xa1b23c4d ) + record( 1, 900'000'000, first ) +
               record( 2, 150'000'000, second.substr( 0, 14 ) ),
         pcapngHeader() + packetBlock( 5, first ) + packetBlock( 250'005, second ),
   };
   for( auto const & capture : captures ) {
      auto const file = write( capture );
      mac.hostDelAll();
      events();
      EXPECT_EQ( playAll( file ), 2u );
      EXPECT_EQ( events().size(), 2u );
      EXPECT_EQ( mac.host( { Pelt::EthAddr( 0x020000000002 ), VlanId( 10 ) } ).intf, et1 );
      EXPECT_EQ( replay.frames(), 2u );
      CaptureFile reader( file );
      EXPECT_EQ( reader.next()->time, 0 );
      EXPECT_NEAR( reader.next()->time, 0.25, 1e-12 );
      EXPECT_FALSE( reader.next() || reader.next() );
   }
}

TEST_F( SimCaptureTest, refusesWhatIsNoCaptureOfEthernet ) {
   auto const frame = record( 1, 0, first );
   EXPECT_EQ( errorOf( folder.path ), "is a directory, expected a file" );
   EXPECT_EQ( errorOf( folder.path + "/none" ), "No such file or directory" );
   EXPECT_EQ( errorOf( "/dev/zero" ), "is not a regular file" );
   EXPECT_EQ( errorIn( "" ), "is empty, expected a packet capture" );
   EXPECT_EQ( errorIn( "some text, and not so short a one" ),
              "is no packet capture (pcap or pcapng) that can be read: unknown file format" );
   EXPECT_EQ( errorIn( pcapHeader( 0xa1b2c3d4, 113 ) + frame ),
              "has frames of link type LINUX_SLL, expected Ethernet" );
   EXPECT_EQ( errorIn( pcapngHeader( 60'000 ) ),
              "has frames of link type 60000, expected Ethernet" );
   auto const sound = write( pcapHeader() + frame );
   EXPECT_THROW( replay.playAll( sound, Pelt::IntfId( "Vlan5" ) ), Kiv::ParseError );
   for( double speed : { 0.0, -1.0, 1e-9, 1e9, std::numeric_limits< double >::quiet_NaN() } ) {
      EXPECT_THROW( replay.start( sound, et1, speed ), Kiv::ParseError );
   }
   EXPECT_FALSE( replay.running() || replay.file() != "" || mac.count( macFrames ) ) << "nothing was begun";
}

// Cut off anywhere: what is whole before the cut is played, and only a cut between two records is
// taken for the end.
TEST_F( SimCaptureTest, cutOffAnywhere ) {
   auto const frame = first.substr( 0, 20 );
   std::pair< Kiv::String, Kiv::String > const rows[] = {
         { pcapHeader(), record( 1, 0, frame ) }, { pcapngHeader(), packetBlock( 0, frame ) } };
   for( auto const & [ header, packet ] : rows ) {
      auto const all = header + packet + packet;
      for( std::size_t length = 1; length <= all.size(); ++length ) {
         bool const headed = length >= header.size();
         auto const whole = headed ? ( length - header.size() ) / packet.size() : 0;
         bool const between = headed && ( length - header.size() ) % packet.size() == 0;
         auto const before = mac.count( macFrames );
         auto const error = errorIn( all.substr( 0, length ) );
         EXPECT_EQ( mac.count( macFrames ) - before, whole ) << length;
         EXPECT_EQ( error.empty(), between ) << length << error;
         if( headed && !between ) {
            auto const text = "ended after " + Kiv::toText( whole ) +
                              ( whole == 1 ? " frame" : " frames" ) +
                              ": it is cut off: tried to read";
            EXPECT_TRUE( error.starts_with( text ) ) << error;
            EXPECT_EQ( replay.error(), "capture \"" + replay.file() + "\": " + error );
         }
      }
   }
}

TEST_F( SimCaptureTest, damagedOnTheWay ) {
   auto const sound = record( 1, 0, first );
   auto const headed = pcapHeader() + sound;
   EXPECT_EQ( errorIn( headed + record( 1, 0, second, 0xffffffff ) + sound ),
              "ended after 1 frame: it is damaged: invalid packet capture length 4294967295, "
              "bigger than snaplen of 65535" );
   // Time stamps are nobody's damage.
   EXPECT_EQ( errorIn( headed + record( ~0u, ~0u, frameFrom( 3 ) ) ), "" );
   EXPECT_EQ( events().size(), 2u );
   // Paced, the error comes when the damage does.
   replay.start( write( headed + sound.substr( 0, 9 ) ), et1, 1 );
   EXPECT_TRUE( replay.running() && driver.runUntilIdle( 10 ) && !replay.running() );
   EXPECT_EQ( replay.frames(), 1u );
   HobaTests::expectIn( replay.error(), "ended after 1 frame: it is cut off" );
}

TEST_F( SimCaptureTest, playsAtThePaceOfTheCapture ) {
   auto capture = pcapHeader();
   // Two at one time, one that is earlier than the one before it, and a long silence.
   for( unsigned tenths : { 1000u, 1020u, 1020u, 1015u, 1040u, 1'001'000u } ) {
      capture += record( tenths / 10, tenths % 10 * 100'000, first );
   }
   auto const file = write( capture );
   std::pair< double, unsigned > const rows[] = {
         { 0, 1 }, { 1.9, 1 }, { 2, 4 }, { 3.9, 4 }, { 4, 5 }, { 99'999, 5 }, { 100'000, 6 } };
   for( double speed : { 1.0, 10.0, 0.5 } ) {
      auto const start = driver.now();
      replay.start( file, et1, speed );
      EXPECT_EQ( replay.frames(), 0u ) << "not from inside start()";
      for( auto const & [ time, frames ] : rows ) {
         driver.advanceTo( start + time / speed + 1e-6 );
         EXPECT_EQ( replay.frames(), frames ) << time << " at speed " << speed;
         EXPECT_EQ( replay.running(), frames < 6 );
      }
      EXPECT_EQ( replay.error(), "" );
   }
   EXPECT_EQ( driver.timers(), 0u );

   // One at a time, and not to the end.
   replay.start( file, et2, 1 );
   EXPECT_THROW( playAll( file ), Kiv::ParseError );
   EXPECT_THROW( replay.start( file, et1, 1 ), Kiv::ParseError );
   driver.advance( 3 );
   replay.stop();
   replay.stop();
   EXPECT_TRUE( driver.timers() == 0 && !replay.running() );
   EXPECT_EQ( replay.error(), "stopped after 4 frames" );
   EXPECT_EQ( mac.count( macMoved ), 1u );
   EXPECT_EQ( playAll( file ), 6u );
}

// Does something when a frame has come in.
class FrameWatcher : public Hoba::HobaBaseSm {
 public:
   KIV_TYPE( FrameWatcher );
   std::function< void( std::uint64_t frames ) > then;

 protected:
   explicit FrameWatcher( Kiv::Ptr< MacUnit > const & unit ) : HobaBaseSm( nullptr ) {
      unitIs( unit );
   }

 private:
   void handleCount( MacCount const & what ) {
      if( what == macFrames ) {
         then( unit()->notifier()->count( what ) );
      }
   }
   class KivUnit
         : public Kiv::Hears< FrameWatcher, MacUnit const,
                              Kiv::OnChange< MacUnit::countAttr, &FrameWatcher::handleCount > > {};
   KIV_REACTOR( KivUnit, unit );
};

// Stops the replay in the middle of a frame, and lets go of the chip.
TEST_F( SimCaptureTest, goesAwayWhileItPlays ) {
   auto const file = write( pcapHeader() + record( 1, 0, first ) + record( 1, 0, second ) );
   auto const watcher = Hoba::smIs< FrameWatcher >( chip->mac() );
   watcher->then = [ & ]( std::uint64_t frames ) {
      if( frames == 1 ) {
         replay.stop();
         replay.start( file, et2, 1 );
      } else if( frames == 2 ) {
         chip = nullptr;
      }
   };
   replay.start( file, et1, 1 );
   EXPECT_TRUE( driver.runUntilIdle( 10 ) );
   EXPECT_EQ( events().size(), 3u ) << "one of the first play, and a turn of the second";
   EXPECT_EQ( driver.timers(), 0u );
   chip = Kiv::make< Chip >();
   auto const another = Hoba::smIs< FrameWatcher >( chip->mac() );
   another->then = [ & ]( std::uint64_t ) { chip = nullptr; };
   EXPECT_EQ( chip->capture()->playAll( file, et1 ), 2u );
}

} // namespace
