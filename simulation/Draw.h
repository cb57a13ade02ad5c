// SPDX-License-Identifier: Apache-2.0
#pragma once

// The one source of chance of a simulation. The same seed draws the same on every machine and with every
// compiler: nothing here stands on what the standard library leaves open. Whoever needs several draws in
// one expression takes them one by one before, since the order of evaluation is open, too.

#include "Kiv/Text.h"

#include <cstdint>
#include <initializer_list>
#include <span>

namespace Simulation {

class Draw {
 public:
   // `frames`, if any, are those of a capture: octets in hexadecimal. They outlive this.
   explicit Draw( std::uint64_t seed, std::span< Kiv::String const > frames = {} )
         : state_( seed ), frames_( frames ) {}

   // 0 to bound - 1; the bound is at least 1.
   std::uint64_t below( std::uint64_t bound ) { return next() % bound; }
   bool chance( unsigned percent ) { return below( 100 ) < percent; }
   template< class T >
   T oneOf( std::initializer_list< T > all ) {
      return all.begin()[ below( all.size() ) ];
   }
   Kiv::String oneOf( std::initializer_list< char const * > all ) {
      return oneOf< char const * >( all );
   }

   // ---- The small world that all histories are about: so few of everything that they meet

   // Ethernet1 to Ethernet6.
   Kiv::String port() { return "Ethernet" + std::to_string( 1 + below( ports ) ); }
   Kiv::String lag() { return "Port-Channel" + std::to_string( 1 + below( lags ) ); }
   // More often a port.
   Kiv::String intf() { return chance( 65 ) ? port() : lag(); }
   // 1 to 4.
   Kiv::String vlan() { return std::to_string( 1 + below( vlans ) ); }
   // The address of one of eight stations.
   Kiv::String station() { return "00:00:5e:00:53:0" + std::to_string( 1 + below( stations ) ); }

   bool hasFrames() const { return !frames_.empty(); }
   Kiv::String const & frame() { return frames_[ below( frames_.size() ) ]; }

   static constexpr std::uint64_t ports = 6, lags = 2, vlans = 4, stations = 8;

 private:
   // SplitMix64: every state has another successor, so no seed is worse than another.
   std::uint64_t next() {
      auto z = state_ += 0x9e3779b97f4a7c15;
      z = ( z ^ z >> 30 ) * 0xbf58476d1ce4e5b9;
      z = ( z ^ z >> 27 ) * 0x94d049bb133111eb;
      return z ^ z >> 31;
   }

   std::uint64_t state_;
   std::span< Kiv::String const > const frames_;
};

} // namespace Simulation
