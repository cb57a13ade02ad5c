// SPDX-License-Identifier: Apache-2.0

// What the chip reads of frames, and what it says of where they go.

#include "Kiv/Exception.h"
#include "chips/SimEventsFixture.h"

namespace {

using namespace HobaSim;
using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using Octets = std::vector< std::uint8_t >;
using Texts = std::vector< Kiv::String >;

Octets
octets( std::string_view addresses, std::string_view rest ) {
   Octets all( addresses.begin(), addresses.end() );
   all.insert( all.end(), rest.begin(), rest.end() );
   return all;
}

TEST( SimFrameTest, headers ) {
   using namespace std::literals;
   auto const addresses = "\xff\xff\xff\xff\xff\xff\x02\x00\x00\x00\x00\x09"sv;
   FrameTpids const standard;
   auto const told = FrameTpids::of( { 0x9100, 0x88a8 } );
   struct Row {
      std::string_view rest;
      FrameTpids tpids;
      FrameFault fault;
      Kiv::String tags = {};
      unsigned etherType = 0;
   };
   Row const rows[] = {
         { ""sv, standard, frameRunt },
         { "\x08\x00"sv, standard, frameSound, "untagged", 0x800 },
         { "\x81\x00"sv, standard, frameRunt },
         { "\x81\x00\x00\x0a\x86\xdd"sv, standard, frameSound, "tagged 10", 0x86dd },
         { "\x81\x00\xef\xfe\x08\x00"sv, standard, frameSound, "tagged 4094 priority 7", 0x800 },
         { "\x81\x00\xe0\x00\x08\x00"sv, standard, frameSound, "tagged 0 priority 7", 0x800 },
         { "\x81\x00\x0f\xff\x08\x00"sv, standard, frameReservedVlan },
         { "\x88\xa8\x00\x14\x81\x00\x00\x0a\x08\x00"sv, standard, frameSound,
           "tagged 20 (0x88a8) and 10", 0x800 },
         { "\x81\x00\x00\x14\x81\x00\x0f\xff\x08\x00"sv, standard, frameSound, "tagged 20 and 4095",
           0x800 },
         // A third tag, and one that no inner tag has: payload.
         { "\x81\x00\x00\x01\x81\x00\x00\x02\x81\x00\x00\x03\x08\x00"sv, standard, frameSound,
           "tagged 1 and 2", 0x8100 },
         { "\x81\x00\x00\x01\x88\xa8\x00\x02\x08\x00"sv, standard, frameSound, "tagged 1", 0x88a8 },
         { "\x91\x00\x00\x14\x88\xa8\x00\x02\x08\x00"sv, told, frameSound,
           "tagged 20 (0x9100) and 2 (0x88a8)", 0x800 },
   };
   for( auto const & row : rows ) {
      auto const bytes = octets( addresses, row.rest ); // its end is watched
      auto const header = readFrameHeader( bytes, row.tpids );
      SCOPED_TRACE( row.tags );
      EXPECT_EQ( header.fault, row.fault );
      if( row.fault == frameSound ) {
         EXPECT_EQ( header.source, Pelt::EthAddr( 0x020000000009 ) );
         EXPECT_EQ( header.destination, Pelt::EthAddr::broadcast() );
         EXPECT_EQ( tagsText( header ), row.tags );
         EXPECT_EQ( header.etherType, row.etherType );
         // The way back.
         auto const made = frameHeaderOctets( header );
         EXPECT_EQ( made, Octets( bytes.begin(), bytes.begin() + header.size ) );
      } else {
         EXPECT_EQ( header.tags, 0 );
      }
   }
}

class SimPathTest : public SimEventsFixture {
 protected:
   // Ethernet1, 2: access ports of VLAN 1. Ethernet3: a trunk of 10 and 20. Ethernet4: the same, 10
   // untagged. Port-Channel7: Ethernet5 and 6, a trunk of 10; Port-Channel8: without an active member.
   SimPathTest() {
      for( auto const number : { 1, 10, 20 } ) {
         vlan.vlanIs( VlanId( number ), true );
      }
      for( auto const & port : { et1, et2 } ) {
         carries( port, 1, Hoba::vlanUntagged );
      }
      carries( et3, 10, Hoba::vlanTagged );
      carries( et3, 20, Hoba::vlanTagged );
      carries( et4, 10, Hoba::vlanUntagged );
      carries( et4, 20, Hoba::vlanTagged );
      carries( po7, 10, Hoba::vlanTagged );
      chip->trunk()->lagIs( et5, po7 );
      chip->trunk()->lagIs( et6, po7 );
   }
   void carries( Pelt::IntfId intf, unsigned number, Hoba::VlanTagging how ) {
      vlan.memberIs( { VlanId( number ), intf }, how );
      if( how == Hoba::vlanUntagged ) {
         vlan.nativeIs( intf, VlanIdOrNone( number ) );
      }
   }
   struct In {
      Pelt::IntfId port;
      unsigned source, destination; // the last octet; 255 for broadcast
      std::vector< unsigned > tags = {};
   };
   static Octets bytesOf( In const & in ) {
      FrameHeader header;
      header.source = station( in.source );
      header.destination = station( in.destination );
      header.tags = static_cast< std::uint8_t >( in.tags.size() );
      for( std::size_t n = 0; n != in.tags.size(); ++n ) {
         ( n ? header.inner : header.outer ) = { 0x8100, 3, false,
                                                 static_cast< std::uint16_t >( in.tags[ n ] ) };
      }
      header.etherType = 0x800;
      return frameHeaderOctets( header );
   }
   static Pelt::EthAddr station( unsigned last ) {
      return last == 255 ? Pelt::EthAddr::broadcast() : Pelt::EthAddr( 0x020000000000 + last );
   }
   PathFrame pass( In const & in ) { return path.frame( in.port, bytesOf( in ), true ); }
   // Where it left and how, or the stage that dropped it and its words.
   static Texts outcome( PathFrame const & frame ) {
      if( frame.dropped() ) {
         EXPECT_TRUE( frame.departures.empty() );
         return { frame.droppedAt() + ": " + frame.steps().back().text };
      }
      Texts texts;
      for( auto const & departure : frame.departures ) {
         texts.push_back( Kiv::toText( departure.intf ) + ' ' + tagsText( departure.header ) );
      }
      return texts;
   }

