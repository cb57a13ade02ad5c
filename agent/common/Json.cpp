// SPDX-License-Identifier: Apache-2.0
#include "agent/common/Json.h"

#include "Kiv/Utf8.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <unordered_set>
#include <vector>

namespace HobaAgent {

using Kiv::Datum;

JsonError::JsonError( std::size_t lineNumber, std::size_t columnNumber,
                      std::string const & whatIsWrong )
      : Kiv::ParseError( "line " + std::to_string( lineNumber ) + ", column " +
                         std::to_string( columnNumber ) + ": " + whatIsWrong ),
        line( lineNumber ), column( columnNumber ), reason( whatIsWrong ) {}

namespace {

[[noreturn]] void
failAt( std::string_view text, std::size_t offset, std::string const & what ) {
   auto before = text.substr( 0, std::min( offset, text.size() ) );
   auto line = 1 + static_cast< std::size_t >( std::count( before.begin(), before.end(), '\n' ) );
   auto lastEnd = before.rfind( '\n' );
   auto lineStart = lastEnd == std::string_view::npos ? 0 : lastEnd + 1;
   throw JsonError( line, before.size() - lineStart + 1, what );
}

// Tells the builder how far the parser has read.
class CountingIterator {
 public:
   using iterator_category = std::input_iterator_tag;
   using value_type = char;
   using difference_type = std::ptrdiff_t;
   using pointer = char const *;
   using reference = char const &;

   CountingIterator( char const * at, std::size_t & count ) : at_( at ), count_( &count ) {}
   reference operator*() const { return *at_; }
   CountingIterator & operator++() {
      ++at_;
      ++*count_;
      return *this;
   }
   bool operator==( CountingIterator const & other ) const { return at_ == other.at_; }

 private:
   char const * at_;
   std::size_t * count_;
};

// Takes the parser's events and builds the value.
class Builder : public nlohmann::json_sax< nlohmann::json > {
 public:
   Builder( std::string_view text, JsonLimits const & limits, std::size_t & read )
         : text_( text ), limits_( limits ), read_( read ) {}

   Datum take() { return std::move( result_ ); }

   bool null() override { return value( Datum() ); }
   bool boolean( bool v ) override { return value( v ); }
   bool number_integer( number_integer_t v ) override { return value( v ); }
   bool number_unsigned( number_unsigned_t v ) override {
      // Small numbers are the same number, whichever way they came in.
      return std::in_range< std::int64_t >( v ) ? value( static_cast< std::int64_t >( v ) )
                                                : value( v );
   }
   bool number_float( number_float_t v, string_t const & digits ) override {
      if( digits.find_first_of( ".eE" ) == string_t::npos ) {
         fail( "the integer " + Kiv::excerpt( digits, 40 ) + " does not fit into 64 bits" );
      }
      return value( v );
   }
   bool string( string_t & v ) override { return value( std::move( v ) ); }
   bool binary( binary_t & ) override { return false; }

   bool start_object( std::size_t ) override { return start( true ); }
   bool start_array( std::size_t ) override { return start( false ); }
   bool key( string_t & name ) override {
      if( !open_.back().names.insert( name ).second ) {
         fail( "the name \"" + Kiv::excerpt( name, 60 ) + "\" stands twice in this object" );
      }
      open_.back().key = std::move( name );
      return true;
   }
   bool end_object() override { return end(); }
   bool end_array() override { return end(); }

   bool parse_error( std::size_t position, std::string const &,
                     nlohmann::detail::exception const & error ) override {
      std::string_view what = error.what();
      for( std::string_view prefix : { "] ", "column ", ": " } ) {
         if( auto at = what.find( prefix ); at != std::string_view::npos ) {
            what.remove_prefix( at + prefix.size() );
         } else if( prefix == "column " ) {
            break; // a message without a place
         }
      }
      // It quotes what was read last, all of it.
      failAt( text_, position ? position - 1 : 0, Kiv::excerpt( what, 300 ) );
   }

 private:
   struct Open {
      bool isObject;
      Datum::Object members{};
      Datum::Array elements{};
      std::string key{};
      std::unordered_set< std::string > names{};
   };

