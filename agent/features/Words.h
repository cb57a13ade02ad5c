// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the commands of features have in common: their arguments, and the words of their answers.

#include "agent/Commands.h"
#include "agent/features/Board.h"

#include <algorithm>
#include <vector>

namespace HobaAgent {

// ---- Commands whose handlers are members of a feature

// One that looks.
template< class F >
void
addShow( Commands & commands, F const & feature, char const * name, char const * help,
         std::vector< Argument > arguments, Kiv::Datum ( F::*handler )( Request const & ) const ) {
   commands.add( { .name = name,
                   .help = help,
                   .arguments = std::move( arguments ),
                   .handler = [ &feature, handler ]( Request const & request ) {
                      return ( feature.*handler )( request );
                   } } );
}
// One that brings something from outside.
template< class F >
void
addInput( Commands & commands, F & feature, char const * name, char const * help,
          std::vector< Argument > arguments, Kiv::Datum ( F::*handler )( Request const & ) ) {
   commands.add(
         { .name = name,
           .help = help,
           .arguments = std::move( arguments ),
           .handler = [ &feature, handler ](
                            Request const & request ) { return ( feature.*handler )( request ); },
           .isInput = true } );
}

// ---- Arguments. All throw Kiv::ParseError that names the argument.

// The argument, the id of an interface of the class Id.
template< class Id >
Id
idOf( Request const & request, char const * argument ) {
   return Kiv::inPlace( argument, [ & ] { return Id::parse( request.text( argument ) ); } );
}
// The argument `vlan`, a VLAN; none when it is not given.
Bridging::VlanIdOrNone vlanOf( Request const & request );
// The argument `port`, a port of this switch, and what is configured of it.
Pelt::EthIntfId portIdOf( Board const & board, Request const & request );
Kiv::Ptr< Feeders::PortConfig > portOf( Board const & board, Request const & request );
// The argument `state`, up or down.
Interface::LinkStatus linkStatusOf( Request const & request );
// The arguments `mac` and `vlan`, a station.
Bridging::MacVlanPair hostOf( Request const & request );
// Arguments that have to be given.
inline Argument const portArgument{ "port", "The port", true };
inline Argument const intfArgument{ "port", "The port, LAG or VXLAN interface", true };
inline Argument const macArgument{ "mac", "The station's MAC address", true };
inline Argument const vlanArgument{ "vlan", "The VLAN", true };

// ---- Answers

// "10 Gb/s"; "unknown" for 0.
Kiv::String speedText( std::uint64_t kbps );
// An enumerator as words: "mac address learned" of eventTypeMacAddressLearned, without the prefix
// eventType that is common to all and says nothing.
Kiv::String spelled( Kiv::String const & enumerator, std::string_view prefix = {} );
// The enumerator of that name, or of that word with hyphens between, as operators type it: `wordOf` says the word
// with blanks, and an empty one of what nobody can ask for. Throws Kiv::ParseError that lists all words.
template< class Enum, class WordOf >
Enum
enumeratorOf( Kiv::String const & text, WordOf const & wordOf ) {
   Kiv::String expected;
   for( auto const & [ name, value ] : kivEnumNames( Enum{} ).all() ) {
      auto const enumerator = static_cast< Enum >( value );
      Kiv::String word = wordOf( enumerator, name );
      if( word.empty() ) {
         continue;
      }
      std::replace( word.begin(), word.end(), ' ', '-' );
      if( word == text || name == text ) {
         return enumerator;
      }
      expected += ( expected.empty() ? "one of " : ", " ) + word;
   }
   Kiv::parseFailed( text, expected );
}
// "Ethernet1, Ethernet2, Ethernet5/1-48", by number; "-" for none.
Kiv::String listText( std::vector< Pelt::IntfId > intfs );

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

template< class Keys >
std::vector< Kiv::String >
namesOf( Keys const & keys ) {
   std::vector< Kiv::String > names;
   for( auto const & key : keys ) {
      names.push_back( Kiv::toText( key ) );
   }
   return names;
}

} // namespace HobaAgent
