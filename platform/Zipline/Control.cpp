// SPDX-License-Identifier: Apache-2.0
#include "Zipline/Control.h"

#include "Zipline/Ring.h"

#include <algorithm>
#include <map>
#include <optional>

namespace Zipline {

namespace {

struct Name {
   std::optional< Levels > configured;
   std::vector< Handle * > handles;
};

struct Registry {
   std::map< std::string, Name, std::less<> > names;
   Levels defaults{ initialLevelBits };

   Levels levelsOf( Name const & name ) const { return name.configured.value_or( defaults ); }
   void apply( Name const & name ) const {
      for( Handle * handle : name.handles ) {
         handle->levelBitsIs( levelsOf( name ).bits() );
      }
   }
};

// Handles come and go in static initialisation and destruction, so the registry is made on first
// use and never goes.
Registry &
registry() {
   static Registry & instance = *new Registry;
   return instance;
}

bool
isLetter( char c ) {
   return ( c >= 'a' && c <= 'z' ) || ( c >= 'A' && c <= 'Z' ) || c == '_';
}

bool
isDigit( char c ) {
   return c >= '0' && c <= '9';
}

void
checkName( std::string_view name ) {
   bool good = !name.empty() && name.size() <= maxNameLength && isLetter( name.front() ) &&
               std::all_of( name.begin(), name.end(),
                            []( char c ) { return isLetter( c ) || isDigit( c ); } );
   if( !good ) {
      Kiv::parseFailed( name, "the name of a trace handle, an identifier such as HobaCommon" );
   }
}

} // namespace

Levels
Levels::upTo( int level ) {
   if( level < 0 || level >= levelCount ) {
      throw Kiv::RangeException( "trace level " + std::to_string( level ) + " is not 0 to 9" );
   }
   return Levels( static_cast< std::uint16_t >( ( 2u << level ) - 1 ) );
}

void
Levels::print( std::string & out ) const {
   std::size_t const begin = out.size();
   for( int first = 0; first < levelCount; ++first ) {
      if( !has( first ) ) {
         continue;
      }
      int last = first;
      while( has( last + 1 ) ) {
         ++last;
      }
      out += out.size() > begin ? "," : "";
      Kiv::print( out, first );
      if( last > first ) {
         out += '-';
         Kiv::print( out, last );
      }
      first = last;
   }
   if( out.size() == begin ) {
      out += "none";
   }
}

Levels
Levels::parse( std::string_view text ) {
   if( text == "all" ) {
      return Levels( allLevelBits );
   }
   if( text == "none" ) {
      return {};
   }
   auto fail = [ text ] {
      Kiv::parseFailed( text, R"(trace levels such as "0-5,9", "all" or "none")" );
   };
   unsigned bits = 0;
   for( std::string_view rest = text;; ) {
      std::string_view const item = rest.substr( 0, rest.find( ',' ) );
      bool const range = item.size() == 3 && item[ 1 ] == '-';
      if( ( item.size() != 1 && !range ) || !isDigit( item.front() ) || !isDigit( item.back() ) ||
          item.front() > item.back() ) {
         fail();
      }
      for( char digit = item.front(); digit <= item.back(); ++digit ) {
         bits |= 1u << ( digit - '0' );
      }
      if( item.size() == rest.size() ) {
         return Levels( static_cast< std::uint16_t >( bits ) );
      }
      rest.remove_prefix( item.size() + 1 );
   }
}

void
levelsIs( std::string_view name, Levels levels ) {
   checkName( name );
   auto & names = registry().names;
   auto found = names.find( name );
   if( found == names.end() ) {
      if( names.size() >= maxNames ) {
         throw Kiv::RangeException( "cannot set the trace levels of " + std::string( name ) +
                                    ": there are " + std::to_string( maxNames ) +
                                    " names already" );
      }
      found = names.try_emplace( std::string( name ) ).first;
   }
   found->second.configured = levels;
   registry().apply( found->second );
}

void
levelsDel( std::string_view name ) {
   auto & names = registry().names;
   auto found = names.find( name );
   if( found == names.end() ) {
      return;
   }
   found->second.configured.reset();
   registry().apply( found->second );
   if( found->second.handles.empty() ) {
      names.erase( found );
   }
}

Levels
levels( std::string_view name ) {
   auto const & names = registry().names;
   auto found = names.find( name );
   return found == names.end() ? registry().defaults : registry().levelsOf( found->second );
}

void
defaultLevelsIs( Levels levels ) {
   registry().defaults = levels;
   for( auto const & [ text, name ] : registry().names ) {
      registry().apply( name );
   }
}

Levels
defaultLevels() {
   return registry().defaults;
}

std::vector< HandleStatus >
handles() {
   std::vector< HandleStatus > all;
   for( auto const & [ text, name ] : registry().names ) {
      all.push_back( { text, registry().levelsOf( name ), name.configured.has_value(),
                       static_cast< unsigned >( name.handles.size() ) } );
   }
   return all;
}

Enrolment::Enrolment( Handle & handle ) : handle_( handle ) {
   Name & name = registry().names[ handle.name() ];
   name.handles.push_back( &handle );
   registry().apply( name );
}

Enrolment::~Enrolment() {
   handle_.levelBitsIs( 0 );
   auto found = registry().names.find( handle_.name() );
   if( found != registry().names.end() ) {
      std::erase( found->second.handles, &handle_ );
      if( found->second.handles.empty() && !found->second.configured ) {
         registry().names.erase( found );
      }
   }
   Detail::ring().recordsDelAll();
}

} // namespace Zipline
