// SPDX-License-Identifier: Apache-2.0
#include "agent/features/Feature.h"
#include "agent/features/Words.h"
#include "chips/sim/SimChip.h"

// The simulated chip itself: what it holds, for whoever looks at it or spoils it to see verification
// find it, and the frames that come in.

namespace HobaAgent {

using Kiv::Datum;

class ChipFeature : public Feature {
 public:
   explicit ChipFeature( Board & board ) : Feature( board, "chip" ) {}
   ~ChipFeature() override { chip().capture()->stop(); }

   void mounts() override { mount( "/sim/chip", board().chip, Tessera::Access::writable ); }
   void commands( Commands & commands ) override;

 private:
   HobaSim::Chip & chip() const { return *board().chip; }
   Datum playCapture( Request const & request );
   Datum stopCapture( Request const & );
};

Datum
ChipFeature::playCapture( Request const & request ) {
   auto const port = portIdOf( board(), request );
   auto const vlan = request.value(
         "vlan", Bridging::VlanId( board().feederConfig->nativeVlan( port ).value() ) );
   auto & capture = *chip().capture();
   if( request.has( "speed" ) ) {
      capture.start( request.text( "file" ), port, vlan, request.value< double >( "speed" ) );
      return "playing; get /sim/chip/capture tells how far it is";
   }
   auto const & mac = *chip().mac();
   auto const learnt = mac.count( HobaSim::macLearnt ), moved = mac.count( HobaSim::macMoved ),
              hits = mac.count( HobaSim::macHits );
   auto const frames = capture.playAll( request.text( "file" ), port, vlan );
   return Kiv::toText( frames ) +
          " frames: " + Kiv::toText( mac.count( HobaSim::macLearnt ) - learnt ) +
          " stations learnt, " + Kiv::toText( mac.count( HobaSim::macMoved ) - moved ) +
          " moved, " + Kiv::toText( mac.count( HobaSim::macHits ) - hits ) +
          " frames from known ones";
}

Datum
ChipFeature::stopCapture( Request const & ) {
   chip().capture()->stop();
   return {};
}

void
ChipFeature::commands( Commands & commands ) {
   addInput( commands, *this, "sim pcap", "Lets the frames of a capture come in on a port",
             { { "file", "The capture: pcap or pcapng", true, false, true },
               portArgument,
               { "vlan", "Of frames without a tag; the port's own unless given" },
               { "speed", "Paced by its time stamps, so many times as fast; else all at once" } },
             &ChipFeature::playCapture );
   addInput( commands, *this, "sim pcap stop", "Plays the capture no further", {},
             &ChipFeature::stopCapture );
}

HOBA_FEATURE( ChipFeature );

} // namespace HobaAgent
