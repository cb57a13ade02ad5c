// SPDX-License-Identifier: Apache-2.0
#pragma once

// Storm control of the simulated chip: what the chip holds, as an entity that can be looked at and
// spoilt, and the helper through which the library programs it.

#include "Hoba/HobaStormControlSmHelper.h"
#include "chips/sim/SimTable.h"

namespace HobaSim {

// The limit of one class of traffic on one port.
struct StormLimit {
   KIV_VALUE( HobaSim::StormLimit );
   KIV_FIELD( bool, limited, false );
   // In kbps, or in packets a second.
   KIV_FIELD( std::uint64_t, rate, 0 );
   KIV_FIELD( Bridging::StormControl::RateUnit, unit, Bridging::StormControl::unitKbps );
   // Whose configuration it is: a LAG, or the port itself.
   KIV_FIELD( Pelt::IntfId, parent );
};

// One class of traffic on one port. Prints as Ethernet1:broadcast.
struct StormKey {
   KIV_PLAIN_VALUE( HobaSim::StormKey );
   KIV_FIELD( Pelt::IntfId, intf );
   // A Hoba::LevelType; as wide as that, no byte of a key is unused.
   KIV_FIELD( std::uint64_t, levelType, 0 );

   void print( std::string & out ) const;
   // Throws Kiv::ParseError.
   static StormKey parse( std::string_view text );
};

// The part of the chip that limits storms.
class StormUnit : public Unit {
   KIV_ENTITY( HobaSim::StormUnit, HobaSim::Unit );
   // What this chip can do.
   KIV_ATTRIBUTE( bool, burst, true );
   KIV_ATTRIBUTE( bool, uucastLevel, true );
   KIV_ATTRIBUTE( bool, allLevel, true );
   KIV_ATTRIBUTE( bool, zeroRate, false );
   KIV_ATTRIBUTE( bool, ppsMetering, false );
   KIV_ATTRIBUTE( bool, bpsMetering, false );
   KIV_ATTRIBUTE( bool, dropCount, true );
   KIV_ATTRIBUTE( bool, chipStormControl, false );
   KIV_ATTRIBUTE( bool, dynamicLogicalPorts, false );
   // It knows the traffic classes 0, 1, ... below this one.
   KIV_ATTRIBUTE( std::uint16_t, trafficClasses, 8 );
   // What it was told. What has no row is not limited.
   SIM_TABLE( StormKey, StormLimit, limit );
   // Interfaces whose broadcast skips the multicast limit: true.
   SIM_TABLE( Pelt::IntfId, bool, bcastSkip );
   SIM_TABLE( std::uint16_t, Bridging::StormControl::Threshold, trafficClass );
   SIM_TABLE( Name, std::uint32_t, burstTime );
   // The rules that tell the classes of traffic apart are one, `classRules`.
   SIM_TABLE( Name, bool, rule );
   // Packets dropped so far.
   SIM_STATE( StormKey, std::uint64_t, drop );

 public:
   static constexpr std::string_view classRules = "trafficClasses";

   explicit StormUnit( Kiv::String const & unitName = {}, Memory const & memory = {} )
         : Unit( unitName, memory ) {}

   bool rulesInstalled() const { return rule( Name( classRules ) ); }
   // The limits of the port are gone, and nobody has taken them away.
   void forget( Pelt::IntfId intf );

   // Throws Kiv::ParseError for a traffic class that the chip does not have.
   void checkTrafficClass( std::uint32_t number ) const;

   // Lets `packets` of `bytes` each come in on the port within `seconds`: what exceeds the limit
   // of its class, and then that of all traffic, is dropped and counted. Returns the drops.
   // Throws Kiv::ParseError for a class that is none, or for a time that is not above 0.
   std::uint64_t inject( Pelt::IntfId intf, Hoba::LevelType levelType, std::uint64_t packets,
                         std::uint32_t bytes, Kiv::Seconds seconds );
};

class StormControlHelper : public Hoba::StormControlSmHelper {
   KIV_ENTITY( HobaSim::StormControlHelper, Hoba::StormControlSmHelper );

