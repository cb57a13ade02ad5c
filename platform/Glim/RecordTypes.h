// SPDX-License-Identifier: Apache-2.0
#pragma once

// Keys and records as data, for programs that show tables which they know by name only.
//
//    GLIM_RECORD( FecId, FecToHwFecId );     // in a .cpp of the program
//
// enrols a pair; whoever has the header of a table finds its pair by the texts that stand there. The
// line must be in a .cpp that is linked in anyhow: a library leaves out what nobody refers to.

#include "Glim/Schema.h"
#include "Kiv/Datum.h"

#include <cstring>
#include <typeindex>

namespace Glim {

struct RecordType {
   Schema schema;
   std::type_index key;
   std::type_index record;
   // For bytes that are such a value: every truth value is true or false (Shape::isPossible()).
   Kiv::Datum ( *keyDatum )( void const * bytes );
   Kiv::Datum ( *recordDatum )( void const * bytes );
   // The order of keys; null when they have none.
   bool ( *before )( void const * a, void const * b );
};

void recordTypeIs( RecordType const & type );

// The pair of the table that has this header, which must be without fault (headerFault()). Null when
// nobody enrolled it, and when two pairs that are not the same look alike.
RecordType const * recordTypeOf( Layout::Header const & header, std::uint64_t bytes );

template< class T >
T
valueOfBytes( void const * bytes ) {
   T value;
   std::memcpy( static_cast< void * >( &value ), bytes, sizeof( T ) );
   return value;
}

template< class T >
Kiv::Datum
datumOfBytes( void const * bytes ) {
   return Kiv::toDatum( valueOfBytes< T >( bytes ) );
}

template< TableKey Key, TableRecord Record >
bool
enrolRecordType() {
   bool ( *before )( void const *, void const * ) = nullptr;
   if constexpr( requires( Key const & key ) {
                    { key < key } -> std::convertible_to< bool >;
                 } ) {
      before = []( void const * a, void const * b ) -> bool {
         return valueOfBytes< Key >( a ) < valueOfBytes< Key >( b );
      };
   }
   recordTypeIs( { schemaOf< Key, Record >(), typeid( Key ), typeid( Record ), &datumOfBytes< Key >,
                   &datumOfBytes< Record >, before } );
   return true;
}

} // namespace Glim

#define GLIM_RECORD( Key, Record ) GLIM_RECORD_AT_( Key, Record, __LINE__ )
#define GLIM_RECORD_AT_( Key, Record, line ) GLIM_RECORD_AS_( Key, Record, line )
#define GLIM_RECORD_AS_( Key, Record, line )                                                       \
   [[maybe_unused]] static bool const glimRecord##line = ::Glim::enrolRecordType< Key, Record >()
