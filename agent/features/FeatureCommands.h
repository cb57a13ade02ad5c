// SPDX-License-Identifier: Apache-2.0
#pragma once

// The commands of the features, one file each.

#include "agent/Commands.h"
#include "agent/features/Switch.h"

#include <algorithm>
#include <vector>

namespace HobaAgent {

// `notes` tells what the import of a configuration had to say of storm control.
void addStormControlCommands( Commands & commands, Switch & sw,
                              std::function< std::vector< Kiv::String >() > notes );
// show interfaces, show lag, show vlan; and what the shell may offer for arguments that are interfaces
void addInterfaceCommands( Commands & commands, Switch & sw );
// sim link, speed, lag, drop, forget
void addSimCommands( Commands & commands, Switch & sw );
// show events, show parity, sim event ...
void addEventCommands( Commands & commands, Switch & sw );
// show mac, show mac non-aging, sim pcap
void addMacCommands( Commands & commands, Switch & sw );
void addVerifyCommand( Commands & commands );
void addLogCommands( Commands & commands );

// An argument that is the id of an interface of the class Id.
template< class Id >
Id
idOf( Request const & request, char const * argument ) {
   return Kiv::inPlace( argument, [ & ] { return Id::parse( request.text( argument ) ); } );
}
// The argument `vlan`, a VLAN; none when it is not given.
Bridging::VlanIdOrNone vlanOf( Request const & request );
// The argument `port`, a port of this switch.
Pelt::EthIntfId portIdOf( Switch & sw, Request const & request );
// The argument `state`, up or down.
Interface::LinkStatus linkStatusOf( Request const & request );
// Adds a command that brings an event from outside.
void addInput( Commands & commands, Switch & sw, char const * name, char const * help,
               std::vector< Argument > arguments,
               Kiv::Datum ( *handler )( Switch & sw, Request const & request ) );

// "10 Gb/s"; "unknown" for 0.
Kiv::String speedText( std::uint64_t kbps );
// An enumerator as words: "mac address learned" of eventTypeMacAddressLearned, without the prefix
// eventType that is common to all and says nothing.
Kiv::String spelled( Kiv::String const & enumerator, std::string_view prefix = {} );

// The keys of a collection in their own order: interfaces by number.
template< class Collection >
auto
sortedKeys( Collection const & collection ) {
   auto const keyOf = []( auto const & member ) {
      auto const & [ key, value ] = member;
      return key;
   };
   std::vector< decltype( keyOf( *collection.begin() ) ) > keys;
   for( auto const & member : collection ) {
      keys.push_back( keyOf( member ) );
   }
   std::sort( keys.begin(), keys.end() );
   return keys;
}

} // namespace HobaAgent
