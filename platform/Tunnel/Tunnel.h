// SPDX-License-Identifier: Apache-2.0
#pragma once

// Tunnels: what they are called, and what they put around a packet.

#include "Kiv/Value.h"
#include "Pelt/Gre.h"
#include "Pelt/IpAddr.h"

namespace Tunnel {

class TunnelTable {
 public:
   // Who makes the tunnels of a table.
   KIV_MEMBER_ENUM( Type, std::uint8_t, noTunnelTable = 0, nexthopGroupTunnel,
                    staticInterfaceTunnel, labelTunnel, greTunnel, ipSecTunnel, vxlanTunnel );
   KIV_MEMBER_ENUM( EncapType, std::uint8_t, encapNone = 0 KIV_SHOWN( "none" ),
                    encapMpls KIV_SHOWN( "mpls" ), encapGre KIV_SHOWN( "gre" ),
                    encapIpSec KIV_SHOWN( "ipSec" ), encapVxlan KIV_SHOWN( "vxlan" ) );

   static constexpr EncapType mplsEncap() { return encapMpls; }
   static constexpr EncapType greEncap() { return encapGre; }
   static constexpr EncapType ipSecEncap() { return encapIpSec; }
   static constexpr EncapType vxlanEncap() { return encapVxlan; }
};

// A tunnel of one table; the default is none. Prints as "greTunnel/5".
class TunnelId {
 public:
   static constexpr std::string_view kivName = "Tunnel::TunnelId";
   static constexpr unsigned indexBits = 48;

   constexpr TunnelId() = default;
   constexpr explicit TunnelId( std::uint64_t value ) : value_( value ) {}
   // Throws Kiv::RangeException for an index that does not fit into indexBits.
   TunnelId( TunnelTable::Type table, std::uint64_t index );

   constexpr explicit operator bool() const { return value_ != 0; }
   constexpr std::uint64_t value() const { return value_; }
   constexpr std::uint64_t index() const { return value_ & ( ( 1ull << indexBits ) - 1 ); }
   constexpr TunnelTable::Type table() const {
      return static_cast< TunnelTable::Type >( value_ >> indexBits & 0xff );
   }
   constexpr bool isNexthopGroupTunnel() const {
      return table() == TunnelTable::nexthopGroupTunnel;
   }

   constexpr bool operator==( TunnelId const & ) const = default;
   constexpr auto operator<=>( TunnelId const & ) const = default;
   constexpr std::uint64_t kivWord() const { return value_; }
   std::size_t hash() const { return Kiv::hashOf( value_ ); }
   void print( std::string & out ) const;
   // Reads that, and "" for none. Throws Kiv::ParseError.
   static TunnelId parse( std::string_view text );

 private:
   std::uint64_t value_ = 0;
};

struct GreTunnelInfo {
   KIV_VALUE( Tunnel::GreTunnelInfo );
   KIV_FIELD( Pelt::IpGenAddr, source );
   KIV_FIELD( Pelt::IpGenAddr, destination );
   KIV_FIELD( std::uint8_t, ttl, 64 );
   KIV_FIELD( std::uint8_t, tos, 0 );
   KIV_FIELD( Pelt::GreKeyType, keyType, Pelt::greKeyNone );
   // Of greKeyConstant.
   KIV_FIELD( std::uint32_t, key, 0 );
};

} // namespace Tunnel
