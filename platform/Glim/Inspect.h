// SPDX-License-Identifier: Apache-2.0
#pragma once

// Tables seen from outside: what a person wants to know of one, and its rows, whatever state it is in
// and whoever wrote it. Nothing is written and no lock is taken; writers and readers do not notice.

#include "Kiv/Datum.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace Glim {

enum class WriterState {
   running,
   dead,    // without having stopped; the next writer goes on where it was
   stopped, // cleanly; the table stays
   removed, // it has stopped, or was replaced, and the table is going
};

struct TableReport {
   struct Reader {
      std::string name;
      std::uint32_t pid = 0;
      std::uint64_t behind = 0; // changes that it has still to be told
      std::uint64_t resyncs = 0;
      // It has fallen farther behind than the table remembers, and will read everything again.
      bool lost = false;
   };

   std::string table;
   // What is wrong with it, in one line; empty when nothing is. Then only what follows up to
   // `memoryBytes` is known.
   std::string fault;
   std::uint32_t user = 0; // who owns the file
   std::uint64_t fileBytes = 0;
   std::uint64_t memoryBytes = 0; // what it really takes

   // Programs of this user refuse to read it: it is neither their own nor the superuser's.
   bool foreign = false;
   std::string keyType, recordType, schema;
   std::uint64_t rows = 0;
   std::uint64_t slots = 0;
   WriterState writer = WriterState::running;
   std::uint32_t writerPid = 0;
   std::uint64_t writers = 0; // how many there have been
   bool quiesced = false;
   bool stays = false;
   std::uint64_t changes = 0;     // since it was made
   std::uint64_t capacity = 0;    // how many changes it remembers
   Kiv::Seconds committed = 0;    // since 1970; 0: never
   std::vector< Reader > readers; // that live, by name
};

// Throws Error when there is no such table or the name is none; everything else is in the report.
TableReport inspect( std::string const & table );

struct TableDump {
   enum class Form {
      typed,  // as the program prints these types: they are enrolled (RecordTypes.h)
      shaped, // by the text of their shape, which the table brings along
      bytes,  // in hexadecimal: the text does not say where the fields are
   };

   Form form = Form::bytes;
   std::string keyType, recordType;
   std::vector< std::pair< Kiv::Datum, Kiv::Datum > > rows; // in the order of their keys
   std::uint64_t odd = 0;        // rows that are no such values, which stand there as bytes
   std::uint64_t unreadable = 0; // rows that are damaged, which are left out
};

// All rows that are there throughout. What is changed meanwhile is there as it was before or after,
// whole in either case. Throws Error: there is no such table, it is damaged, or it changes its place
// again and again.
TableDump dumpTable( std::string const & table );

} // namespace Glim
