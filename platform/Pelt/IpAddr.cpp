// SPDX-License-Identifier: Apache-2.0
#include "Pelt/IpAddr.h"

#include "Kiv/Exception.h"
#include "Kiv/Text.h"

#include <charconv>
#include <optional>

namespace Pelt {

namespace {

constexpr unsigned groupCount = 8; // of an IPv6 address, 16 bits each
using Groups = std::array< std::uint16_t, groupCount >;

// What readV4 found wrong; nullptr if nothing.
char const *
readV4( std::string_view text, std::uint32_t & value ) {
   value = 0;
   for( unsigned i = 0; i < 4; ++i ) {
      if( i > 0 ) {
         if( text.empty() || text.front() != '.' ) {
            return "four numbers separated by \".\" are expected";
         }
         text.remove_prefix( 1 );
      }
      unsigned octet = 0;
      auto [ end, error ] = std::from_chars( text.data(), text.data() + text.size(), octet );
      if( error != std::errc{} || octet > 255 ) {
         return "each number is expected to be from 0 to 255";
      }
      auto length = static_cast< std::size_t >( end - text.data() );
      if( length > 1 && text.front() == '0' ) {
         return "leading zeros are not allowed";
      }
      text.remove_prefix( length );
      value = value << 8 | octet;
   }
   return text.empty() ? nullptr : "the end is expected after the fourth number";
}

// Reads the text of an IPv6 address from left to right.
class Ip6Reader {
 public:
   explicit Ip6Reader( std::string_view text ) : text_( text ), rest_( text ) {}

   Ip6Addr read() {
      if( rest_.starts_with( "::" ) ) {
         takeGap();
      }
      while( !rest_.empty() ) {
         takeGroup();
         if( rest_.starts_with( "::" ) ) {
            takeGap();
         } else if( !rest_.empty() ) {
            takeColon();
         }
      }
      return assemble();
   }

 private:
   void takeGap() {
      if( gap_ ) {
         failed( "\"::\" can stand only once" );
      }
      gap_ = count_;
      rest_.remove_prefix( 2 );
   }

   void takeColon() {
      if( rest_.front() == '%' ) {
         failed( "a zone is no part of an address" );
      }
      if( rest_.front() != ':' ) {
         failed( "groups of one to four hexadecimal digits separated by \":\" are expected" );
      }
      rest_.remove_prefix( 1 );
      if( rest_.empty() ) {
         failed( "a group is expected after the last \":\"" );
      }
   }

   void takeGroup() {
      std::size_t length = rest_.find( ':' );
      if( length == rest_.npos && rest_.find( '.' ) != rest_.npos ) {
         takeV4();
         return;
      }
      unsigned value = 0;
      auto [ end, error ] = std::from_chars( rest_.data(), rest_.data() + rest_.size(), value, 16 );
      auto digits = end - rest_.data();
      if( error != std::errc{} || digits > 4 ) {
         failed( "groups of one to four hexadecimal digits separated by \":\" are expected" );
      }
      add( value );
      rest_.remove_prefix( static_cast< std::size_t >( digits ) );
   }

   void takeV4() {
      std::uint32_t value = 0;
      if( char const * wrong = readV4( rest_, value ) ) {
         failed( std::string( "of the IPv4 address at its end, " ) + wrong );
      }
      add( value >> 16 );
      add( value & 0xffff );
      rest_ = {};
   }

   void add( unsigned group ) {
      if( count_ == groupCount ) {
         failed( "at most eight groups are expected" );
      }
      groups_[ count_++ ] = static_cast< std::uint16_t >( group );
   }

