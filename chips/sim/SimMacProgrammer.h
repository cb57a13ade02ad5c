// SPDX-License-Identifier: Apache-2.0
#pragma once

// The pipeline of a simulated chip in indirect-access mode.
//
// The chip reports what is in the table as learnt, whoever wrote it. Such a write that was decided before the last
// report of the station was heard would be taken for news of the station, which leads to another write, and so
// on. So what the chip does not report there is put off once, as if the chip were busy: those who hear of
// reports have time to decide anew.

#include "Hoba/HobaChipProgrammer.h"
#include "chips/sim/SimMacAccess.h"

#include <map>

namespace HobaSim {

// Of an entry, with all that software writes of it.
class MacCmd : public Hoba::IndirectAccessMacCmd {
   KIV_TYPE( HobaSim::MacCmd );

 public:
   HostRow const & row() const { return row_; }
   // The transaction of the first try: what was accepted later has a higher one.
   std::uint64_t acceptedAs() const { return acceptedAs_; }
   void acceptedAsIs( std::uint64_t transactionId ) { acceptedAs_ = transactionId; }
   // What the chip reported of the station when this was put off for it.
   std::optional< Pelt::IntfId > heardAt() const { return heardAt_; }
   void heardAtIs( Pelt::IntfId intf ) { heardAt_ = intf; }

 protected:
   MacCmd( Type addrOp, Bridging::MacVlanPair station, HostRow const & row )
         : IndirectAccessMacCmd( addrOp, { station, Hoba::macHwKeyBridge }, row.intf, row.entryType,
                                 row.swTunnelGroupId, row.hwId, 0 ),
           row_( row ) {}

 private:
   HostRow const row_;
   std::uint64_t acceptedAs_ = 0;
   std::optional< Pelt::IntfId > heardAt_;
};

class MacProgrammer : public Hoba::HobaMacProgrammer {
   HOBA_MACHINE( MacProgrammer, Hoba::HobaMacProgrammer );

 public:
   // Busy while the interface has no room.
   Hoba::MacProgramStatus writeToHw( Kiv::Ptr< Hoba::IndirectAccessMacCmd > const & cmd ) override;
   // Flushes that the chip has not done by then are done at once.
   void kivDoZombieReactors( bool marked ) override;

   // ---- For the helper
   // The station's entry is to be so, or gone.
   void write( Bridging::MacVlanPair station, HostRow const & row );
   void remove( Bridging::MacVlanPair station );
   // What ages within goes, and what is on its way there and would age does not come: what is written is removed;
   // what is pending comes before the flush, and is removed when it is tried again behind it.
   void flush( MacScope const & scope );
   // The newest command for the station that is on its way; null for none.
   Kiv::Ptr< Hoba::IndirectAccessMacCmd > onItsWay( Bridging::MacVlanPair station ) const;
   // Whether it will come to its end without anybody's doing: it neither waits for room nor is it lost, as it seems.
   static bool isUnderWay( Hoba::IndirectAccessMacCmd const & cmd );
   // Whether any is; whether a flush is.
   bool isUnderWay() const;
   bool isFlushUnderWay() const;
   // What the table holds of the station when all has been done is what it holds now.
   bool isSettled( Bridging::MacVlanPair station ) const {
      return !onItsWay( station ) && !hasFlush();
   }

 protected:
   // Drives the interface of `unit`, from now on and alone.
   MacProgrammer( Kiv::Ptr< Mox::TimerWheel > const & timerWheel,
                  Kiv::Ptr< MacUnit > const & unit );

 private:
   // A flush that covers it was accepted later.
   bool isFlushedSince( MacCmd const & cmd ) const;
   // Whether that holds of a command that is written and not stalled.
   template< class Wanted >
   bool anyWritten( Wanted const & wanted ) const;

   Kiv::Ptr< MacUnit > const unit_;
   // By what it was about: the transaction of the last flush. For those that were accepted before.
   std::map< MacScope, std::uint64_t > flushed_;
};

// How the pipeline calls what the table said.
Hoba::MacProgramStatus macProgramStatusOf( TableResult result );

} // namespace HobaSim
