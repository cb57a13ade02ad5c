// SPDX-License-Identifier: Apache-2.0
#include "Pelt/EthAddr.h"

#include "Kiv/Exception.h"
#include "Kiv/Text.h"

#include <optional>

namespace Pelt {

namespace {

int
hexDigit( char c ) {
   if( c >= '0' && c <= '9' ) {
      return c - '0';
   }
   if( c >= 'a' && c <= 'f' ) {
      return c - 'a' + 10;
   }
   return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

// Twelve hexadecimal digits in groups of that many, with the separator between the groups.
std::optional< std::uint64_t >
readGroups( std::string_view text, unsigned groupSize, char separator ) {
   constexpr unsigned digits = 12;
   if( text.size() != digits + digits / groupSize - 1 ) {
      return {};
   }
   std::uint64_t value = 0;
   for( std::size_t i = 0; i < text.size(); ++i ) {
      bool betweenGroups = i % ( groupSize + 1 ) == groupSize;
      int digit = hexDigit( text[ i ] );
      if( betweenGroups ? text[ i ] != separator : digit < 0 ) {
         return {};
      }
      if( !betweenGroups ) {
         value = value << 4 | static_cast< unsigned >( digit );
      }
   }
   return value;
}

std::optional< std::uint64_t >
readAddr( std::string_view text ) {
   if( auto value = readGroups( text, 2, ':' ) ) {
      return value;
   }
   if( auto value = readGroups( text, 2, '-' ) ) {
      return value;
   }
   return readGroups( text, 4, '.' );
}

} // namespace

void
EthAddr::print( std::string & out ) const {
   constexpr std::string_view hex = "0123456789abcdef";
   for( int shift = 44; shift >= 0; shift -= 4 ) {
      out += hex[ value_ >> shift & 15 ];
      if( shift % 8 == 0 && shift > 0 ) {
         out += ':';
      }
   }
}

EthAddr
EthAddr::parse( std::string_view text ) {
   auto value = readAddr( text );
   if( !value ) {
      Kiv::parseFailed( text, "an Ethernet address: six groups of two hexadecimal digits separated "
                              "by \":\" or \"-\", or three groups of four separated by \".\", are "
                              "expected" );
   }
   return EthAddr( *value );
}

void
EthAddr::rangeFailed( std::uint64_t value ) {
   throw Kiv::RangeException( std::to_string( value ) +
                              " is no value of an Ethernet address: at most 48 bits are expected" );
}

void
EthAddrWithMask::print( std::string & out ) const {
   addr_.print( out );
   out += '/';
   mask_.print( out );
}

EthAddrWithMask
EthAddrWithMask::parse( std::string_view text ) {
   std::size_t slash = text.find( '/' );
   auto addr = readAddr( text.substr( 0, slash ) );
   auto mask = slash == text.npos ? EthAddr::maxValue : readAddr( text.substr( slash + 1 ) );
   if( !addr || !mask ) {
      Kiv::parseFailed( text,
                        addr ? "an Ethernet address with a mask: an Ethernet address is expected "
                               "after \"/\""
                             : "an Ethernet address with a mask: an Ethernet address is expected "
                               "at the beginning" );
   }
   return EthAddrWithMask( EthAddr( *addr ), EthAddr( *mask ) );
}

} // namespace Pelt
