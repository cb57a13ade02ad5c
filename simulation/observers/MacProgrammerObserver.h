// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Hoba/HobaChipProgrammer.h"
#include "simulation/Observer.h"

namespace Simulation {

// The pipeline of a chip whose MAC table answers later, if the chip is one: what is in which queue, and that all comes
// to its end.
class MacProgrammerObserver : public Observer {
 public:
   using Pair = Bridging::MacVlanPair;

   MacProgrammerObserver( Switch & simulated, Observers & observers )
         : Observer( simulated, observers, "MAC programmer" ) {}

   // ---- For the observer of stations
   // Whether entries are written directly.
   bool isDirect() const { return !programmer(); }
   // Where a station's newest command is, if it has one that has not failed: it will come to its end by itself, or
   // waits for somebody.
   enum Way { none, underWay, waits };
   Way wayOf( Pair pair ) const;
   bool hasFlush() const;
   // Of all stations, the first that there is: under way, waits, has failed.
   bool anyUnderWay() const;
   bool anyWaits() const;
   bool anyFailed() const;

   unsigned weight() const override { return 4; }
   void prepare( Draw & draw, Steps & steps ) override;
   void propose( Draw & draw, Steps & steps ) override;
   Steps heal() override;
   bool hasFaults() const override;
   bool mayFail( std::string_view ) const override { return false; }
   Kiv::Seconds settlingTime() const override { return 2; }
   bool isWaiting() const override;
   Verdict judge( Step const & step ) const override;
   void heard( Step const & step, Kiv::Datum const & answer ) override;
   void timeIs( Kiv::Seconds ) override;
   void began( HobaAgent::RestartKind kind ) override;
   void settled() override;
   void check() override;

 private:
   using Cmd = Hoba::IndirectAccessMacCmd;
   Kiv::Ptr< Hoba::HobaMacProgrammer const > programmer() const;
   Verdict judgeMachine( Step const & step ) const;
   void checkQueues( Hoba::HobaMacProgrammer const & programmer );
   void checkCounts( Hoba::HobaMacProgrammer const & programmer );
   void checkClocks( Hoba::HobaMacProgrammer const & programmer );

   bool isIndirect_ = false; // as it was when the machines began
   bool wasSilent_ = false;  // since then
};

} // namespace Simulation
