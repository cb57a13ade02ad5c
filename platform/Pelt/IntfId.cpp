// SPDX-License-Identifier: Apache-2.0
#include "Pelt/IntfId.h"

#include "Kiv/Exception.h"
#include "Kiv/Text.h"

#include <array>
#include <charconv>

namespace Pelt {

namespace {

using Kind = IntfId::Kind;

struct KindInfo {
   Kind kind;
   std::string_view name;
   unsigned minNumbers;
   unsigned maxNumbers;
   std::uint32_t maxNumber; // of the first
};

constexpr std::uint32_t maxFirst = IntfId::maxFirstNumber;

// In the order of Kind, so that a kind is the place of its row.
constexpr std::array kindInfos{
      KindInfo{ Kind::none, "", 0, 0, 0 },
      KindInfo{ Kind::ethernet, "Ethernet", 1, 3, maxFirst },
      KindInfo{ Kind::backplaneEthernet, "Ethernet-BP", 1, 1, EthIntfId::maxBackplaneNumber },
      KindInfo{ Kind::portChannel, "Port-Channel", 1, 1, PortChannelIntfId::maxNumber },
      KindInfo{ Kind::recircChannel, "Recirc-Channel", 1, 1, PortChannelIntfId::maxNumber },
      KindInfo{ Kind::vlan, "Vlan", 1, 1, VlanIntfId::maxNumber },
      KindInfo{ Kind::loopback, "Loopback", 1, 1, LoopbackIntfId::maxNumber },
      KindInfo{ Kind::management, "Management", 1, 3, maxFirst },
      KindInfo{ Kind::tunnel, "Tunnel", 1, 1, TunnelIntfId::maxNumber },
      KindInfo{ Kind::vxlan, "Vxlan", 1, 1, VxlanIntfId::maxNumber },
      KindInfo{ Kind::cpu, "Cpu", 0, 0, 0 },
      KindInfo{ Kind::fabric, "Fabric", 2, 3, maxFirst },
      KindInfo{ Kind::peerEthernet, "PeerEthernet", 1, 3, maxFirst },
      KindInfo{ Kind::peerPortChannel, "PeerPort-Channel", 1, 1, PeerPortChannelIntfId::maxNumber },
};

constexpr bool
kindsInOrder() {
   for( std::size_t i = 0; i < kindInfos.size(); ++i ) {
      if( static_cast< std::size_t >( kindInfos[ i ].kind ) != i ) {
         return false;
      }
   }
   return true;
}
static_assert( kindsInOrder() );

struct Alias {
   std::string_view name;
   Kind kind;
};

constexpr std::array aliases{
      Alias{ "Eth", Kind::ethernet },
      Alias{ "Et", Kind::ethernet },
      Alias{ "PortChannel", Kind::portChannel },
      Alias{ "Port-channel", Kind::portChannel },
      Alias{ "Po", Kind::portChannel },
      Alias{ "Vl", Kind::vlan },
      Alias{ "Lo", Kind::loopback },
      Alias{ "Ma", Kind::management },
      Alias{ "Tu", Kind::tunnel },
      Alias{ "Vx", Kind::vxlan },
};

KindInfo const &
info( Kind kind ) {
   // Ids that come out of memory which others write may have any kind.
   auto const place = static_cast< std::size_t >( kind );
   return kindInfos[ place < kindInfos.size() ? place : 0 ];
}

bool
isDigit( char c ) {
   return c >= '0' && c <= '9';
}

std::string
numberRange( std::uint64_t min, std::uint64_t max ) {
   return "a number from " + std::to_string( min ) + " to " + std::to_string( max );
}

} // namespace

// Reads one name from left to right.
class IntfIdParser {
 public:
   explicit IntfIdParser( std::string_view name ) : name_( name ), rest_( name ) {}

   IntfId parse() {
      Kind kind = parseKind();
      IntfId id = parseNumbers( info( kind ) );
      if( !rest_.empty() && rest_.front() == '.' ) {
         id = parseSubIntf( id );
      }
      if( !rest_.empty() ) {
         failed( trailingText( id ) );
      }
      return id;
   }

 private:
   Kind parseKind() {
      std::size_t length = 0;
      while( length < rest_.size() && !isDigit( rest_[ length ] ) ) {
         ++length;
      }
      std::string_view word = rest_.substr( 0, length );
      for( KindInfo const & row : kindInfos ) {
         if( row.kind != Kind::none && row.name == word ) {
            return took( row.name, row.kind );
         }
      }
      for( Alias const & row : aliases ) {
         if( row.name == word ) {
            return took( row.name, row.kind );
         }
      }
      failed( knownKinds() );
   }

   Kind took( std::string_view word, Kind kind ) {
      rest_.remove_prefix( word.size() );
      before_ = word;
      return kind;
   }

