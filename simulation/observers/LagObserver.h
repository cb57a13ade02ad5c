// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Lag/Lag.h"
#include "simulation/TableFaults.h"
#include "simulation/observers/PortsObserver.h"

namespace Simulation {

// The LAGs: which there are, which ports the operator put into them, and which of these take part.
class LagObserver : public Observer {
 public:
   using Ports = std::vector< Pelt::IntfId >;

   LagObserver( Switch & simulated, Observers & observers );

   bool has( Pelt::IntfId lag ) const { return lags_.contains( lag ); }
   // The LAGs that the machines know.
   std::vector< Pelt::IntfId > lags() const;
   // Its active members, in the order in which they joined.
   Ports active( Pelt::IntfId lag ) const;
   // The LAG that the port is an active member of; the empty id for none.
   Pelt::IntfId lagOf( Pelt::IntfId port ) const;
   // The LAG that exists and that the existing port was put into; the empty id for none.
   Pelt::IntfId configuredLagOf( Pelt::IntfId port ) const;

   void prepare( Draw & draw, Steps & steps ) override;
   unsigned weight() const override { return 14; }
   void propose( Draw & draw, Steps & steps ) override;
   Steps heal() override { return faults_.heal(); }
   bool hasFaults() const override { return faults_.any(); }
   bool mayFail( std::string_view step ) const override {
      return step.starts_with( "HobaSim::ChipLagSm" );
   }
   Kiv::Seconds settlingTime() const override { return 1.25; }
   Verdict judge( Step const & step ) const override;
   void heard( Step const & step, Kiv::Datum const & answer ) override;
   void follow() override;
   void began( HobaAgent::RestartKind kind ) override;
   std::uint64_t restartWrites() const override { return writes_; }
   std::uint64_t restartSwept() const override { return swept_; }
   void check() override;

 private:
   struct Lag {
      Ports configured;
      Ports active;
   };
   // In the order in which the operator put them there.
   Ports asked( Pelt::IntfId lag ) const;
   void followMembers( Pelt::IntfId lag, Lag & model );

   Kiv::Ptr< Feeders::Config const > const config_;
   Kiv::Ptr< ::Lag::Input::Config const > const input_;
   PortsObserver const & ports_;
   TableFaults faults_{ { "/sim/chip/trunk/lagTable" } };
   // By port: the LAG that it is an active member of.
   Rows ways() const;

   std::map< Pelt::IntfId, Lag > lags_;
   std::uint64_t writes_ = 0, swept_ = 0; // of the chip, when the machines began last
   // By port: the LAG that it was put into, as it was before the step that is heard of.
   std::map< Pelt::IntfId, Pelt::IntfId > askedBefore_;
};

} // namespace Simulation
