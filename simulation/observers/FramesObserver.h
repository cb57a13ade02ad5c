// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Pelt/EthAddr.h"
#include "simulation/observers/PortsObserver.h"

#include <cstdint>

namespace Simulation {

class StationsObserver;

// Frames: where they go by what the chip's tables say, whoever wrote those, and with which tags.
class FramesObserver : public Observer {
 public:
   using Octets = std::vector< std::uint8_t >;

   FramesObserver( Switch & simulated, Observers & observers );

   unsigned weight() const override { return 18; }
   void propose( Draw & draw, Steps & steps ) override;
   Verdict judge( Step const & step ) const override;
   void heard( Step const & step, Kiv::Datum const & answer ) override;
   void chipForgot() override;
   void check() override;

 private:
   using Intfs = std::vector< Pelt::IntfId >;
   struct Header;
   struct Departure;
   struct Passing;
   // Of what depends by which member of a LAG a frame leaves.
   struct Choice {
      Pelt::EthAddr destination, source;
      Intfs members;
      auto operator<=>( Choice const & ) const = default;
   };

   // The types of outer tags that the port recognises, and of inner ones. With the first it tags.
   std::pair< std::vector< unsigned >, unsigned > tpidsOf( Pelt::IntfId port ) const;
   Header headerOf( Pelt::IntfId port, Octets const & octets ) const;
   Passing pass( Pelt::IntfId port, Octets const & octets );
   bool isDroppedBySource( Passing const & frame ) const;
   void forward( Passing & frame ) const;
   Intfs destinationsOf( Passing const & frame ) const;
   Intfs portsOf( Passing const & frame, Pelt::IntfId intf ) const;
   Kiv::String tagsOf( Passing const & frame, Departure const & departure,
                       Pelt::IntfId port ) const;
   // `dropped` and `answer`: what became of it.
   void compare( Step const & step, Passing const & frame, Kiv::String const & dropped,
                 Kiv::Datum const & answer );

   PortsObserver const & ports_;
   StationsObserver & stations_;
   std::uint64_t in_ = 0, out_ = 0;
   std::map< Kiv::String, std::uint64_t > dropped_; // by stage
   std::map< Choice, Pelt::IntfId > choices_;
};

} // namespace Simulation
