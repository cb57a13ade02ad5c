// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaHelper.h"
#include "Kiv/ClockDriver.h"
#include "agent/features/Feature.h"
#include "agent/features/Stations.h"
#include "agent/features/Words.h"
#include "chips/sim/SimChip.h"

#include <algorithm>

// Stations that the hardware reported, and a chip that sees them come and go on command.

namespace HobaAgent {

using Entry = HobaTypes::MacAddressTableEntry;
using Hoba::HobaEvent;
using Kiv::Datum;
using Kiv::String;

class ReportedStationsFeature : public Feature {
 public:
   explicit ReportedStationsFeature( Board & board ) : Feature( board, "stations" ) {}

   void commands( Commands & commands ) override;

 private:
   HobaSim::MacUnit & unit() const { return *board().chip->mac(); }
   Datum show( Request const & request ) const;
   Datum learn( Request const & request );
   Datum age( Request const & request );
   Datum station( Request const & request );
};

Datum
ReportedStationsFeature::show( Request const & request ) const {
   StationFilter const wanted( board(), request );
   auto const & reported = board().find< HobaTypes::MacTable >()->macEntry();
   BoundedLook look;
   std::vector< Entry const * > entries;
   auto const consider = [ & ]( Entry const & entry ) {
      if( wanted.takes( entry.macEntry, entry.intf ) && look.found() ) {
         entries.push_back( &entry );
      }
   };
   if( wanted.addr && wanted.vlan.value() ) {
      if( auto const * entry = reported.find( { *wanted.addr, wanted.vlan } ) ) {
         consider( *entry );
      }
   } else {
      for( auto const & [ host, entry ] : reported ) {
         if( !look.next() ) {
            break;
         }
         consider( entry );
      }
   }
   std::ranges::sort( entries, {}, &Entry::macEntry );
   TableAnswer table( { "MAC address", "VLAN", "Interface", "Type", "Tunnel", "Learnt" } );
   for( auto const * entry : entries ) {
      table.row( { Kiv::toText( entry->macEntry.addr() ), entry->macEntry.vlanId().value(),
                   Kiv::toText( entry->intf ), typeCell( table, entry->entryType ),
                   entry->tunnelId ? Datum( entry->tunnelId ) : Datum(),
                   agoText( entry->learnTime ) } );
   }
   table.note( look.text( "station", reported.size() ) );
   wanted.tellLag( table );
   auto const & chip = unit();
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
ReportedStationsFeature::learn( Request const & request ) {
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
ReportedStationsFeature::age( Request const & request ) {
   unit().age( hostOf( request ) );
   return {};
}

namespace {

// A kind of event about a station, as "static-mac-address" or by its full name.
HobaEvent::HobaEventType
kindOf( String const & kind ) {
   return enumeratorOf< HobaEvent::HobaEventType >( kind, []( auto type, auto const & name ) {
      bool const isOfStations = type > HobaEvent::eventTypeAutonegFailed;
      return isOfStations ? spelled( name, "eventType" ) : String();
   } );
}

} // namespace

Datum
ReportedStationsFeature::station( Request const & request ) {
   auto const kind = Kiv::inPlace( "kind", [ & ] { return kindOf( request.text( "kind" ) ); } );
   board().chip->events()->stationEvent( kind, hostOf( request ),
                                         request.value< Pelt::IntfId >( "port" ),
                                         request.value< std::uint32_t >( "tunnel" ) );
   return {};
}

void
ReportedStationsFeature::commands( Commands & commands ) {
   using F = ReportedStationsFeature;
   addShow( commands, *this, "show mac reported", "Stations that the hardware reported",
            stationArguments(), &F::show );
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

HOBA_FEATURE( ReportedStationsFeature );

} // namespace HobaAgent
