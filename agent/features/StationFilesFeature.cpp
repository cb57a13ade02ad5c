// SPDX-License-Identifier: Apache-2.0
#include "Bridging/Config.h"
#include "agent/common/File.h"
#include "agent/common/Json.h"
#include "agent/features/Feature.h"
#include "agent/features/Words.h"
#include "agent/import/MacTable.h"
#include "chips/sim/SimChip.h"

#include <map>

// MAC tables of other switches, for a chip that learns what they learnt.

namespace HobaAgent {

using Kiv::Datum;
using Kiv::String;
using Kiv::toText;

class StationFilesFeature : public Feature {
 public:
   explicit StationFilesFeature( Board & board ) : Feature( board, "files of stations" ) {}

   void commands( Commands & commands ) override {
      addInput( commands, *this, "sim macs",
                "The chip learns a MAC table as switches print it, or an fdb.json; static rows are "
                "configured",
                { { .name = "file", .help = "The table", .required = true, .isFile = true },
                  { "ports", "Its ports are the switch's from this one on" } },
                &StationFilesFeature::play );
      commands.valuesAre(
            "ports", [ this ] { return namesOf( sortedKeys( board().feederConfig->port() ) ); } );
   }

 private:
   using Ports = std::map< String, Pelt::IntfId >;

   Datum play( Request const & request );
   Ports portsFor( Import::MacTable const & file, Request const & request ) const;
   void learn( Import::MacRow const & row, Pelt::IntfId port, Import::MacTable & file );
   void configure( Import::MacRow const & row, Pelt::IntfId intf );

   // What became of the rows of the file under way, and how many became that.
   std::map< String, std::size_t > outcomes_;
};

namespace {

Import::MacTable
readMacFile( String const & file ) {
   auto const text = readFile( file );
   return Kiv::inPlace( file, [ & ] {
      auto const begin = text.find_first_not_of( " \t\r\n" );
      return begin != text.npos && text[ begin ] == '['
                   ? Import::MacTable::operations( parseJson( text ) )
                   : Import::MacTable::printed( text );
   } );
}

} // namespace

// The names of the file in the order in which they come, on as many ports that stand for themselves.
StationFilesFeature::Ports
StationFilesFeature::portsFor( Import::MacTable const & file, Request const & request ) const {
   auto const first = request.has( "ports" )
                            ? Pelt::IntfId( idOf< Pelt::EthIntfId >( request, "ports" ) )
                            : Pelt::IntfId();
   if( first && !board().feederConfig->portHas( Pelt::EthIntfId( first ) ) ) {
      throw Kiv::ParseError( "ports: " + toText( first ) + " is not a port of this switch" );
   }
   std::vector< Pelt::IntfId > free;
   for( Pelt::IntfId const port : sortedKeys( board().feederConfig->port() ) ) {
      if( port >= first && !board().lagInputConfig->ethPhyIntfLagConfig( port ) ) {
         free.push_back( port );
      }
   }
   Ports ports;
   for( auto const & row : file.rows() ) {
      if( !row.port.empty() && ports.size() < free.size() ) {
         ports.try_emplace( row.port, free[ ports.size() ] );
      } else if( !row.port.empty() && !ports.contains( row.port ) ) {
         throw Kiv::ParseError(
               "the file has more ports than the " + toText( free.size() ) + " of this switch" +
               ( first ? " from " + toText( first ) + " on" : "" ) + " that are in no LAG" );
      }
   }
   return ports;
}

void
StationFilesFeature::learn( Import::MacRow const & row, Pelt::IntfId port,
                            Import::MacTable & file ) {
   auto & chip = *board().chip->mac();
   chip.frameCame( HobaSim::frameSound );
   switch( auto const learning = chip.learn( port, row.addr, row.vlan ) ) {
   case HobaSim::learnNew:
      ++outcomes_[ "learnt" ];
      break;
   case HobaSim::learnMove:
      ++outcomes_[ "moved" ];
      break;
   case HobaSim::learnHit:
      ++outcomes_[ "known" ];
      break;
   default:
      file.refuse( learning == HobaSim::learnFull
                         ? "the chip's table is full"
                         : "the chip: " + spelled( toText( learning ), "learn" ),
                   file.placeText( row.place ) + ": " + toText( row.addr ) + " in VLAN " +
                         toText( row.vlan ) );
   }
}

void
StationFilesFeature::configure( Import::MacRow const & row, Pelt::IntfId intf ) {
   auto const fdb = board().find< Bridging::Config >()->fdbConfigIs( row.vlan );
   Bridging::ConfiguredHost host;
   host.address = row.addr;
   host.intf = intf;
   bool const isThere =
         fdb->configuredHostHas( row.addr ) && fdb->configuredHost( row.addr ) == host;
   fdb->configuredHostIs( host );
   ++outcomes_[ isThere ? "configured already" : "configured" ];
}

Datum
StationFilesFeature::play( Request const & request ) {
   auto const path = request.text( "file" );
   auto file = readMacFile( path );
   auto const ports = Kiv::inPlace( path, [ & ] { return portsFor( file, request ); } );
   outcomes_.clear();
   for( auto const & row : file.rows() ) {
      auto const port = row.port.empty() ? Pelt::IntfId( Pelt::CpuIntfId() ) : ports.at( row.port );
      row.isStatic ? configure( row, port ) : learn( row, port, file );
   }
   TableAnswer table( { "Outcome", "Rows", "Why", "First" } );
   for( auto const & [ outcome, count ] : outcomes_ ) {
      table.row( { outcome, count, Datum(), Datum() } );
   }
   for( auto const & refused : file.refused() ) {
      table.row( { "refused", refused.count, refused.reason, refused.first } );
   }
   std::map< Pelt::IntfId, String > inFile;
   for( auto const & [ name, port ] : ports ) {
      inFile[ port ] = name;
   }
   String text;
   for( auto const & [ port, name ] : inFile ) {
      text += ( text.empty() ? "" : ", " ) + name + " is " + toText( port );
   }
   if( !text.empty() ) {
      table.note( text );
   }
   return table.take();
}

HOBA_FEATURE( StationFilesFeature );

} // namespace HobaAgent
