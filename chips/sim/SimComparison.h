// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a table of the simulated chip holds, compared with what it should.

#include "chips/sim/SimTable.h"

namespace HobaSim {

template< class Record >
Kiv::String
rowText( std::optional< Record > const & row ) {
   return row ? Kiv::toText( *row ) : "nothing";
}

// Compares the rows of one table with those that are wanted; each key is asked for once. The first difference
// goes to `mismatch`, if nothing is in it yet.
template< class Rows, class Record >
class Comparison {
   using Key = typename Rows::key_type;

 public:
   Comparison( char const * what, Rows const & rows, Kiv::String & mismatch )
         : what_( what ), rows_( rows ), mismatch_( mismatch ) {}

   void expect( Key const & key, std::optional< Record > const & wanted ) {
      if( wanted ) {
         wanted_.insert( key );
      }
      if( auto const found = rows_.find( key ); wanted && found != wanted ) {
         differs( key, rowText( wanted ), rowText( found ) );
      }
   }
   // All have been asked for.
   void conclude() {
      if( rows_.size() == wanted_.size() || !mismatch_.empty() ) {
         return;
      }
      for( auto const & row : rows_ ) {
         if( !wanted_.has( row.key ) ) {
            return differs( row.key, "nothing", Kiv::toText( row.value ) );
         }
      }
   }

 private:
   void differs( Key const & key, Kiv::String const & expected, Kiv::String const & found ) {
      if( mismatch_.empty() ) {
         mismatch_ = Kiv::String( what_ ) + ' ' + Kiv::toText( key ) + ": " + expected +
                     " expected, " + found + " found";
      }
   }

   char const * const what_;
   Rows const & rows_;
   Kiv::String & mismatch_;
   Kiv::HashSet< Key > wanted_;
};

} // namespace HobaSim
