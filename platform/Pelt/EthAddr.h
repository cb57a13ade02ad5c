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

// An Ethernet (MAC) address: 48 bits in one word, the first octet on the wire the highest. The
// default is 00:00:00:00:00:00.
class EthAddr {
 public:
   using Octets = std::array< std::uint8_t, 6 >;
   static constexpr std::uint64_t maxValue = 0xffffffffffff;

   constexpr EthAddr() = default;
   // Throws Kiv::RangeException above maxValue.
   constexpr explicit EthAddr( std::uint64_t value ) : value_( value ) {
      if( value > maxValue ) {
         rangeFailed( value );
      }
   }
   // The octets in the order of the wire.
   constexpr explicit EthAddr( Octets const & octets ) {
      for( std::uint8_t octet : octets ) {
         value_ = value_ << 8 | octet;
      }
   }
   static constexpr EthAddr broadcast() { return EthAddr( maxValue ); }

   constexpr std::uint64_t value() const { return value_; }
   constexpr Octets octets() const {
      Octets octets{};
      for( unsigned i = 0; i < 6; ++i ) {
         octets[ i ] = static_cast< std::uint8_t >( value_ >> ( 40 - 8 * i ) );
      }
      return octets;
   }
   constexpr bool isZero() const { return value_ == 0; }
   // A group address: the broadcast address is one too.
   constexpr bool isMulticast() const { return value_ >> 40 & 1; }
   constexpr bool isBroadcast() const { return value_ == maxValue; }
   // An address of one station: neither zero nor a group.
   constexpr bool isUnicast() const { return !isZero() && !isMulticast(); }

   constexpr bool operator==( EthAddr const & ) const = default;
   constexpr std::strong_ordering operator<=>( EthAddr const & ) const = default;
   constexpr std::uint64_t kivWord() const { return value_; }
   std::size_t hash() const { return Kiv::hashOf( value_ ); }

   // Appends "00:00:5e:00:53:af".
   void print( std::string & out ) const;
   // Reads 00:00:5e:00:53:af, 00-00-5e-00-53-af and 0000.5e00.53af, in either case of letter.
   // Throws Kiv::ParseError.
   static EthAddr parse( std::string_view text );

 private:
   [[noreturn]] static void rangeFailed( std::uint64_t value );

   std::uint64_t value_ = 0;
};

// An Ethernet address of which only the bits set in the mask count. The default matches the
// address 00:00:00:00:00:00 alone.
class EthAddrWithMask {
 public:
   constexpr EthAddrWithMask() = default;
   constexpr explicit EthAddrWithMask( EthAddr addr, EthAddr mask = EthAddr::broadcast() )
         : addr_( addr ), mask_( mask ) {}

   // As given: bits outside the mask are kept, and count in comparisons of the two.
   constexpr EthAddr addr() const { return addr_; }
   constexpr EthAddr mask() const { return mask_; }
   constexpr bool matches( EthAddr addr ) const {
      return ( ( addr.value() ^ addr_.value() ) & mask_.value() ) == 0;
   }

   constexpr bool operator==( EthAddrWithMask const & ) const = default;
   constexpr std::strong_ordering operator<=>( EthAddrWithMask const & ) const = default;
   std::size_t hash() const { return Kiv::hashCombine( addr_.hash(), mask_.hash() ); }

   // Appends "<address>/<mask>".
   void print( std::string & out ) const;
   // Reads that, or an address alone, which means the full mask. Throws Kiv::ParseError.
   static EthAddrWithMask parse( std::string_view text );

 private:
   EthAddr addr_;
   EthAddr mask_ = EthAddr::broadcast();
};

} // namespace Pelt
