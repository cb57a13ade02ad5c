// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Bridging/DropMode.h"
#include "L2Rib/ObjTuple.h"
#include "simulation/observers/EventsObserver.h"
#include "simulation/observers/LagObserver.h"
#include "simulation/observers/StationEvents.h"

#include <set>

namespace Simulation {

// A row of the chip's table, as the state database shows it.
struct StationRow {
   KIV_VALUE( Simulation::StationRow );
   KIV_FIELD( Pelt::IntfId, intf );
   KIV_FIELD( L2Rib::ObjTuple, l2RibObjTuple );
   KIV_FIELD( std::uint64_t, hwId, 0 );
   KIV_FIELD( std::uint32_t, swTunnelGroupId, 0 );
   KIV_FIELD( std::uint32_t, nextHopId, 0 );
   KIV_FIELD( Bridging::EntryType, entryType, Bridging::entryTypeUnknown );
   KIV_FIELD( Bridging::DropMode, dropMode, Bridging::dropModeNone );
   KIV_FIELD( bool, isMplsNextHop, false );
   KIV_FIELD( bool, ages, false );
   KIV_FIELD( bool, byChip, false );
   KIV_FIELD( std::uint32_t, heardIn, 0 );
   KIV_FIELD( std::uint32_t, flushes, 0 );
};
// Where it saw a station that software has elsewhere.
struct StationSeen {
   KIV_VALUE( Simulation::StationSeen );
   KIV_FIELD( Pelt::IntfId, intf );
   KIV_FIELD( std::uint32_t, heardIn, 0 );
   KIV_FIELD( std::uint32_t, flushes, 0 );
};
// What a flush is about, as "10@Ethernet1", with * for all.
struct FlushScope {
   KIV_PLAIN_VALUE( Simulation::FlushScope );
   KIV_FIELD( Pelt::IntfId, intf );
   KIV_FIELD( std::uint64_t, vlan, 0 );

   void print( std::string & out ) const;
   static FlushScope parse( std::string_view text );
};

// The stations: behind which port, LAG or VXLAN interface the chip saw each last, and what the machines
// know of that.
class StationsObserver : public Observer {
 public:
   using Event = Hoba::HobaEvent;
   using Host = Bridging::MacVlanPair;
   using Row = StationRow;
   // What a source address led to.
   enum Learning { learnt, moved, known, full, off, elsewhere, bound, group, zero };
   enum Header { sound, runt, reservedVlan };

   StationsObserver( Switch & simulated, Observers & observers );

   // ---- For who lets frames come in

   // A frame came in, whatever becomes of it. Said before learn().
   void frameCame( Header header );
   // One that was let in came from that station, on a port or LAG: whether the chip has a port in a LAG
   // is found here. What the chip reports of it is applied when the clock runs.
   Learning learn( Pelt::IntfId intf, Pelt::EthAddr source, Bridging::VlanId vlan );
   // Software says where it belongs.
   static bool isBound( Row const & row );
   // The chip's to move, and to let age.
   static bool isChips( Row const & row );
   // The chip's rows, as they must be.
   std::map< Host, Row > const & rows() const { return hosts_; }
   // What the chip has of the station for a frame.
   std::optional< Row > entry( Host station ) const;
   // The LAG that the chip has the port in now, faults or not; else the port itself.
   Pelt::IntfId intfOf( Pelt::IntfId port ) const;

   // ---- For the observer of events

   // The machines apply what was reported of a station.
   void apply( Event const & event );
   // The machines begin: the chip reports all that it holds, in the order of addresses and VLANs.
   void reportAll();
   // They have applied that. Stations that the chip does not have went while nobody listened.
   void forgetOthers();

   unsigned weight() const override { return 14; }
   void prepare( Draw & draw, Steps & steps ) override;
   void propose( Draw & draw, Steps & steps ) override;
   Verdict judge( Step const & step ) const override;
   void heard( Step const & step, Kiv::Datum const & answer ) override;
   void timeIs( Kiv::Seconds now ) override;
   void chipForgot() override;
   void check() override;

 private:
   using Entry = HobaTypes::MacAddressTableEntry;

   void proposeEvent( Draw & draw, Steps & steps ) const;
   void proposeTold( Draw & draw, Steps & steps ) const;
   void proposeFault( Draw & draw, Steps & steps ) const;
   bool canLearn( Step const & step ) const;
   bool canAge( Step const & step ) const;
   bool canBeTold( Step const & step ) const;
   std::optional< std::pair< Host, Row > > written( Step const & step ) const;
   bool isTold( Step const & step ) const;
   bool canTell( Step const & step ) const;
   bool hasRoomFor( Host station ) const;
   bool isThere( Pelt::IntfId intf ) const;
   std::uint32_t numberOf( char const * count ) const;
   bool isFlushed( Host station, Pelt::IntfId intf, std::uint32_t flushes ) const;
   Pelt::IntfId reportedAt( Host station ) const;
   void report( Event::HobaEventType type, Host station, Pelt::IntfId intf );
   Learning seenElsewhere( Pelt::IntfId behind, Host station, Row const & row );
   // The row was another one before.
   void changed( Host station, std::optional< Row > const & before );
   void forget( Host station, char const * why );
   void forgetSeen( Host station, char const * why );
   void writtenBySoftware();
   void wrote( Host station, Row const * row );
   void dropFlushed( Host station );
   template< class Known >
   void dropGone( Known const & those, char const * table );
   void flushTurn();
   void flush( FlushScope const & scope );
   void settingChanged();
   void sweepTurn();
   void learned( Step const & step, Kiv::Datum const & answer );
   void aged( Step const & step );
   void told( Step const & step );
   bool isAgedInstead( Event const & event );

   PortsObserver const & ports_;
   LagObserver const & lags_;
   EventsObserver & events_;
   // The chip's.
   std::map< Host, Row > hosts_;
   std::map< Host, StationSeen > seen_;
   std::map< FlushScope, std::uint64_t > flushes_; // at work, by number
   // Of ageing: half of the aging time, 0 for none; when that was set; sweeps since.
   Kiv::String agingTime_;
   Kiv::Seconds half_ = 0, halfFrom_ = 0;
   std::uint64_t halves_ = 0;
   std::uint64_t writes_ = 0; // of software that have landed, as far as they are known
   std::set< std::pair< std::uint32_t, std::uint32_t > > stamps_; // that they may bear
   std::map< Kiv::String, std::uint64_t > counts_;
   std::uint64_t capacity_ = 131072;
   // The machines', which outlives them.
   std::map< Host, Entry > macTable_;
};

} // namespace Simulation
