// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Bridging/HostTableFlush.h"
#include "simulation/Observer.h"
#include "simulation/TableFaults.h"
#include "simulation/observers/MacModel.h"
#include "simulation/observers/StationsObserver.h"

#include <set>

namespace Simulation {

// The MAC address table: where each station is, given that many say so.
//
// What is said of one station is looked at as soon as it is said. What concerns many, an interface say, or an
// object of the RIB, the machine looks at in walks: by the end of the moment at the latest, and when in it,
// what it decides tells.
class MacObserver : public Observer {
 public:
   using Pair = MacModel::Pair;
   using Entry = MacModel::Entry;

   MacObserver( Switch & simulated, Observers & observers );

   unsigned weight() const override { return isDrawn ? 30 : 0; }
   void prepare( Draw & draw, Steps & steps ) override;
   void propose( Draw & draw, Steps & steps ) override;
   Steps heal() override;
   bool hasFaults() const override { return faults_.any(); }
   bool mayFail( std::string_view ) const override { return false; }
   // Refused changes are tried again after a second.
   Kiv::Seconds settlingTime() const override { return 2; }
   Verdict judge( Step const & step ) const override;
   void heard( Step const & step, Kiv::Datum const & answer ) override;
   void follow() override { hear(); }
   void timeIs( Kiv::Seconds now ) override;
   void began( HobaAgent::RestartKind kind ) override;
   std::uint64_t restartWrites() const override { return restartWrites_; }
   void verifyItems( Items & items ) const override;
   void check() override;

 private:
   struct Withheld {
      Kiv::String obstacle;
      Kiv::Seconds since = 0;
   };
   // A flush that was asked for, until it is answered.
   struct Flush {
      Bridging::HostTableFlushRequest what;
      bool isDone = false;
   };
   using FlushKey = std::pair< Kiv::String, Kiv::String >;

   void lookForMachine();
   void hear();
   void hearFlushes();
   void hearPlaces();
   void saidIs( Pair pair, MacModel::Said const & said );
   void evaluate( Pair pair );
   void hearMoves();
   void decided();
   bool isFlushed( Pair pair ) const;
   void forget( Pair pair );
   std::map< Pair, Kiv::String > decidedRows() const;
   static Kiv::String textOf( std::optional< Entry > const & entry );
   std::map< Pair, Entry > inForce() const;
   // What the chip has to hold of it.
   StationRow rowOf( Entry const & entry ) const;

   void checkStatus();
   void checkOverlay();
   void checkChip();
   void checkLearning();
   void checkMachine();

   // Whether histories tell of more than what is learnt. Machine and model still differ in some of that: set it, and
   // seed 8 of 500 steps is the first that shows one.
   static constexpr bool isDrawn = false;

   MacModel const model_;
   TableFaults faults_;
   bool isHeard_ = false; // the machine has begun
   bool isHearing_ = false;
   std::uint64_t restartWrites_ = 0;
   std::map< Pair, MacModel::Station > stations_;
   std::map< Pair, MacModel::Station > adopted_; // as they were when the machine began
   std::map< Pair, Withheld > withheld_;
   std::map< FlushKey, Flush > flushes_;
   // Where stations were learnt, and where they are no more: what was learnt there is forgotten.
   std::set< Pelt::IntfId > places_, gone_;
   std::set< Pair > sinceGone_; // reported behind those, since
   std::set< Kiv::String > down_;
   std::set< Bridging::VlanId > vlans_, goneVlans_;
   std::map< Pair, Kiv::String > decided_; // as it was when it was looked at last
   // Where stations in force were last, and how they came there.
   std::map< Pair, Pelt::IntfId > inForce_;
   std::vector< Kiv::String > moves_;
};

} // namespace Simulation
