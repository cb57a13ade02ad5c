// SPDX-License-Identifier: Apache-2.0
#include "chips/sim/SimFrame.h"

#include <algorithm>

namespace HobaSim {

namespace {

constexpr std::size_t addrSize = 6;
constexpr std::size_t headerSize = 14;
constexpr std::size_t taggedHeaderSize = 18;
constexpr unsigned customerTag = 0x8100;
constexpr unsigned serviceTag = 0x88a8;
constexpr unsigned vlanMask = 0xfff;

// The caller knows that the octets are there.
Pelt::EthAddr
addrAt( std::span< std::uint8_t const > frame, std::size_t place ) {
   Pelt::EthAddr::Octets octets;
   std::copy_n( frame.begin() + static_cast< std::ptrdiff_t >( place ), addrSize, octets.begin() );
   return Pelt::EthAddr( octets );
}
unsigned
wordAt( std::span< std::uint8_t const > frame, std::size_t place ) {
   return frame[ place ] * 256u + frame[ place + 1 ];
}

} // namespace

FrameHeader
readFrameHeader( std::span< std::uint8_t const > frame ) {
   if( frame.size() < headerSize ) {
      return { frameRunt, {}, {}, {} };
   }
   FrameHeader header{ frameSound, addrAt( frame, 0 ), addrAt( frame, addrSize ), {} };
   auto const type = wordAt( frame, 2 * addrSize );
   if( type != customerTag && type != serviceTag ) {
      return header;
   }
   if( frame.size() < taggedHeaderSize ) {
      return { frameRunt, {}, {}, {} };
   }
   auto const vlan = wordAt( frame, headerSize ) & vlanMask;
   if( vlan == vlanMask ) {
      return { frameReservedVlan, {}, {}, {} };
   }
   header.vlanId = Bridging::VlanIdOrNone( vlan );
   return header;
}

} // namespace HobaSim
