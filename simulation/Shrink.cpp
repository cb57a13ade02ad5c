// SPDX-License-Identifier: Apache-2.0
// Long histories made short: first whole steps go, then values become simpler. What is left of the
// history stays as it was, for a step means the same whatever stands before it.

#include "simulation/History.h"

#include <algorithm>
#include <ctime>

namespace Simulation {

using Kiv::String;

namespace {

class Shrinker {
 public:
   Shrinker( Steps steps, Failure const & failure, unsigned mostSeconds )
         : steps_( std::move( steps ) ), kind_( failure.kind() ),
           end_( std::time( nullptr ) + mostSeconds ) {
      // What comes behind has no part in it, but for the quiet in which it is found.
      steps_.resize( std::min( steps_.size(), failure.step + 1 ) );
   }

   Steps shrunk() {
      for( bool less = true; less && hasTime(); ) {
         less = takeSteps();
         less = simplify() || less;
      }
      return steps_;
   }

 private:
   bool hasTime() const { return std::time( nullptr ) < end_; }

   // Whether these fail alike, which makes them the history.
   bool become( Steps steps ) {
      if( !hasTime() ) {
         return false;
      }
      auto const ended = runAlone( steps, 30 );
      if( !ended.failure || ended.failure->kind() != kind_ ) {
         return false;
      }
      steps.resize( std::min( steps.size(), ended.failure->step + 1 ) );
      steps_ = std::move( steps );
      return true;
   }

   // Large pieces first; a piece goes whole or not.
   bool takeSteps() {
      bool less = false;
      for( auto piece = steps_.size() / 2; piece != 0; piece /= 2 ) {
         for( std::size_t end = steps_.size(); end != 0 && hasTime(); ) {
            end = std::min( end, steps_.size() );
            auto const begin = end > piece ? end - piece : 0;
            auto fewer = steps_;
            auto const at = fewer.begin();
            fewer.erase( at + static_cast< std::ptrdiff_t >( begin ),
                         at + static_cast< std::ptrdiff_t >( end ) );
            less = become( std::move( fewer ) ) || less;
            end = begin;
         }
      }
      return less;
   }

   bool simplify() {
      bool less = false;
      for( std::size_t n = 0; n < steps_.size() && hasTime(); ++n ) {
         for( std::size_t word = 1; n < steps_.size() && word < steps_[ n ].size(); ++word ) {
            less = simplifyWord( n, word ) || less;
         }
      }
      return less;
   }

   // Everywhere at once: that two steps are about the same interface may be the point.
   bool simplifyWord( std::size_t n, std::size_t place ) {
      for( auto const & simpler : simplerThan( steps_[ n ][ place ] ) ) {
         auto const word = steps_[ n ][ place ];
         auto others = steps_;
         for( auto & step : others ) {
            for( std::size_t each = 1; each < step.size(); ++each ) {
               step = step[ each ] == word ? step.with( each, simpler ) : step;
            }
         }
         if( become( std::move( others ) ) || become( oneChanged( n, place, simpler ) ) ) {
            return true;
         }
      }
      return false;
   }

   Steps oneChanged( std::size_t n, std::size_t place, String const & simpler ) const {
      auto steps = steps_;
      steps[ n ] = steps[ n ].with( place, simpler );
      return steps;
   }

   // The number at its end made smaller.
   static std::vector< String > simplerThan( String const & word ) {
      auto begin = word.size();
      for( ; begin != 0 && std::isdigit( static_cast< unsigned char >( word[ begin - 1 ] ) ); ) {
         --begin;
      }
      auto const digits = word.substr( begin );
      if( digits.empty() || digits.size() > 9 || word.find( ':' ) != String::npos ) {
         return {};
      }
      auto const number = std::stoul( digits );
      std::vector< String > all;
      for( auto const simpler : { 0ul, 1ul, number / 2 } ) {
         if( simpler < number ) {
            all.push_back( word.substr( 0, begin ) + std::to_string( simpler ) );
         }
      }
      return all;
   }

   Steps steps_;
   String const kind_;
   std::time_t const end_;
};

} // namespace

Steps
shrink( Steps steps, Failure const & failure, unsigned mostSeconds ) {
   return Shrinker( std::move( steps ), failure, mostSeconds ).shrunk();
}

} // namespace Simulation
