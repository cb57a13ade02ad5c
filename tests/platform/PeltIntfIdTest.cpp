// SPDX-License-Identifier: Apache-2.0
#include "Pelt/IntfId.h"

#include "Refusal.h"

#include <cstring>
#include <set>
#include <type_traits>

namespace {

using namespace Pelt;
using Refusals::refusal;

static_assert( sizeof( IntfId ) == 8 && sizeof( SubIntfId ) == 8 );
static_assert( std::is_trivially_copyable_v< IntfId > &&
               std::is_trivially_copyable_v< EthIntfId > );
static_assert( std::is_convertible_v< EthIntfId, IntfId > );
static_assert( !std::is_convertible_v< IntfId, EthIntfId > );
static_assert( VlanIntfId::vlanId( VlanIntfId( 4095 ) ) == 4095 );

// What the C++ form makes, of which kind it is, its name, and other spellings of it.
struct Form {
   IntfId id;
   bool ( *isKind )( IntfId );
   char const * name;
   std::vector< char const * > otherNames = {};
};

std::vector< Form >
forms() {
   auto const eth = EthIntfId::isEthIntfId;
   auto const portChannel = PortChannelIntfId::isPortChannelIntfId;
   auto const vlan = VlanIntfId::isVlanIntfId;
   auto const fabric = FabricIntfId::isFabricIntfId;
   auto const sub = SubIntfId::isSubIntfId;
   // clang-format off
   return {
      { EthIntfId( 0 ), eth, "Ethernet0", { "Eth0", "Et0", "Ethernet000" } },
      { EthIntfId( 65535, 255, 255 ), eth, "Ethernet65535/255/255", { "Et65535/255/255" } },
      { EthIntfId( 1, 0 ), eth, "Ethernet1/0", { "Eth01/00" } },
      { EthIntfId( 3, 1, 2 ), eth, "Ethernet3/1/2" },
      { EthIntfId::backplaneIntfId( 4 ), eth, "Ethernet-BP4" },
      { PortChannelIntfId( 3 ), portChannel, "Port-Channel3",
        { "PortChannel0003", "Po3", "Port-channel3", "Port-Channel03" } },
      { PortChannelIntfId( 999999 ), portChannel, "Port-Channel999999", { "PortChannel999999" } },
      { PortChannelIntfId::recircIntfId( 7 ), portChannel, "Recirc-Channel7" },
      { PeerPortChannelIntfId( 12 ), PeerPortChannelIntfId::isPeerPortChannelIntfId,
        "PeerPort-Channel12" },
      { PeerEthIntfId( 5, 1 ), PeerEthIntfId::isPeerEthIntfId, "PeerEthernet5/1" },
      { CpuIntfId(), CpuIntfId::isCpuIntfId, "Cpu" },
      { FabricIntfId( 0, 255 ), fabric, "Fabric0/255" },
      { FabricIntfId( 3, 1, 9 ), fabric, "Fabric3/1/9" },
      { TunnelIntfId( 777 ), TunnelIntfId::isTunnelIntfId, "Tunnel777", { "Tu777" } },
      { VxlanIntfId( 1 ), VxlanIntfId::isVxlanIntfId, "Vxlan1", { "Vx1" } },
      { VlanIntfId( 0 ), vlan, "Vlan0" },
      { VlanIntfId::vlanIdToIntfId( 4095 ), vlan, "Vlan4095", { "Vl4095" } },
      { LoopbackIntfId( 0 ), LoopbackIntfId::isLoopbackIntfId, "Loopback0", { "Lo0" } },
      { ManagementIntfId( 1, 1 ), ManagementIntfId::isManagementIntfId, "Management1/1",
        { "Ma1/1" } },
      { SubIntfId( EthIntfId( 1, 2 ), 100 ), sub, "Ethernet1/2.100", { "Eth1/2.0100" } },
      { SubIntfId( PortChannelIntfId( 3 ), 10 ), sub, "Port-Channel3.10", { "Po0003.10" } },
      { SubIntfId( EthIntfId( 9 ), 16777215 ), sub, "Ethernet9.16777215" },
   };
   // clang-format on
}

// Each id is of exactly one kind; recirculation channels and backplane ports are special cases of
// port channels and Ethernet, and a subinterface is never of its parent's kind.
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
      EXPECT_FALSE( form.isKind( IntfId() ) );
      for( Form const & other : forms() ) {
         EXPECT_EQ( other.isKind( form.id ), other.isKind == form.isKind ) << other.name;
      }
   }
   EXPECT_TRUE( PortChannelIntfId::isRecirc( IntfId( "Recirc-Channel1" ) ) );
   EXPECT_FALSE( PortChannelIntfId::isRecirc( IntfId( "Port-Channel1" ) ) );
   EXPECT_TRUE( EthIntfId::isBackplane( IntfId( "Ethernet-BP1" ) ) );
   EXPECT_FALSE( EthIntfId::isBackplane( IntfId( "Ethernet1" ) ) );
}

