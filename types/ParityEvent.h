// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kiv/Entity.h"
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

// The parity errors of one slice of a chip that are not corrected yet.
class ParityEventStatus : public Kiv::Entity {
   KIV_ENTITY( Hoba::ParityEventStatus );
   KIV_KEYED( ParityEvent, ParityEvent::Key, key, parityEvent );

 public:
   explicit ParityEventStatus( Kiv::String const & slice ) : Entity( slice ) {}
};

// What it takes to get rid of an error: software writes the entry again, the chip's blocks are
// initialized again, or nothing helps but a restart of the agent.
KIV_ENUM( ParitySeverity, std::uint8_t, parityCorrectable = 0, parityNeedsReset, parityFatal );

// A parity error on its way from the chip's code to the one who corrects it.
struct HobaParityEvent {
   KIV_VALUE( Hoba::HobaParityEvent );
   KIV_FIELD( ParityEvent::Key, key );
   KIV_FIELD( Kiv::Seconds, time, 0 );
   KIV_FIELD( ParitySeverity, severity, parityCorrectable );
};

} // namespace Hoba
