// SPDX-License-Identifier: Apache-2.0
#pragma once

// A field that rows of many tables have.

#include "agent/import/Tables.h"

namespace Import {

// Whether the operator lets an interface take part. Files say so of every interface; one that does
// not gets this system's default, and the report says so.
inline bool
adminUp( Row & row ) {
   auto const up = row.either( "admin_status", "up", "down" );
   if( !up ) {
      row.remark( "no admin_status; taken as up" );
   }
   return up.value_or( true );
}

inline Kiv::String
upText( bool up ) {
   return up ? "up" : "down";
}

} // namespace Import
