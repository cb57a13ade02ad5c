// SPDX-License-Identifier: Apache-2.0
#include "agent/feeders/AdjacencyFeeder.h"

#include "Hoba/HobaSlicedWalk.h"
#include "Kiv/Reflect.h"
#include "Kiv/SetsByKey.h"

#include <algorithm>
#include <limits>

KIV_DEFINE( Feeders::AdjacencyFeeder );

namespace Feeders {

using Glim::Fib::GlobalFecId;
using Hoba::AdjErrorStates;
using Hoba::L2Adjacency;
using Hoba::L2AdjKey;
using Hoba::NextHop;
using Hoba::NextHopCollection;

namespace {

// The next hop that a way out is, but for where it goes on.
NextHop
nextHopOf( Via const & via ) {
   NextHop nextHop{ .type = via.type,
                    .macAddr = via.mac,
                    .l3Intf = via.l3Intf ? via.l3Intf : via.intf,
                    .l2Intf = via.intf,
                    .vlanId = via.vlan };
   if( !via.label.empty() ) {
      nextHop.labelsIs( { Pelt::mplsLabelPush, via.label } );
   } else if( via.greDestination ) {
      nextHop.greEncapIs( { .source = via.tunnelSource, .destination = via.greDestination } );
   } else if( via.ipSecDestination ) {
      nextHop.ipsecEncapIs( { .source = via.tunnelSource, .destination = via.ipSecDestination } );
   } else if( via.vtep ) {
      nextHop.vxlanEncapIs(
            { .vni = via.vni, .localVtep = via.tunnelSource, .remoteVtep = via.vtep } );
   }
   return nextHop;
}

void
add( NextHopCollection & collection, NextHop const & nextHop, Via const & via ) {
   Hoba::InternedNextHop const interned = nextHop;
   auto const weight = std::uint64_t{ collection.nextHop( interned ) } + via.weight;
   collection.nextHopIs( interned, static_cast< std::uint32_t >( std::min< std::uint64_t >(
                                         weight, std::numeric_limits< std::uint32_t >::max() ) ) );
   if( !via.position.empty() ) {
      auto positions = collection.nextHopBitmap( interned );
      for( auto const position : via.position.positions() ) {
         positions.is( position, true );
      }
      collection.nextHopBitmapIs( interned, positions );
      collection.nextHopCollTypeIs( Hoba::nextHopCollOrderedGroup );
   }
}

// Each once, in the order of the vias.
std::vector< GlobalFecId >
nextLevelsOf( NextHopCollectionConfig const & collection ) {
   std::vector< GlobalFecId > levels;
   for( auto const & [ index, via ] : collection.via() ) {
      if( via.nextLevel.value() &&
          std::find( levels.begin(), levels.end(), via.nextLevel ) == levels.end() ) {
         levels.push_back( via.nextLevel );
      }
   }
   return levels;
}

template< class Use >
void
forEachNextLevel( L2AdjKey const & key, Use const & use ) {
   Kiv::HashSet< L2AdjKey > seen;
   for( auto const * collection : { &*key.nextHops, &*key.backup } ) {
      for( auto const & member : collection->nextHop() ) {
         auto const & next = member.key->hierarchicalNextLevelL2Adj;
         if( next && seen.insert( next->key() ) ) {
            use( next );
         }
      }
   }
}

} // namespace

AdjacencyFeeder::AdjacencyFeeder( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
                                  Kiv::Ptr< Config const > const & config,
                                  Kiv::Ptr< Hoba::AdjEntryList > const & adjEntryList,
                                  Kiv::Ptr< Hoba::AdjStateCollection > const & adjStates,
                                  Kiv::Ptr< Hoba::L2AdjList > const & l2AdjList )
      : HobaBaseSm( commonSmData ), adjEntryList_( adjEntryList ), adjStates_( adjStates ),
        l2AdjList_( l2AdjList ) {
   clockIs( Kiv::make< Kiv::Clock >() );
   configIs( config );
}

void
AdjacencyFeeder::handleInitialized() {
   if( !initialized() ) {
      reactorsUninitialize();
      clock()->timeMinIs( Kiv::never );
      return;
   }
   // What was there before, for another machine.
   for( auto const & [ fec, entry ] : adjEntryList_->adj() ) {
      waitingIs( fec );
   }
   working_ = true;
   reactorsInitialize();
   working_ = false;
   while( !kivMarkedForDeletion() && !waiting().empty() ) {
      work();
   }
}

void
AdjacencyFeeder::handleAdjacency( GlobalFecId const & fec ) {
   waitingIs( fec );
   work();
}

void
AdjacencyFeeder::handleCollection( Kiv::String const & name ) {
   for( auto const fec : Kiv::keysOf( Kiv::valueOrDefault( usersOfCollection_, name ) ) ) {
      waitingIs( fec );
   }
   work();
}

void
AdjacencyFeeder::handleTime() {
   work();
}

void
AdjacencyFeeder::work() {
   if( working_ ) {
      return;
   }
   working_ = true;
   auto const timer = clock();
   Hoba::TimeSlice slice( *this, *timer, std::numeric_limits< std::uint32_t >::max() );
   // Whoever hears of one may change others.
   while( !kivMarkedForDeletion() && !waiting().empty() ) {
      if( !slice.next() ) {
         Hoba::traceYield( "AdjacencyFeeder", slice.done() );
         timer->noLaterThan( timer->now() );
         break;
      }
      auto const fec = *waiting().first();
      waitingDel( fec );
      review( fec );
   }
   working_ = false;
}

void
AdjacencyFeeder::review( GlobalFecId fec ) {
   Kiv::Ptr< AdjacencyConfig const > const adjacency = config()->notifier()->adjacency( fec );
   noteNames( fec, adjacency.get() );
   if( publish( fec, adjacency.get() ) ) {
      for( auto const user : usersOf( fec ) ) {
         waitingIs( user );
      }
   }
}

// ---- Who names whom

void
AdjacencyFeeder::noteNames( GlobalFecId fec, AdjacencyConfig const * adjacency ) {
   Names names;
   if( adjacency ) {
      for( auto const & name : { adjacency->collection(), adjacency->backup() } ) {
         if( name.empty() ) {
            continue;
         }
         names.collections.push_back( name );
         if( auto const collection = config()->notifier()->nextHopCollection( name ) ) {
            auto const levels = nextLevelsOf( *collection );
            names.nextLevels.insert( names.nextLevels.end(), levels.begin(), levels.end() );
         }
      }
   }
   auto const before = Kiv::valueOrDefault( names_, fec );
   if( names == before ) {
      return;
   }
   for( auto const & name : before.collections ) {
      Kiv::removeFromSet( usersOfCollection_, name, fec );
   }
   for( auto const level : before.nextLevels ) {
      Kiv::removeFromSet( users_, level, fec );
   }
   for( auto const & name : names.collections ) {
      Kiv::addToSet( usersOfCollection_, name, fec );
   }
   for( auto const level : names.nextLevels ) {
      Kiv::addToSet( users_, level, fec );
   }
   bool const otherWay = names.nextLevels != before.nextLevels;
   if( names == Names() ) {
      names_.erase( fec );
   } else {
      names_.insertOrAssign( fec, names );
   }
   if( otherWay ) {
      reviewAbove( fec ); // cycles may have come or gone, and heights changed
   }
}

void
AdjacencyFeeder::reviewAbove( GlobalFecId fec ) {
   FecSet above;
   std::vector< GlobalFecId > next{ fec };
   while( !next.empty() ) {
      auto const users = usersOf( next.back() );
      next.pop_back();
      for( auto const user : users ) {
         if( above.insert( user ) ) {
            waitingIs( user );
            next.push_back( user );
         }
      }
   }
}

bool
AdjacencyFeeder::comesTo( GlobalFecId from, GlobalFecId fec ) const {
   FecSet seen;
   std::vector< GlobalFecId > next{ from };
   while( !next.empty() ) {
      auto const at = next.back();
      next.pop_back();
      if( at == fec ) {
         return true;
      }
      if( seen.insert( at ) ) {
         auto const & levels = Kiv::valueOrDefault( names_, at ).nextLevels;
         next.insert( next.end(), levels.begin(), levels.end() );
      }
   }
   return false;
}

// ---- What an adjacency refers to

AdjacencyFeeder::Resolution
AdjacencyFeeder::resolve( GlobalFecId fec, AdjacencyConfig const & adjacency ) const {
   Resolution resolution;
   if( adjacency.collection().empty() ) {
      resolution.errors.uninitializedIs( true );
      return resolution;
   }
   resolution.key.nextHops = build( fec, adjacency.collection(), resolution.errors );
   if( !adjacency.backup().empty() ) {
      resolution.key.backup = build( fec, adjacency.backup(), resolution.errors );
   }
   return resolution;
}

Hoba::InternedNextHops
AdjacencyFeeder::build( GlobalFecId fec, Kiv::String const & name, AdjErrorStates & errors ) const {
   Kiv::Ptr< NextHopCollectionConfig const > const config =
         this->config()->notifier()->nextHopCollection( name );
   if( !config ) {
      errors.fecMissingFromFibIs( true );
      return {};
   }
   NextHopCollection collection;
   collection.tunnelTypeIs(
         NextHopCollection::nextHopGroupTypeToTunnelType( config->groupType() ) );
   collection.ttlIs( config->ttl() );
   collection.tosIs( config->tos() );
   for( auto const & [ index, via ] : config->via() ) {
      auto nextHop = nextHopOf( via );
      if( via.nextLevel.value() ) {
         auto const next = nextLevel( fec, via.nextLevel, errors );
         if( !next ) {
            continue;
         }
         nextHop.hierarchicalNextLevelL2Adj = next;
         auto const height = next->nextHops().hierarchyHeight() + 1;
         collection.hierarchyHeightIs( std::max( collection.hierarchyHeight(), height ) );
      }
      add( collection, nextHop, via );
   }
   collection.predictedHierarchyHeightIs( collection.hierarchyHeight() );
   if( collection.hierarchyHeight() > maxHeight ) {
      errors.nextLevelFecInvalidIs( true );
   }
   return errors ? Hoba::InternedNextHops() : collection;
}

Kiv::Ptr< L2Adjacency >
AdjacencyFeeder::nextLevel( GlobalFecId fec, GlobalFecId next, AdjErrorStates & errors ) const {
   if( comesTo( next, fec ) ) {
      errors.fecHierarchyContainsCycleIs( true );
      return nullptr;
   }
   auto const entry = adjEntryList_->adj( next );
   if( !config()->notifier()->adjacency( next ) ) {
      errors.nextLevelFecInvalidIs( true );
   } else if( !entry || !entry->l2Adj() ) {
      errors.nextLevelInfoMissingIs( true );
   } else {
      return entry->l2Adj();
   }
   return nullptr;
}

// ---- What is written

bool
AdjacencyFeeder::publish( GlobalFecId fec, AdjacencyConfig const * adjacency ) {
   auto const resolution = adjacency ? resolve( fec, *adjacency ) : Resolution();
   bool const isResolved = adjacency && !resolution.errors;
   auto const errorsBefore = adjStates_->adjState( fec );
   auto entry = adjEntryList_->adj( fec );
   auto const before = entry ? entry->l2Adj() : nullptr;
   auto const l2Adj = isResolved ? l2AdjOf( resolution.key ) : nullptr;
   if( l2Adj ) {
      l2Adj->adjEntryIs( fec );
      settleTables( *l2Adj, fec, *adjacency );
   }
   if( adjacency ) {
      entry = adjEntryList_->adjIs( fec );
      entry->l2AdjIs( l2Adj );
   } else if( entry ) {
      entry->l2AdjIs( nullptr );
      adjEntryList_->adjDel( fec );
   }
   if( resolution.errors ) {
      adjStates_->adjStateIs( fec, resolution.errors );
   } else {
      adjStates_->adjStateDel( fec );
   }
   if( before && before != l2Adj ) {
      before->adjEntryDel( fec );
      release( before );
   }
   return before != l2Adj || errorsBefore != resolution.errors;
}

Kiv::Ptr< L2Adjacency >
AdjacencyFeeder::l2AdjOf( L2AdjKey const & key ) {
   if( auto const present = l2AdjList_->l2Adj( key ) ) {
      return present;
   }
   auto const l2Adj = Kiv::make< L2Adjacency >( key );
   l2Adj->maxPredictedHierarchyHeightIs( static_cast< std::uint8_t >(
         std::max( key.nextHops->hierarchyHeight(), key.backup->hierarchyHeight() ) ) );
   if( key.backup != Hoba::InternedNextHops() ) {
      l2Adj->backupViaIs( key.backup );
   }
   forEachNextLevel( key,
                     [ this ]( auto const & next ) { ++*above_.tryEmplace( next->key() ).value; } );
   l2AdjList_->l2AdjIs( key, l2Adj );
   return l2Adj;
}

void
AdjacencyFeeder::settleTables( L2Adjacency & l2Adj, GlobalFecId fec,
                               AdjacencyConfig const & adjacency ) {
   Hoba::TableTypeBoolSet tables;
   for( auto const table : adjacency.table() ) {
      tables = tables | Hoba::tableTypeToBoolSet( table );
   }
   if( tables ) {
      l2Adj.adjEntryAndTableTypeIs( fec, tables );
   } else {
      l2Adj.adjEntryAndTableTypeDel( fec );
   }
}

void
AdjacencyFeeder::release( Kiv::Ptr< L2Adjacency > const & l2Adj ) {
   std::vector< Kiv::Ptr< L2Adjacency > > unused{ l2Adj };
   while( !unused.empty() ) {
      auto const gone = unused.back();
      unused.pop_back();
      auto const key = gone->key();
      if( !gone->adjEntry().empty() || above_.has( key ) || l2AdjList_->l2Adj( key ) != gone ) {
         continue;
      }
      l2AdjList_->l2AdjDel( key );
      forEachNextLevel( key, [ & ]( auto const & next ) {
         auto * const above = above_.find( next->key() );
         if( above && --*above == 0 ) {
            above_.erase( next->key() );
            unused.push_back( next );
         }
      } );
   }
}

} // namespace Feeders
