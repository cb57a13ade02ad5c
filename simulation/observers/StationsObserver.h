// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "chips/sim/SimMac.h"
#include "simulation/observers/EventsObserver.h"
#include "simulation/observers/LagObserver.h"

namespace Simulation {

// The stations: behind which port, LAG or VXLAN interface the chip saw each last, and what the machines
// know of that.
class StationsObserver : public Observer {
 public:
   using Event = Hoba::HobaEvent;
   using Host = Bridging::MacVlanPair;
   using Row = HobaSim::HostRow;
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
   void flushTurn();
   void flush( Pelt::IntfId intf );
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
   std::map< Host, HobaSim::SeenRow > seen_;
   std::map< HobaSim::MacScope, std::uint64_t > flushes_; // at work, by number
   // Of ageing: half of the aging time, 0 for none; when that was set; sweeps since.
   Kiv::String agingTime_;
   Kiv::Seconds half_ = 0, halfFrom_ = 0;
   std::uint64_t halves_ = 0;
   std::uint64_t writes_ = 0; // of software, as far as they are known
   std::map< Kiv::String, std::uint64_t > counts_;
   std::uint64_t capacity_ = 131072;
   // The machines', which outlives them.
   std::map< Host, Entry > macTable_;
};

} // namespace Simulation
