// SPDX-License-Identifier: Apache-2.0
#pragma once

// What is known of the Ethernet ports.

#include "Kiv/Entity.h"
#include "Kiv/Value.h"
#include "Pelt/IntfId.h"

namespace Interface {

KIV_ENUM( LinkStatus, std::uint8_t, linkUnknown = 0, linkUp, linkDown );

// The speeds that Ethernet has. Anything else is unknown.
KIV_ENUM( EthSpeed, std::uint8_t, speedUnknown = 0, speed10Mbps, speed100Mbps, speed1Gbps,
          speed2500Mbps, speed5Gbps, speed10Gbps, speed20Gbps, speed25Gbps, speed40Gbps,
          speed50Gbps, speed100Gbps, speed200Gbps, speed400Gbps, speed800Gbps );

// In kbps; 0 when it is unknown.
std::uint32_t speedToKbps( EthSpeed speed );
// The Ethernet speed of so many Mb/s; speedUnknown when Ethernet has none such.
EthSpeed speedFromMbps( std::uint64_t mbps );

// A speed as people configure it: one that Ethernet has, in Mb/s, or 0 for unknown.
class EthMbps {
 public:
   using KivNumber = std::uint32_t;
   // What is no whole number between these is refused as such, and not as a speed.
   static constexpr std::uint32_t min = 0;
   static constexpr std::uint32_t max = UINT32_MAX;

   constexpr EthMbps() = default;
   // Throws Kiv::RangeException for any other number.
   template< class Number >
      requires std::is_integral_v< Number >
   explicit EthMbps( Number mbps ) : value_( checked( static_cast< std::uint64_t >( mbps ) ) ) {}

   std::uint32_t value() const { return value_; }
   EthSpeed speed() const { return speedFromMbps( value_ ); }

   friend bool operator==( EthMbps, EthMbps ) = default;
   std::size_t hash() const { return Kiv::hashOf( value_ ); }
   void print( std::string & out ) const { Kiv::print( out, value_ ); }
   // Kiv::ParseError for what is no number, Kiv::RangeException for a number that is no speed.
   static EthMbps parse( std::string_view text );

 private:
   static std::uint32_t checked( std::uint64_t mbps );

   std::uint32_t value_ = 0;
};

class EthPhyIntfStatus : public Kiv::Entity {
   KIV_ENTITY( Interface::EthPhyIntfStatus );
   KIV_ATTRIBUTE( EthSpeed, speed );
   // The port is up and takes part in forwarding.
   KIV_ATTRIBUTE( bool, active );
   KIV_ATTRIBUTE( LinkStatus, linkStatus );

 public:
   explicit EthPhyIntfStatus( Pelt::IntfId intf ) : Entity( Kiv::toText( intf ) ) {}
};

class AllEthPhyIntfStatusDir : public Kiv::Entity {
   KIV_ENTITY( Interface::AllEthPhyIntfStatusDir );
   KIV_CHILDREN( Pelt::IntfId, EthPhyIntfStatus, ethPhyIntfStatus );

 public:
   explicit AllEthPhyIntfStatusDir( Kiv::String const & dirName = {} ) : Entity( dirName ) {}
};

} // namespace Interface
