// SPDX-License-Identifier: Apache-2.0
#pragma once

// What storm control must have made of a switch, worked out from the documented rules: what the chip
// holds, what the machine believes that it holds, and what the status says.
//
// The chip's tables follow only where the machine writes: a row that somebody spoilt stays as it is
// until the machine programs that very level again. It does so
//
//    for one level of an interface     when it is configured otherwise; the all-traffic level takes
//                                      along what it covers, or, when it goes, all that it covered
//    for all levels of an interface    when it is configured anew, comes into being, changes its
//                                      speed, becomes active, or leaves its LAG
//    for all members of a LAG          when one comes or goes, or changes its speed; when the LAG
//                                      comes into being or goes
//    for all there is                  when the machines begin; rows that nobody asks for go then
//
// and takes all limits of a port away when it comes into being, becomes inactive, joins a LAG or
// leaves it, or is not configured any more.

#include "Bridging/StormControl.h"
#include "simulation/Observer.h"

#include <array>
#include <optional>
#include <set>

namespace Simulation {

// The limit of one class of traffic, as the chip has it.
struct StormLimitRow {
   KIV_VALUE( Simulation::StormLimitRow );
   KIV_FIELD( bool, limited, false );
   KIV_FIELD( std::uint64_t, rate, 0 );
   KIV_FIELD( Bridging::StormControl::RateUnit, unit, Bridging::StormControl::unitKbps );
   KIV_FIELD( Pelt::IntfId, parent );
};

// What the machine told the chip last, for one level of a port.
struct StormHeldRow {
   KIV_VALUE( Simulation::StormHeldRow );
   KIV_FIELD( Pelt::IntfId, parent );
   KIV_FIELD( Bridging::StormControl::Threshold, threshold );
   KIV_FIELD( std::uint32_t, speedKbps, 0 );
};

// A table of the chip, and what the machines do to it.
template< class Key, class Record >
class StormTable {
 public:
   std::map< Key, Record > rows;
   std::uint64_t writes = 0, swept = 0; // since beginPass()

   bool has( Key const & key ) const { return rows.contains( key ); }
   Record get( Key const & key ) const { return has( key ) ? rows.at( key ) : Record{}; }
   // The machine wants this row, or none: what the chip has already is not written.
   void program( Key const & key, std::optional< Record > const & record ) {
      claimed_.insert( key );
      bool const same = record ? has( key ) && rows.at( key ) == *record : !has( key );
      writes += same ? 0 : 1;
      record ? void( rows.insert_or_assign( key, *record ) ) : void( rows.erase( key ) );
   }
   void beginPass() {
      claimed_.clear();
      writes = swept = 0;
   }
   void sweep() {
      swept = std::erase_if( rows,
                             [ this ]( auto const & r ) { return !claimed_.contains( r.first ); } );
   }

 private:
   std::set< Key > claimed_;
};

class StormControlModel {
 public:
   using Intf = Pelt::IntfId;
   using Threshold = Bridging::StormControl::Threshold;
   enum Level : unsigned { broadcast, multicast, uucast, all, levels };
   static constexpr std::string_view levelNames[] = { "broadcast", "multicast", "uucast", "all" };
   using Thresholds = std::array< Threshold, levels >;
   using Drops = std::array< std::uint64_t, levels >;

   struct LevelKey {
      Intf intf;
      Level level;
      auto operator<=>( LevelKey const & ) const = default;
      void print( std::string & out ) const {
         out += Kiv::toText( intf ) + ':' + Kiv::String( levelNames[ level ] );
      }
   };

   // What the chip can do.
   struct Chip {
      bool burst, uucastLevel, allLevel, zeroRate, ppsMetering, bpsMetering, dropCount,
            chipStormControl, dynamicLogicalPorts;
   };
   struct Port {
      std::uint64_t kbps;
      bool active;
      Intf lag; // that it is an active member of
   };
   // All that is configured, and all there is.
   struct Inputs {
      std::map< Intf, Port > ports;
      std::map< Intf, std::vector< Intf > > lags; // with their active members
      std::map< Intf, Thresholds > intfs;
      std::map< std::uint16_t, Threshold > trafficClasses;
      std::map< Kiv::String, std::uint32_t > bursts;
   };

   // The machines begin, on the chip as it is.
   void begin( Chip const & chip, Inputs const & inputs );
   // The chip has forgotten everything.
   void reset();
   // Something has changed.
   void inputsAre( Inputs const & inputs );

   Inputs const & inputs() const { return is_; }
   std::uint64_t writes() const;
   std::uint64_t swept() const;
   // What a level in force comes to, at that speed.
   static StormLimitRow limitOf( Threshold const & threshold, std::uint64_t kbps, Intf parent );

   StormTable< LevelKey, StormLimitRow > limit;
   StormTable< Intf, bool > bcastSkip;
   StormTable< std::uint16_t, Threshold > trafficClass;
   StormTable< Kiv::String, std::uint32_t > burstTime;
   StormTable< Kiv::String, bool > rule;
   std::map< LevelKey, StormHeldRow > held;

   // ---- What follows from that

   // The ports that the interface stands for: itself, or the active members of a LAG.
   std::vector< Intf > portsOf( Intf intf ) const;
   std::uint64_t speedOf( Intf intf ) const;
   Bridging::StormControl::LevelStatus levelStatus( Intf intf, Level level ) const;
   // The interface whose levels hold for the port; the empty id for none.
   Intf governs( Intf port ) const;
   // A port that may be limited: it takes part, where ports come and go.
   bool takesPart( Intf port ) const;

   // What becomes of a threshold, whatever the port.
   enum Asked { none, wanted, unsupported, unmetered, refusedZero };
   Asked asked( Intf intf, Level level ) const;
   // Nothing is asked for that could be programmed. A zero that is refused was asked for.
   bool isNone( Intf intf, Level level ) const;
   // Whether the all-traffic level stands in for this one. `allStands`: an older one is on the port.
   bool isCovered( Intf intf, Level level, bool allStands ) const;
   bool wantsSkip( Intf intf ) const;

 private:
   static constexpr Level allLevels[] = { broadcast, multicast, uucast, all };

   bool has( Level level ) const;
   bool exists( Intf intf ) const;
   bool isBlocked( Intf intf ) const;
   bool allHeld( Intf intf, Intf port ) const;
   Bridging::StormControl::LevelState stateOf( Intf intf, Level level ) const;

   void apply( Intf intf, std::span< Level const > these );
   void applyTo( Intf intf, Level level, Intf port );
   void clear( Intf intf );
   void put( LevelKey const & key, std::optional< StormHeldRow > const & row );

   void portWent( Intf intf, Port const & was );
   void portsAre( Inputs const & before );
   void lagsAre( Inputs const & before );
   void intfsAre( Inputs const & before );
   void levelIs( Intf intf, Level level );
   void trafficClassesAre( Inputs const & before );
   void burstsAre( Inputs const & before );

   Chip chip_{};
   Inputs is_;
};

} // namespace Simulation
