// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Interface/EthPhyIntfStatus.h"
#include "agent/feeders/FeederConfig.h"
#include "simulation/Observer.h"
#include "types/HobaTypes.h"

namespace Simulation {

// The ports: which there are, their speed, and whether they take part.
class PortsObserver : public Observer {
 public:
   struct Port {
      std::uint64_t kbps = 0; // 0 when it is not known
      bool up = false;
      bool active = false;
      // What the machines know of the chip's reports.
      Interface::LinkStatus reported = Interface::linkUnknown;
      HobaTypes::FaultType fault = HobaTypes::faultNone;
   };

   PortsObserver( Switch & simulated, Observers & observers );

   // Those that the machines know.
   std::map< Pelt::IntfId, Port > const & ports() const { return ports_; }
   bool has( Pelt::IntfId port ) const { return ports_.contains( port ); }
   bool isActive( Pelt::IntfId port ) const { return has( port ) && ports_.at( port ).active; }
   // The operator has configured the port, whether or not machines run.
   bool isConfigured( Pelt::IntfId port ) const;

   // The machines applied what the chip reported of a link. False if they know no such port.
   bool linkReported( Pelt::IntfId port, Interface::LinkStatus link, HobaTypes::FaultType fault );

   void prepare( Draw & draw, Steps & steps ) override;
   unsigned weight() const override { return 14; }
   void propose( Draw & draw, Steps & steps ) override;
   Verdict judge( Step const & step ) const override;
   void follow() override;
   void began( HobaAgent::RestartKind kind ) override;
   void check() override;

 private:
   // What the chip knows of the link counts, if it knows anything.
   void askChip( Pelt::IntfId intf, Port & port ) const;
   void followPort( Pelt::IntfId port, Feeders::PortConfig const & config );

   Kiv::Ptr< Feeders::Config const > const config_;
   std::map< Pelt::IntfId, Port > ports_;
};

} // namespace Simulation
