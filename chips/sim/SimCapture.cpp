// SPDX-License-Identifier: Apache-2.0
#include "chips/sim/SimCapture.h"

#include "Kiv/Clock.h"
#include "Kiv/DispatchRecorder.h"
#include "Kiv/Reflect.h"
#include "Zipline/Zipline.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <pcap.h>
#include <sys/stat.h>
#include <unistd.h>

ZIPLINE_HANDLE( SimCapture );

KIV_DEFINE( HobaSim::CaptureReplay );

namespace HobaSim {

namespace {

// How many frames that are due may be played before the event loop has its turn.
constexpr unsigned framesPerTurn = 4096;

[[noreturn]] void
captureFailed( Kiv::String const & file, Kiv::String const & text ) {
   throw Kiv::ParseError( "capture \"" + file + "\": " + text );
}

// A regular file, open for reading. What blocks whoever opens it (a pipe that nobody writes to)
// must not block the agent.
std::FILE *
openRegularFile( Kiv::String const & file ) {
   int const descriptor = ::open( file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC );
   struct stat status {};
   if( descriptor < 0 || ::fstat( descriptor, &status ) != 0 ) {
      captureFailed( file, std::strerror( errno ) );
   }
   if( !S_ISREG( status.st_mode ) ) {
      ::close( descriptor );
      captureFailed( file, S_ISDIR( status.st_mode ) ? "is a directory, expected a file"
                                                     : "is not a regular file" );
   }
   if( status.st_size == 0 ) {
      ::close( descriptor );
      captureFailed( file, "is empty, expected a packet capture" );
   }
   std::FILE * const stream = ::fdopen( descriptor, "rb" );
   if( !stream ) {
      ::close( descriptor );
      captureFailed( file, "no memory to read it" );
   }
   return stream;
}

// What the library found, in words for somebody who does not know it.
Kiv::String
damageText( std::string_view found ) {
   bool const cutOff = found.starts_with( "truncated" );
   auto const detail = cutOff ? found.find( "; " ) : std::string_view::npos;
   if( detail != std::string_view::npos ) {
      found.remove_prefix( detail + 2 );
   }
   return ( cutOff ? "it is cut off: " : "it is damaged: " ) + Kiv::String( found );
}

} // namespace

void
CaptureFile::Closer::operator()( pcap * handle ) const {
   ::pcap_close( handle );
}

CaptureFile::CaptureFile( Kiv::String const & file ) : file_( file ) {
   std::FILE * const stream = openRegularFile( file );
   char found[ PCAP_ERRBUF_SIZE ] = "";
   handle_.reset(
         ::pcap_fopen_offline_with_tstamp_precision( stream, PCAP_TSTAMP_PRECISION_NANO, found ) );
   if( !handle_ ) {
      std::fclose( stream ); // otherwise it belongs to the handle
      bool const cutOff = std::string_view( found ).starts_with( "truncated" );
      captureFailed( file, cutOff ? "ended after 0 frames: " + damageText( found )
                                  : "is no packet capture (pcap or pcapng) that can be read: " +
                                          Kiv::String( found ) );
   }
   int const linkType = ::pcap_datalink( handle_.get() );
   if( linkType != DLT_EN10MB ) {
      char const * const name = ::pcap_datalink_val_to_name( linkType );
      captureFailed( file, "has frames of link type " +
                                 ( name ? Kiv::String( name ) : Kiv::toText( linkType ) ) +
                                 ", expected Ethernet" );
   }
}

std::optional< CaptureFile::Frame >
CaptureFile::next() {
   if( !handle_ ) {
      return {};
   }
   pcap_pkthdr * header = nullptr;
   unsigned char const * bytes = nullptr;
   int const result = ::pcap_next_ex( handle_.get(), &header, &bytes );
   if( result != 1 ) {
      bool const damaged = result != PCAP_ERROR_BREAK; // which is what it calls the end of a file
      auto const text = damaged ? damageText( ::pcap_geterr( handle_.get() ) ) : Kiv::String();
      handle_.reset();
      if( damaged ) {
         captureFailed( file_, "ended after " + Kiv::toText( frames_ ) +
                                     ( frames_ == 1 ? " frame: " : " frames: " ) + text );
      }
      return {};
   }
   // Nanoseconds since 1970 need more digits than a double has; the distance does not.
   auto const seconds = static_cast< Kiv::Seconds >( header->ts.tv_sec );
   std::int64_t const nanoseconds = header->ts.tv_usec;
   if( frames_++ == 0 ) {
      firstSeconds_ = seconds;
      firstNanoseconds_ = nanoseconds;
   }
   auto const rest = static_cast< Kiv::Seconds >( nanoseconds - firstNanoseconds_ );
   return Frame{ seconds - firstSeconds_ + rest / 1e9, { bytes, header->caplen } };
}

// A capture on its way. What it goes by is its own: the attributes are for people to look at.
class CaptureReplay::Playing final : public Kiv::Timer {
 public:
   Playing( CaptureReplay & replay, CaptureFile captureFile,
            Kiv::Ptr< Kiv::Clock > const & clockOf )
         : Timer( *clockOf ), capture( std::move( captureFile ) ), port( replay.port() ),
           speed( replay.speed() ), startTime( clockOf->now() ), replay_( replay ),
           keptClock_( clockOf ) {}