   [[noreturn]] void fail( std::string const & what ) const {
      failAt( text_, read_ ? read_ - 1 : 0, what );
   }

   bool start( bool isObject ) {
      if( open_.size() == limits_.depth ) {
         fail( "nested deeper than " + std::to_string( limits_.depth ) );
      }
      open_.push_back( { isObject } );
      return true;
   }

   bool end() {
      auto closed = std::move( open_.back() );
      open_.pop_back();
      return closed.isObject ? value( std::move( closed.members ) )
                             : value( std::move( closed.elements ) );
   }

   bool value( Datum datum ) {
      if( open_.empty() ) {
         result_ = std::move( datum );
      } else if( open_.back().isObject ) {
         open_.back().members.emplace_back( std::move( open_.back().key ), std::move( datum ) );
      } else {
         open_.back().elements.push_back( std::move( datum ) );
      }
      return true;
   }

   std::string_view text_;
   JsonLimits const & limits_;
   std::size_t & read_;
   std::vector< Open > open_;
   Datum result_;
};

void
writeString( std::string & out, std::string_view text ) {
   bool plain = std::all_of( text.begin(), text.end(), []( char c ) {
      return c >= 0x20 && c < 0x7f && c != '"' && c != '\\';
   } );
   if( plain ) {
      out += '"';
      out += text;
      out += '"';
   } else {
      using nlohmann::json;
      out += json( text ).dump( -1, ' ', false, json::error_handler_t::replace );
   }
}

class Writer {
 public:
   Writer( std::string & out, unsigned indent ) : out_( out ), indent_( indent ) {}

   void write( Datum const & value ) { value.visit( *this ); }

   void operator()( std::monostate ) { out_ += "null"; }
   void operator()( bool value ) { out_ += value ? "true" : "false"; }
   void operator()( std::int64_t value ) { Kiv::print( out_, value ); }
   void operator()( std::uint64_t value ) { Kiv::print( out_, value ); }
   void operator()( double value ) {
      if( std::isfinite( value ) ) {
         Kiv::print( out_, value );
      } else {
         out_ += "null";
      }
   }
   void operator()( Kiv::String const & text ) { writeString( out_, text ); }
   void operator()( Datum::Array const & array ) {
      open( '[' );
      for( auto const & element : array ) {
         next( &element != array.data() );
         write( element );
      }
      close( ']', array.empty() );
   }
   void operator()( Datum::Object const & object ) {
      open( '{' );
      for( auto const & member : object ) {
         next( &member != object.data() );
         writeString( out_, member.first );
         out_ += indent_ ? ": " : ":";
         write( member.second );
      }
      close( '}', object.empty() );
   }

 private:
   void open( char bracket ) {
      out_ += bracket;
      ++depth_;
   }
   void next( bool comma ) {
      if( comma ) {
         out_ += ',';
      }
      lineEnd();
   }
   void close( char bracket, bool empty ) {
      --depth_;
      if( !empty ) {
         lineEnd();
      }
      out_ += bracket;
   }
   void lineEnd() {
      if( indent_ ) {
         out_ += '\n';
         out_.append( depth_ * indent_, ' ' );
      }
   }

   std::string & out_;
   unsigned const indent_;
   std::size_t depth_ = 0;
};

} // namespace

Datum
parseJson( std::string_view text, JsonLimits const & limits ) {
   if( text.size() > limits.bytes ) {
      failAt( text, 0, "longer than " + std::to_string( limits.bytes ) + " bytes" );
   }
   // The parser takes one for the end, and would let pass whatever follows.
   if( auto const zero = text.find( '\0' ); zero != text.npos ) {
      failAt( text, zero, "a zero byte" );
   }
   std::size_t read = 0;
   std::size_t unused = 0;
   Builder builder( text, limits, read );
   CountingIterator begin( text.data(), read );
   CountingIterator end( text.data() + text.size(), unused );
   nlohmann::json::sax_parse( begin, end, &builder );
   return builder.take();
}

std::string
jsonText( Datum const & value, unsigned indent ) {
   std::string out;
   Writer( out, indent ).write( value );
   return out;
}

} // namespace HobaAgent
