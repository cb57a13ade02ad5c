// SPDX-License-Identifier: Apache-2.0
#include "chips/sim/SimFec.h"

#include "Hoba/HobaL2AdjTypes.h"
#include "Kiv/Reflect.h"

KIV_DEFINE( HobaSim::FecUnit );

namespace HobaSim {

HwIpAddr::HwIpAddr( Pelt::IpGenAddr const & addr ) {
   if( addr.isV4() ) {
      family_ = 4;
      low_ = addr.v4Addr().value();
   } else if( addr.isV6() ) {
      family_ = 6;
      high_ = addr.v6Addr().high();
      low_ = addr.v6Addr().low();
   }
}

Pelt::IpGenAddr
HwIpAddr::addr() const {
   switch( family_ ) {
   case 4:
      return Pelt::IpAddr( static_cast< std::uint32_t >( low_ ) );
   case 6:
      return Pelt::Ip6Addr( high_, low_ );
   default:
      return {};
   }
}

HwLabels::HwLabels( std::vector< Pelt::MplsLabel > const & stack ) {
   if( stack.size() > maxLabels ) {
      throw Kiv::RangeException( Kiv::toText( stack.size() ) + " labels, at most " +
                                 Kiv::toText( maxLabels ) + " fit" );
   }
   for( auto const label : stack ) {
      label_[ count_++ ] = label.value();
   }
}

std::size_t
HwLabels::hash() const {
   std::size_t hash = count_;
   for( std::uint32_t i = 0; i < std::min< std::size_t >( count_, maxLabels ); ++i ) {
      hash = Kiv::hashCombine( hash, label_[ i ] );
   }
   return hash;
}

void
HwLabels::print( std::string & out ) const {
   for( std::uint32_t i = 0; i < std::min< std::size_t >( count_, maxLabels ); ++i ) {
      out += ( i ? " " : "" ) + Kiv::toText( label_[ i ] );
   }
}

HwLabels
HwLabels::parse( std::string_view text ) {
   std::vector< Pelt::MplsLabel > stack;
   while( !text.empty() ) {
      auto const end = std::min( text.find( ' ' ), text.size() );
      stack.push_back( Pelt::MplsLabel::parse( text.substr( 0, end ) ) );
      text.remove_prefix( std::min( end + 1, text.size() ) );
   }
   return HwLabels( stack );
}

void
HwSlot::print( std::string & out ) const {
   out += Kiv::toText( group ) + '/' + Kiv::toText( slot );
}

HwSlot
HwSlot::parse( std::string_view text ) {
   auto const at = text.find( '/' );
   if( at == text.npos ) {
      Kiv::parseFailed( text, "a group and a slot of it, such as 3/0" );
   }
   return { HwGroupId::parse( text.substr( 0, at ) ),
            Kiv::fromText< std::uint32_t >( text.substr( at + 1 ) ) };
}

namespace {

HwEncap
hwEncap( Hoba::EncapInfo const & encap ) {
   using Table = Tunnel::TunnelTable;
   HwEncap row;
   row.kind = encap.encapType();
   switch( row.kind ) {
   case Table::encapMpls:
      row.operation = encap.labels().operation;
      row.labels = HwLabels( encap.labels().stack );
      break;
   case Table::encapGre:
      row.source = HwIpAddr( encap.greEncap().source );
      row.destination = HwIpAddr( encap.greEncap().destination );
      row.ttl = encap.greEncap().ttl;
      row.tos = encap.greEncap().tos;
      row.keyType = encap.greEncap().keyType;
      row.id = encap.greEncap().key;
      break;
   case Table::encapIpSec:
      row.source = HwIpAddr( encap.ipsecEncap().source );
      row.destination = HwIpAddr( encap.ipsecEncap().destination );
      row.id = encap.ipsecEncap().spi;
      break;
   case Table::encapVxlan:
      row.source = HwIpAddr( encap.vxlanEncap().localVtep );
      row.destination = HwIpAddr( encap.vxlanEncap().remoteVtep );
      row.id = encap.vxlanEncap().vni.value();
      break;
   case Table::encapNone:
      break;
   }
   return row;
}

} // namespace

HwNextHop
hwNextHop( Hoba::NextHop const & nextHop, HwGroupId nextGroup ) {
   if( nextHop.type > Hoba::nextHopDrop ) {
      throw Kiv::RangeException( "there is no type of next hops " +
                                 Kiv::toText( static_cast< unsigned >( nextHop.type ) ) );
   }
   HwNextHop row;
   row.type = nextHop.type;
   row.skipEgressAcl = nextHop.skipEgressAcl;
   row.vlanId = nextHop.vlanId;
   row.l2IntfHwId = nextHop.l2IntfHwId;
   row.macAddr = nextHop.macAddr;
   row.sourceMac = nextHop.sourceMac;
   row.l3Intf = nextHop.l3Intf;
   row.l2Intf = nextHop.l2Intf;
   row.encap = hwEncap( nextHop.encapInfo );
   row.hwTunnelId = nextHop.hwTunnelId;
   row.tunnelIntf = nextHop.tunnelL2Info.tunnelIntf;
   row.innerMac = nextHop.tunnelL2Info.innerMac;
   row.flowSmac = nextHop.flowSmac;
   row.flowInfo = nextHop.flowInfo;
   row.flowVlan = nextHop.flowVlan;
   row.allocationId = nextHop.allocationId;
   row.staticInterfaceTunnelIntf = nextHop.staticInterfaceTunnelIntfId;
   row.nextGroup = nextGroup;
   return row;
}

} // namespace HobaSim