TEST( PeltIntfId, EmptyId ) {
   IntfId none;
   EXPECT_FALSE( none );
   EXPECT_EQ( Kiv::toText( none ), "" );
   EXPECT_EQ( Kiv::fromText< IntfId >( "" ), none );
   EXPECT_EQ( none.numberCount(), 0u );
   EXPECT_LT( none, EthIntfId( 0 ) );
   EXPECT_THROW( EthIntfId::parse( "" ), Kiv::ParseError );
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
   EXPECT_EQ( id.numberCount(), 3u );
   EXPECT_EQ( id.number( 0 ), 3u );
   EXPECT_EQ( id.number( 2 ), 255u );
   EXPECT_EQ( id.number( 3 ), 0u );
   EXPECT_EQ( id.subIntfNumber(), 77u );
   EXPECT_EQ( IntfId( "Tunnel16777215" ).number(), 16777215u );
   EXPECT_EQ( IntfId( "Cpu" ).numberCount(), 0u );
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
   for( std::uint64_t number : { 1ull << 16, 1ull << 32, ~0ull } ) {
      EXPECT_THROW( EthIntfId{ number }, Kiv::RangeException );
   }
   EXPECT_THROW( EthIntfId( 1, 256 ), Kiv::RangeException );
   EXPECT_THROW( EthIntfId( 1, 1, 256 ), Kiv::RangeException );
   EXPECT_THROW( EthIntfId::backplaneIntfId( 65536 ), Kiv::RangeException );
   EXPECT_THROW( PortChannelIntfId( 1000000 ), Kiv::RangeException );
   EXPECT_THROW( PortChannelIntfId::recircIntfId( 1000000 ), Kiv::RangeException );
   EXPECT_THROW( VlanIntfId::vlanIdToIntfId( 4096 ), Kiv::RangeException );
   EXPECT_THROW( TunnelIntfId( 16777216 ), Kiv::RangeException );
   EXPECT_THROW( VlanIntfId::vlanId( EthIntfId( 1 ) ), Kiv::RangeException );
   EXPECT_THROW( EthIntfId( IntfId( "Ethernet1.1" ) ), Kiv::RangeException );
   EXPECT_THROW( EthIntfId{ IntfId() }, Kiv::RangeException );
   EXPECT_EQ( refusal( [] { VlanIntfId( 5000 ); } ),
              "5000 is no number of an interface name \"Vlan...\": "
              "a number from 0 to 4095 is expected" );
}

TEST( PeltIntfId, BadNamesSayWhatWasExpected ) {
   using namespace std::literals;
   using Names = std::vector< std::string >;
   std::pair< char const *, Names > const rows[] = {
         { "a number from 0 to 65535 is expected after \"Ethernet\"",
           { "Ethernet", "Ethernet65536", "Ethernet99999999999999999999999" } },
         { "a number from 0 to 255 is expected after \"/\"", { "Ethernet1/", "Ethernet1/256" } },
         { "a number from 1 to 16777215 is expected after \".\"", { "Ethernet1.", "Ethernet1.0" } },
         { "at most 3 numbers can follow \"Ethernet\"", { "Ethernet1/2/3/4" } },
         { "at most 1 number can follow \"Vlan\"", { "Vlan1/2" } },
         { "the end of the name is expected after \"Ethernet1.2\"", { "Ethernet1.2.3" } },
         { "\"/\", \".\" or the end of the name is expected after \"Ethernet1\"",
           { "Ethernet1 " } },
         { "\"Ethernet1\\x0a\" is not an interface name", { "Ethernet1\n" } },
         { "\"Ethernet1\\x00\" is not an interface name", { "Ethernet1\0"s } },
         { "\"\\xc3\\x89thernet1\" is not an interface name", { "\xc3\x89thernet1" } },
         { "the end of the name is expected after \"Ethernet0\"", { "Eth0-ASIC1" } },
         { "it must begin with one of Ethernet, Ethernet-BP, Port-Channel",
           { "Ethernet-1", "Ethernet+1", "Cpu.1", "ethernet1", "eth0", "12", "/", " Ethernet1",
             "MuxTunnel0" } },
         { "\"/\" and a second number are expected", { "Fabric0" } },
         { "Vlan interfaces have no subinterfaces", { "Vlan10.5" } },
         { "Recirc-Channel interfaces have no subinterfaces", { "Recirc-Channel1.1" } },
         { "a number from 0 to 4095", { "Vlan4096" } },
         { "...", { std::string( 100'000, '/' ) } },
   };
   for( auto const & [ message, names ] : rows ) {
      Refusals::expectRefused< IntfId >( message, names );
   }
}

TEST( PeltIntfId, ParsingAKindRefusesOtherKinds ) {
   EXPECT_EQ( PortChannelIntfId::parse( "Po7" ), PortChannelIntfId( 7 ) );
   EXPECT_EQ( SubIntfId::parse( "Et1.2" ), SubIntfId( EthIntfId( 1 ), 2 ) );
   EXPECT_EQ( refusal( [] { EthIntfId::parse( "Port-Channel7" ); } ),
              "\"Port-Channel7\" is not the name of an Ethernet interface" );
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
