// SPDX-License-Identifier: Apache-2.0
#include "Pelt/IntfId.h"

#include "Kiv/Exception.h"
#include "Kiv/Text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <type_traits>
#include <vector>

namespace {

using namespace Pelt;

static_assert( sizeof( IntfId ) == 8 && sizeof( SubIntfId ) == 8 );
static_assert( std::is_trivially_copyable_v< IntfId > &&
               std::is_trivially_copyable_v< EthIntfId > );
static_assert( std::is_convertible_v< EthIntfId, IntfId > );
static_assert( !std::is_convertible_v< IntfId, EthIntfId > );
static_assert( VlanIntfId::vlanId( VlanIntfId( 4095 ) ) == 4095 );

// What the C++ form makes, its canonical name, and other spellings that must give the same id.
struct Form {
   IntfId id;
   char const * name;
   std::vector< char const * > otherNames;
};

std::vector< Form >
forms() {
   return {
         { EthIntfId( 0 ), "Ethernet0", { "Eth0", "Et0", "Ethernet000" } },
         { EthIntfId( 65535, 255, 255 ), "Ethernet65535/255/255", { "Et65535/255/255" } },
         { EthIntfId( 1, 0 ), "Ethernet1/0", { "Eth01/00" } },
         { EthIntfId( 3, 1, 2 ), "Ethernet3/1/2", {} },
         { EthIntfId::backplaneIntfId( 4 ), "Ethernet-BP4", {} },
         { PortChannelIntfId( 3 ),
           "Port-Channel3",
           { "PortChannel0003", "Po3", "Port-channel3", "Port-Channel03" } },
         { PortChannelIntfId( 999999 ), "Port-Channel999999", { "PortChannel999999" } },
         { PortChannelIntfId::recircIntfId( 7 ), "Recirc-Channel7", {} },
         { PeerPortChannelIntfId( 12 ), "PeerPort-Channel12", {} },
         { PeerEthIntfId( 5, 1 ), "PeerEthernet5/1", {} },
         { CpuIntfId(), "Cpu", {} },
         { FabricIntfId( 0, 255 ), "Fabric0/255", {} },
         { FabricIntfId( 3, 1, 9 ), "Fabric3/1/9", {} },
         { TunnelIntfId( 16777215 ), "Tunnel16777215", { "Tu16777215" } },
         { VxlanIntfId( 1 ), "Vxlan1", { "Vx1" } },
         { VlanIntfId( 0 ), "Vlan0", {} },
         { VlanIntfId::vlanIdToIntfId( 4095 ), "Vlan4095", { "Vl4095" } },
         { LoopbackIntfId( 0 ), "Loopback0", { "Lo0" } },
         { ManagementIntfId( 1, 1 ), "Management1/1", { "Ma1/1" } },
         { SubIntfId( EthIntfId( 1, 2 ), 100 ), "Ethernet1/2.100", { "Eth1/2.0100" } },
         { SubIntfId( PortChannelIntfId( 3 ), 10 ), "Port-Channel3.10", { "Po0003.10" } },
         { SubIntfId( EthIntfId( 9 ), 16777215 ), "Ethernet9.16777215", {} },
   };
}

TEST( PeltIntfId, NamesRoundTripAndEveryIdIsDistinct ) {
   std::set< IntfId > ids;
   std::set< std::size_t > hashes;
   for( Form const & form : forms() ) {
      SCOPED_TRACE( form.name );
      EXPECT_EQ( Kiv::toText( form.id ), form.name );
      EXPECT_EQ( Kiv::fromText< IntfId >( form.name ), form.id );
      EXPECT_EQ( IntfId( form.name ).bits(), form.id.bits() );
      for( char const * other : form.otherNames ) {
         EXPECT_EQ( IntfId::parse( other ), form.id ) << other;
      }
      EXPECT_TRUE( form.id );
      EXPECT_TRUE( ids.insert( form.id ).second );
      EXPECT_TRUE( hashes.insert( form.id.hash() ).second );
   }
}

TEST( PeltIntfId, EmptyId ) {
   IntfId none;
   EXPECT_FALSE( none );
   EXPECT_EQ( Kiv::toText( none ), "" );
   EXPECT_EQ( Kiv::fromText< IntfId >( "" ), none );
   EXPECT_EQ( none.numberCount(), 0u );
   EXPECT_LT( none, EthIntfId( 0 ) );
   EXPECT_THROW( EthIntfId::parse( "" ), Kiv::ParseError );
   EXPECT_FALSE( EthIntfId::isEthIntfId( none ) || CpuIntfId::isCpuIntfId( none ) ||
                 SubIntfId::isSubIntfId( none ) );
}

TEST( PeltIntfId, SortsByKindThenNumbersThenSubinterface ) {
   std::vector< char const * > names{
         "Ethernet1",       "Ethernet1.5",    "Ethernet1/0",      "Ethernet1/0/0",
         "Ethernet1/0/1",   "Ethernet1/1",    "Ethernet1/1.2",    "Ethernet1/1.10",
         "Ethernet1/10",    "Ethernet2",      "Ethernet10",       "Ethernet-BP0",
         "Port-Channel2",   "Port-Channel10", "Port-Channel10.1", "Port-Channel11",
         "Recirc-Channel1", "Vlan5",          "Vlan10",           "Cpu",
         "PeerEthernet1" };
   for( std::size_t i = 1; i < names.size(); ++i ) {
      EXPECT_LT( IntfId( names[ i - 1 ] ), IntfId( names[ i ] ) ) << names[ i ];
   }
}

TEST( PeltIntfId, NumbersReadBack ) {
   IntfId id( "Ethernet3/0/255.77" );
   EXPECT_EQ( id.kind(), IntfId::Kind::ethernet );
   EXPECT_EQ( id.numberCount(), 3u );
   EXPECT_EQ( id.number( 0 ), 3u );
   EXPECT_EQ( id.number( 1 ), 0u );
   EXPECT_EQ( id.number( 2 ), 255u );
   EXPECT_EQ( id.number( 3 ), 0u );
   EXPECT_EQ( id.subIntfNumber(), 77u );
   EXPECT_EQ( IntfId( "Ethernet7" ).numberCount(), 1u );
   EXPECT_EQ( IntfId( "Tunnel16777215" ).number(), 16777215u );
   EXPECT_EQ( IntfId( "Cpu" ).numberCount(), 0u );
}

// Each id is of exactly one kind; recirculation channels and backplane ports are special cases of
// port channels and Ethernet, and a subinterface is never of its parent's kind.
TEST( PeltIntfId, KindsExcludeEachOther ) {
   using Predicate = bool ( * )( IntfId );
   struct Row {
      Predicate isKind;
      std::vector< char const * > names;
   };
   std::vector< Row > rows{
         { EthIntfId::isEthIntfId, { "Ethernet1", "Ethernet1/2/3", "Ethernet-BP0" } },
         { PortChannelIntfId::isPortChannelIntfId, { "Port-Channel1", "Recirc-Channel1" } },
         { PeerPortChannelIntfId::isPeerPortChannelIntfId, { "PeerPort-Channel1" } },
         { PeerEthIntfId::isPeerEthIntfId, { "PeerEthernet1" } },
         { CpuIntfId::isCpuIntfId, { "Cpu" } },
         { FabricIntfId::isFabricIntfId, { "Fabric0/255" } },
         { TunnelIntfId::isTunnelIntfId, { "Tunnel1" } },
         { VxlanIntfId::isVxlanIntfId, { "Vxlan1" } },
         { VlanIntfId::isVlanIntfId, { "Vlan1" } },
         { LoopbackIntfId::isLoopbackIntfId, { "Loopback1" } },
         { ManagementIntfId::isManagementIntfId, { "Management1" } },
         { SubIntfId::isSubIntfId, { "Ethernet1.1", "Port-Channel1.1" } },
   };
   for( Row const & row : rows ) {
      for( char const * name : row.names ) {
         for( Row const & other : rows ) {
            EXPECT_EQ( other.isKind( IntfId( name ) ), &row == &other ) << name;
         }
      }
   }
   EXPECT_TRUE( PortChannelIntfId::isRecirc( IntfId( "Recirc-Channel1" ) ) );
   EXPECT_FALSE( PortChannelIntfId::isRecirc( IntfId( "Port-Channel1" ) ) );
   EXPECT_TRUE( EthIntfId::isBackplane( IntfId( "Ethernet-BP1" ) ) );
   EXPECT_FALSE( EthIntfId::isBackplane( IntfId( "Ethernet1" ) ) );
}

TEST( PeltIntfId, SubinterfacesKnowTheirParents ) {
   IntfId parent = PortChannelIntfId( 5 );
   IntfId sub = SubIntfId( parent, 7 );
   EXPECT_EQ( SubIntfId::parentIntfId( sub ), parent );
   EXPECT_EQ( SubIntfId( EthIntfId( 1, 0 ), 1 ).parentIntfId(), IntfId( "Ethernet1/0" ) );
   EXPECT_THROW( SubIntfId::parentIntfId( parent ), Kiv::RangeException );
   for( char const * name :
        { "", "Vlan1", "Cpu", "Recirc-Channel1", "Ethernet-BP0", "Ethernet1.1" } ) {
      EXPECT_THROW( SubIntfId( IntfId( name ), 1 ), Kiv::RangeException ) << name;
   }
   EXPECT_THROW( SubIntfId( parent, 0 ), Kiv::RangeException );
   EXPECT_THROW( SubIntfId( parent, 16777216 ), Kiv::RangeException );
}

TEST( PeltIntfId, NumbersOutOfBoundsAreRefused ) {
   EXPECT_THROW( EthIntfId( 65536 ), Kiv::RangeException );
   EXPECT_THROW( EthIntfId( 1, 256 ), Kiv::RangeException );
   EXPECT_THROW( EthIntfId( 1, 1, 256 ), Kiv::RangeException );
   EXPECT_THROW( EthIntfId( static_cast< std::uint64_t >( -1 ) ), Kiv::RangeException );
   EXPECT_THROW( EthIntfId( 1ull << 32 ), Kiv::RangeException );
   EXPECT_THROW( EthIntfId::backplaneIntfId( 65536 ), Kiv::RangeException );
   EXPECT_THROW( PortChannelIntfId( 1000000 ), Kiv::RangeException );
   EXPECT_THROW( PortChannelIntfId::recircIntfId( 1000000 ), Kiv::RangeException );
   EXPECT_THROW( VlanIntfId::vlanIdToIntfId( 4096 ), Kiv::RangeException );
   EXPECT_THROW( TunnelIntfId( 16777216 ), Kiv::RangeException );
   EXPECT_THROW( VlanIntfId::vlanId( EthIntfId( 1 ) ), Kiv::RangeException );
   EXPECT_THROW( EthIntfId( IntfId( "Ethernet1.1" ) ), Kiv::RangeException );
   EXPECT_THROW( EthIntfId{ IntfId() }, Kiv::RangeException );
   try {
      VlanIntfId( 5000 );
      FAIL();
   } catch( Kiv::RangeException const & e ) {
      EXPECT_STREQ( e.what(), "5000 is no number of an interface name \"Vlan...\": "
                              "a number from 0 to 4095 is expected" );
   }
}

TEST( PeltIntfId, BadNamesSayWhatWasExpected ) {
   using namespace std::literals;
   struct Row {
      std::string_view name;
      std::string_view message; // a part of the error
   };
   std::vector< Row > rows{
         { "Ethernet", "a number from 0 to 65535 is expected after \"Ethernet\"" },
         { "Ethernet1/", "a number from 0 to 255 is expected after \"/\"" },
         { "Ethernet1.", "a number from 1 to 16777215 is expected after \".\"" },
         { "Ethernet1.0", "a number from 1 to 16777215 is expected after \".\"" },
         { "Ethernet1/256", "a number from 0 to 255 is expected after \"/\"" },
         { "Ethernet65536", "a number from 0 to 65535" },
         { "Ethernet99999999999999999999999", "a number from 0 to 65535" },
         { "Ethernet1/2/3/4", "at most 3 numbers can follow \"Ethernet\"" },
         { "Vlan1/2", "at most 1 number can follow \"Vlan\"" },
         { "Ethernet1.2.3", "the end of the name is expected after \"Ethernet1.2\"" },
         { "Ethernet1 ", "\"/\", \".\" or the end of the name is expected after \"Ethernet1\"" },
         { "Ethernet1\n", "\"Ethernet1\\x0a\" is not an interface name" },
         { "Ethernet1\0"sv, "\"Ethernet1\\x00\" is not an interface name" },
         { "Eth0-ASIC1", "the end of the name is expected after \"Ethernet0\"" },
         { "Ethernet-1", "it must begin with one of Ethernet, Ethernet-BP, Port-Channel" },
         { "Ethernet+1", "it must begin with one of" },
         { "Port-Channel3/1", "at most 1 number can follow \"Port-Channel\"" },
         { "Fabric0", "\"/\" and a second number are expected" },
         { "Cpu0", "the end of the name is expected after \"Cpu\"" },
         { "Vlan10.5", "Vlan interfaces have no subinterfaces" },
         { "Cpu.1", "it must begin with one of" },
         { "Recirc-Channel1.1", "Recirc-Channel interfaces have no subinterfaces" },
         { "Vlan4096", "a number from 0 to 4095" },
         { "ethernet1", "it must begin with one of" },
         { "eth0", "it must begin with one of" },
         { "12", "it must begin with one of" },
         { "/", "it must begin with one of" },
         { " Ethernet1", "it must begin with one of" },
         { "\xc3\x89thernet1", "\"\\xc3\\x89thernet1\" is not an interface name" },
         { "MuxTunnel0", "it must begin with one of" },
   };
   for( Row const & row : rows ) {
      try {
         IntfId id( row.name );
         ADD_FAILURE() << row.name << " was read as " << Kiv::toText( id );
      } catch( Kiv::ParseError const & e ) {
         std::string_view what = e.what();
         EXPECT_NE( what.find( row.message ), what.npos ) << what;
         EXPECT_EQ( what.find( '\n' ), what.npos ) << what;
      }
   }
   try {
      IntfId::parse( std::string( 100000, '/' ) );
      FAIL();
   } catch( Kiv::ParseError const & e ) {
      EXPECT_LT( std::string_view( e.what() ).size(), 400u );
   }
}

TEST( PeltIntfId, ParsingAKindRefusesOtherKinds ) {
   EXPECT_EQ( PortChannelIntfId::parse( "Po7" ), PortChannelIntfId( 7 ) );
   EXPECT_EQ( SubIntfId::parse( "Et1.2" ), SubIntfId( EthIntfId( 1 ), 2 ) );
   try {
      EthIntfId::parse( "Port-Channel7" );
      FAIL();
   } catch( Kiv::ParseError const & e ) {
      EXPECT_STREQ( e.what(), "\"Port-Channel7\" is not the name of an Ethernet interface" );
   }
   EXPECT_THROW( EthIntfId::parse( "Ethernet1.1" ), Kiv::ParseError );
   EXPECT_THROW( SubIntfId::parse( "Ethernet1" ), Kiv::ParseError );
}

// Ids also come out of memory that other programs write.
TEST( PeltIntfId, BitsThatAreNoIdPrint ) {
   for( std::uint64_t kind = 0; kind != 64; ++kind ) {
      for( std::uint64_t rest : { std::uint64_t( 0 ), ( std::uint64_t( 1 ) << 58 ) - 1 } ) {
         std::uint64_t const bits = kind << 58 | rest;
         IntfId id;
         static_assert( sizeof id == sizeof bits );
         std::memcpy( static_cast< void * >( &id ), &bits, sizeof bits );
         EXPECT_LT( Kiv::toText( id ).size(), 64u ) << kind;
      }
   }
}

} // namespace
