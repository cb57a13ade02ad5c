// SPDX-License-Identifier: Apache-2.0
#pragma once

// The interface through which software writes the L2 table of a chip in indirect-access mode. It takes commands, as
// many as it has room for, executes them in the order in which they were written, each when the latency of
// the table is over, and answers: in the call if there is no latency, in that order, or in another if the unit
// says so. A fault of the unit may keep it from answering.

#include "Kiv/Clock.h"
#include "chips/sim/SimMac.h"

#include <deque>
#include <functional>
#include <map>

namespace HobaSim {

struct MacCommand {
   enum class Kind { write, remove, flush };
   std::uint64_t transactionId = 0;
   Kind kind = Kind::write;
   // Of an entry. What is written as if the chip had learnt it, where the chip does not report it now, is written only
   // if software knows what the chip reports: the chip is busy otherwise.
   Bridging::MacVlanPair station;
   HostRow row;
   std::optional< Pelt::IntfId > heardAt;
   // Of a flush.
   MacScope scope;
};

class MacAccess {
 public:
   // What came of the command, and where the station's entry is in the memory of the table.
   using Answer = std::function< void( std::uint64_t transactionId, std::uint32_t tblIndex,
                                       TableResult result ) >;

   // Part of the unit, which owns it. Its clock is one of its own, on the ambient driver.
   explicit MacAccess( MacUnit & unit );
   ~MacAccess();

   // A driver begins: what the former one wrote and is not executed yet is lost.
   void attach( Answer answer );
   // It ends: what was written is executed, and answered to nobody.
   void detach() { answer_ = {}; }

   // False for no room now. May answer before it returns.
   bool submit( MacCommand const & command );
   // Software does not know what the chip reports of the station.
   bool isStale( MacCommand const & command ) const;
   // The command has yet to be done: it is not executed, or was refused, which has not been told.
   bool isOutstanding( std::uint64_t transactionId ) const;
   // The highest id of a command so far.
   std::uint64_t lastTransactionId() const { return lastTransactionId_; }

 private:
   class Turn;
   struct Executed {
      std::uint64_t transactionId = 0;
      std::uint32_t tblIndex = 0;
      TableResult result = tableWritten;
   };

   void takeTurn();
   void arm();
   void execute( MacCommand const & command );
   TableResult perform( MacCommand const & command );
   void answer( Executed const & executed );

   MacUnit & unit_;
   Answer answer_;
   std::deque< std::pair< Kiv::Seconds, MacCommand > > commands_; // with the time when they are due
   std::multimap< Kiv::Seconds, Executed > late_;                 // answers
   std::uint64_t lastTransactionId_ = 0;
   FaultDice silence_, order_;
   std::unique_ptr< Turn > turn_;
};

} // namespace HobaSim
