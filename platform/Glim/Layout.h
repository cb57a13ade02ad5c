// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a table looks like in memory: version 4 of the layout.
//
//    Header | journal | changes | region | region ...
//
// The memory has one writer. Readers map it without the right to write, so that nothing they do can
// harm it; what they have to say of themselves stands in files of their own (ReaderFile.h).
//
// A *region* is a hash table with linear probing, `slots` many, a power of two. A slot is a word, the
// key and the record, each in whole words:
//
//    word = version << 18 | reach << 2 | live | writing
//
// While the writer changes a slot, its word is odd; a reader that finds the word as it was, before and
// after it copied, has a whole record. Rows never move within a region.
//
// `reach` is not of the row that stands there, but of those whose search begins there: none of them
// stands more than so many slots behind. It is raised before a row is put there, and lowered after the
// farthest is gone, so a search for what is not there is short, and a slot whose row is gone is as
// good as one that never had any.
//
// A region that is too full, or far too empty, is replaced by a new one, `epoch` one higher. The
// memory of the former one is given back at once, so who has read checks the epoch once more.
//
// The *journal* has the last change whole. It is written before the slot is, so a reader that finds
// an odd slot takes the record from the journal instead of waiting for a writer that may be dead, and
// the next writer completes what the dead one had begun.
//
// *Changes* is a ring of the keys that changed, in order: change n is in place n % capacity.
// `changeReserved` is raised before a place is overwritten, `changeHead` after it is written.
// `bell` is the futex on which readers sleep; the writer raises it when it commits.
//
// The *seed* of the hash is chosen at random for every table: who chooses keys cannot choose some that
// crowd it. So the rows of equal tables stand in different orders.
//
// Every counter that one side writes while the other reads has a cache line of its own, and its
// neighbour, which processors fetch along with it.

#include "Kiv/Hash.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace Glim::Layout {

inline constexpr std::uint64_t magic = 0x4d494c4741424f48; // "HOBAGLIM"
inline constexpr std::uint32_t version = 4;
inline constexpr std::uint32_t byteOrder = 0x01020304;
inline constexpr std::size_t lineBytes = 128;

// Bounds of what is believed of a header.
inline constexpr std::uint32_t maxKeyBytes = 64;
inline constexpr std::uint32_t maxRecordBytes = 16384;
inline constexpr std::uint64_t maxSlots = std::uint64_t( 1 ) << 32;
inline constexpr std::uint64_t maxChanges = std::uint64_t( 1 ) << 28;

inline constexpr std::uint64_t writing = 1;
inline constexpr std::uint64_t live = 2;
inline constexpr unsigned reachShift = 2;
inline constexpr std::uint64_t maxReach = 0xffff; // that far, or any farther
inline constexpr std::uint64_t oneVersion = std::uint64_t( 1 ) << 18;

using Word = std::atomic< std::uint64_t >;
static_assert( Word::is_always_lock_free && sizeof( Word ) == 8 );

struct Region {
   Word epoch;
   Word offset; // of the first slot, from the header
   Word slots;
};

enum State : std::uint32_t {
   stateMaking = 0, // not complete yet
   stateOpen,
   stateQuiesced, // the writer asks its readers to rest until it says otherwise
   stateClosed,   // the writer stopped cleanly; the table stays
   stateRemoved,  // the table is no more: a new one of that name is in another file
};

struct Seed {
   std::uint64_t first, second;
};

struct Header {
   // Written once; `magic` last.
   Word magic;
   std::uint32_t version;
   std::uint32_t byteOrder;
   std::uint32_t headerBytes; // where the journal begins
   std::uint32_t keyBytes;    // as the types have them, not rounded
   std::uint32_t recordBytes;
   std::uint32_t slotBytes;
   std::uint64_t changes; // the capacity of the ring
   std::uint64_t changesOffset;
   std::uint64_t regionsOffset; // where the first region begins
   std::uint64_t stays;         // 1 if the table outlives its writer's clean stop
   Seed seed;                   // of hashOf()
   char table[ 64 ];            // all texts end in a zero
   char keyType[ 128 ];
   char recordType[ 128 ];
   char schema[ 1024 ]; // what the bytes mean: Schema.h

   alignas( lineBytes ) Word epoch; // that of region[ epoch % 2 ]
   Region region[ 2 ];

   alignas( lineBytes ) std::atomic< std::uint32_t > state;
   std::atomic< std::uint32_t > writerPid;
   Word writerStart; // when that process began, in ticks since the machine did
   Word writers;     // how many there have been
   Word committed;   // when the last commit was, in nanoseconds since 1970

   alignas( lineBytes ) Word rows;

   alignas( lineBytes ) Word changeReserved;
   alignas( lineBytes ) Word changeHead;
   alignas( lineBytes ) std::atomic< std::uint32_t > bell;
};

enum Operation : std::uint64_t { operationNone = 0, operationPut, operationDel };

// Behind it the key and the record, in whole words.
struct Journal {
   Word sequence; // odd while the journal is written
   Word epoch;    // the region of the slot
   Word slot;
   Word operation;
   Word change; // the number of the change
};

constexpr std::uint64_t
reachOf( std::uint64_t word ) {
   return word >> reachShift & maxReach;
}

constexpr std::uint64_t
withReach( std::uint64_t word, std::uint64_t reach ) {
   return ( word & ~( maxReach << reachShift ) ) | std::min( reach, maxReach ) << reachShift;
}

// At how many slots a search looks that begins at the one with this word.
constexpr std::uint64_t
searchOf( std::uint64_t word, std::uint64_t slots ) {
   auto const reach = reachOf( word );
   return reach == maxReach ? slots : std::min( reach + 1, slots );
}

constexpr std::size_t
wordsOf( std::size_t bytes ) {
   return ( bytes + 7 ) / 8;
}

constexpr std::uint64_t
roundUp( std::uint64_t value, std::uint64_t unit ) {
   return ( value + unit - 1 ) / unit * unit;
}

// A slot shares no cache line with more slots than it must.
constexpr std::size_t
slotBytesOf( std::size_t keyBytes, std::size_t recordBytes ) {
   std::size_t const bytes = 8 * ( 1 + wordsOf( keyBytes ) + wordsOf( recordBytes ) );
   std::size_t power = 16;
   while( power < bytes && power < 64 ) {
      power *= 2;
   }
   return bytes <= power ? power : roundUp( bytes, 64 );
}

constexpr std::size_t
journalBytesOf( std::size_t keyBytes, std::size_t recordBytes ) {
   return roundUp( sizeof( Journal ) + 8 * ( wordsOf( keyBytes ) + wordsOf( recordBytes ) ),
                   lineBytes );
}

// The hash of a key, the same in every process. Slot `hash >> shift` is where the search begins. Who
// does not know the multiplier cannot choose keys that come close to each other; the second one breaks
// up what is left of a pattern in them.
inline std::uint64_t
hashOf( Seed const & seed, std::uint64_t const * key, std::size_t words ) {
   auto hash = seed.first;
   for( std::size_t i = 0; i != words; ++i ) {
      hash = ( hash ^ key[ i ] ) * seed.second;
      hash ^= hash >> 32;
   }
   return hash * 0xc4ceb9fe1a85ec53;
}

} // namespace Glim::Layout
