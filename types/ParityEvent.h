// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kiv/Value.h"

namespace Hoba {

// A parity error in a memory of a switching chip: which entry, and what is known of it.
struct ParityEvent {
   // The slice is part of the key: two slices never own one key. Prints as slice:memory:index.
   struct Key {
      KIV_PLAIN_VALUE( Hoba::ParityEvent::Key );
      KIV_FIELD( Kiv::String, slice );
      KIV_FIELD( Kiv::String, memory );
      KIV_FIELD( std::uint32_t, index, 0 );

      void print( std::string & out ) const;
      static Key parse( std::string_view text );
   };

   KIV_VALUE( Hoba::ParityEvent );
   KIV_FIELD( Key, key );
   KIV_FIELD( Kiv::Seconds, time, 0 );
   KIV_FIELD( std::uint32_t, count, 0 );
};

} // namespace Hoba
