// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kiv/Hash.h"

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Pelt {

// An IPv4 address: one word, the first octet on the wire the highest. The default is 0.0.0.0.
class IpAddr {
 public:
   static constexpr unsigned bits = 32;

   constexpr IpAddr() = default;
   constexpr explicit IpAddr( std::uint32_t value ) : value_( value ) {}
   constexpr IpAddr( std::uint8_t a, std::uint8_t b, std::uint8_t c, std::uint8_t d )
         : value_( static_cast< std::uint32_t >( a ) << 24 | b << 16 | c << 8 | d ) {}

   constexpr std::uint32_t value() const { return value_; }
   constexpr bool isZero() const { return value_ == 0; }
   constexpr bool isBroadcast() const { return value_ == 0xffffffff; }
   constexpr bool isMulticast() const { return value_ >> 28 == 0xe; }    // 224.0.0.0/4
   constexpr bool isLoopback() const { return value_ >> 24 == 127; }     // 127.0.0.0/8
   constexpr bool isLinkLocal() const { return value_ >> 16 == 0xa9fe; } // 169.254.0.0/16

   // The address with that many high bits set; len is at most bits.
   static constexpr IpAddr mask( unsigned len ) {
      return IpAddr( len == 0 ? 0 : 0xffffffffu << ( bits - len ) );
   }
   constexpr IpAddr operator&( IpAddr other ) const { return IpAddr( value_ & other.value_ ); }

   constexpr bool operator==( IpAddr const & ) const = default;
   constexpr std::strong_ordering operator<=>( IpAddr const & ) const = default;
   std::size_t hash() const { return Kiv::hashOf( value_ ); }

   // Appends "192.0.2.3".
   void print( std::string & out ) const;
   // The way back. Leading zeros are refused, because some programs read them as octal. Throws
   // Kiv::ParseError.
   static IpAddr parse( std::string_view text );

 private:
   std::uint32_t value_ = 0;
};

using Ip4Addr = IpAddr;

// An IPv6 address: two words, the first octet on the wire the highest of high(). The default is ::.
class Ip6Addr {
 public:
   static constexpr unsigned bits = 128;
   using Octets = std::array< std::uint8_t, 16 >;

   constexpr Ip6Addr() = default;
   constexpr Ip6Addr( std::uint64_t high, std::uint64_t low ) : high_( high ), low_( low ) {}
   // The octets in the order of the wire.
   constexpr explicit Ip6Addr( Octets const & octets ) {
      for( unsigned i = 0; i < 8; ++i ) {
         high_ = high_ << 8 | octets[ i ];
         low_ = low_ << 8 | octets[ i + 8 ];
      }
   }

   constexpr std::uint64_t high() const { return high_; }
   constexpr std::uint64_t low() const { return low_; }
   constexpr bool isZero() const { return high_ == 0 && low_ == 0; }
   constexpr bool isLoopback() const { return high_ == 0 && low_ == 1; }            // ::1
   constexpr bool isMulticast() const { return high_ >> 56 == 0xff; }               // ff00::/8
   constexpr bool isLinkLocal() const { return high_ >> 54 == 0xfe80 >> 6; }        // fe80::/10
   constexpr bool isV4Mapped() const { return high_ == 0 && low_ >> 32 == 0xffff; } // ::ffff:0:0/96

   // The address with that many high bits set; len is at most bits.
   static constexpr Ip6Addr mask( unsigned len ) {
      constexpr std::uint64_t ones = ~0ull;
      if( len <= 64 ) {
         return Ip6Addr( len == 0 ? 0 : ones << ( 64 - len ), 0 );
      }
      return Ip6Addr( ones, ones << ( bits - len ) );
   }
   constexpr Ip6Addr operator&( Ip6Addr other ) const {
      return Ip6Addr( high_ & other.high_, low_ & other.low_ );
   }

   constexpr bool operator==( Ip6Addr const & ) const = default;
   constexpr std::strong_ordering operator<=>( Ip6Addr const & ) const = default;
   std::size_t hash() const { return Kiv::hashCombine( Kiv::hashOf( high_ ), low_ ); }

   // Appends the form of RFC 5952: lower case, no leading zeros, the longest run of two or more
   // zero groups (the first of equals) as "::", and ::ffff:192.0.2.3 where an IPv4 address is held.
   void print( std::string & out ) const;
   // Reads every form of RFC 4291, section 2.2, in either case of letter. A zone ("%eth0") is
   // refused: it is no part of an address. Throws Kiv::ParseError.
   static Ip6Addr parse( std::string_view text );

 private:
   std::uint64_t high_ = 0;
   std::uint64_t low_ = 0;
};

enum class AddressFamily : std::uint8_t { none, ipv4, ipv6 };

// An IPv4 or an IPv6 address, or none (the default; prints as "" and tests false). None sorts
// first, then the IPv4 addresses, then the IPv6 ones.
class IpGenAddr {
 public:
   constexpr IpGenAddr() = default;
   constexpr IpGenAddr( IpAddr addr ) : family_( AddressFamily::ipv4 ), addr_( 0, addr.value() ) {}
   constexpr IpGenAddr( Ip6Addr addr ) : family_( AddressFamily::ipv6 ), addr_( addr ) {}

   constexpr explicit operator bool() const { return family_ != AddressFamily::none; }
   constexpr AddressFamily family() const { return family_; }
   constexpr bool isV4() const { return family_ == AddressFamily::ipv4; }
   constexpr bool isV6() const { return family_ == AddressFamily::ipv6; }
   // The address. Throws Kiv::RangeException if it is not of that family.
   constexpr IpAddr v4Addr() const {
      if( !isV4() ) {
         familyFailed( "an IPv4 address" );
      }
      return IpAddr( static_cast< std::uint32_t >( addr_.low() ) );
   }
   constexpr Ip6Addr v6Addr() const {
      if( !isV6() ) {
         familyFailed( "an IPv6 address" );
      }
      return addr_;
   }
   // 0.0.0.0, ::, or none.
   constexpr bool isZero() const { return addr_.isZero(); }
   constexpr bool isMulticast() const {
      return isV4() ? v4Addr().isMulticast() : addr_.isMulticast();
   }

   constexpr bool operator==( IpGenAddr const & ) const = default;
   constexpr std::strong_ordering operator<=>( IpGenAddr const & ) const = default;
   std::size_t hash() const { return Kiv::hashCombine( Kiv::hashOf( family_ ), addr_.hash() ); }

   // Appends the form of the address's own type.
   void print( std::string & out ) const;
   // The way back: text with a ":" is read as IPv6, "" as none. Throws Kiv::ParseError.
   static IpGenAddr parse( std::string_view text );

 private:
   [[noreturn]] void familyFailed( std::string_view expected ) const;

   AddressFamily family_ = AddressFamily::none;
   Ip6Addr addr_;
};

} // namespace Pelt
