// SPDX-License-Identifier: Apache-2.0
#include "agent/features/Stations.h"

#include "Hoba/HobaHelper.h"
#include "Hoba/HobaMacEvaluation.h"

#include <cstdio>

namespace HobaAgent {

using Kiv::String;

StationFilter::StationFilter( Board const & board, Request const & request )
      : vlan( vlanOf( request ) ), intf( request.value< Pelt::IntfId >( "port" ) ),
        addr( request.has( "mac" ) ? std::optional( request.value< Pelt::EthAddr >( "mac" ) )
                                   : std::nullopt ),
        lag( intf ? board.context()->portToLag( intf ) : Pelt::IntfId() ) {
   bool const isMissing =
         Pelt::EthIntfId::isEthIntfId( intf )
               ? !board.feederConfig->portHas( Pelt::EthIntfId( intf ) )
               : Hoba::isPortChannel( intf ) &&
                       !board.feederConfig->lagHas( Pelt::PortChannelIntfId( intf ) );
   if( isMissing ) {
      throw Kiv::ParseError( Kiv::toText( intf ) + " is not a port or LAG of this switch" );
   }
}

void
StationFilter::tellLag( TableAnswer & table ) const {
   if( lag ) {
      table.note( Kiv::toText( intf ) + " is an active member of " + Kiv::toText( lag ) );
   }
}

std::vector< Argument >
stationArguments() {
   return { { "vlan", "Only in this VLAN" },
            { "port", "Only behind this interface, or behind the LAG it is in" },
            { "mac", "Only this station" } };
}

String
BoundedLook::text( std::string_view what, std::size_t of ) const {
   auto text = counted( found_, what );
   if( hidden() ) {
      text += ", of which " + Kiv::toText( mostRows ) + " are shown and " +
              Kiv::toText( hidden() ) + " are not";
   }
   if( stopped_ ) {
      text += "; looked at " + Kiv::toText( looked_ ) + " of " + Kiv::toText( of ) +
              ", no further: ask for a VLAN, a port or a station";
   }
   return text;
}

String
agoText( Kiv::Seconds time ) {
   if( time == 0 ) {
      return "never";
   }
   char text[ 40 ];
   std::snprintf( text, sizeof text, "%.0f s ago", Kiv::ClockDriver::ambient().now() - time );
   return text;
}

String
macTypeText( Bridging::EntryType type ) {
   return type == Bridging::entryTypeUnknown ? String( "unknown" )
                                             : String( Hoba::macEntryTypeName( type ) );
}

Bridging::EntryType
macTypeOf( String const & text ) {
   return enumeratorOf< Bridging::EntryType >(
         text, []( auto type, auto const & ) { return macTypeText( type ); } );
}

} // namespace HobaAgent
