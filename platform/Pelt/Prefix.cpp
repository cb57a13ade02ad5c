// SPDX-License-Identifier: Apache-2.0
#include "Pelt/Prefix.h"

#include "Kiv/Exception.h"
#include "Kiv/Text.h"

#include <charconv>

namespace Pelt {

namespace {

template< class Addr >
struct Family;
template<>
struct Family< IpAddr > {
   static constexpr std::string_view prefixText = "an IPv4 prefix: ";
   static constexpr std::string_view lenText = "from 0 to 32";
};
template<>
struct Family< Ip6Addr > {
   static constexpr std::string_view prefixText = "an IPv6 prefix: ";
   static constexpr std::string_view lenText = "from 0 to 128";
};

template< class Addr >
[[noreturn]] void
failed( std::string_view text, std::string const & detail ) {
   Kiv::parseFailed( text, std::string( Family< Addr >::prefixText ) + detail );
}

template< class Addr >
struct AddrAndLen {
   Addr addr;
   unsigned len;
};

template< class Addr >
AddrAndLen< Addr >
readPrefix( std::string_view text ) {
   std::size_t slash = text.find( '/' );
   if( slash == text.npos ) {
      failed< Addr >( text, "\"/\" and a length are expected after the address" );
   }
   // The address's own error names the address, which is the part that is wrong.
   Addr addr = Addr::parse( text.substr( 0, slash ) );
   std::string_view digits = text.substr( slash + 1 );
   unsigned len = 0;
   auto [ end, error ] = std::from_chars( digits.data(), digits.data() + digits.size(), len );
   if( error != std::errc{} || end != digits.data() + digits.size() || len > Addr::bits ||
       ( digits.size() > 1 && digits.front() == '0' ) ) {
      failed< Addr >( text, "a length " + std::string( Family< Addr >::lenText ) +
                                  " is expected after \"/\"" );
   }
   return { addr, len };
}

} // namespace

template< class Addr >
void
BasicPrefix< Addr >::print( std::string & out ) const {
   addr_.print( out );
   out += '/';
   Kiv::print( out, len() );
}

template< class Addr >
BasicPrefix< Addr >
BasicPrefix< Addr >::parse( std::string_view text ) {
   auto [ addr, len ] = readPrefix< Addr >( text );
   BasicPrefix prefix( addr, len );
   if( prefix.addr() != addr ) {
      failed< Addr >( text, "no bits set beyond the length are expected, as in " +
                                  Kiv::toText( prefix ) );
   }
   return prefix;
}

template< class Addr >
BasicPrefix< Addr >
BasicPrefix< Addr >::parseClearing( std::string_view text ) {
   auto [ addr, len ] = readPrefix< Addr >( text );
   return BasicPrefix( addr, len );
}

template< class Addr >
void
BasicPrefix< Addr >::lenFailed( unsigned len ) {
   throw Kiv::RangeException( std::to_string( len ) + " is no length of " +
                              std::string( Family< Addr >::prefixText ) + "a number " +
                              std::string( Family< Addr >::lenText ) + " is expected" );
}

template class BasicPrefix< IpAddr >;
template class BasicPrefix< Ip6Addr >;

void
IpGenPrefix::print( std::string & out ) const {
   if( isV4() ) {
      v4Prefix().print( out );
   } else if( isV6() ) {
      v6Prefix().print( out );
   }
}

IpGenPrefix
IpGenPrefix::parse( std::string_view text ) {
   if( text.empty() ) {
      return IpGenPrefix();
   }
   return text.find( ':' ) == text.npos ? IpGenPrefix( Prefix::parse( text ) )
                                        : IpGenPrefix( Ip6Prefix::parse( text ) );
}

IpGenPrefix
IpGenPrefix::parseClearing( std::string_view text ) {
   if( text.empty() ) {
      return IpGenPrefix();
   }
   return text.find( ':' ) == text.npos ? IpGenPrefix( Prefix::parseClearing( text ) )
                                        : IpGenPrefix( Ip6Prefix::parseClearing( text ) );
}

} // namespace Pelt
