// SPDX-License-Identifier: Apache-2.0
#include "agent/import/Tables.h"

#include <algorithm>
#include <stdexcept>

namespace Import {

namespace {

// An empty row is written with a field of this name: the stores behind the shape keep none without.
constexpr std::string_view noFields = "NULL";

// The value of a field, or of an element of one. Some writers leave numbers and truth values
// unquoted.
Kiv::String
textOf( std::string_view place, Kiv::Datum const & value ) {
   return value.visit( [ & ]( auto const & content ) -> Kiv::String {
      using Content = std::remove_cvref_t< decltype( content ) >;
      if constexpr( std::is_same_v< Content, Kiv::String > || std::is_arithmetic_v< Content > ) {
         return Kiv::toText( content );
      } else {
         throw Kiv::ParseError( Kiv::String( place ) + ": " + Kiv::String( value.shape() ) +
                                " is not a string" );
      }
   } );
}

template< class Name >
Kiv::String
joined( std::vector< Name > const & names, Kiv::String const & between ) {
   Kiv::String text;
   for( auto const & name : names ) {
      text += ( text.empty() ? "" : between ) + Kiv::String( name );
   }
   return text;
}

bool
refersTo( std::vector< Reference > const & references, std::string_view table ) {
   return std::ranges::find( references, table, &Reference::table ) != references.end();
}

Kiv::String
referrerIn( std::vector< Reference > const & references, std::string_view table, Key const & key ) {
   for( auto const & reference : references ) {
      if( reference.table == table && reference.referrer ) {
         if( auto found = reference.referrer( key ); !found.empty() ) {
            return found;
         }
      }
   }
   return {};
}

} // namespace

// ---- Key

void
Key::split( std::string_view form, std::string_view * parts, std::size_t count ) const {
   std::string_view rest = text_;
   for( std::size_t i = 0; i + 1 != count; ++i ) {
      auto const end = rest.find( separator_ );
      if( end == rest.npos ) {
         Kiv::parseFailed( text_, "a key of the form " + Kiv::String( form ) );
      }
      parts[ i ] = rest.substr( 0, end );
      rest.remove_prefix( end + 1 );
   }
   if( separator_ == '|' && rest.find( '|' ) != rest.npos ) {
      Kiv::parseFailed( text_, "a key of the form " + Kiv::String( form ) );
   }
   parts[ count - 1 ] = rest;
}

// ---- Row

Row::Row( Tables const & tables, std::string_view table, Key key, Kiv::Datum const & fields )
      : tables_( tables ), table_( table ), key_( std::move( key ) ), fields_( fields ) {
   if( !fields.as< Kiv::Datum::Object >() ) {
      Kiv::wrongShape( fields, "a row: an object of fields is expected" );
   }
}

std::optional< Kiv::String >
Row::text( std::string_view field ) {
   auto const * value = fields_.find( field );
   if( !value ) {
      return std::nullopt;
   }
   read_.emplace_back( field );
   return textOf( field, *value );
}

std::optional< std::uint64_t >
Row::number( std::string_view field, std::uint64_t max ) {
   return read( field, [ max ]( Kiv::String const & text ) {
      return Kiv::parseInteger( text, std::uint64_t( 0 ), max );
   } );
}

bool
Row::sameWord( std::string_view a, std::string_view b ) {
   auto const small = []( char c ) { return c >= 'A' && c <= 'Z' ? char( c - 'A' + 'a' ) : c; };
   return std::ranges::equal( a, b, {}, small, small );
}

void
Row::isNoneOf( std::vector< std::string_view > const & words, std::string_view text ) {
   Kiv::parseFailed( text, words.size() == 2 ? joined( words, " or " )
                                             : "one of " + joined( words, ", " ) );
}

Kiv::ParseError
Row::missing( std::string_view field ) {
   return Kiv::ParseError( "the field " + Kiv::String( field ) + " is missing" );
}

Kiv::String
Row::elementName( std::string_view field, std::size_t place ) {
   return Kiv::String( field ) + '[' + Kiv::toText( place ) + ']';
}

std::optional< std::vector< Kiv::String > >
Row::listOf( std::string_view field ) {
   auto const * value = fields_.find( field );
   auto const * array = value ? value->as< Kiv::Datum::Array >() : nullptr;
   std::vector< Kiv::String > texts;
   if( array ) {
      read_.emplace_back( field );
      for( auto const & element : *array ) {
         texts.push_back( textOf( elementName( field, texts.size() ), element ) );
      }
      return texts;
   }
   auto const whole = text( field );
   if( !whole ) {
      return std::nullopt;
   }
   for( std::size_t begin = 0; !whole->empty() && begin != whole->npos; ) {
      auto const comma = whole->find( ',', begin );
      texts.push_back( whole->substr( begin, comma - begin ) );
      begin = comma == whole->npos ? comma : comma + 1;
   }
   return texts;
}

void
Row::checkExists( std::string_view name, std::initializer_list< std::string_view > tables ) const {
   Key const key{ Kiv::String( name ) };
   for( auto table : tables ) {
      if( !tables_.refers( table_, table ) ) {
         throw std::logic_error( Kiv::String( table_ ) + " does not say that it refers to " +
                                 Kiv::String( table ) );
      }
      try {
         if( tables_.has( table, key ) ) {
            return;
         }
      } catch( Kiv::Exception const & ) {
         // A name of another kind: perhaps of the next table.
      }
   }
   throw Kiv::ParseError( ( name.empty() ? "\"\"" : Kiv::String( name ) ) +
                          " is neither in this system nor in a row of " +
                          joined( std::vector( tables ), " or " ) + " that was taken" );
}

void
Row::identityIs( Kiv::String identity ) {
   if( auto const * key = taken_ ? taken_->find( identity ) : nullptr ) {
      throw Kiv::ParseError( identity + " is in this table already, as " + *key );
   }
   identity_ = std::move( identity );
}

void
Row::operationIs( Kiv::String what, std::function< void() > apply ) {
   what_ += ( what_.empty() ? "" : ", " ) + what;
   operations_.push_back( std::move( apply ) );
}

void
Row::apply() const {
   for( auto const & operation : operations_ ) {
      operation();
   }
}

std::vector< Kiv::String >
Row::unreadFields() const {
   std::vector< Kiv::String > unread;
   for( auto const & [ name, value ] : *fields_.as< Kiv::Datum::Object >() ) {
      if( name != noFields && std::ranges::find( read_, name ) == read_.end() ) {
         unread.push_back( name );
      }
   }
   return unread;
}

// ---- Tables

void
Tables::add( Table table ) {
   if( find( table.name ) ) {
      throw Kiv::Exception( "table " + Kiv::String( table.name ) + " is added twice" );
   }
   for( auto const & before : tables_ ) {
      if( refers( before.name, table.name ) ) {
         throw Kiv::Exception( "table " + Kiv::String( before.name ) + " refers to " +
                               Kiv::String( table.name ) + ", which is added later" );
      }
   }
   tables_.push_back( std::move( table ) );
}

void
Tables::addFields( Fields fields ) {
   bool theirs = false;
   for( auto const & table : tables_ ) {
      if( theirs && refersTo( fields.refersTo, table.name ) ) {
         throw Kiv::Exception( "fields of " + Kiv::String( fields.table ) + " refer to " +
                               Kiv::String( table.name ) + ", which is added later" );
      }
      theirs = theirs || table.name == fields.table;
   }
   fields_.push_back( std::move( fields ) );
}

Table const *
Tables::find( std::string_view name ) const {
   auto const found = std::ranges::find( tables_, name, &Table::name );
   return found == tables_.end() ? nullptr : &*found;
}

bool
Tables::has( std::string_view table, Key const & key ) const {
   auto const * found = find( table );
   return found && found->has && found->has( key );
}

bool
Tables::refers( std::string_view table, std::string_view to ) const {
   auto const * found = find( table );
   return ( found && refersTo( found->refersTo, to ) ) ||
          std::ranges::any_of( fields_, [ & ]( Fields const & fields ) {
             return fields.table == table && refersTo( fields.refersTo, to );
          } );
}

Kiv::String
Tables::referrer( std::string_view table, Key const & key ) const {
   for( auto const & from : tables_ ) {
      auto row = referrerIn( from.refersTo, table, key );
      for( auto const & fields : fields_ ) {
         if( row.empty() && fields.table == from.name ) {
            row = referrerIn( fields.refersTo, table, key );
         }
      }
      if( !row.empty() ) {
         return Kiv::String( from.name ) + '|' + row;
      }
   }
   return {};
}

void
Tables::map( Table const & table, Row & row ) const {
   table.map( row );
   for( auto const & fields : fields_ ) {
      if( fields.table == table.name ) {
         fields.map( row );
      }
   }
}

void
Tables::del( Table const & table, Row & row ) const {
   table.del( row );
   for( auto const & fields : fields_ ) {
      if( fields.table == table.name && fields.del ) {
         fields.del( row );
      }
   }
}

} // namespace Import
