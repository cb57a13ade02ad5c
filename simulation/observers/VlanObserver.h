// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Bridging/VlanSet.h"
#include "simulation/TableFaults.h"
#include "simulation/observers/LagObserver.h"

#include <set>

namespace Simulation {

// The VLANs: which there are, who carries them and how, and what the chip holds of it.
class VlanObserver : public Observer {
 public:
   // What a verification pass finds that compares the chip's tables of VLANs with what is published.
   enum Verification {
      agrees,
      differs,       // only a restart of the agent mends that
      cannotConclude // they differ, and changes are on their way to the chip
   };

   VlanObserver( Switch & simulated, Observers & observers );

   // Of the last pass. The mismatch is as its helper puts it.
   Verification verification() const {
      return mismatch_.empty() ? agrees : isLanding_ ? cannotConclude : differs;
   }
   Kiv::String const & mismatch() const { return mismatch_; }

   void prepare( Draw & draw, Steps & steps ) override;
   unsigned weight() const override { return 16; }
   void propose( Draw & draw, Steps & steps ) override;
   Steps heal() override;
   bool hasFaults() const override { return faults_.any(); }
   bool mayFail( std::string_view step ) const override {
      return step.starts_with( "Hoba::VlanHelperBase::" );
   }
   Kiv::Seconds settlingTime() const override { return 1.25; }
   Verdict judge( Step const & step ) const override;
   void heard( Step const & step, Kiv::Datum const & answer ) override;
   void follow() override;
   void chipForgot() override { held_.clear(); }
   void began( HobaAgent::RestartKind kind ) override;
   std::uint64_t restartWrites() const override { return restartWrites_; }
   std::uint64_t restartSwept() const override { return restartSwept_; }
   void settled() override;
   void check() override;

 private:
   // How an interface carries VLANs.
   struct Carries {
      Bridging::VlanIdOrNone native;
      Bridging::VlanSet tagged;
   };
   // The rows of the chip, by table.
   using Tables = std::map< Kiv::String, Rows >;

   void proposeConfig( Draw & draw, Steps & steps ) const;
   void proposeChangeOfMind( Draw & draw, Steps & steps ) const;
   void proposeSpoiling( Draw & draw, Steps & steps ) const;
   Verdict judgeVlan( Step const & step ) const;
   Verdict judgeSwitchIntf( Step const & step ) const;
   Verdict judgeSpoiling( Step const & step ) const;
   void spoilt( Step const & step );

   Bridging::VlanSet activeVlans() const;
   std::map< Pelt::IntfId, Carries > carriers( Bridging::VlanSet const & active ) const;
   Tables wantedTables( Bridging::VlanSet const & active ) const;
   // The machines write what is wanted now, and was not before.
   void bringTo( Tables wanted );
   void checkPublished();
   void checkCounts();
   // A verification pass looks at the chip now.
   void look();
   Kiv::Datum::Object membersAt( char const * path ) const;
   Kiv::String surplus( char const * what, char const * table,
                        std::set< Kiv::String > const & wanted ) const;
   Kiv::String vlanMismatch() const;
   Kiv::String memberMismatch() const;
   Kiv::String tpidMismatch() const;

   Kiv::Ptr< Feeders::Config const > const config_;
   PortsObserver const & ports_;
   LagObserver const & lags_;
   TableFaults faults_{ { "/sim/chip/vlan/vlanTable", "/sim/chip/vlan/memberTable",
                          "/sim/chip/vlan/nativeTable", "/sim/chip/vlan/tpidTable" } };
   // The VLANs that there are.
   Bridging::VlanSet vlans_;
   // What the machines want the chip to hold, and what it holds when all has been written.
   Tables wanted_, held_;
   // By table, what the machines changed and what was swept; not known since somebody wrote in the middle of
   // something, or the chip refused it.
   std::map< Kiv::String, std::uint64_t > writes_, swept_;
   bool countsAreOpen_ = false;
   // What they wanted at any time since they began: they get over what the chip refused, and leave
   // nothing of it behind.
   Tables asked_;
   // Since the last quiet the chip refused or delayed things; and was spoilt, too: who is written when
   // is nobody's promise then, and a restart brings it in line.
   bool wasFaulty_ = false;
   bool needsRestart_ = false;
   bool isUnsure_ = false; // so it was when faults ended last
   std::uint64_t restartWrites_ = 0, restartSwept_ = 0;
   // What the last pass found, and whether changes were on their way then.
   Kiv::String mismatch_;
   bool isLanding_ = false;
};

} // namespace Simulation
