// SPDX-License-Identifier: Apache-2.0
#pragma once

// Calls of hardware hooks, so that a record of the dispatch shows them with their arguments:
//
//    callHook< &StormControlSmHelper::setHwRate >( *helper, levelType, intf, parent, speed, threshold );
//
// What the hook throws passes through, and ends the handler that called it: see Hoba/HobaBaseSm.h.

#include "Kiv/Datum.h"
#include "Kiv/Reactor.h"

namespace Hoba {

template< class T >
Kiv::String
hookArgument( T const & argument ) {
   if constexpr( std::is_base_of_v< Kiv::Entity, T > ) {
      return argument.name();
   } else {
      return Kiv::datumText( Kiv::toDatum( argument ) ); // shorter than the printed form of values
   }
}

template< auto hook, class Target, class... Args >
decltype( auto )
callHook( Target & target, Args const &... args ) {
   Kiv::DispatchRecorder::Scope recorded( Kiv::DispatchRecorder::Kind::hook, [ & ] {
      Kiv::String values;
      [[maybe_unused]] char const * separator = "( ";
      ( ( values += separator, values += hookArgument( args ), separator = ", " ), ... );
      values += sizeof...( args ) == 0 ? "()" : " )";
      return Kiv::DispatchRecorder::Text( Kiv::String( Kiv::handlerName< hook >() ), values );
   } );
   return ( target.*hook )( args... );
}

} // namespace Hoba
