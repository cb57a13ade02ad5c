// SPDX-License-Identifier: Apache-2.0
#pragma once

// What storm control needs of this chip. It has two meters a port, for broadcast and for multicast,
// and one for each traffic class; they count bits. The machine asks the capabilities first, so that
// what the chip cannot do on a port never arrives here; levels of traffic classes arrive as they are.

#include "Driver.h"
#include "Hoba/HobaStormControlSmHelper.h"

namespace SmallChip {

class StormControlHelper : public Hoba::StormControlSmHelper {
   KIV_ENTITY( SmallChip::StormControlHelper, Hoba::StormControlSmHelper );

 public:
   // What all ports can carry together: a traffic class in percent is a share of it.
   static constexpr std::uint32_t capacityKbps = 100'000'000;

   // `driver` outlives the helper.
   explicit StormControlHelper( Driver & driver ) : driver_( driver ) {}

   // ---- Capabilities. The defaults are the careful ones, but for allLevelEnabled().

   bool allLevelEnabled() const override { return false; }
   bool bpsMeteringEnabled() const override { return true; }
   // No rules are needed to tell the traffic classes apart: installRules() is not called.
   bool chipStormControlEnabled() const override { return true; }

   // ---- Programming

   // Wipes nothing: the agent may come back to a chip that is at work.
   void hwInit() override { driver_.beginPass(); }
   void setHwRate( Hoba::LevelType levelType, Pelt::IntfId intf, Pelt::IntfId parentIntf,
                   std::uint32_t speedKbps, Threshold const & threshold ) override;
   void programTcAggregateHwRate( std::uint32_t trafficClass,
                                  Threshold const & threshold ) override;
   // Required, and nothing to do: broadcast never meets the multicast meter, and of LAGs the chip
   // needs to know the active members only, which setHwRate() names.
   void updateBcastSkipRule( Pelt::IntfId, bool ) override {}
   void handleEthPhyIntfLagConfig( Pelt::IntfId ) override {}

   // ---- Verification

   Kiv::String verifyEnabled( Pelt::IntfId intf, bool enabled ) override;
   Kiv::String verifyPort( Pelt::IntfId intf, Pelt::IntfId parentIntf, std::uint32_t speedKbps,
                           IntfConfig const & intfConfig ) override;
   Kiv::String
   verifyAggregateTc( std::uint32_t trafficClass,
                      Bridging::StormControl::AggregateTcConfig const & config ) override;

 private:
   Driver & driver_;
};

} // namespace SmallChip
