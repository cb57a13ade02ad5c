// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaMacFdb.h"

#include "Hoba/HobaAssert.h"
#include "Zipline/Zipline.h"

ZIPLINE_HANDLE( HobaMacFdb );

namespace Hoba {

using Bridging::VlanId;

namespace {

// Of what the hardware learnt behind a tunnel by itself: it knows which.
constexpr std::uint32_t noNextHop = 0;

VlanId
vlanIdOf( Bridging::MacVlanPair pair ) {
   return VlanId( pair.vlanId().value() );
}

} // namespace

// ---- Questions

Bridging::LearnedHost const *
MacFdb::find( Pair pair ) const {
   auto const * database =
         pair.vlanId().value() ? in_.bridgingStatus->fdbStatus().find( vlanIdOf( pair ) ) : nullptr;
   return database ? ( *database )->learnedHost().find( pair.addr() ) : nullptr;
}

std::optional< MacEntry >
MacFdb::entry( Pair pair, Bridging::LearnedHost const * host ) const {
   if( !host ) {
      return std::nullopt;
   }
   MacEntry entry;
   if( Bridging::isEntryTypeRemote( host->entryType ) ) {
      entry = rmacInfoDir()->remoteHost()->remoteMac( pair );
      // What is kept out of that table is the peer's, which resolves through no object: its next hop is its group.
      auto const * hop = entry.swTunnelGroupId || entry.l2RibObjTuple ? nullptr : nextHop( pair );
      if( hop ) {
         entry.swTunnelGroupId = Hoba::SwTunnelGroupId( hop->nextHopId );
      }
   }
   entry.macEntry = pair;
   entry.intf = host->intf;
   entry.entryType = host->entryType;
   entry.moveCount = host->moves;
   entry.lastMoveTime = host->lastMoveTime;
   entry.dropMode = host->dropMode;
   return entry;
}

bool
MacFdb::hasVlan( Bridging::VlanIdOrNone vlanId ) const {
   return in_.bridgingStatus->fdbStatusHas( VlanId( vlanId.value() ) );
}

HobaTypes::RemoteHostStatus const *
MacFdb::nextHop( Pair pair ) const {
   return rmacInfoDir()->remoteHostStatus()->remoteHostStatus().find( pair );
}

std::size_t
MacFdb::remotes() const {
   return rmacInfoDir()->remoteHostStatus()->remoteHostStatus().size();
}

std::size_t
MacFdb::size() const {
   std::size_t all = 0;
   for( auto const & [ vlanId, database ] : in_.bridgingStatus->fdbStatus() ) {
      all += database->learnedHost().size();
   }
   return all;
}

// ---- Status

void
MacFdb::addToFdbStatus( MacEntry const & entry ) {
   // Who hears of it may remove the database.
   auto database = in_.bridgingStatus->fdbStatus( vlanIdOf( entry.macEntry ) );
   if( !database ) {
      in_.bridgingStatus->fdbStatusIs( vlanIdOf( entry.macEntry ) );
      database = in_.bridgingStatus->fdbStatus( vlanIdOf( entry.macEntry ) );
   }
   Bridging::LearnedHost host;
   host.address = entry.macEntry.addr();
   host.intf = entry.intf;
   host.entryType = entry.entryType;
   host.dropMode = entry.dropMode;
   host.moves = entry.moveCount;
   host.lastMoveTime = entry.lastMoveTime;
   database->learnedHostIs( host );
   maybeAddToDynHostStatus( entry );
}

void
MacFdb::delFromFdbStatus( Pair pair, bool keepEmpty ) {
   auto const database = in_.bridgingStatus->fdbStatus( vlanIdOf( pair ) );
   if( !database || !database->learnedHostHas( pair.addr() ) ) {
      return;
   }
   database->learnedHostDel( pair.addr() );
   maybeDelFromDynHostStatus( pair );
   if( !keepEmpty ) {
      maybeDeleteFdbStatus( pair.vlanId() );
   }
}

void
MacFdb::maybeDeleteFdbStatus( Bridging::VlanIdOrNone vlanId ) {
   if( !vlanId.value() ) {
      return;
   }
   auto const database = in_.bridgingStatus->fdbStatus( VlanId( vlanId.value() ) );
   if( database && database->learnedHost().empty() ) {
      in_.bridgingStatus->fdbStatusDel( VlanId( vlanId.value() ) );
   }
}

// A failed server is of the same type, and nobody configured that.
void
MacFdb::maybeAddToDynHostStatus( MacEntry const & entry ) {
   auto const config = entry.entryType == Bridging::configuredDynamicMac && in_.bridgingConfig
                             ? in_.bridgingConfig->fdbConfig( vlanIdOf( entry.macEntry ) )
                             : nullptr;
   auto const * host = config ? config->configuredHost().find( entry.macEntry.addr() ) : nullptr;
   if( !host || host->intf != entry.intf ) {
      maybeDelFromDynHostStatus( entry.macEntry );
   } else if( in_.dynamicHostStatus ) {
      in_.dynamicHostStatus->hostIs( entry.macEntry, entry.intf );
   }
}

void
MacFdb::maybeDelFromDynHostStatus( Pair pair ) {
   if( in_.dynamicHostStatus && !in_.dynamicHostStatus->host().empty() ) {
      in_.dynamicHostStatus->hostDel( pair );
   }
}

// ---- Stations behind the overlay

void
MacFdb::remoteIs( MacEntry const & entry, MacNextHop const & hop, bool inTable ) {
   auto const pair = entry.macEntry;
   // May find no memory: nothing else has changed then.
   if( inTable ) {
      remoteHostTableIs( entry );
   } else {
      remoteHostTableDel( pair );
   }
   auto const * former = nextHop( pair );
   auto const formerHop = former ? std::optional( former->nextHopId ) : std::nullopt;
   // The new one up before the old one down: what both stand for does not go in between.
   if( formerHop != hop.nextHopId ) {
      incRemoteNextHopIdRefcount( hop.nextHopId );
   }
   if( !formerHop ) {
      incVlanRemoteMacRefcount( vlanIdOf( pair ) );
   }
   rmacInfoDir()->remoteHostStatus()->remoteHostStatusIs( { pair, hop.nextHopId, hop.hwId } );
   if( formerHop && *formerHop != hop.nextHopId ) {
      decRemoteNextHopIdRefcount( *formerHop );
   }
}

void
MacFdb::remoteHostTableIs( MacEntry const & entry ) {
   auto told = entry;
   // What a source is worth is this machine's own matter.
   told.preference = 0;
   told.promote = false;
   rmacInfoDir()->remoteHost()->remoteMacIs( told );
}

void
MacFdb::remoteDel( Pair pair ) {
   if( auto const * former = nextHop( pair ) ) {
      auto const nextHopId = former->nextHopId;
      rmacInfoDir()->remoteHostStatus()->remoteHostStatusDel( pair );
      decRemoteNextHopIdRefcount( nextHopId );
      decVlanRemoteMacRefcount( vlanIdOf( pair ) );
   }
   remoteHostTableDel( pair );
}

void
MacFdb::remoteHostTableDel( Pair pair ) {
   if( rmacInfoDir()->remoteHost()->remoteMacHas( pair ) ) {
      rmacInfoDir()->remoteHost()->remoteMacDel( pair );
   }
}

void
MacFdb::incRemoteNextHopIdRefcount( std::uint32_t nextHopId ) {
   if( nextHopId != noNextHop ) {
      rmacInfoDir()->nextHopIdRefcountTable()->refcountInc( nextHopId, 1 );
   }
}

void
MacFdb::decRemoteNextHopIdRefcount( std::uint32_t nextHopId ) {
   if( nextHopId == noNextHop ) {
      return;
   }
   HOBA_INVARIANT( !!rmacInfoDir()->nextHopIdRefcountTable()->refcount( nextHopId ),
                   "a next hop that a station uses is counted" );
   rmacInfoDir()->nextHopIdRefcountTable()->refcountDec( nextHopId, 1 );
}

void
MacFdb::incVlanRemoteMacRefcount( VlanId vlanId ) {
   rmacInfoDir()->vlanRefcountTable()->refcountInc( vlanId, 1 );
}

void
MacFdb::decVlanRemoteMacRefcount( VlanId vlanId ) {
   HOBA_INVARIANT( !!rmacInfoDir()->vlanRefcountTable()->refcount( vlanId ),
                   "the VLAN of a remote station is counted" );
   rmacInfoDir()->vlanRefcountTable()->refcountDec( vlanId, 1 );
}

} // namespace Hoba
