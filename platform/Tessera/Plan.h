// SPDX-License-Identifier: Apache-2.0
#pragma once

// A change of the database from outside, in two halves: everything is checked first, against
// types and against what is there, without touching anything; then it is applied.

#include "Kiv/Datum.h"
#include "Tessera/Target.h"

namespace Tessera {

class Plan {
 public:
   // Adds the writing of `value` at `target`. Throws Error, and this plan must not be applied then,
   // for what may not or cannot be written.
   void add( Mount const & root, Target const & target, Kiv::Datum const & value );

   // Writes, in the order of add(): makes missing entities, sets attributes, sets members. Handlers
   // run meanwhile; should they remove an entity that is still to be written, the rest goes to the
   // removed one.
   void apply();

 private:
   struct Step {
      Path path;
      PlacePtr place;
      Kiv::AttributeInfo const * attribute; // null: only the entity is to be there
      std::optional< Kiv::String > key;
      std::vector< Kiv::String > fields; // the value goes into this part of what is there then
      Kiv::Datum value;
   };

   void addEntity( PlacePtr const & place, Kiv::Datum const & value );
   void addAttribute( PlacePtr const & place, Kiv::AttributeInfo const & attribute,
                      Kiv::Datum const & value );
   void addWhole( Step step );
   void addMember( Step step );
   void addStep( Step step );

   std::vector< Step > steps_;
};

} // namespace Tessera