   IntfId parseNumbers( KindInfo const & row ) {
      std::array< std::uint64_t, 3 > numbers{};
      unsigned count = 0;
      if( row.maxNumbers > 0 ) {
         numbers[ count++ ] = parseNumber( 0, row.maxNumber );
      }
      while( count > 0 && !rest_.empty() && rest_.front() == '/' ) {
         if( count == row.maxNumbers ) {
            failed( "at most " + std::to_string( count ) + ( count == 1 ? " number" : " numbers" ) +
                    " can follow \"" + std::string( before_ ) + "\"" );
         }
         rest_.remove_prefix( 1 );
         slash_ = true;
         numbers[ count++ ] = parseNumber( 0, IntfId::maxNextNumber );
      }
      if( count < row.minNumbers ) {
         failed( "\"/\" and a second number are expected after the first" );
      }
      if( !IntfId::hasUpToThree( row.kind ) ) {
         return IntfId::single( row.kind, numbers[ 0 ], row.maxNumber );
      }
      if( count == 1 ) {
         return IntfId::upToThree( row.kind, { numbers[ 0 ] } );
      }
      return count == 2
                   ? IntfId::upToThree( row.kind, { numbers[ 0 ], numbers[ 1 ] } )
                   : IntfId::upToThree( row.kind, { numbers[ 0 ], numbers[ 1 ], numbers[ 2 ] } );
   }

   IntfId parseSubIntf( IntfId parent ) {
      if( !SubIntfId::canHaveSubIntf( parent ) ) {
         failed( std::string( info( parent.kind() ).name ) + " interfaces have no subinterfaces" );
      }
      rest_.remove_prefix( 1 );
      dot_ = true;
      return SubIntfId( parent, parseNumber( SubIntfId::minNumber, SubIntfId::maxNumber ) );
   }

   std::uint64_t parseNumber( std::uint64_t min, std::uint64_t max ) {
      std::uint64_t value = 0;
      auto [ end, error ] = std::from_chars( rest_.data(), rest_.data() + rest_.size(), value );
      if( error != std::errc{} || value < min || value > max ) {
         std::string_view after = dot_ ? "." : slash_ ? "/" : before_;
         failed( numberRange( min, max ) + " is expected after \"" + std::string( after ) + "\"" );
      }
      rest_.remove_prefix( static_cast< std::size_t >( end - rest_.data() ) );
      return value;
   }

   std::string trailingText( IntfId id ) const {
      bool sub = id.subIntfNumber() != 0;
      std::string text;
      if( !sub && id.numberCount() < info( id.kind() ).maxNumbers ) {
         text += "\"/\", ";
      }
      if( !sub && SubIntfId::canHaveSubIntf( id ) ) {
         text += "\".\" or ";
      }
      return text + "the end of the name is expected after \"" + Kiv::toText( id ) + "\"";
   }

   static std::string knownKinds() {
      std::string text = "it must begin with one of";
      for( KindInfo const & row : kindInfos ) {
         if( row.kind != Kind::none ) {
            text += row.kind == Kind::ethernet ? " " : ", ";
            text += row.name;
         }
      }
      return text;
   }

   [[noreturn]] void failed( std::string const & detail ) const {
      Kiv::parseFailed( name_, "an interface name: " + detail );
   }

   std::string_view name_;
   std::string_view rest_;
   std::string_view before_; // the word that the first number follows
   bool slash_ = false;
   bool dot_ = false;
};

void
IntfId::print( std::string & out ) const {
   out += info( kind() ).name;
   for( unsigned place = 0; place < numberCount(); ++place ) {
      if( place > 0 ) {
         out += '/';
      }
      Kiv::print( out, number( place ) );
   }
   if( subIntfNumber() ) {
      out += '.';
      Kiv::print( out, subIntfNumber() );
   }
}

IntfId
IntfId::parse( std::string_view name ) {
   return name.empty() ? IntfId() : IntfIdParser( name ).parse();
}

IntfId
IntfId::parseKind( std::string_view name, bool ( *isKind )( IntfId ), std::string_view expected ) {
   IntfId id = parse( name );
   if( !isKind( id ) ) {
      Kiv::parseFailed( name, expected );
   }
   return id;
}

void
IntfId::kindFailed( IntfId id, std::string_view expected ) {
   throw Kiv::RangeException( "\"" + Kiv::toText( id ) + "\" is not " + std::string( expected ) );
}

void
IntfId::numberFailed( Kind kind, std::uint64_t number, std::uint64_t max ) {
   throw Kiv::RangeException( std::to_string( number ) + " is no number of an interface name \"" +
                              std::string( info( kind ).name ) + "...\": " + numberRange( 0, max ) +
                              " is expected" );
}

void
IntfId::subIntfFailed( IntfId parent, std::uint64_t number ) {
   if( !SubIntfId::canHaveSubIntf( parent ) ) {
      throw Kiv::RangeException( "\"" + Kiv::toText( parent ) + "\" can have no subinterface: " +
                                 "an Ethernet interface or a port channel is expected" );
   }
   throw Kiv::RangeException(
         std::to_string( number ) + " is no number of a subinterface of " + Kiv::toText( parent ) +
         ": " + numberRange( SubIntfId::minNumber, SubIntfId::maxNumber ) + " is expected" );
}

} // namespace Pelt
