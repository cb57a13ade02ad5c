// SPDX-License-Identifier: Apache-2.0
#include "agent/features/Feature.h"
#include "agent/features/Words.h"
#include "chips/sim/SimChip.h"

#include <array>
#include <charconv>
#include <map>

// The simulated chip itself: what it holds, for whoever looks at it or spoils it to see verification
// find it, and the frames that come in.

namespace HobaAgent {

using HobaSim::FrameHeader;
using HobaSim::FrameTag;
using Kiv::Datum;
using Kiv::String;
using Kiv::toText;

class ChipFeature : public Feature {
 public:
   explicit ChipFeature( Board & board ) : Feature( board, "chip" ) {}
   ~ChipFeature() override { chip().capture()->stop(); }

   void mounts() override { mount( "/sim/chip", board().chip, Tessera::Access::writable ); }
   void commands( Commands & commands ) override;

 private:
   HobaSim::Chip & chip() const { return *board().chip; }
   Datum sendFrame( Request const & request );
   Datum playCapture( Request const & request );
   Datum stopCapture( Request const & );
};

// ---- Frames

namespace {

constexpr std::size_t shortestFrame = 60; // without its checksum

// A number up to `most`, decimal or as 0x...
std::uint16_t
numberOf( Request const & request, char const * argument, unsigned otherwise, unsigned most ) {
   if( !request.has( argument ) ) {
      return static_cast< std::uint16_t >( otherwise );
   }
   auto const text = request.text( argument );
   bool const isHex = text.starts_with( "0x" );
   unsigned number = 0;
   auto const * const end = text.data() + text.size();
   auto const result =
         std::from_chars( text.data() + ( isHex ? 2 : 0 ), end, number, isHex ? 16 : 10 );
   if( result.ec != std::errc() || result.ptr != end || number > most ) {
      Kiv::inPlace( argument,
                    [ & ] { Kiv::parseFailed( text, "a number from 0 to " + toText( most ) ); } );
   }
   return static_cast< std::uint16_t >( number );
}

FrameHeader
frameOf( Request const & request, HobaSim::FrameTpids const & tpids ) {
   FrameHeader header;
   header.destination = request.value< Pelt::EthAddr >( "destination" );
   header.source = request.value< Pelt::EthAddr >( "source" );
   header.etherType = numberOf( request, "type", 0x800, 0xffff );
   auto const priority = static_cast< std::uint8_t >( numberOf( request, "priority", 0, 7 ) );
   for( auto const * argument : { "vlan", "inner" } ) {
      if( !request.has( argument ) ) {
         continue;
      }
      bool const isInner = argument == std::string_view( "inner" );
      if( isInner && !header.tags ) {
         throw Kiv::ParseError( "inner: a second tag comes with a first one: vlan" );
      }
      ( isInner ? header.inner : header.outer ) =
            FrameTag{ isInner ? tpids.inner : tpids.outer, isInner ? std::uint8_t( 0 ) : priority,
                      false, numberOf( request, argument, 0, 4095 ) };
      ++header.tags;
   }
   if( priority && !header.tags ) {
      throw Kiv::ParseError( "priority: it stands in a tag: vlan, which may be 0" );
   }
   return header;
}

Datum
departuresOf( HobaSim::PathFrame const & frame ) {
   Datum::Array all;
   for( auto const & departure : frame.departures ) {
      Datum::Array tags;
      FrameTag const both[] = { departure.header.outer, departure.header.inner };
      for( auto const & tag : std::span( both ).first( departure.header.tags ) ) {
         tags.push_back( Kiv::toDatum( tag ) );
      }
      all.push_back( Datum::Object{ { "port", toText( departure.port ) },
                                    { "intf", toText( departure.intf ) },
                                    { "tags", std::move( tags ) } } );
   }
   return all;
}

} // namespace

Datum
ChipFeature::sendFrame( Request const & request ) {
   auto const port = portIdOf( board(), request );
   auto octets = frameHeaderOctets( frameOf( request, chip().path()->tpids( port ) ) );
   octets.resize( std::max( octets.size(), shortestFrame ) );
   auto const frame = chip().path()->frame( port, octets, true );
   TableAnswer table( { "Stage", "What it did" } );
   for( auto const & step : frame.steps() ) {
      table.row( { step.stage, step.text } );
   }
   table.note( frame.dropped() ? "dropped"
                               : "left by " + counted( frame.departures.size(), "port" ) );
   table.member( "departures", departuresOf( frame ) );
   return table.take();
}

Datum
ChipFeature::playCapture( Request const & request ) {
   auto const port = portIdOf( board(), request );
   auto & capture = *chip().capture();
   if( request.has( "speed" ) ) {
      capture.start( request.text( "file" ), port, request.value< double >( "speed" ) );
      return "playing; get /sim/chip/capture tells how far it is";
   }
   auto const & mac = *chip().mac();
   auto const & path = *chip().path();
   auto const counts = [ & ] {
      return std::array{ mac.count( HobaSim::macLearnt ), mac.count( HobaSim::macMoved ),
                         mac.count( HobaSim::macHits ) };
   };
   auto const before = counts();
   std::map< HobaSim::Name, std::uint64_t > dropped;
   for( auto const & [ stage, count ] : path.drop() ) {
      dropped[ stage ] = count;
   }
   auto const frames = capture.playAll( request.text( "file" ), port );
   auto const after = counts();
   auto text = toText( frames ) + " frames: " + toText( after[ 0 ] - before[ 0 ] ) +
               " stations learnt, " + toText( after[ 1 ] - before[ 1 ] ) + " moved, " +
               toText( after[ 2 ] - before[ 2 ] ) + " frames from known ones";
   String separator = "; dropped: ";
   for( auto const & [ stage, count ] : path.drop() ) {
      if( auto const more = count - dropped[ stage ] ) {
         text += separator + toText( more ) + " at " + stage.text();
         separator = ", ";
      }
   }
   return text;
}

Datum
ChipFeature::stopCapture( Request const & ) {
   chip().capture()->stop();
   return {};
}

void
ChipFeature::commands( Commands & commands ) {
   addInput( commands, *this, "sim frame",
             "Lets a frame come in on a port; tells what becomes of it",
             { portArgument,
               { "destination", "The MAC address it is for", true },
               { "source", "The MAC address it is from", true },
               { "vlan", "The VLAN of its tag; 0 for a tag that gives a priority only" },
               { "inner", "The VLAN of a second tag" },
               { "priority", "Of the tag, 0 to 7" },
               { "type", "The Ethernet type, such as 0x86dd; 0x800 unless given" } },
             &ChipFeature::sendFrame );
   addInput( commands, *this, "sim pcap", "Lets the frames of a capture come in on a port",
             { { "file", "The capture: pcap or pcapng", true, false, true },
               portArgument,
               { "speed", "Paced by its time stamps, so many times as fast; else all at once" } },
             &ChipFeature::playCapture );
   addInput( commands, *this, "sim pcap stop", "Plays the capture no further", {},
             &ChipFeature::stopCapture );
}

HOBA_FEATURE( ChipFeature );

} // namespace HobaAgent
