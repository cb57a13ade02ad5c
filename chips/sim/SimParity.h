// SPDX-License-Identifier: Apache-2.0
#pragma once

// Parity errors in the memories of the simulated chip.

#include "Kiv/Dir.h"
#include "chips/sim/SimTable.h"
#include "types/ParityEvent.h"

namespace HobaSim {

// An entry of a memory, as Hoba::ParityEvent::Key, and printed like it: slice:memory:index.
struct ParityEntry {
   KIV_PLAIN_VALUE( HobaSim::ParityEntry );
   KIV_FIELD( FixedText< 24 >, slice );
   KIV_FIELD( FixedText< 32 >, memory );
   KIV_FIELD( std::uint32_t, index, 0 );

   ParityEntry() = default;
   // Throws Kiv::ParseError for a slice or a memory whose name is too long.
   explicit ParityEntry( Hoba::ParityEvent::Key const & key )
         : slice( key.slice ), memory( key.memory ), index( key.index ) {}
   Hoba::ParityEvent::Key key() const { return { slice.text(), memory.text(), index }; }

   void print( std::string & out ) const { key().print( out ); }
   static ParityEntry parse( std::string_view text ) {
      return ParityEntry( Hoba::ParityEvent::Key::parse( text ) );
   }
};

// An error that is not corrected yet: when it was found last, and how often.
struct ParityFault {
   KIV_VALUE( HobaSim::ParityFault );
   KIV_FIELD( Kiv::Seconds, time, 0 );
   KIV_FIELD( std::uint64_t, count, 0 );
};

// Errors raised, by what it takes to get rid of them; and errors gone because they were corrected, and
// because their slice was reset.
KIV_ENUM( ParityCount, std::uint8_t, parityCountCorrectable = 0 KIV_SHOWN( "correctable" ),
          parityCountNeedsReset KIV_SHOWN( "needsReset" ), parityCountFatal KIV_SHOWN( "fatal" ),
          parityCountCorrected KIV_SHOWN( "entriesCorrected" ),
          parityCountReset KIV_SHOWN( "entriesReset" ) );

class ParityUnit : public Unit {
   KIV_ENTITY( HobaSim::ParityUnit, HobaSim::Unit );
   SIM_STATE( ParityEntry, ParityFault, error );
   SIM_STATE( ParityCount, std::uint64_t, count );
   // What the library is told: the same errors, in a Hoba::ParityEventStatus for each slice, which is
   // made when the slice first has one. slicesIs() hands in another directory to use from then on.
   KIV_CHILD( Kiv::Dir, slices );
   // The slices that the chip has, four unless it is told otherwise.
   KIV_SET( Kiv::String, sliceName );
   // How long the chip takes to have an entry written again.
   KIV_ATTRIBUTE( Kiv::Seconds, correctionTime, 1.0 );

 public:
   explicit ParityUnit( Kiv::String const & unitName = {}, Memory const & memory = {} );

   // An entry of a memory is found wrong: counted, with the time of the ambient clock driver, and
   // reported. Throws Kiv::ParseError for a slice that the chip does not have or whose name has a colon
   // or a zero in it, for a memory without a name, for names that are too long, and as status().
   void raise( Kiv::String const & slice, Kiv::String const & memory, std::uint32_t index,
               Hoba::ParitySeverity severity = Hoba::parityCorrectable );

   // The same, correctable, for whichever slice comes first; nothing on a chip without any.
   void raise( Kiv::String const & memory, std::uint32_t index );

   // The entry is as it should be again. Returns whether it had an error.
   bool corrected( Hoba::ParityEvent::Key const & key );

   // The blocks of the slice have been initialized again: none of its entries has an error any
   // more. Returns how many had one.
   std::size_t reset( Kiv::String const & slice );
   using Unit::reset;

   // The errors of a slice; null for a slice that has had none. Throws Kiv::ParseError when what
   // the directory has under that name is something else.
   Kiv::Ptr< Hoba::ParityEventStatus > status( Kiv::String const & slice );

 protected:
   void rowChanged( Kiv::AttributeId const & attribute, void const * key ) override;

 private:
   void countInc( ParityCount what, std::uint64_t by = 1 ) { countIs( what, count( what ) + by ); }
   // Tells the library what stands in the table.
   void publish( ParityEntry const & entry );
};

} // namespace HobaSim
