// SPDX-License-Identifier: Apache-2.0
#include "Glim/RecordTypes.h"

#include "Glim/Segment.h"

#include <deque>
#include <mutex>

namespace Glim {

namespace {

struct Types {
   std::mutex mutex;
   std::deque< RecordType > all; // whose elements stay where they are
};

// Made when first asked for: enrolment is before main, in whatever order.
Types &
types() {
   static auto & made = *new Types;
   return made;
}

bool
same( RecordType const & a, RecordType const & b ) {
   return a.key == b.key && a.record == b.record;
}

} // namespace

void
recordTypeIs( RecordType const & type ) {
   std::lock_guard const guard( types().mutex );
   for( auto const & known : types().all ) {
      if( same( known, type ) ) {
         return;
      }
   }
   types().all.push_back( type );
}

RecordType const *
recordTypeOf( Layout::Header const & header, std::uint64_t bytes ) {
   std::lock_guard const guard( types().mutex );
   RecordType const * found = nullptr;
   for( auto const & type : types().all ) {
      if( headerFault( header, bytes, &type.schema ).empty() ) {
         if( found ) {
            return nullptr;
         }
         found = &type;
      }
   }
   return found;
}

} // namespace Glim
