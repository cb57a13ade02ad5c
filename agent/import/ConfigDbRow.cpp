// SPDX-License-Identifier: Apache-2.0
#include "agent/import/ConfigDbRow.h"

#include "Kiv/Text.h"

#include <algorithm>

namespace Import {

namespace {

// An empty row is written with a field of this name: the stores behind the shape keep none without.
constexpr std::string_view noFields = "NULL";

bool
sameWord( std::string_view a, std::string_view b ) {
   auto const small = []( char c ) { return c >= 'A' && c <= 'Z' ? char( c - 'A' + 'a' ) : c; };
   return std::ranges::equal( a, b, {}, small, small );
}

[[noreturn]] void
missing( std::string_view name, std::string_view table ) {
   throw Kiv::ParseError( Kiv::String( name ) + " is neither in this system nor in a row of " +
                          Kiv::String( table ) + " that was taken" );
}

} // namespace

// ---- Model

bool
Model::hasPort( Pelt::IntfId intf ) const {
   return Pelt::EthIntfId::isKind( intf ) &&
          ( intfs_.has( intf ) || targets_.feeders->portHas( Pelt::EthIntfId( intf ) ) );
}

bool
Model::hasLag( Pelt::IntfId intf ) const {
   return Pelt::PortChannelIntfId::isKind( intf ) &&
          ( intfs_.has( intf ) || targets_.feeders->lagHas( Pelt::PortChannelIntfId( intf ) ) );
}

bool
Model::hasVlan( Bridging::VlanId vlan ) const {
   return vlans_.has( vlan ) || targets_.commonSmData->vlanStatusHas( vlan );
}

Pelt::IntfId
Model::lagOf( Pelt::IntfId port ) const {
   auto const * lag = lagOf_.find( port );
   return lag ? *lag : targets_.lagInput->ethPhyIntfLagConfig( port );
}

Pelt::EthIntfId
Model::port( std::string_view name ) const {
   auto const intf = Pelt::EthIntfId::parse( name );
   if( !hasPort( intf ) ) {
      missing( name, "PORT" );
   }
   return intf;
}

Pelt::PortChannelIntfId
Model::lag( std::string_view name ) const {
   auto const intf = Pelt::PortChannelIntfId::parse( name );
   if( !hasLag( intf ) ) {
      missing( name, "PORTCHANNEL" );
   }
   return intf;
}

Pelt::IntfId
Model::portOrLag( std::string_view name ) const {
   auto const intf = Pelt::IntfId::parse( name );
   if( !hasPort( intf ) && !hasLag( intf ) ) {
      missing( name.empty() ? "an interface without a name" : name, "PORT or PORTCHANNEL" );
   }
   return intf;
}

Bridging::VlanId
Model::vlan( std::string_view name ) const {
   auto const id = vlanNamed( name );
   if( !hasVlan( id ) ) {
      missing( name, "VLAN" );
   }
   return id;
}

Bridging::VlanId
vlanNamed( std::string_view name ) {
   return Bridging::VlanId( Pelt::VlanIntfId::vlanId( Pelt::VlanIntfId::parse( name ) ) );
}

// ---- Row

Row::Row( Kiv::String const & key, Kiv::Datum const & fields, Taken const & taken )
      : key_( key ), fields_( fields ), taken_( taken ) {
   if( !fields.as< Kiv::Datum::Object >() ) {
      Kiv::wrongShape( fields, "a row: an object of fields is expected" );
   }
}

std::pair< std::string_view, std::string_view >
Row::keyPair( std::string_view form ) const {
   std::string_view const whole = key_;
   auto const bar = whole.find( '|' );
   if( bar == whole.npos || whole.find( '|', bar + 1 ) != whole.npos ) {
      Kiv::parseFailed( whole, "a key of the form " + Kiv::String( form ) );
   }
   return { whole.substr( 0, bar ), whole.substr( bar + 1 ) };
}

std::optional< Kiv::String >
Row::text( std::string_view field ) {
   auto const * value = fields_.find( field );
   if( !value ) {
      return std::nullopt;
   }
   read_.push_back( field );
   // Some writers leave numbers and truth values unquoted.
   return value->visit( [ & ]( auto const & content ) -> Kiv::String {
      using Content = std::remove_cvref_t< decltype( content ) >;
      if constexpr( std::is_same_v< Content, Kiv::String > || std::is_arithmetic_v< Content > ) {
         return Kiv::toText( content );
      } else {
         throw Kiv::ParseError( Kiv::String( field ) + ": " + Kiv::String( value->shape() ) +
                                " is not a string" );
      }
   } );
}

std::optional< std::uint64_t >
Row::number( std::string_view field, std::uint64_t max ) {
   auto const value = text( field );
   if( !value ) {
      return std::nullopt;
   }
   return Kiv::inPlace( field,
                        [ & ] { return Kiv::parseInteger( *value, std::uint64_t( 0 ), max ); } );
}

std::uint64_t
Row::numberNeeded( std::string_view field, std::uint64_t max ) {
   auto const value = number( field, max );
   if( !value ) {
      throw Kiv::ParseError( "the field " + Kiv::String( field ) + " is missing" );
   }
   return *value;
}

std::optional< bool >
Row::either( std::string_view field, std::string_view yes, std::string_view no ) {
   auto const value = text( field );
   if( !value ) {
      return std::nullopt;
   }
   bool const isYes = sameWord( *value, yes );
   if( !isYes && !sameWord( *value, no ) ) {
      Kiv::inPlace( field, [ & ] {
         Kiv::parseFailed( *value, Kiv::String( yes ) + " or " + Kiv::String( no ) );
      } );
   }
   return isYes;
}

void
Row::identityIs( Kiv::String identity ) {
   if( auto const * key = taken_.find( identity ) ) {
      throw Kiv::ParseError( identity + " is in this table already, as " + *key );
   }
   identity_ = std::move( identity );
}

void
Row::operationIs( Kiv::String what, std::function< void() > apply ) {
   operation_ = { std::move( what ), std::move( apply ) };
}

std::vector< Kiv::String >
Row::unreadFields() const {
   std::vector< Kiv::String > unread;
   for( auto const & [ name, value ] : *fields_.as< Kiv::Datum::Object >() ) {
      if( name != noFields && std::find( read_.begin(), read_.end(), name ) == read_.end() ) {
         unread.push_back( name );
      }
   }
   return unread;
}

} // namespace Import
