// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "simulation/observers/EventsObserver.h"
#include "simulation/observers/LagObserver.h"

namespace Simulation {

// The stations: behind which port, LAG or VXLAN interface the chip saw each last, and what the machines
// know of that.
class StationsObserver : public Observer {
 public:
   // What a source address led to, and what the chip counts.
   enum Learning { learnt, moved, known, group, zero, full };
   enum Header { sound, runt, reservedVlan };

   StationsObserver( Switch & simulated, Observers & observers );

   // ---- For who lets frames come in

   // A frame came in, whatever becomes of it. Said before learn().
   void frameCame( Header header );
   // One of an admitted frame's from that station, behind a port or LAG: for a port, it is found here
   // whether the chip has it in a LAG. What the chip reports of it is applied when the clock runs.
   Learning learn( Pelt::IntfId intf, Pelt::EthAddr source, Bridging::VlanId vlan );
   // Behind which interface the chip has the station; the empty id for none.
   Pelt::IntfId hostIntf( Bridging::MacVlanPair station ) const;
   // The LAG that the chip has the port in, or the port itself.
   Pelt::IntfId intfOf( Pelt::IntfId port ) const;

   // ---- For the events

   // The machines apply what was reported of a station.
   void apply( Hoba::HobaEvent const & event );
   // The chip reports all that it holds, in the order of addresses and VLANs.
   void reportAll();
   // The machines have begun, and applied what was reported: who went meanwhile is forgotten.
   void forgetOthers();

   void propose( Draw & draw, Steps & steps ) override;
   Steps heal() override;
   bool hasFaults() const override { return isSpoilt_; }
   Verdict judge( Step const & step ) const override;
   void heard( Step const & step, Kiv::Datum const & answer ) override;
   void began( HobaAgent::RestartKind kind ) override;
   void check() override;

 private:
   using Host = Bridging::MacVlanPair;

   LagObserver const & lags_;
   EventsObserver & events_;
   std::map< Host, Pelt::IntfId > hosts_;                       // the chip's
   std::map< Kiv::String, std::uint64_t > counts_;              // the chip's
   std::uint64_t capacity_ = 131072;                            // of its table
   bool isSpoilt_ = false;                                      // by rows that no frame teaches it
   std::map< Host, HobaTypes::MacAddressTableEntry > macTable_; // the machines'
};

} // namespace Simulation
