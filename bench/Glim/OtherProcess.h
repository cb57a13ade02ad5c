// SPDX-License-Identifier: Apache-2.0
#pragma once

// The process on the other side of the tables. It is forked at the start, has a core of its own, and
// sleeps unless it is told to do something.

#include "Glim/Peers.h"
#include "Glim/Table.h"

#include <memory>
#include <vector>

namespace GlimBench {

enum class Task : std::uint32_t {
   rest,        // whatever it did without end is over
   make,        // tables of so many rows, which tell of so many changes
   changeTable, // changes so many rows, in no order
   changeRaw,
   updateTable, // changes rows until it is to rest
   updateRaw,
   sleepOnTable, // sleeps until the table "out" changes, and answers with what it finds, until ...
   sleepOnWord,
   end,
};

struct Control {
   std::atomic< std::uint32_t > serial; // of the task; a futex
   std::atomic< std::uint32_t > ready;  // what was told is done, or, if it is without end, begun
   Task task;
   std::uint64_t first;
   std::uint64_t second;
   alignas( 128 ) Word answer;
   alignas( 128 ) std::atomic< std::uint32_t > word; // of sleepOnWord; a futex
   alignas( 128 ) Word updates;                      // of the updates without end
};

struct Keys {
   std::vector< Key > made;     // in the order of insertion
   std::vector< Key > shuffled; // as the writer changes them
   std::vector< Key > wanted;   // as the reader reads them
};
// The same in both processes.
Keys const & keys( std::size_t rows );

// Where the files are.
std::string pathOf( std::string const & name );

using Writer = Glim::TableWriter< Key, Row >;
using Reader = Glim::TableReader< Key, Row >;

class OtherProcess {
 public:
   // Forks. Before anything else starts threads.
   OtherProcess();
   ~OtherProcess();

   Control & control() { return *control_; }
   // Returns when it has done so, or begun to do what is without end.
   void tell( Task task, std::uint64_t first = 0, std::uint64_t second = 0 ) {
      begin( task, first, second );
      await();
   }
   void begin( Task task, std::uint64_t first = 0, std::uint64_t second = 0 );
   void await();
   // Tells it to make tables, unless it has just these.
   void make( std::uint64_t rows, std::uint64_t changes );

 private:
   void run();
   void perform();
   void fill();
   void change( std::uint64_t count, bool table );
   void update( bool table );
   void sleepOnTable();
   void sleepOnWord();
   bool told() const { return control_->serial.load( std::memory_order_relaxed ) == seen_; }
   void readyIs();

   Control * control_;
   pid_t child_ = 0;
   // Of the parent: what was made last.
   std::uint64_t rows_ = 0;
   std::uint64_t changes_ = 0;
   // Of the child.
   std::uint32_t seen_ = 0;
   std::unique_ptr< Writer > writer_;
   std::unique_ptr< RawTable > rawTable_;
   std::unique_ptr< RawRing > rawRing_;
   Keys const * keys_ = nullptr;
   std::uint64_t value_ = 0;
   std::size_t next_ = 0;
};

void pinTo( unsigned core );

} // namespace GlimBench
