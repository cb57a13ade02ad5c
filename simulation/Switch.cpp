// SPDX-License-Identifier: Apache-2.0
#include "simulation/Switch.h"

#include "Hoba/HobaCallbacks.h"
#include "Hoba/HobaLog.h"
#include "agent/common/Json.h"
#include "agent/features/Features.h"
#include "chips/sim/SimChip.h"
#include "simulation/Hex.h"

#include <cstdlib>
#include <ctime>

namespace Simulation {

using Kiv::Datum;
using Kiv::String;

Switch::Switch() {
   // A mismatch is told, and does not end the process.
   ::setenv( "SIMULATION_VMID", "1", 1 );
   // Times are printed in the local time zone: in the same one everywhere.
   ::setenv( "TZ", "UTC", 1 );
   ::tzset();
   Kiv::ClockDriver::ambientIs( driver_ );
   chip_ = Kiv::make< HobaSim::Chip >();
   features_ = std::make_unique< HobaAgent::Features >(
         database_, commands_, chip_, [ this ]( String const & reason ) {
            restartReason_ = restartReason_.value_or( reason );
         } );
}

Switch::~Switch() = default;

Outcome
Switch::run( Step const & step ) {
   Outcome outcome;
   try {
      if( step[ 0 ] == "set" ) {
         if( step[ 2 ].starts_with( '{' ) || step[ 2 ].starts_with( '[' ) ) {
            database_.set( step[ 1 ], HobaAgent::parseJson( step[ 2 ] ) );
         } else {
            database_.setText( step[ 1 ], step[ 2 ] );
         }
      } else if( step[ 0 ] == "del" ) {
         database_.del( step[ 1 ] );
      } else if( step[ 0 ] == "frame" ) {
         outcome.answer = frame( step );
      } else if( step[ 0 ] == "event-ahead" ) {
         eventAhead( step );
      } else if( step[ 0 ] == "mac-flush" ) {
         chip_->mac()->flushIn( HobaSim::MacScope::parse( step[ 1 ] ) );
      } else {
         Datum request( Datum::Object{} );
         request.add( "command", step[ 0 ] );
         auto const & words = step.words();
         request.add( "words", Datum::Array( words.begin() + 1, words.end() ) );
         outcome.answer = commands_.run( request );
      }
   } catch( Kiv::Exception const & error ) {
      outcome = { .accepted = false, .refusal = error.what() };
   }
   return outcome;
}

Datum
Switch::frame( Step const & step ) {
   auto const octets = octetsIn( step[ 2 ] );
   if( !octets ) {
      Kiv::parseFailed( step[ 2 ], "octets in hexadecimal" );
   }
   auto const frame = chip_->path()->frame( Pelt::IntfId::parse( step[ 1 ] ), *octets );
   Datum::Array departures;
   for( auto const & departure : frame.departures ) {
      // Between the addresses and the last type.
      auto const header = frameHeaderOctets( departure.header );
      auto const tags = hexOf( std::span( header ).subspan( 12, header.size() - 14 ) );
      departures.push_back( Datum::Object{ { "port", Kiv::toText( departure.port ) },
                                           { "intf", Kiv::toText( departure.intf ) },
                                           { "tags", tags } } );
   }
   return Datum::Object{ { "dropped", frame.droppedAt() }, { "departures", departures } };
}

void
Switch::eventAhead( Step const & step ) {
   Hoba::HobaEvent event;
   event.eventType = Kiv::fromText< Hoba::HobaEvent::HobaEventType >( step[ 1 ] );
   event.host = Bridging::MacVlanPair::parse( step[ 2 ] );
   event.port = Pelt::IntfId::parse( step[ 3 ] );
   event.portType = HobaSim::portTypeOf( event.port );
   event.tunnelId = step[ 4 ].empty() ? 0 : Kiv::fromText< std::uint32_t >( step[ 4 ] );
   Hoba::newMacEventIs( event );
}

std::optional< String >
Switch::takeRestart() {
   return std::exchange( restartReason_, std::nullopt );
}

void
Switch::restart( HobaAgent::RestartKind kind ) {
   features_->stop();
   features_->start( kind );
   isRunning_ = true;
}

void
Switch::stop() {
   features_->stop();
   isRunning_ = false;
}

Datum
Switch::get( std::string_view path ) const {
   try {
      return database_.get( path );
   } catch( Tessera::Error const & ) {
      return {};
   }
}

std::vector< LogLine >
Switch::logBehind( std::uint64_t number ) const {
   auto const & all = Hoba::logEntries();
   auto first = all.end();
   while( first != all.begin() && std::prev( first )->sequence > number ) {
      --first;
   }
   std::vector< LogLine > lines;
   for( ; first != all.end(); ++first ) {
      lines.push_back( { first->sequence, first->time, first->message->name, first->text } );
   }
   return lines;
}

std::uint64_t
Switch::watch( std::string_view path, std::function< void() > look ) {
   return database_.watch( path, [ look ]( auto const &, auto const & ) { look(); } );
}

std::uint64_t
Switch::writes() const {
   return chip_->writes();
}

std::uint64_t
Switch::swept() const {
   return chip_->swept();
}

} // namespace Simulation
