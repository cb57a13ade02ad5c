// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Pelt/IpAddr.h"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Pelt {

// The addresses that share their first len() bits. A prefix has no bits set beyond its length, so
// two prefixes are equal exactly when they cover the same addresses: building one from an address
// clears those bits, reading one from text refuses them, because whoever wrote 192.0.2.3/24 may have
// meant something else. The default covers every address.
//
// Prefixes sort by address and then by length, so that each comes before the longer ones within it.
template< class Addr >
class BasicPrefix {
 public:
   using Address = Addr;
   static constexpr unsigned maxLen = Addr::bits;

   constexpr BasicPrefix() = default;
   // The prefix of that length around the address. Throws Kiv::RangeException above maxLen.
   constexpr BasicPrefix( Addr addr, unsigned len )
         : addr_( addr & Addr::mask( checked( len ) ) ),
           len_( static_cast< std::uint8_t >( len ) ) {}
   // The prefix of one address.
   constexpr explicit BasicPrefix( Addr addr ) : BasicPrefix( addr, maxLen ) {}

   // The first address.
   constexpr Addr addr() const { return addr_; }
   constexpr unsigned len() const { return len_; }
   constexpr Addr mask() const { return Addr::mask( len_ ); }
   constexpr bool contains( Addr addr ) const { return ( addr & mask() ) == addr_; }
   // Whether all of the other prefix is within this one: a prefix contains itself.
   constexpr bool contains( BasicPrefix const & other ) const {
      return other.len_ >= len_ && contains( other.addr_ );
   }

   constexpr bool operator==( BasicPrefix const & ) const = default;
   constexpr std::strong_ordering operator<=>( BasicPrefix const & ) const = default;
   std::size_t hash() const { return Kiv::hashCombine( addr_.hash(), len_ ); }

   // Appends "<address>/<length>".
   void print( std::string & out ) const;
   // The way back; the length must be there. Throws Kiv::ParseError.
   static BasicPrefix parse( std::string_view text );
   // The same, but clears bits beyond the length: the subnet of an interface address.
   static BasicPrefix parseClearing( std::string_view text );

 private:
   static constexpr unsigned checked( unsigned len ) {
      if( len > maxLen ) {
         lenFailed( len );
      }
      return len;
   }
   [[noreturn]] static void lenFailed( unsigned len );

   Addr addr_;
   std::uint8_t len_ = 0;
};

extern template class BasicPrefix< IpAddr >;
extern template class BasicPrefix< Ip6Addr >;

using Prefix = BasicPrefix< IpAddr >;
using Ip6Prefix = BasicPrefix< Ip6Addr >;

// An IPv4 or an IPv6 prefix, or none (the default; prints as "" and tests false). None sorts first,
// then the IPv4 prefixes, then the IPv6 ones.
class IpGenPrefix {
 public:
   constexpr IpGenPrefix() = default;
   constexpr IpGenPrefix( Prefix const & prefix )
         : family_( AddressFamily::ipv4 ), len_( static_cast< std::uint8_t >( prefix.len() ) ),
           addr_( 0, prefix.addr().value() ) {}
   constexpr IpGenPrefix( Ip6Prefix const & prefix )
         : family_( AddressFamily::ipv6 ), len_( static_cast< std::uint8_t >( prefix.len() ) ),
           addr_( prefix.addr() ) {}
   // The prefix of that length around the address, which must not be none. Throws
   // Kiv::RangeException, also for a length above that of the family.
   constexpr IpGenPrefix( IpGenAddr const & addr, unsigned len )
         : IpGenPrefix( addr.isV4() ? IpGenPrefix( Prefix( addr.v4Addr(), len ) )
                                    : IpGenPrefix( Ip6Prefix( addr.v6Addr(), len ) ) ) {}

   constexpr explicit operator bool() const { return family_ != AddressFamily::none; }
   constexpr AddressFamily family() const { return family_; }
   constexpr bool isV4() const { return family_ == AddressFamily::ipv4; }
   constexpr bool isV6() const { return family_ == AddressFamily::ipv6; }
   // The first address; none for none.
   constexpr IpGenAddr addr() const {
      if( isV4() ) {
         return IpAddr( static_cast< std::uint32_t >( addr_.low() ) );
      }
      return isV6() ? IpGenAddr( addr_ ) : IpGenAddr();
   }
   constexpr unsigned len() const { return len_; }
   // The prefix. Throws Kiv::RangeException if it is not of that family.
   constexpr Prefix v4Prefix() const { return Prefix( addr().v4Addr(), len_ ); }
   constexpr Ip6Prefix v6Prefix() const { return Ip6Prefix( addr().v6Addr(), len_ ); }
   // False across families, and if either is none.
   constexpr bool contains( IpGenAddr const & addr ) const {
      if( addr.family() != family_ ) {
         return false;
      }
      return isV4() ? v4Prefix().contains( addr.v4Addr() )
                    : isV6() && v6Prefix().contains( addr.v6Addr() );
   }
   constexpr bool contains( IpGenPrefix const & other ) const {
      return other.len_ >= len_ && contains( other.addr() );
   }

   constexpr bool operator==( IpGenPrefix const & ) const = default;
   constexpr std::strong_ordering operator<=>( IpGenPrefix const & other ) const {
      if( auto order = family_ <=> other.family_; order != 0 ) {
         return order;
      }
      auto order = addr_ <=> other.addr_;
      return order != 0 ? order : len_ <=> other.len_;
   }
   std::size_t hash() const { return Kiv::hashCombine( addr().hash(), len_ ); }

   // Appends the form of the prefix's own type.
   void print( std::string & out ) const;
   // The way back: text with a ":" is read as IPv6, "" as none. Throws Kiv::ParseError.
   static IpGenPrefix parse( std::string_view text );
   // The same, but clears bits beyond the length: the subnet of an interface address.
   static IpGenPrefix parseClearing( std::string_view text );

 private:
   AddressFamily family_ = AddressFamily::none; // family and length first: 24 bytes in all
   std::uint8_t len_ = 0;
   Ip6Addr addr_; // an IPv4 address is in the low word
};

} // namespace Pelt