   Ip6Addr assemble() const {
      if( gap_ ? count_ == groupCount : count_ != groupCount ) {
         failed( gap_ ? "\"::\" must stand for at least one group of eight"
                      : "eight groups, or fewer with \"::\", are expected" );
      }
      std::array< std::uint64_t, 2 > words{};
      for( unsigned i = 0; i < count_; ++i ) {
         unsigned place = gap_ && i >= *gap_ ? groupCount - count_ + i : i;
         words[ place / 4 ] |= static_cast< std::uint64_t >( groups_[ i ] )
                               << 16 * ( 3 - place % 4 );
      }
      return Ip6Addr( words[ 0 ], words[ 1 ] );
   }

   [[noreturn]] void failed( std::string const & detail ) const {
      Kiv::parseFailed( text_, "an IPv6 address: " + detail );
   }

   std::string_view text_;
   std::string_view rest_;
   Groups groups_{};
   unsigned count_ = 0;
   std::optional< unsigned > gap_; // how many groups stand before "::"
};

struct Run {
   unsigned begin = 0;
   unsigned length = 0;
};

Run
longestZeroRun( Groups const & groups, unsigned count ) {
   Run best;
   Run run;
   for( unsigned i = 0; i < count; ++i ) {
      if( groups[ i ] != 0 ) {
         run = { i + 1, 0 };
      } else if( ++run.length > best.length ) {
         best = run;
      }
   }
   return best.length >= 2 ? best : Run{};
}

void
printHex( std::string & out, std::uint16_t group ) {
   std::array< char, 4 > buffer;
   auto [ end, error ] = std::to_chars( buffer.data(), buffer.data() + buffer.size(), group, 16 );
   out.append( buffer.data(), end );
}

} // namespace

void
IpAddr::print( std::string & out ) const {
   for( int shift = 24; shift >= 0; shift -= 8 ) {
      Kiv::print( out, value_ >> shift & 0xff );
      if( shift > 0 ) {
         out += '.';
      }
   }
}

IpAddr
IpAddr::parse( std::string_view text ) {
   std::uint32_t value = 0;
   if( char const * wrong = readV4( text, value ) ) {
      Kiv::parseFailed( text, std::string( "an IPv4 address: " ) + wrong );
   }
   return IpAddr( value );
}

void
Ip6Addr::print( std::string & out ) const {
   Groups groups;
   for( unsigned i = 0; i < groupCount; ++i ) {
      groups[ i ] = static_cast< std::uint16_t >( ( i < 4 ? high_ : low_ ) >> 16 * ( 3 - i % 4 ) );
   }
   unsigned count = isV4Mapped() ? 6 : groupCount;
   Run gap = longestZeroRun( groups, count );
   for( unsigned i = 0; i < count; ) {
      if( gap.length > 0 && i == gap.begin ) {
         out += "::";
         i += gap.length;
         continue;
      }
      if( i > 0 && !( gap.length > 0 && i == gap.begin + gap.length ) ) {
         out += ':';
      }
      printHex( out, groups[ i++ ] );
   }
   if( isV4Mapped() ) {
      out += ':';
      IpAddr( static_cast< std::uint32_t >( low_ ) ).print( out );
   }
}

Ip6Addr
Ip6Addr::parse( std::string_view text ) {
   return Ip6Reader( text ).read();
}

void
IpGenAddr::print( std::string & out ) const {
   if( isV4() ) {
      v4Addr().print( out );
   } else if( isV6() ) {
      addr_.print( out );
   }
}

IpGenAddr
IpGenAddr::parse( std::string_view text ) {
   if( text.empty() ) {
      return IpGenAddr();
   }
   if( text.find( ':' ) != text.npos ) {
      return Ip6Addr::parse( text );
   }
   std::uint32_t value = 0;
   if( char const * wrong = readV4( text, value ) ) {
      Kiv::parseFailed( text, std::string( "an IPv4 or IPv6 address: " ) + wrong );
   }
   return IpAddr( value );
}

void
IpGenAddr::familyFailed( std::string_view expected ) const {
   throw Kiv::RangeException( "\"" + Kiv::toText( *this ) + "\" is not " +
                              std::string( expected ) );
}

} // namespace Pelt
