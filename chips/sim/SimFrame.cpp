// SPDX-License-Identifier: Apache-2.0
#include "chips/sim/SimFrame.h"

#include <algorithm>
#include <cstdio>

namespace HobaSim {

namespace {

constexpr std::size_t addrSize = 6;
constexpr std::size_t tagSize = 4;
constexpr std::size_t headerSize = 14;
constexpr unsigned customerTag = 0x8100;
constexpr unsigned vlanMask = 0xfff;

// The caller knows that the octets are there.
Pelt::EthAddr
addrAt( std::span< std::uint8_t const > frame, std::size_t place ) {
   Pelt::EthAddr::Octets octets;
   std::copy_n( frame.begin() + static_cast< std::ptrdiff_t >( place ), addrSize, octets.begin() );
   return Pelt::EthAddr( octets );
}
std::uint16_t
wordAt( std::span< std::uint8_t const > frame, std::size_t place ) {
   return static_cast< std::uint16_t >( frame[ place ] << 8 | frame[ place + 1 ] );
}

FrameHeader
faulty( FrameFault fault ) {
   FrameHeader header;
   header.fault = fault;
   return header;
}

FrameTag
tagAt( std::span< std::uint8_t const > frame, std::size_t place ) {
   unsigned const control = wordAt( frame, place + 2 );
   return { wordAt( frame, place ), static_cast< std::uint8_t >( control >> 13 ),
            ( control >> 12 & 1 ) != 0, static_cast< std::uint16_t >( control & vlanMask ) };
}

void
appendWord( std::vector< std::uint8_t > & octets, unsigned word ) {
   octets.push_back( static_cast< std::uint8_t >( word >> 8 ) );
   octets.push_back( static_cast< std::uint8_t >( word ) );
}

Kiv::String
tagText( FrameTag const & tag ) {
   auto text = Kiv::toText( tag.vlan );
   if( tag.tpid != customerTag ) {
      char tpid[ 16 ];
      std::snprintf( tpid, sizeof tpid, " (0x%04x)", static_cast< unsigned >( tag.tpid ) );
      text += tpid;
   }
   if( tag.priority ) {
      text += " priority " + Kiv::toText( tag.priority );
   }
   return text;
}

} // namespace

FrameHeader
readFrameHeader( std::span< std::uint8_t const > frame, FrameTpids const & tpids ) {
   FrameHeader header;
   if( frame.size() < headerSize ) {
      return faulty( frameRunt );
   }
   header.destination = addrAt( frame, 0 );
   header.source = addrAt( frame, addrSize );
   std::size_t place = 2 * addrSize;
   for( auto * tag : { &header.outer, &header.inner } ) {
      auto const type = wordAt( frame, place );
      bool const isTag =
            header.tags ? type == tpids.inner : type == tpids.outer || type == tpids.alsoOuter;
      if( !isTag ) {
         break;
      }
      if( frame.size() < place + tagSize + 2 ) {
         return faulty( frameRunt );
      }
      *tag = tagAt( frame, place );
      ++header.tags;
      place += tagSize;
   }
   header.etherType = wordAt( frame, place );
   header.size = static_cast< std::uint8_t >( place + 2 );
   return header.outer.vlan == vlanMask ? faulty( frameReservedVlan ) : header;
}

std::vector< std::uint8_t >
frameHeaderOctets( FrameHeader const & header ) {
   std::vector< std::uint8_t > octets;
   for( auto const & addr : { header.destination, header.source } ) {
      auto const part = addr.octets();
      octets.insert( octets.end(), part.begin(), part.end() );
   }
   FrameTag const tags[] = { header.outer, header.inner };
   for( auto const & tag : std::span( tags ).first( header.tags ) ) {
      appendWord( octets, tag.tpid );
      appendWord( octets, tag.priority << 13u | ( tag.dropEligible ? 1u << 12 : 0u ) | tag.vlan );
   }
   appendWord( octets, header.etherType );
   return octets;
}

Kiv::String
tagsText( FrameHeader const & header ) {
   switch( header.tags ) {
   case 0:
      return "untagged";
   case 1:
      return "tagged " + tagText( header.outer );
   default:
      return "tagged " + tagText( header.outer ) + " and " + tagText( header.inner );
   }
}

} // namespace HobaSim
