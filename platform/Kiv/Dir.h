// SPDX-License-Identifier: Apache-2.0
#pragma once

// A directory: entities of any class, by name.

#include "Kiv/Entity.h"

namespace Kiv {

class Dir : public Entity {
   KIV_ENTITY( Kiv::Dir );
   KIV_CHILDREN( Kiv::String, Kiv::Entity, entry );

 public:
   explicit Dir( String const & dirName = {} ) : Entity( dirName ) {}
};

} // namespace Kiv
