// SPDX-License-Identifier: Apache-2.0
#include "agent/features/Feature.h"
#include "agent/features/FrameCommands.h"
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
   Datum frame( Request const & request ) {
      return sendFrame( chip(), portIdOf( board(), request ), request );
   }
   Datum capture( Request const & request ) {
      return playCapture( chip(), portIdOf( board(), request ), request );
   }
   Datum stopCapture( Request const & );
};

Datum
ChipFeature::stopCapture( Request const & ) {
   chip().capture()->stop();
   return {};
}

void
ChipFeature::commands( Commands & commands ) {
   addInput( commands, *this, "sim frame",
             "Lets a frame come in on a port; tells what becomes of it", frameArguments(),
             &ChipFeature::frame );
   addInput( commands, *this, "sim pcap", "Lets the frames of a capture come in on a port",
             { { "file", "The capture: pcap or pcapng", true, false, true },
               portArgument,
               { "speed", "Paced by its time stamps, so many times as fast; else all at once" } },
             &ChipFeature::capture );
   addInput( commands, *this, "sim pcap stop", "Plays the capture no further", {},
             &ChipFeature::stopCapture );
}

HOBA_FEATURE( ChipFeature );

} // namespace HobaAgent
