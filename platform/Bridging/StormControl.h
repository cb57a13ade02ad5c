// SPDX-License-Identifier: Apache-2.0
#pragma once

// Storm control in the state database: what the operator asks for, and what was made of it.

#include "Kiv/Entity.h"
#include "Kiv/Value.h"
#include "Pelt/IntfId.h"

namespace Bridging::StormControl {

// How a threshold is measured: as a share of the link's speed, in packets, or in bits a second.
KIV_ENUM( MeteringMode, std::uint32_t, meteringPercent = 0, meteringPps = 1, meteringBps = 2 );

// The unit in which the operator gave the threshold, and in which `rate` counts.
KIV_ENUM( RateUnit, std::uint8_t, unitBps = 0, unitKbps = 1, unitMbps = 2, unitPps = 3,
          unitPercent = 4 );

struct Threshold {
   KIV_VALUE( Bridging::StormControl::Threshold );
   KIV_FIELD( MeteringMode, mode, meteringPercent );
   // In hundredths of a percent of the link's speed: 10000 is the whole link, that is, no limit.
   // Only in percentage mode; 0 otherwise.
   KIV_FIELD( std::uint32_t, level, 10000 );
   // In `unit`; only in the other modes.
   KIV_FIELD( std::uint32_t, rate, 0 );
   KIV_FIELD( RateUnit, unit, unitPercent );

   static constexpr std::uint32_t wholeLink = 10000;

   bool isDefault() const { return *this == Threshold{}; }
   // Throws Kiv::RangeException for a level above the whole link.
   void check() const;
   // A rate in bits a second, in kbps, truncated; 0 in the other modes. Fits for every unit.
   std::uint64_t rateKbps() const;
};

// Seconds between two readings of the drop counters; 0 or less reads none.
class Period {
 public:
   using KivNumber = Kiv::Seconds;
   // Each reading costs four counters of every port: oftener than that it would take a core.
   static constexpr Kiv::Seconds shortest = 0.1;

   // Throws Kiv::RangeException for what is above 0 and below `shortest`, or is no number at all.
   Period( Kiv::Seconds seconds );

   Kiv::Seconds value() const { return seconds_; }
   operator Kiv::Seconds() const { return seconds_; }
   void print( std::string & out ) const { Kiv::print( out, seconds_ ); }
   static Period parse( std::string_view text ) { return Kiv::fromText< Kiv::Seconds >( text ); }

 private:
   Kiv::Seconds seconds_;
};

// The levels of one interface, a port or a LAG. The default threshold means no storm control.
class IntfConfig : public Kiv::Entity {
   KIV_ENTITY( Bridging::StormControl::IntfConfig );
   KIV_ATTRIBUTE( Threshold, broadcast );
   KIV_ATTRIBUTE( Threshold, multicast );
   KIV_ATTRIBUTE( Threshold, uucast );
   KIV_ATTRIBUTE( Threshold, all );

 public:
   explicit IntfConfig( Pelt::IntfId intf ) : Entity( Kiv::toText( intf ) ) {}
};

// The level of a traffic class, over all interfaces together.
class AggregateTcConfig : public Kiv::Entity {
   KIV_ENTITY( Bridging::StormControl::AggregateTcConfig );
   KIV_ATTRIBUTE( Threshold, level );

 public:
   explicit AggregateTcConfig( std::uint16_t trafficClass )
         : Entity( Kiv::toText( trafficClass ) ) {}
};

// A named burst setting.
class BurstConfig : public Kiv::Entity {
   KIV_ENTITY( Bridging::StormControl::BurstConfig );
   // In microseconds; 0 leaves the burst size to the platform.
   KIV_ATTRIBUTE( std::uint32_t, burstTime, 0 );

 public:
   explicit BurstConfig( Kiv::String const & burst ) : Entity( burst ) {}
};

class Config : public Kiv::Entity {
   KIV_ENTITY( Bridging::StormControl::Config );
   KIV_CHILDREN( Pelt::IntfId, IntfConfig, intfConfig );
   KIV_CHILDREN( std::uint16_t, AggregateTcConfig, aggregateTcConfig );
   KIV_CHILDREN( Kiv::String, BurstConfig, burstConfig );
   KIV_ATTRIBUTE( Period, period, 5.0 );

 public:
   explicit Config( Kiv::String const & configName = "config" ) : Entity( configName ) {}
};

// Why a level stands in the hardware, or does not.
KIV_ENUM( LevelState, std::uint8_t,
          // No limit asked for.
          notConfigured = 0, programmed,
          // Nothing is programmed, because of ...
          speedUnknown, memberOfLag, lagHasNoMember, meteringModeNotSupported, zeroRateNotSupported,
          levelNotSupported, intfNotPresent, intfInactive,
          // ... or, for broadcast and unknown unicast, because the all-traffic level covers it, be
          // it an older one that stands behind a zero that is not supported.
          supersededByAll );

// What became of one level.
struct LevelStatus {
   KIV_VALUE( Bridging::StormControl::LevelStatus );
   // What stands in the hardware, also where `state` says why what is configured does not. For a
   // LAG that of the first member that has any.
   KIV_FIELD( Threshold, threshold );
   // Speed times level of that, in kbps; for a LAG the sum over its members of known speed; 0 where
   // nothing is limited, and outside percentage mode.
   KIV_FIELD( std::uint64_t, rate, 0 );
   KIV_FIELD( LevelState, state, notConfigured );
};

class IntfStatus : public Kiv::Entity {
   KIV_ENTITY( Bridging::StormControl::IntfStatus );
   KIV_ATTRIBUTE( LevelStatus, broadcast );
   KIV_ATTRIBUTE( LevelStatus, multicast );
   KIV_ATTRIBUTE( LevelStatus, uucast );
   KIV_ATTRIBUTE( LevelStatus, all );
   // In kbps; 0 when it is not known. For a LAG the sum over its members.
   KIV_ATTRIBUTE( std::uint64_t, speed, 0 );
   // Packets dropped, as read last. For a LAG, over its members.
   KIV_ATTRIBUTE( std::uint64_t, uucastDrop, 0 );
   KIV_ATTRIBUTE( std::uint64_t, broadcastDrop, 0 );
   KIV_ATTRIBUTE( std::uint64_t, multicastDrop, 0 );
   KIV_ATTRIBUTE( std::uint64_t, allDrop, 0 );

 public:
   explicit IntfStatus( Pelt::IntfId intf ) : Entity( Kiv::toText( intf ) ) {}
};

class Status : public Kiv::Entity {
   KIV_ENTITY( Bridging::StormControl::Status );
   KIV_CHILDREN( Pelt::IntfId, IntfStatus, intfStatus );

 public:
   explicit Status( Kiv::String const & statusName = "status" ) : Entity( statusName ) {}
};

} // namespace Bridging::StormControl
