// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaStormControlWanted.h"

#include "Hoba/HobaHelper.h"

#include <algorithm>

namespace Hoba {

using namespace Bridging::StormControl;

void
PortLevel::print( std::string & out ) const {
   port.print( out );
   out += ':';
   out += levelText( levelType ).substr( 1 );
}

PortLevel
PortLevel::parse( std::string_view text ) {
   auto const colon = text.rfind( ':' );
   for( auto levelType : allLevelTypes ) {
      if( colon != text.npos && text.substr( colon + 1 ) == levelText( levelType ).substr( 1 ) ) {
         return { Pelt::IntfId( text.substr( 0, colon ) ), levelType };
      }
   }
   Kiv::parseFailed( text, "port:level" );
}

namespace {

// What stands of this interface's configuration on the port; null for nothing.
HeldLevel const *
heldOn( LimitedIntf const & intf, Pelt::IntfId port, LevelType levelType ) {
   auto const * held = intf.held->find( { port, levelType } );
   return held && held->parent == intf.intf ? held : nullptr;
}

// Why the level does not stand as it is asked for; nothing if it does, on any port.
std::optional< LevelState >
standing( LimitedIntf const & intf, LevelType levelType ) {
   auto const & asked = intf.asked[ levelType ];
   if( asked.why == notConfigured || asked.why == levelNotSupported ) {
      return asked.why;
   }
   auto why = obstacle( intf );
   if( !why && speedOf( intf ) == 0 ) {
      why = intf.ports.empty() ? lagHasNoMember : LevelState::speedUnknown;
   }
   if( why ) {
      return asked.refused() ? asked.why : why;
   }
   bool const covered =
         std::all_of( intf.ports.begin(), intf.ports.end(), [ & ]( auto const & port ) {
            return port.kbps == 0 || wanted( intf, levelType, port ).why == supersededByAll;
         } );
   return covered ? supersededByAll : asked.why;
}

} // namespace

std::optional< LevelState >
obstacle( LimitedIntf const & intf ) {
   if( isPortChannel( intf.intf ) || !intf.config ) {
      return std::nullopt;
   }
   if( intf.ports.empty() ) {
      return intfNotPresent;
   }
   if( intf.memberOfLag ) {
      return LevelState::memberOfLag;
   }
   if( !intf.active ) {
      return intfInactive;
   }
   return speedOf( intf ) == 0 ? std::optional( LevelState::speedUnknown ) : std::nullopt;
}

LevelDecision
wanted( LimitedIntf const & intf, LevelType levelType, PortSpeed const & port ) {
   if( port.kbps == 0 && intf.config ) {
      return { false, LevelState::speedUnknown, {} };
   }
   bool const allStands =
         intf.asked[ levelTypeAll ].refused() && heldOn( intf, port.port, levelTypeAll );
   auto decision = decideLevelOnPort( intf.asked, levelType, allStands );
   if( decision.refused() ) {
      auto const * held = intf.held->find( { port.port, levelType } );
      decision.program = held && held->parent != intf.intf;
   }
   return decision;
}

std::span< LevelType const >
levelsWith( LimitedIntf const & intf, LevelType levelType ) {
   static constexpr LevelType superseding[] = { levelTypeAll, levelTypeBroadcast, levelTypeUUcast };
   if( levelType == levelTypeAll && !intf.asked[ levelTypeAll ].threshold.isDefault() ) {
      return superseding;
   }
   return { &allLevelTypes[ levelType ], 1 };
}

LevelStatus
statusOf( LimitedIntf const & intf, LevelType levelType ) {
   LevelStatus status{ {}, 0, standing( intf, levelType ).value_or( programmed ) };
   for( auto const & port : intf.ports ) {
      auto const * held = heldOn( intf, port.port, levelType );
      // A member of a LAG whose speed is not known adds nothing.
      if( held && ( port.port == intf.intf || port.kbps != 0 ) ) {
         status.rate += rateOf( held->speedKbps, held->threshold );
         if( status.threshold.isDefault() ) {
            status.threshold = held->threshold;
         }
      }
   }
   return status;
}

std::uint64_t
speedOf( LimitedIntf const & intf ) {
   std::uint64_t kbps = 0;
   for( auto const & port : intf.ports ) {
      kbps += port.kbps;
   }
   return kbps;
}

} // namespace Hoba
