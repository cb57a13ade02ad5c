// SPDX-License-Identifier: Apache-2.0
#include "Kiv/Hash.h"

#include <algorithm>
#include <cstring>
#include <random>

namespace Kiv {

constinit Detail::HashSeed Detail::hashSeed{};

namespace {

// Earlier than what is initialised in the usual way, tables that are variables among it.
[[gnu::constructor( 101 )]] void
seedHashes() {
   Detail::hashSeed = { randomBits(), randomBits() | 1 };
}

} // namespace

std::uint64_t
randomBits() {
   std::random_device device;
   return std::uint64_t( device() ) << 32 | device();
}

std::size_t
hashText( std::string_view text ) {
   auto const size = text.size();
   std::size_t hash = 0;
   while( !text.empty() ) {
      std::uint64_t word = 0;
      auto const bytes = std::min( text.size(), sizeof word );
      std::memcpy( &word, text.data(), bytes );
      hash = hashWord( hash ^ word );
      text.remove_prefix( bytes );
   }
   return hashCombine( hash, size );
}

} // namespace Kiv
