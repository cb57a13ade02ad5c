// SPDX-License-Identifier: Apache-2.0
#include "simulation/Observer.h"

namespace Simulation {

using Kiv::String;

// clang-format off
using MakeObserver = std::unique_ptr< Observer > ( * )( Switch &, Observers & );
constexpr MakeObserver observerMakers[] = {
      makeObserver< class PortsObserver >,
      makeObserver< class LagObserver >,
      makeObserver< class VlanObserver >,
      makeObserver< class EventsObserver >,
      makeObserver< class StationsObserver >,
      makeObserver< class FramesObserver >,
      makeObserver< class ParityObserver >,
      makeObserver< class NonAgingObserver >,
      makeObserver< class MacProgrammerObserver >,
      makeObserver< class MacObserver >,
      makeObserver< class StormControlObserver >,
      makeObserver< class VerificationObserver >,
      makeObserver< class ContextObserver >,
};
// clang-format on

Observers::Observers( Switch & simulated ) {
   for( auto const make : observerMakers ) {
      observers_.push_back( make( simulated, *this ) );
   }
}

String
rowIn( Rows const & rows, String const & key ) {
   auto const found = rows.find( key );
   return found == rows.end() ? "" : found->second;
}

void
Observers::follow() {
   for( auto const & each : observers_ ) {
      each->follow();
   }
}

void
Observer::found( String const & what ) {
   observers_.found( String( name_ ) + ": " + what );
}

Rows
Observer::rowsAt( std::string_view path ) const {
   Rows rows;
   auto const datum = switch_.get( path );
   if( auto const * const members = datum.as< Kiv::Datum::Object >() ) {
      for( auto const & [ key, value ] : *members ) {
         rows.emplace( key, Kiv::datumText( value ) );
      }
   } else if( auto const * const elements = datum.as< Kiv::Datum::Array >() ) {
      for( auto const & element : *elements ) {
         rows.emplace( Kiv::datumText( element ), "" );
      }
   }
   return rows;
}

String
Observer::textAt( std::string_view path ) const {
   auto const datum = switch_.get( path );
   return datum.isNull() ? "" : Kiv::datumText( datum );
}

void
Observer::expectRows( std::string_view path, Rows const & expected ) {
   auto const is = rowsAt( path );
   if( is.empty() && switch_.get( path ).isNull() ) {
      return found( String( path ) + ": there is no such table" ); // not even an empty one
   }
   for( auto const & [ key, text ] : is ) {
      auto const wanted = expected.find( key );
      if( wanted == expected.end() ) {
         found( String( path ) + ": has " + key + " (" + text + "), which must not be there" );
      } else if( wanted->second != text ) {
         found( String( path ) + ": " + key + " is " + text + ", and must be " + wanted->second );
      }
   }
   for( auto const & [ key, text ] : expected ) {
      if( !is.contains( key ) ) {
         found( String( path ) + ": lacks " + key + ", which must be " + text );
      }
   }
}

void
Observer::expectText( std::string_view path, String const & expected ) {
   if( auto const is = textAt( path ); is != expected ) {
      found( String( path ) + ": is " + is + ", and must be " + expected );
   }
}

} // namespace Simulation
