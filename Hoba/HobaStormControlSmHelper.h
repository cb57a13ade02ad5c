// SPDX-License-Identifier: Apache-2.0
#pragma once

// What storm control needs of a platform. A chip derives from this class. The operations that say
// "required" stop the agent when the chip does not override them and they are called. All of them may
// throw, Hoba/HobaBaseSm.h says what follows: in short, what was under way for the interface ends, and
// hwInit() and installRules() are called again when the machine is initialized again.

#include "Bridging/StormControl.h"
#include "Hoba/HobaAssert.h"
#include "Hoba/HobaBaseHelper.h"

namespace Hoba {

KIV_ENUM( LevelType, std::uint8_t, levelTypeBroadcast = 0, levelTypeMulticast = 1,
          levelTypeUUcast = 2, levelTypeAll = 3, levelTypeMax = 4, levelTypeNull = 255 );

class StormControlSmHelper : public HobaBaseHelper {
   KIV_ENTITY( Hoba::StormControlSmHelper, Hoba::HobaBaseHelper );

 public:
   using IntfConfig = Bridging::StormControl::IntfConfig;
   using Threshold = Bridging::StormControl::Threshold;

   explicit StormControlSmHelper( Kiv::String const & helperName = "stormControl" )
         : HobaBaseHelper( helperName ) {}

   // ---- Programming

   // Once, before anything else is asked for. The chip may be at work: what it holds is left alone where
   // the first pass asks for it again, and what it does not ask for is taken away when it is over, by
   // the chip's side (docs/writing-a-chip.md). A chip that begins empty has nothing to do here.
   virtual void hwInit() {}
   // Required. Puts the rules in place that tell the traffic classes apart; once, behind hwInit().
   HOBA_REQUIRED( void, installRules, (), mustBeImplemented );
   // Required. Limits one class of traffic on the port `intf`. `parentIntf` is the LAG whose
   // configuration this is, or `intf` itself. In percentage mode the limit is speedKbps x level /
   // 10000. The default threshold takes the limit away; speedKbps is then 0 if it is not known.
   HOBA_REQUIRED( void, setHwRate,
                  ( LevelType levelType, Pelt::IntfId intf, Pelt::IntfId parentIntf,
                    std::uint32_t speedKbps, Threshold const & threshold ),
                  mustBeImplemented );
   // Required. Whether broadcast skips the multicast limit of the interface, a port or a LAG.
   HOBA_REQUIRED( void, updateBcastSkipRule, ( Pelt::IntfId intf, bool skip ), mustBeImplemented );
   // Required. The limit of a traffic class over all interfaces.
   HOBA_REQUIRED( void, programTcAggregateHwRate,
                  ( std::uint32_t trafficClass, Threshold const & threshold ), mustBeImplemented );
   // Required where bursts are supported. burstTime() of 0 means the platform's own.
   HOBA_REQUIRED( void, setBurstTime, ( Bridging::StormControl::BurstConfig const & burstConfig ),
                  mustBeImplemented );
   // Required. The operator put the port into another LAG, or into none.
   HOBA_REQUIRED( void, handleEthPhyIntfLagConfig, ( Pelt::IntfId intf ), .before = "Function ",
                  .after = "() must be implemented" );

   // ---- Verification: what differs between hardware and configuration, empty when nothing does.

   // Required. Whether any limit is in place on the port. Asked of all ports for which no
   // configuration holds.
   HOBA_REQUIRED( Kiv::String, verifyEnabled, ( Pelt::IntfId intf, bool enabled ),
                  mustBeImplemented );
   // Required. The limits of the port against `intfConfig`, which is that of `parentIntf`.
   HOBA_REQUIRED( Kiv::String, verifyPort,
                  ( Pelt::IntfId intf, Pelt::IntfId parentIntf, std::uint32_t speedKbps,
                    IntfConfig const & intfConfig ),
                  mustBeImplemented );
   // Required.
   HOBA_REQUIRED( Kiv::String, verifyAggregateTc,
                  ( std::uint32_t trafficClass,
                    Bridging::StormControl::AggregateTcConfig const & config ),
                  mustBeImplemented );
   // What the platform has beyond that: limits on ports that are not there, for one.
   virtual Kiv::String
   verifyPlatformStormControl( Bridging::StormControl::Config const & /*config*/,
                               Bridging::StormControl::Status const & /*status*/ ) {
      return {};
   }

   // ---- Capabilities

   virtual bool burstEnabled() const { return false; }
   virtual bool uucastLevelEnabled() const { return false; }
   virtual bool allLevelEnabled() const { return true; }
   // A threshold of 0 blocks all traffic of the class.
   virtual bool zeroRateEnabled() const { return false; }
   virtual bool ppsMeteringEnabled() const { return false; }
   virtual bool bpsMeteringEnabled() const { return false; }
   virtual bool dropCountEnabled() const { return false; }
   // The chip tells the traffic classes apart by itself: installRules() is not called.
   virtual bool chipStormControlEnabled() const { return false; }
   // Ports come and go: limits follow their activity.
   virtual bool platformSupportsDynamicLogicalPorts() const { return false; }

   // ---- Packets dropped on a port since the chip was initialized

   virtual std::uint64_t getUUcastDropCnt( Pelt::IntfId ) const { return 0; }
   virtual std::uint64_t getBcastDropCnt( Pelt::IntfId ) const { return 0; }
   virtual std::uint64_t getMcastDropCnt( Pelt::IntfId ) const { return 0; }
   virtual std::uint64_t getAllDropCnt( Pelt::IntfId ) const { return 0; }
};

} // namespace Hoba
