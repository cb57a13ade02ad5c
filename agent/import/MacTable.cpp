// SPDX-License-Identifier: Apache-2.0
#include "agent/import/MacTable.h"

#include "Kiv/Utf8.h"

#include <algorithm>
#include <cctype>
#include <optional>

namespace Import {

using Kiv::String;
using Words = std::vector< std::string_view >;

// A row as it stands there.
struct MacTable::Raw {
   std::size_t place = 0;
   String vlan, addr, type;
   std::vector< String > ports = {};
};

namespace {

constexpr std::string_view fdbTable = "FDB_TABLE";
constexpr std::string_view vlanPrefix = "Vlan";

Words
split( std::string_view text, std::string_view separators ) {
   Words words;
   while( true ) {
      auto const begin = text.find_first_not_of( separators );
      if( begin == text.npos ) {
         return words;
      }
      auto const end = std::min( text.find_first_of( separators, begin ), text.size() );
      words.push_back( text.substr( begin, end - begin ) );
      text.remove_prefix( end );
   }
}

String
small( std::string_view text ) {
   String all( text );
   for( auto & c : all ) {
      c = static_cast< char >( std::tolower( static_cast< unsigned char >( c ) ) );
   }
   return all;
}

bool
isWord( std::string_view word, std::initializer_list< std::string_view > words ) {
   auto const found = small( word );
   return std::ranges::find( words, found ) != words.end();
}

bool
isAddress( std::string_view word ) {
   try {
      // A date or a number is none: an address has its separators.
      return word.size() >= 14 && ( Pelt::EthAddr::parse( word ), true );
   } catch( Kiv::Exception const & ) {
      return false;
   }
}

// "Gi4/6", "Po30", "Router": a letter first, and a number or a name of the switch itself.
bool
isSwitchItself( std::string_view name ) {
   return isWord( name, { "router", "switch", "cpu" } );
}
bool
isPortName( std::string_view name ) {
   return std::isalpha( static_cast< unsigned char >( name.front() ) ) &&
          ( isSwitchItself( name ) || name.find_first_of( "0123456789" ) != name.npos );
}
bool
arePorts( std::string_view word ) {
   auto const names = split( word, "," );
   return !names.empty() && std::ranges::all_of( names, isPortName );
}

void
addPorts( std::vector< String > & ports, std::string_view word ) {
   for( auto const name : split( word, "," ) ) {
      ports.emplace_back( name );
   }
}

// The columns of a line; nothing if there is no address in it.
template< class Row >
std::optional< Row >
rowOf( Words const & words, std::size_t place ) {
   auto const addr = std::ranges::find_if( words, isAddress );
   if( addr == words.end() ) {
      return std::nullopt;
   }
   Row row{ .place = place, .vlan = {}, .addr = String( *addr ), .type = {} };
   if( addr != words.begin() ) {
      row.vlan = String( *( addr - 1 ) );
      row.vlan.erase( 0, row.vlan.find_first_not_of( '*' ) );
   }
   if( addr + 1 != words.end() ) {
      row.type = String( addr[ 1 ] );
      auto const ports = std::find_if( addr + 2, words.end(), arePorts );
      if( ports != words.end() ) {
         addPorts( row.ports, *ports );
      }
   }
   return row;
}

// A list of operations whose first one is about a row of the table.
Kiv::Datum::Array const *
operationsOf( Kiv::Datum const & file ) {
   auto const * list = file.as< Kiv::Datum::Array >();
   if( !list || list->empty() ) {
      return nullptr;
   }
   auto const * first = list->front().as< Kiv::Datum::Object >();
   return first && std::ranges::any_of( *first,
                                        []( auto const & member ) {
                                           return member.first.starts_with( fdbTable );
                                        } )
                ? list
                : nullptr;
}

String
textOf( Kiv::Datum const * value ) {
   auto const * text = value ? value->as< String >() : nullptr;
   return text ? *text : String();
}

} // namespace

// ---- Text

// By its first row: a switch prints a heading and a rule before it, and a page break, and not much else.
bool
MacTable::isPrinted( std::string_view text ) {
   constexpr std::size_t linesBefore = 20;
   for( std::size_t lines = 0; lines != linesBefore && !text.empty(); ++lines ) {
      auto const end = std::min( text.find( '\n' ), text.size() );
      auto const words = split( text.substr( 0, end ), " \t\r" );
      if( !words.empty() && words.front().find_first_of( "{[\"" ) == words.front().npos ) {
         auto const row = rowOf< Raw >( words, 0 );
         if( row && isWord( row->type, { "dynamic", "static" } ) ) {
            return true;
         }
      }
      text.remove_prefix( std::min( end + 1, text.size() ) );
   }
   return false;
}

MacTable
MacTable::printed( std::string_view text ) {
   MacTable table( "line" );
   std::optional< Raw > row; // it may go on
   for( std::size_t line = 1; !text.empty(); ++line ) {
      auto const end = std::min( text.find( '\n' ), text.size() );
      auto const words = split( text.substr( 0, end ), " \t\r\f" );
      text.remove_prefix( std::min( end + 1, text.size() ) );
      if( auto next = rowOf< Raw >( words, line ) ) {
         if( row ) {
            table.take( *row );
         }
         row = std::move( next );
      } else if( row && words.size() == 1 && arePorts( words.front() ) ) {
         addPorts( row->ports, words.front() );
      } else if( words.size() > 1 && words.front() == "*" ) {
         table.refuse( "no MAC address",
                       table.placeText( line ) + ": " + Kiv::excerpt( words[ 1 ] ) );
      }
   }
   if( row ) {
      table.take( *row );
   }
   table.requireRows();
   return table;
}

// ---- Operations

bool
MacTable::isOperations( Kiv::Datum const & file ) {
   return operationsOf( file ) != nullptr;
}

MacTable
MacTable::operations( Kiv::Datum const & file ) {
   MacTable table( "operation" );
   if( auto const * list = operationsOf( file ) ) {
      for( std::size_t i = 0; i != list->size(); ++i ) {
         table.readOperation( ( *list )[ i ], i + 1 );
      }
   }
   table.requireRows();
   return table;
}

void
MacTable::readOperation( Kiv::Datum const & operation, std::size_t place ) {
   auto const * members = operation.as< Kiv::Datum::Object >();
   String name;
   Kiv::Datum const * fields = nullptr;
   if( members ) {
      for( auto const & member : *members ) {
         if( member.first.starts_with( fdbTable ) ) {
            name = member.first;
            fields = &member.second;
         }
      }
   }
   auto const vlan = name.find( ':' );
   auto const addr = vlan == name.npos ? vlan : name.find( ':', vlan + 1 );
   if( addr == name.npos ) {
      refuse( "not a row of FDB_TABLE:Vlan<n>:<address>", placeText( place ) );
      return;
   }
   if( textOf( operation.find( "OP" ) ) != "SET" ) {
      refuse( "its OP is not SET", placeText( place ) + ": " + Kiv::excerpt( name ) );
      return;
   }
   Raw row{ .place = place,
            .vlan = name.substr( vlan + 1, addr - vlan - 1 ),
            .addr = name.substr( addr + 1 ),
            .type = textOf( fields->find( "type" ) ) };
   if( row.vlan.starts_with( vlanPrefix ) ) {
      row.vlan.erase( 0, vlanPrefix.size() );
   }
   if( auto const port = textOf( fields->find( "port" ) ); !port.empty() ) {
      row.ports.push_back( port );
   }
   take( row );
}

// ---- Rows

String
MacTable::placeText( std::size_t place ) const {
   return String( placeName_ ) + ' ' + Kiv::toText( place );
}

void
MacTable::refuse( String const & reason, String const & what ) {
   auto found = std::ranges::find( refused_, reason, &RefusedMacRows::reason );
   if( found == refused_.end() ) {
      found = refused_.insert( found, RefusedMacRows{ .reason = reason, .first = what } );
   }
   ++found->count;
}

void
MacTable::take( Raw const & raw ) {
   bool const hasVlan = raw.vlan.find_first_of( "0123456789" ) != raw.vlan.npos;
   auto const refused = [ & ]( char const * reason ) {
      refuse( reason, placeText( raw.place ) + ": " + Kiv::excerpt( raw.addr ) +
                            ( hasVlan ? " in VLAN " + Kiv::excerpt( raw.vlan ) : "" ) );
   };
   if( !hasVlan ) {
      return refused( "no VLAN" );
   }
   MacRow row;
   row.place = raw.place;
   row.isStatic = isWord( raw.type, { "static" } );
   try {
      row.addr = Pelt::EthAddr::parse( raw.addr );
   } catch( Kiv::Exception const & ) {
      return refused( "no MAC address" );
   }
   if( !row.addr.isUnicast() ) {
      return refused( row.addr.isZero() ? "the address zero is no station's"
                                        : "a group's address is no station's" );
   }
   try {
      row.vlan = Kiv::fromText< Bridging::VlanId >( raw.vlan );
   } catch( Kiv::Exception const & ) {
      return refused( "not a VLAN from 1 to 4094" );
   }
   if( !row.isStatic && !isWord( raw.type, { "dynamic" } ) ) {
      return refused( "neither dynamic nor static" );
   }
   if( raw.ports.size() != 1 ) {
      return refused( raw.ports.empty() ? "behind no port" : "behind several ports" );
   }
   if( !isSwitchItself( raw.ports.front() ) ) {
      row.port = raw.ports.front();
   } else if( !row.isStatic ) {
      return refused( "learnt behind the switch itself" );
   }
   rows_.push_back( std::move( row ) );
}

void
MacTable::requireRows() const {
   if( rows_.empty() && refused_.empty() ) {
      throw Kiv::ParseError(
            "not a MAC table: there is no row with a VLAN, a MAC address and a port" );
   }
}

} // namespace Import
