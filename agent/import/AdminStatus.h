// SPDX-License-Identifier: Apache-2.0
#pragma once

// A field that rows of many tables have.

#include "agent/import/Tables.h"

namespace Import {

// Whether the operator lets an interface take part. What is there stays as it is when the row does not
// say; files say so of every new interface, and one of which they do not gets this system's default,
// which the report tells. `present`: what holds, if the interface is there.
inline bool
adminUp( Row & row, std::optional< bool > present ) {
   auto const up = row.either( "admin_status", "up", "down" );
   if( !up && !present ) {
      row.remark( "no admin_status; taken as up" );
   }
   return up.value_or( present.value_or( true ) );
}

inline Kiv::String
upText( bool up ) {
   return up ? "up" : "down";
}

} // namespace Import
