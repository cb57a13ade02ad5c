// SPDX-License-Identifier: Apache-2.0
#pragma once

// Stations as they are in force: the filtering databases, and of those behind the overlay what they are
// programmed with and how many use a next hop. Written here alone, when the hardware has done it.

#include "Hoba/HobaMacEvaluation.h"
#include "Hoba/HobaMacInputs.h"
#include "Hoba/HobaMacSources.h"

namespace Hoba {

class MacFdb {
 public:
   using Pair = Bridging::MacVlanPair;

   // `inputs` has a `rmacInfoDir`, and outlives it.
   explicit MacFdb( MacAddrInputs const & inputs ) : in_( inputs ) {}

   // Null for none.
   Bridging::LearnedHost const * find( Pair pair ) const;
   // The same with what the remote host table has of it.
   std::optional< MacEntry > entry( Pair pair ) const { return entry( pair, find( pair ) ); }
   std::optional< MacEntry > entry( Pair pair, Bridging::LearnedHost const * host ) const;
   bool hasVlan( Bridging::VlanIdOrNone vlanId ) const;
   // All stations, and those behind the overlay that are programmed.
   std::size_t size() const;
   std::size_t remotes() const;
   // Its next hop as it is programmed; null for a station that is not behind the overlay, or that the hardware
   // has there by itself.
   HobaTypes::RemoteHostStatus const * nextHop( Pair pair ) const;

   void addToFdbStatus( MacEntry const & entry );
   // In the dynamic host status, if the operator wants it there; out of it otherwise.
   void maybeAddToDynHostStatus( MacEntry const & entry );
   // The VLAN's database goes with its last station, unless `keepEmpty`.
   void delFromFdbStatus( Pair pair, bool keepEmpty );
   void maybeDeleteFdbStatus( Bridging::VlanIdOrNone vlanId );

   // The station is programmed with that next hop. `inTable`: others read of it in the remote host table.
   void remoteIs( MacEntry const & entry, MacNextHop const & hop, bool inTable );
   // The hardware has it by itself: others read of it, but nothing is programmed.
   void remoteHostTableIs( MacEntry const & entry );
   // It is behind the overlay no more.
   void remoteDel( Pair pair );
   void remoteHostTableDel( Pair pair );

 private:
   void maybeDelFromDynHostStatus( Pair pair );
   void incRemoteNextHopIdRefcount( std::uint32_t nextHopId );
   void decRemoteNextHopIdRefcount( std::uint32_t nextHopId );
   void incVlanRemoteMacRefcount( Bridging::VlanId vlanId );
   void decVlanRemoteMacRefcount( Bridging::VlanId vlanId );
   Kiv::Ptr< HobaTypes::RemoteMacInfoDir > const & rmacInfoDir() const { return in_.rmacInfoDir; }

   MacAddrInputs const & in_;
};

} // namespace Hoba
