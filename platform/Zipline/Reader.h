// SPDX-License-Identifier: Apache-2.0
#pragma once

// Reading trace records. Records are formatted here, when somebody asks, and not when they are
// traced. Every record has a sequence number, counted from 0 when the process starts, so a reader
// that comes back with the `next` of its last reading gets what is new and is told what it lost.
//
// As everything of Zipline this is for the event loop's thread.

#include "Zipline/Control.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <string_view>

namespace Zipline {

// A decoded record. Its texts are good during the call that hands it out.
struct Record {
   std::uint64_t sequence;
   Kiv::Seconds time; // since 1970, or as the time source counts
   std::string_view handle;
   int level;
   std::string_view file; // without directories
   std::uint32_t line;
   std::string_view function; // without class and arguments
   std::string_view message;

   // One line without its end, the time in UTC, control characters made visible:
   // "2026-11-21 02:40:01.123456 HobaStormControlSm 5 handleEthIntf:212 message".
   void print( std::string & out ) const;
};

struct Query {
   std::uint64_t since = 0; // sequence to begin with
   std::string handle = {}; // only records of this handle; all if empty
   Levels levels = Levels( allLevelBits );
   std::string text = {}; // only records whose message holds this text
   std::size_t last = std::numeric_limits< std::size_t >::max(); // only that many, the newest
};

struct Progress {
   std::uint64_t next; // the `since` of a later query that goes on after this one
   std::uint64_t lost; // records from `since` on that were overwritten before they were visited
};

// Calls the visitor with every record that the query asks for, oldest first, until it answers
// false. Records traced meanwhile, by the visitor or by printing, are left for the next query. A
// `since` beyond the newest record counts as just after it.
Progress visit( Query const & query, std::function< bool( Record const & ) > const & visitor );

// The printed records, each with a line end.
std::string text( Query const & query = {} );

// The sequences that the ring holds at present: begin up to but not including end. As many as
// `begin` have been overwritten or dropped since the process began.
struct Extent {
   std::uint64_t begin;
   std::uint64_t end;
};
Extent extent();

// Drops all records.
void recordsDelAll();

inline constexpr std::size_t minCapacity = 64 * 1024;
inline constexpr std::size_t maxCapacity = 1024 * 1024 * 1024;

// The size of the ring in bytes; 1 MiB to begin with. Setting it rounds up to a power of two and
// drops all records. Throws Kiv::RangeException outside minCapacity to maxCapacity. The ring
// overwrites its records in blocks of 16 KiB or, if it is larger than 1 MiB, of a 64th.
std::size_t capacity();
void capacityIs( std::size_t bytes );

// Where time stamps come from: a function that returns seconds and does not trace, called with
// `context` at every record. Null, as at the beginning, stands for the processor's counter, which
// costs less and is related to the clocks when a record is read.
using TimeSource = Kiv::Seconds ( * )( void * context );
void timeSourceIs( TimeSource source, void * context = nullptr );

// A function that sees each record as soon as it is traced; null for none. What is traced inside
// of it is recorded, but not handed to it again. What it throws, the traced statement throws.
using Sink = std::function< void( Record const & ) >;
void sinkIs( Sink sink );

} // namespace Zipline
