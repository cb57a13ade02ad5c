// SPDX-License-Identifier: Apache-2.0
#pragma once

// What is asked of a MAC table that is written through an interface which answers later: one command. See
// Hoba/HobaChipProgrammer.h for what becomes of it.

#include "Bridging/EntryType.h"
#include "Bridging/MacVlanPair.h"
#include "Hoba/HobaMacProgramStatus.h"
#include "Kiv/Ptr.h"
#include "Pelt/IntfId.h"

namespace Hoba {

class HobaMacProgrammer;

// The address operations, then the flushes.
KIV_ENUM( IndirectAccessMacCmdType, std::uint8_t, addHost = 0, addMcastHost, removeHost, flushAll,
          flushLag, flushPort, flushVlan, flushVlanLag, flushVlanPort );
inline constexpr std::size_t indirectAccessMacCmdTypes = flushVlanPort + 1;

// What the hardware finds a station by.
KIV_ENUM( MacHwType, std::uint8_t, macHwKeyBridge = 0, macHwKeyBridgeDwide, macHwKeyVfi );

struct MacEntryKey {
   KIV_VALUE( Hoba::MacEntryKey );
   KIV_FIELD( Bridging::MacVlanPair, key );
   KIV_FIELD( MacHwType, macHwType, macHwKeyBridge );

   // Reads what print() writes, or the pair alone, which is one of macHwKeyBridge. Throws
   // Kiv::ParseError.
   static MacEntryKey parse( std::string_view text );
};

// Where a command is. Superseded ones, too, which wait there to be consumed.
KIV_ENUM( MacCmdPlace, std::uint8_t, macCmdIdle = 0 KIV_SHOWN( "idle" ), // nowhere
          macCmdPending KIV_SHOWN( "pending" ), macCmdInProgress KIV_SHOWN( "in progress" ),
          macCmdOverflow KIV_SHOWN( "overflow" ) );
inline constexpr std::size_t macCmdPlaces = macCmdOverflow + 1;

// Shared by the queues that it is in. A chip that writes more than these fields derives from it.
class IndirectAccessMacCmd : public Kiv::PtrInterface {
   KIV_TYPE( Hoba::IndirectAccessMacCmd );

 public:
   using Type = IndirectAccessMacCmdType;
   // ---- What is asked for. A flush is of what its key and interface name; the others are ignored.
   Type op() const { return op_; }
   bool addrOp() const { return op_ <= removeHost; }
   MacEntryKey const & key() const { return key_; }
   Pelt::IntfId intf() const { return intf_; }
   Bridging::EntryType entryType() const { return entryType_; }
   std::int64_t groupIndex() const { return groupIndex_; }
   std::uint64_t hwId() const { return hwId_; }

   // ---- What has become of it
   // Of the last time that it was queued; 0 before.
   std::uint64_t transactionId() const { return transactionId_; }
   // What the hardware said last.
   MacProgramStatus status() const { return status_; }
   // Where in its table the hardware has it, as it said.
   std::int64_t tblIndex() const { return tblIndex_; }
   // Superseded by a newer one for the same key.
   bool valid() const { return valid_; }
   bool invalid() const { return !valid_; }
   MacCmdPlace place() const { return place_; }
   // When it was written last, and when it was accepted, in seconds of the pipeline's clock.
   Kiv::Seconds execStartTime() const { return execStartTime_; }
   Kiv::Seconds acceptedTime() const { return acceptedTime_; }
   // How often it was written so far.
   std::uint32_t tries() const { return tries_; }
   // It was in progress longer than maxExecTime.
   bool stalled() const { return stalled_; }

   // Appends such as "addHost 00:00:5e:00:53:01@10 Ethernet1, transaction 17, pending".
   void print( Kiv::String & out ) const;

 protected:
   IndirectAccessMacCmd( Type addrOp, MacEntryKey const & key, Pelt::IntfId intf,
                         Bridging::EntryType entryType, std::int64_t groupIndex, std::uint64_t hwId,
                         std::int64_t tblIndex )
         : op_( addrOp ), entryType_( entryType ), key_( key ), intf_( intf ),
           groupIndex_( groupIndex ), hwId_( hwId ), tblIndex_( tblIndex ) {}

 private:
   friend class HobaMacProgrammer;

   Type const op_;
   Bridging::EntryType const entryType_;
   MacProgramStatus status_ = macProgramSuccess;
   MacCmdPlace place_ = macCmdIdle;
   bool valid_ = true;
   bool stalled_ = false;
   std::uint32_t tries_ = 0;
   MacEntryKey const key_;
   Pelt::IntfId const intf_;
   std::int64_t const groupIndex_;
   std::uint64_t const hwId_;
   std::int64_t tblIndex_;
   std::uint64_t transactionId_ = 0;
   Kiv::Seconds execStartTime_ = 0, acceptedTime_ = 0;
};

Kiv::Ptr< IndirectAccessMacCmd > indirectAccessMacCmdFactory(
      IndirectAccessMacCmdType addrOp, MacEntryKey const & key, Pelt::IntfId intf = {},
      Bridging::EntryType entryType = Bridging::entryTypeUnknown, std::int64_t groupIndex = 0,
      std::uint64_t hwId = 0, std::int64_t tblIndex = 0 );

} // namespace Hoba
