// SPDX-License-Identifier: Apache-2.0
#include "simulation/Step.h"

#include <algorithm>

namespace Simulation {

using Kiv::String;

Step::Step( String const & text ) {
   for( std::size_t begin = 0; begin < text.size(); ) {
      auto const end = std::min( text.find( ' ', begin ), text.size() );
      if( end != begin ) {
         words_.push_back( text.substr( begin, end - begin ) );
      }
      begin = end + 1;
   }
}

String const &
Step::operator[]( std::size_t place ) const {
   static String const none;
   return place < words_.size() ? words_[ place ] : none;
}

bool
Step::begins( std::string_view words ) const {
   auto const whole = text();
   return whole.starts_with( words ) &&
          ( whole.size() == words.size() || whole[ words.size() ] == ' ' );
}

bool
Step::isAt( std::string_view path ) const {
   auto const & at = ( *this )[ 1 ];
   auto const & verb = ( *this )[ 0 ];
   return ( verb == "set" || verb == "del" ) && at.starts_with( path ) &&
          ( at.size() == path.size() || at[ path.size() ] == '/' );
}

String
Step::text() const {
   String text;
   for( auto const & word : words_ ) {
      text += ( text.empty() ? "" : " " ) + word;
   }
   return text;
}

Step
Step::from( std::size_t place ) const {
   Step rest;
   auto const begin = std::min( place, words_.size() );
   rest.words_.assign( words_.begin() + static_cast< std::ptrdiff_t >( begin ), words_.end() );
   return rest;
}

Step
Step::with( std::size_t place, String const & word ) const {
   auto other = *this;
   other.words_[ place ] = word;
   return other;
}

} // namespace Simulation