   VlanUnit & vlan = *chip->vlan();
   PathUnit & path = *chip->path();
   Pelt::IntfId const et3{ "Ethernet3" }, et4{ "Ethernet4" }, et5{ "Ethernet5" },
         et6{ "Ethernet6" };
   Pelt::IntfId const po7{ "Port-Channel7" }, po8{ "Port-Channel8" };
};

// What the stages say; what they do, the simulation of the whole switch watches.
TEST_F( SimPathTest, words ) {
   std::pair< In, Texts > const rows[] = {
         { { et1, 1, 2 }, { "Ethernet2 untagged" } },
         { { et1, 2, 1 },
           { "forwarding: dropped: 02:00:00:00:00:01 is behind Ethernet1, where the frame came "
             "from" } },
         { { et1, 1, 255, { 10 } }, { "ingress: dropped: Ethernet1 does not carry VLAN 10" } },
         { { et1, 1, 255, { 30 } }, { "vlan: dropped: VLAN 30 is not active" } },
         { { et3, 3, 255, { 0 } },
           { "vlan: dropped: without a VLAN of its own, and Ethernet3 has no native VLAN" } },
         { { et3, 3, 255, { 4095 } },
           { "header: dropped: it is tagged with VLAN 4095, which is reserved" } },
         { { et3, 3, 255, { 10, 77 } },
           { "Ethernet4 tagged 77 priority 3",
             "Port-Channel7 tagged 10 priority 3 and 77 priority 3" } },
   };
   for( auto const & [ in, expected ] : rows ) {
      EXPECT_EQ( outcome( pass( in ) ), expected ) << Kiv::toText( in.port ) << ' ' << in.source;
   }
   carries( po8, 20, Hoba::vlanTagged );
   vlan.memberDel( { VlanId( 20 ), et4 } );
   EXPECT_EQ( outcome( pass( { et3, 20, 255, { 20 } } ) ),
              Texts{ "out: dropped: there is no port to leave by" } );
   vlan.memberDel( { VlanId( 20 ), po8 } );
   EXPECT_EQ( outcome( pass( { et3, 20, 255, { 20 } } ) ),
              Texts{ "forwarding: dropped: broadcast: all others of VLAN 20, of which there are "
                     "none" } );
   FrameHeader header;
   header.source = station( 9 );
   header.destination = Pelt::EthAddr( 0x0180c200000e );
   auto const own = frameHeaderOctets( header );
   EXPECT_EQ( outcome( path.frame( et1, own, true ) ),
              Texts{ "forwarding: dropped: 01:80:c2:00:00:0e is for this bridge only" } );
   EXPECT_TRUE( path.frame( et1, own ).steps().empty() ) << "nobody asked for words";
}

// By what software says of stations and of the whole table.
TEST_F( SimPathTest, entries ) {
   auto const write = [ & ]( unsigned last, char const * intf, Bridging::DropMode drop,
                             std::uint32_t nextHop = 0 ) {
      HostRow row;
      row.intf = intf[ 0 ] ? Pelt::IntfId( intf ) : Pelt::IntfId();
      row.entryType = Bridging::configuredStaticMac;
      row.dropMode = drop;
      row.nextHopId = nextHop;
      EXPECT_EQ( mac.write( { station( last ), VlanId( 1 ) }, row ), tableWritten );
   };
   write( 11, "Ethernet1", Bridging::dropModeSrc );
   write( 12, "Ethernet2", Bridging::dropModeDst );
   write( 13, "", Bridging::dropModeNone );
   write( 14, "Vxlan1", Bridging::dropModeNone, 5 );
   write( 15, "Cpu", Bridging::dropModeNone );
   mac.intfLearningIs( et2, false );
   auto const last = []( PathFrame const & frame ) {
      auto const & steps = frame.steps();
      return steps.size() < 2 ? Kiv::String() : steps[ steps.size() - 2 ].text;
   };
   std::pair< In, Texts > const rows[] = {
         { { et1, 11, 2 }, { "learning: dropped: nothing from 02:00:00:00:00:0b is let in" } },
         { { et2, 2, 11 }, { "Ethernet1 untagged" } },
         { { et1, 2, 12 }, { "forwarding: dropped: nothing is let out to 02:00:00:00:00:0c" } },
         { { et1, 2, 13 }, { "forwarding: dropped: 02:00:00:00:00:0d is behind no interface" } },
         { { et1, 15, 255 }, { "Ethernet2 untagged" } },
   };
   for( auto const & [ in, expected ] : rows ) {
      EXPECT_EQ( outcome( pass( in ) ), expected );
   }
   EXPECT_FALSE( mac.entry( { station( 3 ), VlanId( 1 ) } ) );
   EXPECT_EQ( last( pass( { et1, 2, 14 } ) ),
              "to Vxlan1, next hop 5: the chip is not told how frames cross the overlay" );
   EXPECT_EQ( last( pass( { et1, 2, 15 } ) ), "to the switch itself" );
   mac.settingIs( macSourceCheckCpu, 1 );
   mac.settingIs( macSourceInvalid, 1 );
   EXPECT_EQ( outcome( pass( { et1, 15, 255 } ) ),
              Texts{ "learning: dropped: 02:00:00:00:00:0f is an address of the switch itself" } );
   EXPECT_EQ( outcome( pass( { et1, 255, 2 } ) ),
              Texts{ "learning: dropped: ff:ff:ff:ff:ff:ff is no station's address" } );
   // What is flushed is unknown at once.
   pass( { et1, 3, 255 } );
   EXPECT_EQ( last( pass( { et2, 2, 3 } ) ), "02:00:00:00:00:03 is behind Ethernet1" );
   mac.flushIn( { et1, 0 } );
   EXPECT_EQ( last( pass( { et2, 2, 3 } ) ), "unknown: all others of VLAN 1, 1" );
}

// Different stations share all members of a LAG.
TEST_F( SimPathTest, membersShare ) {
   std::map< Pelt::IntfId, unsigned > used;
   for( unsigned last = 20; last != 120; ++last ) {
      ++used[ pass( { et3, last, 255, { 10 } } ).departures.back().port ];
   }
   EXPECT_GT( used[ et5 ], 25u );
   EXPECT_GT( used[ et6 ], 25u );
}

TEST_F( SimPathTest, furtherStages ) {
   unsigned asked = 0;
   path.stageIs( "access list", "learning", [ & ]( PathFrame & frame ) {
      ++asked;
      if( frame.header.source == station( 66 ) ) {
         frame.drop( [] { return "rule 10"; } );
      }
   } );
   EXPECT_EQ( path.stages(), ( Texts{ "trunk", "header", "vlan", "ingress", "access list",
                                      "learning", "forwarding", "out" } ) );
   EXPECT_EQ( outcome( pass( { et1, 66, 255 } ) ), Texts{ "access list: dropped: rule 10" } );
   EXPECT_FALSE( mac.hostHas( { station( 66 ), VlanId( 1 ) } ) );
   EXPECT_EQ( outcome( pass( { et1, 67, 255 } ) ), Texts{ "Ethernet2 untagged" } );
   EXPECT_EQ( path.drop( Name( "access list" ) ), 1u );
   EXPECT_THROW( path.stageIs( "other", "nowhere", {} ), Kiv::ParseError );
   // One that goes while a frame passes.
   path.stageIs( "access list", "learning",
                 [ & ]( PathFrame & ) { path.stageDel( "access list" ); } );
   EXPECT_EQ( outcome( pass( { et1, 66, 255 } ) ), Texts{ "Ethernet2 untagged" } );
   EXPECT_EQ( asked, 2u );
   EXPECT_EQ( path.stages().size(), 7u );
}

} // namespace
