// SPDX-License-Identifier: Apache-2.0
#pragma once

// Packet captures as traffic of the simulated chip: pcap and pcapng files of Ethernet frames.

#include "Kiv/Entity.h"
#include "chips/sim/SimPath.h"

#include <memory>
#include <optional>

struct pcap;

namespace HobaSim {

// A capture file, read frame by frame. Of a frame nothing but its header need have been captured.
class CaptureFile {
 public:
   struct Frame {
      // Seconds after the file's first frame by the time stamps, which may go back.
      Kiv::Seconds time;
      // As far as it was captured. Valid until the next call of next().
      std::span< std::uint8_t const > bytes;
   };

   // Throws Kiv::ParseError, with the name and the fault, when `file` cannot be opened, is no
   // regular file, no capture, or not one of Ethernet frames.
   explicit CaptureFile( Kiv::String const & file );

   // The next frame; nothing at the end. Throws Kiv::ParseError when the file goes no further
   // because it is cut off or damaged: the text says where, and there is nothing after it.
   std::optional< Frame > next();

   // How many frames next() has returned.
   std::uint64_t frames() const { return frames_; }

 private:
   struct Closer {
      void operator()( pcap * handle ) const;
   };

   Kiv::String const file_;
   std::unique_ptr< pcap, Closer > handle_; // null once the end is reached
   std::uint64_t frames_ = 0;
   // The first frame's time stamp: seconds, and nanoseconds.
   Kiv::Seconds firstSeconds_ = 0;
   std::int64_t firstNanoseconds_ = 0;
};

// Lets the frames of a capture come in on a port of the chip: all at once, or at the pace at which
// they were captured, by the agent's clock. One capture at a time.
class CaptureReplay : public Kiv::Entity {
   KIV_ENTITY( HobaSim::CaptureReplay );
   // The capture that is played, or was last: for people to look at, and nobody to write.
   KIV_ATTRIBUTE( Kiv::String, file );
   KIV_ATTRIBUTE( Pelt::IntfId, port );
   // 0 for all at once.
   KIV_ATTRIBUTE( double, speed, 0 );
   // Frames played so far.
   KIV_COUNTER( std::uint64_t, frames );
   KIV_ATTRIBUTE( bool, running, false );
   // When the next frame is due, by the agent's clock; 0 when none is.
   KIV_ATTRIBUTE( Kiv::Seconds, nextTime, 0 );
   // Why it ended before the end of the file; empty otherwise.
   KIV_ATTRIBUTE( Kiv::String, error );

 public:
   static constexpr double minSpeed = 0.001;
   static constexpr double maxSpeed = 1'000'000;

   CaptureReplay( Kiv::String const & replayName, Kiv::Ptr< PathUnit > const & path );
   ~CaptureReplay() override;

   // Plays the whole file before it returns, which is how many frames that were. Throws
   // Kiv::ParseError for a file as CaptureFile, for a port as PathUnit::checkPort() (SimPath.h),
   // and while another capture is being played: nothing is played then, and the attributes stay as
   // they are. A file that is found damaged on the way has been played up to there; the text, which
   // `error` has too, says after how many frames.
   std::uint64_t playAll( Kiv::String const & file, Pelt::IntfId port );

   // Plays the file from now on: each frame at its distance from the first one divided by `speed`
   // (1 is as captured, 10 is ten times as fast), frames of one time in one go. A frame whose time
   // has passed, as when time stamps go back, is played at once. The clock is one on the ambient
   // driver. Throws as playAll(), but for a damaged file, which ends it with `error`; also for a
   // speed outside minSpeed..maxSpeed.
   void start( Kiv::String const & file, Pelt::IntfId port, double speed );

   // Plays no further, which `error` says then. Nothing when nothing is being played.
   void stop();

 private:
   class Playing;

   void checkStart( Pelt::IntfId port ) const;
   void describe( Kiv::String const & file, Pelt::IntfId port, double speed );
   void playDue();
   // Lets one frame come in.
   void play( CaptureFile::Frame const & frame, Pelt::IntfId intf );
   void finish( Kiv::String const & why );

   Kiv::Ptr< PathUnit > const path_;
   std::shared_ptr< Playing > playing_;
};

} // namespace HobaSim
