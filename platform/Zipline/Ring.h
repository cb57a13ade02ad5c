// SPDX-License-Identifier: Apache-2.0
#pragma once

// The ring of trace records, as its writer and its reader share it. Private to Zipline.
//
// The ring is cut into blocks of equal size and no record crosses from one into the next, so a
// statement only compares against the end of the block, and making room is forgetting the oldest
// block: nobody has to walk over records to overwrite them. A block knows the sequence number of
// its first record, so a record need not carry its own, and how stamps turn into times.

#include "Zipline/Statement.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace Zipline {

struct Record;

namespace Detail {

// The largest record: 32 texts of 255 bytes, their slots, the level and the head, fit in 16 KiB.
inline constexpr std::size_t minBlockBytes = 16 * 1024;
inline constexpr std::size_t maxBlockCount = 64;

// A point where the tick counter and the clock were read together.
struct Anchor {
   std::uint64_t ticks = 0;
   std::int64_t nanoseconds = 0; // CLOCK_MONOTONIC
};

struct Block {
   std::uint64_t firstSequence = 0;
   std::uint64_t generation = 0; // never the same twice; 0 for a block without records
   bool sourced = false;         // its stamps are times from the time source, not ticks
   Anchor anchor;                // where the block begins, unless sourced
};

// A record's place, or none if the generation is 0. Good for as long as the block's generation is
// this one.
struct Place {
   std::size_t block = 0;
   std::uint64_t generation = 0;
   std::size_t offset = 0;
   std::uint64_t sequence = 0;
};

class Ring {
 public:
   using TimeSource = Kiv::Seconds ( * )( void * context );

   // Writing.
   char * makeRoom( std::size_t bytes, std::uint64_t & stamp );
   void recordWritten( char const * record );

   // Reading. Sequences begin() up to but not including end() are held.
   std::uint64_t begin() const;
   std::uint64_t end() const { return ringHead.sequence; }
   // Reads the clocks that timeOf relates ticks to. Once for a whole reading, so that the order of
   // two times is the order of their stamps.
   void readingBegins();
   // The place of a sequence that is held.
   Place placeOf( std::uint64_t sequence ) const;
   // The place after one that is held, as long as it is in the same block; otherwise none.
   Place following( Place const & place ) const;
   bool isHeld( Place const & place ) const;
   char const * recordAt( Place const & place ) const;
   // Seconds since 1970, or whatever the time source counts from.
   Kiv::Seconds timeOf( Place const & place ) const;

   // Settings.
   std::size_t capacity() const { return capacity_; }
   void capacityIs( std::size_t bytes );
   void recordsDelAll();
   void timeSourceIs( TimeSource source, void * context );
   void sinkIs( std::function< void( Record const & ) > sink );

 private:
   void openBlock();
   void limitIs();
   char * blockBegin( std::size_t block ) const { return bytes_.get() + block * blockBytes_; }
   std::size_t newest() const { return ( oldest_ + live_ - 1 ) % blocks_.size(); }

   std::size_t capacity_ = 1 << 20;
   std::size_t blockBytes_ = 0;
   std::unique_ptr< char[] > bytes_; // none until something is traced
   std::vector< Block > blocks_;
   std::size_t oldest_ = 0;
   std::size_t live_ = 0;         // blocks that hold records, from oldest_ on
   std::uint64_t generation_ = 0; // the last one given out

   TimeSource timeSource_ = nullptr;
   void * timeContext_ = nullptr;
   std::shared_ptr< std::function< void( Record const & ) > > sink_;
   bool inSink_ = false;

   Anchor readAnchor_;
   std::int64_t wallOffset_ = 0; // nanoseconds from CLOCK_MONOTONIC to seconds since 1970
};

// A record taken out of the ring: printing it may trace, and so overwrite it there.
class Decoded {
 public:
   // Takes and formats the record at a place that is held.
   void recordIs( Ring const & ring, Place const & place );
   // Good until the next recordIs.
   Record record() const;

 private:
   std::string bytes_;
   std::string message_;
   std::uint64_t sequence_ = 0;
   Kiv::Seconds time_ = 0;
};

// The process's ring. Never destroyed: statements may run in static destructors.
Ring & ring();

// The size of a record in the ring.
std::size_t sizeOf( char const * record );

Site const & siteOf( char const * record );
int levelOf( char const * record );

// Appends the message of a record.
void printMessage( std::string & out, char const * record );

} // namespace Detail

} // namespace Zipline
