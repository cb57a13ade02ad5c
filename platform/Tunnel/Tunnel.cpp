// SPDX-License-Identifier: Apache-2.0
#include "Tunnel/Tunnel.h"

namespace Tunnel {

TunnelId::TunnelId( TunnelTable::Type table, std::uint64_t index )
      : value_( std::uint64_t{ table } << indexBits | index ) {
   if( index >> indexBits ) {
      throw Kiv::RangeException( "a tunnel's index is at most 281474976710655, which " +
                                 std::to_string( index ) + " is not" );
   }
}

void
TunnelId::print( std::string & out ) const {
   if( *this ) {
      Kiv::print( out, table() );
      out += '/';
      Kiv::print( out, index() );
   }
}

TunnelId
TunnelId::parse( std::string_view text ) {
   if( text.empty() ) {
      return {};
   }
   auto const slash = text.find( '/' );
   if( slash == text.npos ) {
      Kiv::parseFailed( text, "a tunnel's table and index, such as greTunnel/5" );
   }
   auto const index = Kiv::parseInteger( text.substr( slash + 1 ), std::uint64_t{ 0 },
                                         ( std::uint64_t{ 1 } << indexBits ) - 1 );
   return { Kiv::fromText< TunnelTable::Type >( text.substr( 0, slash ) ), index };
}

} // namespace Tunnel