 public:
   explicit StormControlHelper( Kiv::Ptr< StormUnit > const & unit ) : unit_( unit ) {}

   // Wipes nothing: what stands there, and is not asked for again, is for the owner of the chip to sweep.
   void hwInit() override { unit_->beginPass(); }
   void installRules() override;
   void setHwRate( Hoba::LevelType levelType, Pelt::IntfId intf, Pelt::IntfId parentIntf,
                   std::uint32_t speedKbps, Threshold const & threshold ) override;
   void updateBcastSkipRule( Pelt::IntfId intf, bool skip ) override;
   void programTcAggregateHwRate( std::uint32_t trafficClass,
                                  Threshold const & threshold ) override;
   void setBurstTime( Bridging::StormControl::BurstConfig const & burstConfig ) override;
   // The chip needs to know of active members only, which setHwRate() names.
   void handleEthPhyIntfLagConfig( Pelt::IntfId ) override {}

   // By the chip's rows as they are, whoever wrote them: of a port each level ("broadcast: 250000 kbps of
   // Ethernet1 expected, no limit found") and its skip rule; of the platform the rules, and what nobody
   // configured. Mismatches are separated by "; ". A row that limits nothing is as none. Where the machine
   // programs nothing, for want of a speed or for a zero that the chip refuses, what stands may be of the
   // same configuration and of no other.
   Kiv::String verifyEnabled( Pelt::IntfId intf, bool enabled ) override;
   Kiv::String verifyPort( Pelt::IntfId intf, Pelt::IntfId parentIntf, std::uint32_t speedKbps,
                           IntfConfig const & intfConfig ) override;
   Kiv::String
   verifyAggregateTc( std::uint32_t trafficClass,
                      Bridging::StormControl::AggregateTcConfig const & config ) override;
   Kiv::String verifyPlatformStormControl( Bridging::StormControl::Config const & config,
                                           Bridging::StormControl::Status const & status ) override;

   bool burstEnabled() const override { return unit_->burst(); }
   bool uucastLevelEnabled() const override { return unit_->uucastLevel(); }
   bool allLevelEnabled() const override { return unit_->allLevel(); }
   bool zeroRateEnabled() const override { return unit_->zeroRate(); }
   bool ppsMeteringEnabled() const override { return unit_->ppsMetering(); }
   bool bpsMeteringEnabled() const override { return unit_->bpsMetering(); }
   bool dropCountEnabled() const override { return unit_->dropCount(); }
   bool chipStormControlEnabled() const override { return unit_->chipStormControl(); }
   bool platformSupportsDynamicLogicalPorts() const override {
      return unit_->dynamicLogicalPorts();
   }

   std::uint64_t getUUcastDropCnt( Pelt::IntfId intf ) const override {
      return unit_->drop( { intf, Hoba::levelTypeUUcast } );
   }
   std::uint64_t getBcastDropCnt( Pelt::IntfId intf ) const override {
      return unit_->drop( { intf, Hoba::levelTypeBroadcast } );
   }
   std::uint64_t getMcastDropCnt( Pelt::IntfId intf ) const override {
      return unit_->drop( { intf, Hoba::levelTypeMulticast } );
   }
   std::uint64_t getAllDropCnt( Pelt::IntfId intf ) const override {
      return unit_->drop( { intf, Hoba::levelTypeAll } );
   }

 private:
   // What is wrong with one level of a port, or with its skip rule; empty when nothing is.
   Kiv::String verifyLevel( StormKey const & key, Pelt::IntfId parentIntf, std::uint32_t speedKbps,
                            IntfConfig const & intfConfig ) const;
   Kiv::String verifySkip( Pelt::IntfId intf, Pelt::IntfId parentIntf, std::uint32_t speedKbps,
                           IntfConfig const & intfConfig ) const;

   Kiv::Ptr< StormUnit > const unit_;
};

} // namespace HobaSim
