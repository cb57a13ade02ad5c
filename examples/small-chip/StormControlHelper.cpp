// SPDX-License-Identifier: Apache-2.0
#include "StormControlHelper.h"

#include "Hoba/HobaStormControlRate.h"
#include "Kiv/Reflect.h"

KIV_DEFINE( SmallChip::StormControlHelper );

namespace SmallChip {

namespace {

constexpr Hoba::LevelType levelTypes[] = { Hoba::levelTypeBroadcast, Hoba::levelTypeMulticast };

std::string
portMeter( Pelt::IntfId intf, Hoba::LevelType levelType ) {
   return Kiv::toText( intf ) + std::string( Hoba::levelText( levelType ) );
}

std::string
classMeter( std::uint32_t trafficClass ) {
   return "class " + std::to_string( trafficClass );
}

// What a meter has to be set to.
std::uint64_t
limitOf( Bridging::StormControl::Threshold const & threshold, std::uint32_t speedKbps ) {
   if( threshold.isDefault() ) {
      return Driver::noLimit;
   }
   return threshold.mode == Bridging::StormControl::meteringPercent
                ? Hoba::rateOf( speedKbps, threshold )
                : threshold.rateKbps();
}

bool
countsBits( Bridging::StormControl::Threshold const & threshold ) {
   return threshold.mode != Bridging::StormControl::meteringPps;
}

// What an operator reads; empty when the meter is as it should be.
Kiv::String
mismatch( std::string const & name, std::uint64_t expected, std::uint64_t found ) {
   auto const text = []( std::uint64_t kbps ) {
      return kbps == Driver::noLimit ? "no limit" : std::to_string( kbps ) + " kbps";
   };
   return expected == found
                ? ""
                : name + ": " + text( expected ) + " expected, " + text( found ) + " found";
}

} // namespace

void
StormControlHelper::setHwRate( Hoba::LevelType levelType, Pelt::IntfId intf, Pelt::IntfId,
                               std::uint32_t speedKbps, Threshold const & threshold ) {
   driver_.meterIs( portMeter( intf, levelType ), limitOf( threshold, speedKbps ) );
}

void
StormControlHelper::programTcAggregateHwRate( std::uint32_t trafficClass,
                                              Threshold const & threshold ) {
   driver_.meterIs( classMeter( trafficClass ), countsBits( threshold )
                                                      ? limitOf( threshold, capacityKbps )
                                                      : Driver::noLimit );
}

Kiv::String
StormControlHelper::verifyEnabled( Pelt::IntfId intf, bool enabled ) {
   bool limited = false;
   for( auto levelType : levelTypes ) {
      limited = limited || driver_.meter( portMeter( intf, levelType ) ) != Driver::noLimit;
   }
   if( limited == enabled ) {
      return {};
   }
   return enabled ? "limits expected, none found" : "no limits expected, some found";
}

Kiv::String
StormControlHelper::verifyPort( Pelt::IntfId intf, Pelt::IntfId, std::uint32_t speedKbps,
                                IntfConfig const & intfConfig ) {
   Kiv::String found;
   for( auto levelType : levelTypes ) {
      // The machine asks the same function what it may program.
      auto const decision = Hoba::decideLevel( *this, levelType,
                                               Hoba::configuredThreshold( intfConfig, levelType ) );
      if( decision.program && speedKbps != 0 ) { // otherwise what stood there stands
         auto const name = portMeter( intf, levelType );
         auto const one =
               mismatch( name, limitOf( decision.threshold, speedKbps ), driver_.meter( name ) );
         found += ( found.empty() || one.empty() ? "" : "; " ) + one;
      }
   }
   return found;
}

Kiv::String
StormControlHelper::verifyAggregateTc( std::uint32_t trafficClass,
                                       Bridging::StormControl::AggregateTcConfig const & config ) {
   if( !countsBits( config.level() ) ) {
      return "the meters do not count packets";
   }
   auto const name = classMeter( trafficClass );
   return mismatch( name, limitOf( config.level(), capacityKbps ), driver_.meter( name ) );
}

} // namespace SmallChip
