// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the benchmark writes to. Entities and handlers are made in another object file, so that the
// compiler sees in the loop what it sees in a machine: a pointer.

#include "Kiv/Entity.h"

#include <cstdint>

namespace Bench {

class Port : public Kiv::Entity {
   KIV_ENTITY( Bench::Port );
   KIV_ATTRIBUTE( std::uint32_t, level );
   KIV_COLLECTION( std::uint64_t, std::uint32_t, member );

 public:
   Port();
};

// Five numbers, for their size.
class Five : public Kiv::Entity {
   KIV_ENTITY( Bench::Five );
   KIV_ATTRIBUTE( std::uint64_t, a );
   KIV_ATTRIBUTE( std::uint64_t, b );
   KIV_ATTRIBUTE( std::uint64_t, c );
   KIV_ATTRIBUTE( std::uint64_t, d );
   KIV_ATTRIBUTE( std::uint64_t, e );
};

// The least that a callback can be: one virtual function.
class Handler {
 public:
   virtual ~Handler() = default;
   virtual void handle() = 0;
   virtual void handle( std::uint64_t key ) = 0;
};

// Every handler of every contender counts for itself, so that they do not wait for each other's
// count; what all of them counted together says whether everybody heard.
std::uint64_t & newCount();
std::uint64_t allCounts();

Kiv::Ptr< Port > portWithReactors( int count );
// A reactor that hears changes of `level`, and how it attaches and detaches.
class Switched;
Switched * switched();
void attach( Switched & reactor, Kiv::Ptr< Port > const & port );

Handler * handler();

} // namespace Bench
