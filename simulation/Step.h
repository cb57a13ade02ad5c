// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a history is made of: lines as an operator would type them for hobactl, and a few more.
//
//    set PATH TEXT              as hobactl set; TEXT is one word, or JSON without spaces
//    del PATH
//    sim link Ethernet1 down    or any other command of the agent
//    frame Ethernet1 HEX        the octets of a frame come in on a port of the chip
//    event-ahead eventTypeMacAddressAged 00:00:5e:00:53:01@1 Ethernet1 [TUNNEL]
//                               the driver has news of a station that come ahead of all that is queued
//    mac-flush 10@Ethernet1     the chip is to forget what ages there; * for all VLANs, or all interfaces
//    start                      the machines begin, at first cold; what stands before it was configured
//                               while there were none
//    stop                       the machines go, and the chip goes on; the next start is hitless
//    wait 2.5                   so many seconds of virtual time pass
//    upon PATH STEP...          the step is done in the middle of the next change at or below the path, by
//                               whoever hears of it; no longer than until the next quiet
//    quiet                      faults end, time passes until nothing happens any more, and every
//                               observer looks
//
// Between steps no time passes: several of them meet the machines before these have run.

#include "Kiv/Text.h"

#include <optional>
#include <vector>

namespace Simulation {

class Step {
 public:
   Step() = default;
   // Words, separated by single spaces.
   Step( Kiv::String const & text );
   Step( char const * text ) : Step( Kiv::String( text ) ) {}

   std::vector< Kiv::String > const & words() const { return words_; }
   // The word at that place; empty behind the last.
   Kiv::String const & operator[]( std::size_t place ) const;
   std::size_t size() const { return words_.size(); }
   // Whether its first words are these: step.begins( "sim link" ).
   bool begins( std::string_view words ) const;
   // A set or del at this path or below: step.isAt( "/feeders/config/port" ).
   bool isAt( std::string_view path ) const;
   Kiv::String text() const;
   // What stands behind the first words, as a step.
   Step from( std::size_t place ) const;
   // The same with another word at that place.
   Step with( std::size_t place, Kiv::String const & word ) const;

   bool operator==( Step const & ) const = default;

 private:
   std::vector< Kiv::String > words_;
};
using Steps = std::vector< Step >;

// What the word says, as a value of type T; nothing if it says none.
template< class T >
std::optional< T >
parsed( Kiv::String const & word ) {
   try {
      return Kiv::fromText< T >( word );
   } catch( Kiv::Exception const & ) {
      return {};
   }
}

} // namespace Simulation
