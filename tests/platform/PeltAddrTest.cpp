// SPDX-License-Identifier: Apache-2.0
#include "Pelt/EthAddr.h"
#include "Pelt/IpAddr.h"
#include "Pelt/Prefix.h"

#include "Refusal.h"

#include <set>
#include <type_traits>

namespace {

using namespace Pelt;
using Refusals::expectRefused;
using namespace std::literals;

static_assert( sizeof( EthAddr ) == 8 && sizeof( IpAddr ) == 4 && sizeof( Ip6Addr ) == 16 );
static_assert( sizeof( Prefix ) == 8 && sizeof( Ip6Prefix ) == 24 && sizeof( IpGenPrefix ) == 24 );
static_assert( std::is_trivially_copyable_v< EthAddrWithMask > );
static_assert( std::is_trivially_copyable_v< IpGenAddr > );
static_assert( std::is_trivially_copyable_v< IpGenPrefix > );
static_assert( Prefix( IpAddr( 192, 0, 2, 3 ), 24 ).contains( IpAddr( 192, 0, 2, 255 ) ) );

template< class T >
void
expectRoundTrip( std::vector< char const * > const & texts ) {
   std::set< std::size_t > hashes;
   std::set< T > values;
   for( char const * text : texts ) {
      T value = Kiv::fromText< T >( text );
      EXPECT_EQ( Kiv::toText( value ), text );
      EXPECT_TRUE( values.insert( value ).second ) << text;
      EXPECT_TRUE( hashes.insert( value.hash() ).second ) << text;
   }
}

// The texts are in ascending order of the values.
template< class T >
void
expectAscending( std::vector< char const * > const & texts ) {
   for( std::size_t i = 1; i < texts.size(); ++i ) {
      EXPECT_LT( T::parse( texts[ i - 1 ] ), T::parse( texts[ i ] ) ) << texts[ i ];
   }
}

TEST( PeltEthAddr, ReadsAllFormsAndPrintsOne ) {
   EthAddr addr( 0x021357aabbccull );
   for( char const * text :
        { "02:13:57:aa:bb:cc", "02-13-57-AA-BB-CC", "0213.57AA.bbcc", "02:13:57:aa:BB:cc" } ) {
      EXPECT_EQ( EthAddr::parse( text ), addr ) << text;
   }
   EXPECT_EQ( Kiv::toText( addr ), "02:13:57:aa:bb:cc" );
   EXPECT_EQ( EthAddr( addr.octets() ), addr );
   EXPECT_EQ( addr.octets()[ 2 ], 0x57 );
   expectRoundTrip< EthAddr >( { "00:00:00:00:00:00", "00:00:5e:00:53:01", "ff:ff:ff:ff:ff:ff" } );
   EXPECT_THROW( EthAddr( EthAddr::maxValue + 1 ), Kiv::RangeException );
}

TEST( PeltEthAddr, Classes ) {
   // Zero, Unicast, Multicast, Broadcast.
   std::pair< char const *, char const * > const rows[] = { { "00:00:00:00:00:00", "Z" },
                                                            { "00:00:5e:00:53:01", "U" },
                                                            { "01:00:5e:00:00:01", "M" },
                                                            { "fe:ff:ff:ff:ff:ff", "U" },
                                                            { "ff:ff:ff:ff:ff:ff", "MB" } };
   for( auto const & [ text, classes ] : rows ) {
      EthAddr const addr = EthAddr::parse( text );
      std::string const found =
            std::string( addr.isZero() ? "Z" : "" ) + ( addr.isUnicast() ? "U" : "" ) +
            ( addr.isMulticast() ? "M" : "" ) + ( addr.isBroadcast() ? "B" : "" );
      EXPECT_EQ( found, classes ) << text;
   }
}

TEST( PeltEthAddr, BadTextIsRefused ) {
   expectRefused< EthAddr >( "\"\" is not an Ethernet address", { "" } );
   expectRefused< EthAddr >( "six groups",
                             { "02:13:57:aa:bb", "02:13:57:aa:bb:cc:dd", "02:13:57:aa:bb:c",
                               "02:13:57:aa:bb:cg", "02:13:57-aa:bb:cc",
                               "0213.57aa.bbc:", "021357aabbcc", "0x:13:57:aa:bb:cc" } );
   expectRefused< EthAddr >( "\\x00", { "02:13:57:aa:bb:cc\0"s, "02:13:57:aa:bb\0cc"s } );
   expectRefused< EthAddr >( "\\xc3\\xa9", { "02:13:57:aa:bb:\xc3\xa9" } );
   expectRefused< EthAddr >( "...\" is not", { std::string( 100'000, 'a' ) } );
}

TEST( PeltEthAddrWithMask, MatchesMaskedBitsOnly ) {
   EthAddrWithMask none;
   EXPECT_EQ( Kiv::toText( none ), "00:00:00:00:00:00/ff:ff:ff:ff:ff:ff" );
   EXPECT_TRUE( none.matches( EthAddr() ) );
   EXPECT_FALSE( none.matches( EthAddr( 0x020000000000 ) ) );
   auto oui = EthAddrWithMask::parse( "02:13:57:00:00:99/ff:ff:ff:00:00:00" );
   EXPECT_TRUE( oui.matches( EthAddr::parse( "02:13:57:12:34:56" ) ) );
   EXPECT_FALSE( oui.matches( EthAddr::parse( "02:13:56:12:34:56" ) ) );
   EXPECT_EQ( EthAddrWithMask::parse( "02:13:57:00:00:01" ).mask(), EthAddr::broadcast() );
   expectRoundTrip< EthAddrWithMask >(
         { "02:13:57:00:00:99/ff:ff:ff:00:00:00", "02:13:57:00:00:99/00:00:00:00:00:00" } );
   expectRefused< EthAddrWithMask >( "expected at the beginning",
                                     { "", "/02:13:57:00:00:99", "0:0/0:0/0:0" } );
   expectRefused< EthAddrWithMask >(
         "expected after \"/\"",
         { "02:13:57:00:00:99/", "02:13:57:00:00:99/24", "02:13:57:00:00:99/ff:ff:ff:ff:ff:ff/" } );
}

TEST( PeltIpAddr, TextAndClasses ) {
   expectRoundTrip< IpAddr >(
         { "0.0.0.0", "192.0.2.3", "255.255.255.255", "127.0.0.0", "0.0.0.1" } );
   expectAscending< IpAddr >( { "0.0.0.0", "127.255.255.255", "192.0.2.9", "192.0.2.10" } );
   EXPECT_EQ( IpAddr( 192, 0, 2, 3 ).value(), 0xc0000203u );
   EXPECT_TRUE( IpAddr::parse( "224.0.0.1" ).isMulticast() );
   EXPECT_TRUE( IpAddr::parse( "239.255.255.255" ).isMulticast() );
   EXPECT_FALSE( IpAddr::parse( "240.0.0.0" ).isMulticast() );
   EXPECT_TRUE( IpAddr::parse( "169.254.9.9" ).isLinkLocal() );
   EXPECT_TRUE( IpAddr::parse( "127.9.9.9" ).isLoopback() );
   expectRefused< IpAddr >( "each number is expected to be from 0 to 255",
                            { "", "192.0.2.", "192.0.2.256", "192.0.2.99999999999999999999",
                              "-192.0.2.4", "192..0.2" } );
   expectRefused< IpAddr >( "four numbers", { "192.0.2", "0xc0.0.2.4" } );
   expectRefused< IpAddr >( "the end is expected",
                            { "192.0.2.4.5", "192.0.2.4 ", "192.0.2.3/24" } );
   expectRefused< IpAddr >( "leading zeros", { "192.0.02.4", "192.0.2.00" } );
   expectRefused< IpAddr >( "4\\x00\" is not an IPv4 address", { "192.0.2.4\0"s } );
   expectRefused< IpAddr >( "\\xd9\\xa1", { "192.0.2.\xd9\xa1" } );
}

TEST( PeltIp6Addr, PrintsTheShortestForm ) {
   std::pair< char const *, char const * > const rows[] = {
         { "2001:0DB8:0000:0000:0000:0000:0000:0001", "2001:db8::1" },
         { "2001:db8::1:1:1:1:1", "2001:db8:0:1:1:1:1:1" }, // one group is not shortened
         { "2001:db8:0:0:1:0:0:0", "2001:db8:0:0:1::" },    // the longest run
         { "2001:db8:0:0:1:0:0:1", "2001:db8::1:0:0:1" },   // the first of two equal runs
         { "2001:db8:3:4:5:6:7::", "2001:db8:3:4:5:6:7:0" },
         { "::2:3:4:5:6:7:8", "0:2:3:4:5:6:7:8" },
         { "2001:db8:3:4:5:6:0:0", "2001:db8:3:4:5:6::" },
         { "2001:db8:3:4:5:6:192.0.2.10", "2001:db8:3:4:5:6:c000:20a" },
         { "64:ff9b::192.0.2.3", "64:ff9b::c000:203" },
         { "::ffff:0:0", "::ffff:0.0.0.0" },
         { "0:0:0:0:0:0:0:0", "::" },
         { "::1", "::1" },
         { "1::", "1::" },
         { "::ffff", "::ffff" },
         { "::ffff:192.0.2.3", "::ffff:192.0.2.3" } };
   for( auto const & [ text, printed ] : rows ) {
      Ip6Addr addr = Ip6Addr::parse( text );
      EXPECT_EQ( Kiv::toText( addr ), printed ) << text;
      EXPECT_EQ( Ip6Addr::parse( printed ), addr ) << text;
   }
   EXPECT_EQ( Ip6Addr::parse( "2001:db8:3:4:5:6:7:8" ),
              Ip6Addr( 0x20010db800030004, 0x5000600070008 ) );
   expectAscending< Ip6Addr >( { "::", "::1", "0:0:0:1::", "1::", "fe80::1" } );
   Ip6Addr::Octets octets{ 0xff, 2 };
   octets[ 15 ] = 1;
   EXPECT_EQ( Kiv::toText( Ip6Addr( octets ) ), "ff02::1" );
}

// With one bit set, and with one bit clear, every printed form must lead back to its address.
TEST( PeltIp6Addr, EveryBitRoundTrips ) {
   for( unsigned bit = 0; bit < 128; ++bit ) {
      Ip6Addr one( bit < 64 ? 1ull << bit : 0, bit < 64 ? 0 : 1ull << ( bit - 64 ) );
      Ip6Addr rest( ~one.high(), ~one.low() );
      for( Ip6Addr addr : { one, rest } ) {
         EXPECT_EQ( Ip6Addr::parse( Kiv::toText( addr ) ), addr );
      }
   }
}

TEST( PeltIp6Addr, BadTextIsRefused ) {
   expectRefused< Ip6Addr >( "eight groups", { "", "2001:db8:3:4:5:6:7" } );
   expectRefused< Ip6Addr >( "groups of one to four",
                             { ":", ":::", "1:::2", ":1::2", "12345::", "00001::", "g::", "-1::",
                               "::1/64", "::1 ", "192.0.2.4::" } );
   expectRefused< Ip6Addr >( "only once", { "1::2::3" } );
   expectRefused< Ip6Addr >( "after the last", { "2001:db8:3:4:5:6:7:", "1::2:" } );
   expectRefused< Ip6Addr >( "at most eight",
                             { "2001:db8:3:4:5:6:7:8:9", "2001:db8:3:4:5:6:7:192.0.2.4" } );
   expectRefused< Ip6Addr >( "at least one group",
                             { "2001:db8:3:4:5:6:7:8::", "::db8:2:3:4:5:6:7:8" } );
   expectRefused< Ip6Addr >( "a zone is no part", { "fe80::1%eth0" } );
   expectRefused< Ip6Addr >( "\\x00", { "::1\0"s } );
   expectRefused< Ip6Addr >( "\\xff", { "::\xff" } );
   expectRefused< Ip6Addr >( "four numbers", { "::192.0.2" } );
   expectRefused< Ip6Addr >( "the end is expected after the fourth", { "::192.0.2.4.5" } );
   expectRefused< Ip6Addr >( "from 0 to 255", { "::192.0.2.256" } );
   expectRefused< Ip6Addr >( "...\" is not an IPv6 address", { std::string( 100'000, ':' ) } );
}

TEST( PeltIpGenAddr, HoldsEitherFamilyOrNone ) {
   IpGenAddr none;
   IpGenAddr v4 = IpAddr( 0, 0, 0, 1 );
   IpGenAddr v6 = Ip6Addr( 0, 1 );
   EXPECT_FALSE( none );
   EXPECT_EQ( Kiv::fromText< IpGenAddr >( "" ), none );
   EXPECT_NE( v4, v6 ); // though their bits are the same
   EXPECT_NE( IpGenAddr( IpAddr() ), none );
   EXPECT_LT( none, IpGenAddr( IpAddr() ) );
   EXPECT_LT( IpGenAddr( IpAddr( 0xffffffff ) ), IpGenAddr( Ip6Addr() ) );
   expectRoundTrip< IpGenAddr >( { "", "0.0.0.0", "::", "0.0.0.1", "::1", "192.0.2.3" } );
   EXPECT_EQ( v4.v4Addr(), IpAddr( 1 ) );
   EXPECT_THROW( v4.v6Addr(), Kiv::RangeException );
   EXPECT_THROW( v6.v4Addr(), Kiv::RangeException );
   EXPECT_THROW( none.v4Addr(), Kiv::RangeException );
   EXPECT_TRUE( IpGenAddr::parse( "224.0.0.5" ).isMulticast() );
   EXPECT_TRUE( IpGenAddr::parse( "ff02::5" ).isMulticast() );
   EXPECT_FALSE( none.isMulticast() );
   expectRefused< IpGenAddr >( "an IPv4 or IPv6 address", { "host", "192.0.2.4.5" } );
   expectRefused< IpGenAddr >( "an IPv6 address: eight groups", { "1:2" } );
}

TEST( PeltPrefix, TextRefusesHostBitsAndConstructorsClearThem ) {
   expectRoundTrip< Prefix >(
         { "0.0.0.0/0", "0.0.0.0/32", "192.0.2.0/24", "192.0.2.0/25", "192.0.2.3/32" } );
   expectRoundTrip< Ip6Prefix >( { "::/0", "::/128", "2001:db8::/32", "fe80::/10", "::1/128" } );
   EXPECT_EQ( Kiv::toText( Prefix( IpAddr( 192, 0, 2, 3 ), 31 ) ), "192.0.2.2/31" );
   EXPECT_EQ( Prefix( IpAddr( 0xffffffff ), 0 ), Prefix() );
   EXPECT_EQ( Kiv::toText( Prefix( IpAddr( 192, 0, 2, 3 ) ) ), "192.0.2.3/32" );
   EXPECT_EQ( Kiv::toText( Prefix::parseClearing( "192.0.2.3/24" ) ), "192.0.2.0/24" );
   EXPECT_EQ( Kiv::toText( Ip6Prefix::parseClearing( "2001:db8::1:71/126" ) ),
              "2001:db8::1:70/126" );
   EXPECT_EQ( Kiv::toText( Ip6Prefix( Ip6Addr( ~0ull, ~0ull ), 64 ) ), "ffff:ffff:ffff:ffff::/64" );
   EXPECT_EQ( Kiv::toText( Ip6Prefix( Ip6Addr( ~0ull, ~0ull ), 65 ) ),
              "ffff:ffff:ffff:ffff:8000::/65" );
   EXPECT_THROW( Prefix( IpAddr(), 33 ), Kiv::RangeException );
   EXPECT_THROW( Ip6Prefix( Ip6Addr(), 129 ), Kiv::RangeException );
   expectRefused< Prefix >( "no bits set beyond the length are expected, as in 192.0.2.0/24",
                            { "192.0.2.3/24" } );
   expectRefused< Prefix >( "\"/\" and a length are expected", { "", "192.0.2.0" } );
   expectRefused< Prefix >( "a length from 0 to 32",
                            { "192.0.2.0/", "192.0.2.0/33", "192.0.2.0/08",
                              "192.0.2.0/99999999999999999999", "192.0.2.0/-1", "192.0.2.0/24/8",
                              "192.0.2.0/24\0"s, "192.0.2.0/255.0.0.0" } );
   expectRefused< Prefix >( "\"192.0.2\" is not an IPv4 address", { "192.0.2/24" } );
   expectRefused< Prefix >( "\"::\" is not an IPv4 address", { "::/0" } );
   expectRefused< Ip6Prefix >( "no bits set beyond the length are expected, as in fe80::/10",
                               { "fe80::1/10" } );
   expectRefused< Ip6Prefix >( "a length from 0 to 128", { "2001:db8::/129" } );
   expectRefused< Ip6Prefix >( "not an IPv6 address", { "192.0.2.0/24" } );
}

TEST( PeltPrefix, ContainsAndSortsParentsFirst ) {
   // Outer and inner ones, first those that contain, then those that do not.
   using Pairs = std::vector< std::pair< char const *, char const * > >;
   for( auto const & [ outerText, innerText ] : Pairs{ { "0.0.0.0/0", "0.0.0.0/0" },
                                                       { "0.0.0.0/0", "255.255.255.255/32" },
                                                       { "192.0.2.0/24", "192.0.2.240/28" },
                                                       { "::/0", "2001:db8::/32" },
                                                       { "2001:db8::/64", "2001:db8::1/128" } } ) {
      auto outer = IpGenPrefix::parse( outerText ), inner = IpGenPrefix::parse( innerText );
      EXPECT_TRUE( outer.contains( inner ) ) << outerText << ' ' << innerText;
      EXPECT_TRUE( outer.contains( inner.addr() ) );
      EXPECT_LE( outer, inner );
   }
   for( auto const & [ outer, inner ] : Pairs{ { "192.0.2.0/25", "192.0.2.128/28" },
                                               { "192.0.2.0/28", "192.0.2.0/24" },
                                               { "2001:db8::/65", "2001:db8:0:0:8000::/65" },
                                               { "::/0", "0.0.0.0/0" },
                                               { "0.0.0.0/0", "::/0" },
                                               { "", "" },
                                               { "", "0.0.0.0/0" } } ) {
      EXPECT_FALSE( IpGenPrefix::parse( outer ).contains( IpGenPrefix::parse( inner ) ) )
            << outer << ' ' << inner;
   }
   expectAscending< IpGenPrefix >( { "", "0.0.0.0/0", "0.0.0.0/8", "192.0.2.0/24", "192.0.2.0/28",
                                     "192.0.2.16/28", "::/0", "::/1" } );
}

TEST( PeltIpGenPrefix, ReadsEitherFamily ) {
   expectRoundTrip< IpGenPrefix >(
         { "", "0.0.0.0/0", "::/0", "0.0.0.0/32", "::/32", "192.0.2.0/24" } );
   EXPECT_EQ( IpGenPrefix( IpGenAddr( IpAddr( 192, 0, 2, 3 ) ), 24 ),
              IpGenPrefix( Prefix::parse( "192.0.2.0/24" ) ) );
   EXPECT_EQ( IpGenPrefix::parseClearing( "192.0.2.3/24" ), IpGenPrefix::parse( "192.0.2.0/24" ) );
   EXPECT_EQ( IpGenPrefix::parseClearing( "fe80::1/10" ), IpGenPrefix::parse( "fe80::/10" ) );
   EXPECT_EQ( IpGenPrefix::parse( "2001:db8::/32" ).v6Prefix().len(), 32u );
   EXPECT_THROW( IpGenPrefix::parse( "::/0" ).v4Prefix(), Kiv::RangeException );
   EXPECT_THROW( IpGenPrefix( IpGenAddr( IpAddr() ), 33 ), Kiv::RangeException );
   EXPECT_THROW( IpGenPrefix( IpGenAddr(), 0 ), Kiv::RangeException );
   expectRefused< IpGenPrefix >( "an IPv4 prefix", { "192.0.2.3/24" } );
   expectRefused< IpGenPrefix >( "an IPv6 prefix", { "::1/64" } );
}

} // namespace
