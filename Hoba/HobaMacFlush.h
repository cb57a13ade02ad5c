// SPDX-License-Identifier: Apache-2.0
#pragma once

// Requests to forget stations: those of other agents, which are answered when they have been carried out, those
// to forget remote stations, and those of the machine itself: for an interface that is gone, a port whose
// link went down (not one of a LAG), a LAG that lost its last active member, a VLAN that is gone, and for what
// learns no more (HobaMacLearning.h).
//
// What was learnt goes. What others claim stays, and may win now. The hardware is told first, which forgets on
// its own; then what is pending and the status, in slices. What is learnt after the request was begun is spared.
//
//    an address                    that station; in VLAN 0 in all VLANs. An interface counts for nothing
//    a LAG that is there           all behind it, in the VLAN or in all; also without active members
//    another interface there       the same. A subinterface goes the way of its port
//    an interface that is none     nothing, and that is answered
//    a VLAN                        all of it, once the machine is initialized
//    nothing                       all. Requests that come before it begins are done by one flush
//
// What comes before the machine is initialized waits. A request that was removed and made again is a new one,
// also within one turn.

#include "Bridging/HostTableFlush.h"
#include "Hoba/HobaMacWalks.h"
#include "types/RemoteMac.h"

#include <list>

namespace Hoba {

class MacAddrSm;

class MacFlush {
 public:
   using Pair = Bridging::MacVlanPair;

   explicit MacFlush( MacAddrSm & sm ) : sm_( sm ) {}

   // ---- Requests that came or went
   void handleFlushRequest( Kiv::String const & agent, Kiv::String const & key );
   void handleFlushRequestInputDir( Kiv::String const & agent );
   void handleAll();
   void handleFlushReqTimer();
   void handleRemoteMacFlushRequest( VXLAN::FlushReqKey const & key );

   // ---- What the machine itself wants forgotten
   void flushPort( Pelt::IntfId intf, Bridging::VlanIdOrNone vlanId = {} );
   void flushLag( Pelt::IntfId lag, Bridging::VlanIdOrNone vlanId = {} );
   void flushVlan( Bridging::VlanId vlanId );

   // The station was learnt: flushes that have begun spare it.
   void learned( Pair pair ) {
      if( open_ ) {
         learned_.insertOrAssign( pair, begun_ );
      }
   }
   // It was written: the hardware has it, though it was told of the flushes that have begun. Or it will be soon: from
   // being refused it went back to where walks over what is pending may have been already.
   void written( Pair pair ) {
      if( open_ ) {
         written_.insertOrAssign( pair, begun_ );
      }
   }
   void clear();

   // ---- For people: what has not been answered
   struct Request {
      Kiv::String agent;
      Kiv::String key;
      Bridging::HostTableFlushRequest what;
      bool begun = false;
      Kiv::Seconds since = 0;
      std::uint64_t serial = 0;
   };
   std::list< Request > const & requests() const { return requests_; }
   std::uint64_t answered() const { return answered_; }

 private:
   bool processFlushReq( Bridging::VlanIdOrNone vlanId, Pelt::IntfId intf, Pelt::EthAddr addr,
                         MacWalks::Done const & done );
   void execFlush();
   void flushAddr( Pelt::EthAddr addr, Bridging::VlanIdOrNone vlanId );
   void flushIntf( Pelt::IntfId intf, Bridging::VlanIdOrNone vlanId, MacWalks::Done done );
   void flushVlan( Bridging::VlanId vlanId, MacWalks::Done done );
   void removeStaleFlushReplies();
   void answer( std::uint64_t serial );
   void request( Kiv::String const & agent, Kiv::String const & key );
   void forget( Kiv::String const & agent, Kiv::String const & key );
   // A flush of those stations begins. The first walk over them is the caller's to add, with that visit; done() has
   // to be added behind it.
   MacWalks::Visit begin( std::function< bool( Pair ) > isMeant );
   void end( MacWalks::Visit const & visit, MacWalks::Done done );

   MacAddrSm & sm_;
   std::list< Request > requests_;
   std::size_t open_ = 0;    // flushes whose walks are not over
   std::uint64_t begun_ = 0; // the last flush's number
   // What was learnt while flushes are open, and what was, or will be, written, with the last flush then.
   Kiv::HashMap< Pair, std::uint64_t > learned_, written_;
   std::uint64_t nextSerial_ = 1;
   std::uint64_t answered_ = 0;
   std::vector< std::uint64_t > waitForAll_; // requests that the next full flush does
};

} // namespace Hoba
