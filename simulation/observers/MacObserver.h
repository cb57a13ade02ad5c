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

   unsigned weight() const override { return 30; }
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
   bool cannotVerifyYet() const override;
   void check() override;

 private:
   struct Withheld {
      Kiv::String obstacle;
      Kiv::Seconds since = 0;
   };
   // A flush that was asked for, until it is answered.
   struct Flush {
      Bridging::HostTableFlushRequest what;
      std::optional< Hoba::VXLAN::FlushReqKey > ofRemotes; // instead
      bool isDone = false;
      std::set< Pair > since; // reported since it was asked for
   };
   using FlushKey = std::pair< Kiv::String, Kiv::String >;

   struct Verification {
      std::size_t stations = 0, compared = 0, mismatches = 0;
      bool isOpen = false; // something differs that is on its way
      Kiv::String first;
   };

   Verification verification() const;
   void proposeClear( Draw & draw, Steps & steps ) const;
   bool canClear( Step const & step ) const;
   void lookForMachine();
   bool isWritten( Pair pair, MacModel::Station const & before ) const;
   void hear();
   void hearFlushes( bool begins );
   void hearPlaces();
   void hearLinks();
   void hearLearning();
   void saidIs( Pair pair, MacModel::Said const & said, bool isTold );
   void evaluate( Pair pair, bool isNews = false );
   void hearMoves();
   void decided();
   bool isIn( Flush const & flush, Pair pair ) const;
   bool isGone( Pair pair ) const;
   bool isFlushed( Pair pair ) const;
   void flushed( Flush & flush );
   void lookAtAll( bool isOver );
   void forget( Pair pair );
   std::map< Pair, Kiv::String > decidedRows() const;
   static Kiv::String textOf( std::optional< Entry > const & entry );
   // What the chip has to hold of it.
   StationRow rowOf( MacModel::Station const & station, Entry const & entry ) const;

   void checkStatus();
   void checkOverlay();
   void checkChip();
   void checkLearning();
   void checkMachine();
   void checkFeeders();
   void checkMlagPorts();

   MacModel const model_;
   TableFaults faults_;
   bool isHeard_ = false; // the machine has begun
   bool isHearing_ = false;
   std::uint64_t restartWrites_ = 0;
   Verification verified_; // by the last look
   std::map< Pair, MacModel::Station > stations_;
   // As they were when the machine began, and what the chip had.
   std::map< Pair, MacModel::Station > adopted_;
   std::map< Pair, StationRow > adoptedRows_;
   std::map< Pair, Withheld > withheld_;
   std::map< FlushKey, Flush > flushes_;
   std::map< Vxlan::VniMac, Vxlan::TunnelLearnEvent > tunnelEvents_; // as they were heard last
   // How many are programmed behind the overlay, and may be as far as the machine has noticed: it looks again when
   // one leaves.
   std::size_t programmed_ = 0;
   std::uint64_t limit_ = 0;
   // Where stations were learnt, and where they are no more: what was learnt there is forgotten.
   std::set< Pelt::IntfId > places_, learning_;
   std::map< Kiv::String, bool > links_;      // whether they are down
   std::map< Bridging::VlanId, bool > vlans_; // whether they learn
   // With what was reported there since.
   std::map< Pelt::IntfId, std::set< Pair > > gone_;
   std::map< Bridging::VlanId, std::set< Pair > > goneVlans_;
   std::map< Pair, Kiv::String > decided_; // as it was when it was looked at last
   // Where stations in force were last, and how they came there.
   std::map< Pair, Pelt::IntfId > inForce_;
   std::vector< Kiv::String > moves_;
};

} // namespace Simulation
