// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaHelper.h"
#include "Kiv/ClockDriver.h"
#include "agent/features/Feature.h"
#include "agent/features/Stations.h"
#include "agent/features/Words.h"
#include "chips/sim/SimChip.h"

#include <algorithm>
#include <cstdio>
#include <optional>

// Stations that the hardware reported, and a chip that sees them come and go on command.

namespace HobaAgent {

using Entry = HobaTypes::MacAddressTableEntry;
using Hoba::HobaEvent;
using Kiv::Datum;
using Kiv::String;

class MacFeature : public Feature {
 public:
   explicit MacFeature( Board & board ) : Feature( board, "stations" ) {}

   void commands( Commands & commands ) override;

 private:
   HobaSim::MacUnit & unit() const { return *board().chip->mac(); }
   Datum show( Request const & request ) const;
   Datum learn( Request const & request );
   Datum age( Request const & request );
   Datum station( Request const & request );
};

namespace {

// What `show mac` is asked for.
struct Wanted {
   explicit Wanted( Board const & board, Request const & request )
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
   bool operator()( Entry const & entry ) const {
      return ( !vlan.value() || entry.macEntry.vlanId() == vlan ) &&
             ( !intf || entry.intf == intf || ( lag && entry.intf == lag ) ) &&
             ( !addr || entry.macEntry.addr() == *addr );
   }

   Bridging::VlanIdOrNone const vlan;
   Pelt::IntfId const intf;
   std::optional< Pelt::EthAddr > const addr;
   Pelt::IntfId const lag; // stations behind an active member are behind its LAG
};

} // namespace

Datum
MacFeature::show( Request const & request ) const {
   Wanted const wanted( board(), request );
   TableAnswer table( { "MAC address", "VLAN", "Interface", "Type", "Tunnel", "Learnt" } );
   for( auto const * entry : sortedStations( board().find< HobaTypes::MacTable >()->macEntry() ) ) {
      if( !wanted( *entry ) ) {
         continue;
      }
      char age[ 32 ];
      std::snprintf( age, sizeof age, "%.0f s ago",
                     Kiv::ClockDriver::ambient().now() - entry->learnTime );
      table.row( { Kiv::toText( entry->macEntry.addr() ), entry->macEntry.vlanId().value(),
                   Kiv::toText( entry->intf ), typeCell( table, entry->entryType ),
                   entry->tunnelId ? Datum( entry->tunnelId ) : Datum(), age } );
   }
   auto const & chip = unit();
   table.count( "station" );
   if( wanted.lag ) {
      table.note( Kiv::toText( wanted.intf ) + " is an active member of " +
                  Kiv::toText( wanted.lag ) );
   }
   if( auto const refused = chip.count( HobaSim::macGroupSourceRefused ) +
                            chip.count( HobaSim::macZeroSourceRefused ) +
                            chip.count( HobaSim::macBadVlanRefused ) +
                            chip.count( HobaSim::macRunts ) + chip.count( HobaSim::macTableFull ) +
                            chip.count( HobaSim::macLearningOff ) ) {
      table.note( "not learnt from: " + Kiv::toText( refused ) + " of " +
                  Kiv::toText( chip.count( HobaSim::macFrames ) ) + " frames (" +
                  Kiv::toText( chip.count( HobaSim::macGroupSourceRefused ) ) + " group source, " +
                  Kiv::toText( chip.count( HobaSim::macZeroSourceRefused ) ) + " zero source, " +
                  Kiv::toText( chip.count( HobaSim::macBadVlanRefused ) ) + " bad VLAN, " +
                  Kiv::toText( chip.count( HobaSim::macRunts ) ) + " too short, " +
                  Kiv::toText( chip.count( HobaSim::macTableFull ) ) + " table full, " +
                  Kiv::toText( chip.count( HobaSim::macLearningOff ) ) + " learning off)" );
   }
   return table.take();
}

// ---- Events on command

Datum
MacFeature::learn( Request const & request ) {
   auto const host = hostOf( request );
   auto const intf = request.value< Pelt::IntfId >( "port" );
   if( HobaSim::portTypeOf( intf ); !board().hasIntf( intf ) ) {
      throw Kiv::ParseError( Kiv::toText( intf ) + " is not an interface of this switch" );
   }
   if( !host.isStation() ) {
      HobaTypes::stationFailed( host );
   }
   unit().frameCame( HobaSim::frameSound );
   switch( unit().learn( intf, host.addr(), Bridging::VlanId( host.vlanId().value() ) ) ) {
   case HobaSim::learnNew:
      return "learnt";
   case HobaSim::learnMove:
      return "moved";
   case HobaSim::learnHit:
      return "known already, not reported";
   case HobaSim::learnOff:
      return "not learnt: learning is off here";
   case HobaSim::learnElsewhere:
      return "software has it elsewhere, where it stays; reported once";
   case HobaSim::learnBound:
      return "software has it elsewhere, where it belongs; not reported";
   default:
      return "not learnt: the chip's table is full";
   }
}

Datum
MacFeature::age( Request const & request ) {
   unit().age( hostOf( request ) );
   return {};
}

namespace {

// A kind of event about a station, as "static-mac-address" or by its full name.
HobaEvent::HobaEventType
kindOf( String const & kind ) {
   String expected;
   for( auto const & [ name, value ] : kivEnumNames( HobaEvent::HobaEventType{} ).all() ) {
      if( value <= HobaEvent::eventTypeAutonegFailed ) {
         continue;
      }
      auto word = spelled( name, "eventType" );
      std::replace( word.begin(), word.end(), ' ', '-' );
      if( word == kind || name == kind ) {
         return static_cast< HobaEvent::HobaEventType >( value );
      }
      expected += ( expected.empty() ? "one of " : ", " ) + word;
   }
   Kiv::parseFailed( kind, expected );
}

} // namespace

Datum
MacFeature::station( Request const & request ) {
   auto const kind = Kiv::inPlace( "kind", [ & ] { return kindOf( request.text( "kind" ) ); } );
   board().chip->events()->stationEvent( kind, hostOf( request ),
                                         request.value< Pelt::IntfId >( "port" ),
                                         request.value< std::uint32_t >( "tunnel" ) );
   return {};
}

void
MacFeature::commands( Commands & commands ) {
   using F = MacFeature;
   addShow( commands, *this, "show mac", "Stations that the hardware reported",
            { { "vlan", "Only in this VLAN" },
              { "port", "Only behind this interface, or behind the LAG it is in" },
              { "mac", "Only this station" } },
            &F::show );
   addInput( commands, *this, "sim event learn", "The chip sees a frame from a station",
             { intfArgument, macArgument, vlanArgument }, &F::learn );
   addInput( commands, *this, "sim event age", "The chip forgets a station",
             { macArgument, vlanArgument }, &F::age );
   addInput( commands, *this, "sim event station", "The chip reports any event about a station",
             { { "kind", "Such as static-mac-address; a wrong one lists all", true },
               intfArgument,
               macArgument,
               vlanArgument,
               { "tunnel", "Of a station behind a VXLAN interface" } },
             &F::station );
}

HOBA_FEATURE( MacFeature );

} // namespace HobaAgent
