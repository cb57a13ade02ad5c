// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Pelt/IntfId.h"
#include "chips/sim/SimTable.h"

#include <algorithm>
#include <vector>

namespace HobaSim {

// A table the other way round: by what its rows are about, the interfaces of these rows, in their order.
// It keeps nothing that the table has not: when that has changed, it is worked out anew at the next
// question.
template< class Key >
class Inverse {
 public:
   // entry( row's key, record ) says what a row is about and of which interface, as a pair; of the empty
   // one for a row that does not count. The answer holds until the table changes.
   template< class Rows, class Entry >
   std::vector< Pelt::IntfId > const & find( Rows const & rows, Key const & key,
                                             Entry const & entry ) {
      if( asOf_ != rows.changes() ) {
         intfs_.clear();
         rows.each( [ & ]( auto const & rowKey, auto const & record ) {
            auto const [ about, intf ] = entry( rowKey, record );
            if( intf ) {
               intfs_.tryEmplace( about ).value->push_back( intf );
            }
         } );
         for( auto & [ about, intfs ] : intfs_ ) {
            std::sort( intfs.begin(), intfs.end() );
         }
         asOf_ = rows.changes();
      }
      static std::vector< Pelt::IntfId > const none;
      auto const * found = intfs_.find( key );
      return found ? *found : none;
   }

 private:
   Kiv::HashMap< Key, std::vector< Pelt::IntfId > > intfs_;
   std::uint64_t asOf_ = 0;
};

} // namespace HobaSim
