// SPDX-License-Identifier: Apache-2.0
#include "agent/features/Words.h"

#include <cctype>
#include <cstdio>

namespace HobaAgent {

using Kiv::String;

Bridging::VlanIdOrNone
vlanOf( Request const & request ) {
   return Bridging::VlanIdOrNone(
         request.has( "vlan" ) ? request.value< Bridging::VlanId >( "vlan" ).value() : 0 );
}

Pelt::EthIntfId
portIdOf( Board const & board, Request const & request ) {
   auto const intf = idOf< Pelt::EthIntfId >( request, "port" );
   if( !board.feederConfig->portHas( intf ) ) {
      throw Kiv::ParseError( Kiv::toText( intf ) + " is not a port of this switch" );
   }
   return intf;
}

Kiv::Ptr< Feeders::PortConfig >
portOf( Board const & board, Request const & request ) {
   return board.feederConfig->port( portIdOf( board, request ) );
}

Interface::LinkStatus
linkStatusOf( Request const & request ) {
   return request.oneOf< Interface::LinkStatus >(
         "state", { { "up", Interface::linkUp }, { "down", Interface::linkDown } } );
}

Bridging::MacVlanPair
hostOf( Request const & request ) {
   return { request.value< Pelt::EthAddr >( "mac" ), request.value< Bridging::VlanId >( "vlan" ) };
}

String
speedText( std::uint64_t kbps ) {
   if( kbps == 0 ) {
      return "unknown";
   }
   char text[ 40 ];
   if( kbps >= 1'000'000 ) {
      std::snprintf( text, sizeof text, "%g Gb/s", static_cast< double >( kbps ) / 1'000'000 );
   } else {
      std::snprintf( text, sizeof text, "%g Mb/s", static_cast< double >( kbps ) / 1'000 );
   }
   return text;
}

String
spelled( String const & enumerator, std::string_view prefix ) {
   String text;
   for( char const c : enumerator.substr( enumerator.starts_with( prefix ) ? prefix.size() : 0 ) ) {
      auto const lower = static_cast< char >( std::tolower( static_cast< unsigned char >( c ) ) );
      text += ( lower != c && !text.empty() ? " " : "" );
      text += lower;
   }
   return text;
}

namespace {

// Whether the name of the one but for its last number, by one larger, is that of the other.
bool
isNext( String const & name, String const & next ) {
   auto const digits = name.find_last_not_of( "0123456789" ) + 1;
   return digits != name.size() && next.compare( 0, digits, name, 0, digits ) == 0 &&
          next.substr( digits ) == Kiv::toText( std::stoul( name.substr( digits ) ) + 1 );
}

} // namespace

String
listText( std::vector< Pelt::IntfId > intfs ) {
   std::sort( intfs.begin(), intfs.end() );
   auto const names = namesOf( intfs );
   String text;
   for( std::size_t first = 0; first != names.size(); ) {
      auto last = first;
      while( last + 1 != names.size() && isNext( names[ last ], names[ last + 1 ] ) ) {
         ++last;
      }
      last = last - first < 2 ? first : last; // two are said one by one
      text += ( text.empty() ? "" : ", " ) + names[ first ];
      if( last != first ) {
         text += '-' + names[ last ].substr( names[ last ].find_last_not_of( "0123456789" ) + 1 );
      }
      first = last + 1;
   }
   return text.empty() ? "-" : text;
}

} // namespace HobaAgent