   CaptureFile capture;
   std::optional< CaptureFile::Frame > upcoming;
   Pelt::IntfId const port;
   double const speed;
   Kiv::Seconds const startTime;

 private:
   void onTimeout() override {
      // Handlers may stop the replay and drop it: it lives until this has returned.
      Kiv::Dispatch::Frame frame;
      Kiv::DispatchRecorder::Scope recorded( Kiv::DispatchRecorder::Kind::timeout, "timeout" );
      replay_.playDue();
   }

   CaptureReplay & replay_;
   Kiv::Ptr< Kiv::Clock > const keptClock_;
};

CaptureReplay::CaptureReplay( Kiv::String const & replayName, Kiv::Ptr< PathUnit > const & path )
      : Entity( replayName ), path_( path ) {}

CaptureReplay::~CaptureReplay() = default;

void
CaptureReplay::checkStart( Pelt::IntfId intf ) const {
   if( playing_ ) {
      throw Kiv::ParseError( "capture \"" + file() + "\" is still being played, after " +
                             Kiv::toText( frames() ) + " frames: stop it first" );
   }
   PathUnit::checkPort( intf );
}

void
CaptureReplay::describe( Kiv::String const & fileName, Pelt::IntfId intf, double factor ) {
   ZTRACE( 3, "Plays ", fileName, " into ", intf, " at speed ", factor );
   fileIs( fileName );
   portIs( intf );
   speedIs( factor );
   framesIs( 0 );
   errorIs( {} );
}

void
CaptureReplay::play( CaptureFile::Frame const & frame, Pelt::IntfId intf ) {
   framesInc( 1 );
   path_->frame( intf, frame.bytes );
}

std::uint64_t
CaptureReplay::playAll( Kiv::String const & fileName, Pelt::IntfId intf ) {
   checkStart( intf );
   CaptureFile capture( fileName );
   // Who hears of the frames may drop the chip.
   Kiv::Ptr< CaptureReplay > const kept( this );
   describe( fileName, intf, 0 );
   try {
      while( auto const frame = capture.next() ) {
         play( *frame, intf );
      }
   } catch( Kiv::ParseError const & fault ) {
      errorIs( fault.what() );
      throw;
   }
   return capture.frames();
}

void
CaptureReplay::start( Kiv::String const & fileName, Pelt::IntfId intf, double factor ) {
   checkStart( intf );
   if( !( factor >= minSpeed && factor <= maxSpeed ) ) {
      Kiv::parseFailed( Kiv::toText( factor ), "the speed of a replay: " + Kiv::toText( minSpeed ) +
                                                     " to " + Kiv::toText( maxSpeed ) );
   }
   CaptureFile capture( fileName );
   Kiv::Dispatch::Frame dispatch;
   describe( fileName, intf, factor );
   auto const playing =
         std::make_shared< Playing >( *this, std::move( capture ), Kiv::make< Kiv::Clock >() );
   playing_ = playing;
   playing->timeMinIs( playing->startTime );
   nextTimeIs( playing->startTime );
   runningIs( playing_ == playing ); // unless somebody stopped it who heard of this
}

void
CaptureReplay::stop() {
   if( playing_ ) {
      Kiv::Dispatch::Frame dispatch;
      finish( "stopped after " + Kiv::toText( frames() ) + " frames" );
   }
}

void
CaptureReplay::finish( Kiv::String const & why ) {
   ZTRACE( 3, "Has played ", frames(), " frames of ", file(), ". ", why );
   playing_ = nullptr;
   nextTimeIs( 0 );
   errorIs( why );
   runningIs( false );
}

void
CaptureReplay::playDue() {
   auto const playing = playing_; // handlers may stop it, and start another one
   auto const now = playing->clock().now();
   for( unsigned played = 0; playing_ == playing; ++played ) {
      try {
         if( !playing->upcoming ) {
            playing->upcoming = playing->capture.next();
         }
      } catch( Kiv::ParseError const & fault ) {
         return finish( fault.what() );
      }
      if( !playing->upcoming ) {
         return finish( {} );
      }
      auto const due = playing->startTime + playing->upcoming->time / playing->speed;
      if( due > now || played == framesPerTurn ) {
         playing->timeMinIs( due );
         return nextTimeIs( due );
      }
      auto const frame = *std::exchange( playing->upcoming, std::nullopt );
      play( frame, playing->port );
   }
}

} // namespace HobaSim
