// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "simulation/observers/EventsObserver.h"
#include "simulation/observers/LagObserver.h"

namespace Simulation {

// The stations: behind which port, LAG or VXLAN interface the chip saw each last, and what the machines
// know of that.
class StationsObserver : public Observer {
 public:
   using Event = Hoba::HobaEvent;
   using Host = Bridging::MacVlanPair;
   // What a source address led to.
   enum Learning { learnt, moved, known, group, zero, full };
   enum Header { sound, runt, reservedVlan };

   StationsObserver( Switch & simulated, Observers & observers );

   // ---- For who lets frames come in

   // A frame came in, whatever becomes of it. Said before learn().
   void frameCame( Header header );
   // One that was let in came from that station, on a port or LAG: whether the chip has a port in a LAG
   // is found here. What the chip reports of it is applied when the clock runs.
   Learning learn( Pelt::IntfId intf, Pelt::EthAddr source, Bridging::VlanId vlan );
   // Behind which interface the chip has the station; the empty id for none.
   Pelt::IntfId hostIntf( Host station ) const;
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
   Steps heal() override;
   bool hasFaults() const override;
   bool mayFail( std::string_view step ) const override {
      return step.starts_with( "MacUnit::reportHosts " );
   }
   Verdict judge( Step const & step ) const override;
   void heard( Step const & step, Kiv::Datum const & answer ) override;
   void chipForgot() override;
   void check() override;

 private:
   using Entry = HobaTypes::MacAddressTableEntry;

   void proposeEvent( Draw & draw, Steps & steps ) const;
   void proposeFault( Draw & draw, Steps & steps ) const;
   bool canLearn( Step const & step ) const;
   bool canAge( Step const & step ) const;
   bool canBeTold( Step const & step ) const;
   bool hasRoomFor( Host station ) const;
   bool isThere( Pelt::IntfId intf ) const;
   void learned( Step const & step, Kiv::Datum const & answer );
   void aged( Step const & step );
   void told( Step const & step );
   bool isAgedInstead( Event const & event );

   PortsObserver const & ports_;
   LagObserver const & lags_;
   EventsObserver & events_;
   // The chip's.
   std::map< Host, Pelt::IntfId > hosts_;
   std::map< Kiv::String, std::uint64_t > counts_;
   std::uint64_t capacity_ = 131072;
   // The machines', which outlives them.
   std::map< Host, Entry > macTable_;
};

} // namespace Simulation
