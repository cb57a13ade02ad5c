// SPDX-License-Identifier: Apache-2.0
#pragma once

// Stands in for the agents of routes: it makes of Feeders::Config::adjacency and ::nextHopCollection
//
//    Hoba::AdjEntryList          what each adjacency entry refers to
//    Hoba::AdjStateCollection    why some refer to nothing
//    Hoba::L2AdjList             each collection once, whoever uses it, while anybody does
//
// and is the only one to write these. An adjacency without a collection is uninitialized; one whose
// collection is not there is missing (fecMissingFromFib). A collection that goes on at another adjacency needs
// that one: not there, or more than maxHeight levels up, it is invalid (nextLevelFecInvalid); unresolved itself,
// it says too little (nextLevelInfoMissing); and an adjacency that comes back to itself is a cycle
// (fecHierarchyContainsCycle). What was referred to stays until what comes after it is there.

#include "Hoba/HobaBaseSm.h"
#include "Hoba/HobaL2AdjTypes.h"
#include "Kiv/ClockReactor.h"
#include "agent/feeders/FeederConfig.h"

namespace Feeders {

class AdjacencyFeeder : public Hoba::HobaBaseSm {
   HOBA_MACHINE( AdjacencyFeeder );
   // Adjacencies about which something changed.
   KIV_SET( Glim::Fib::GlobalFecId, waiting );

 public:
   using GlobalFecId = Glim::Fib::GlobalFecId;
   static constexpr std::uint32_t maxHeight = 8;

   void handleInitialized() override;

   // The adjacencies whose collections go on at this one.
   std::vector< GlobalFecId > usersOf( GlobalFecId fec ) const {
      return Kiv::keysOf( Kiv::valueOrDefault( users_, fec ) );
   }

 protected:
   // Reads `config`, writes the others, but not before its owner says initializedIs( true ).
   AdjacencyFeeder( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
                    Kiv::Ptr< Config const > const & config,
                    Kiv::Ptr< Hoba::AdjEntryList > const & adjEntryList,
                    Kiv::Ptr< Hoba::AdjStateCollection > const & adjStates,
                    Kiv::Ptr< Hoba::L2AdjList > const & l2AdjList );

 private:
   using FecSet = Kiv::HashSet< GlobalFecId >;
   // What an adjacency refers to, or why to nothing.
   struct Resolution {
      Hoba::AdjErrorStates errors;
      Hoba::L2AdjKey key;
   };
   // What the configuration of an adjacency names.
   struct Names {
      std::vector< Kiv::String > collections;
      std::vector< GlobalFecId > nextLevels;
      bool operator==( Names const & ) const = default;
   };

   void handleAdjacency( GlobalFecId const & fec );
   void handleCollection( Kiv::String const & name );
   void handleTime();
   // Those that wait have their turn, until the time slice is used up; in the first pass, all.
   void work();
   void review( GlobalFecId fec );

   // Finds the adjacency again by what its configuration names.
   void noteNames( GlobalFecId fec, AdjacencyConfig const * adjacency );
   // All that come to it, over however many levels, are to be reviewed.
   void reviewAbove( GlobalFecId fec );
   bool comesTo( GlobalFecId from, GlobalFecId fec ) const;

   Resolution resolve( GlobalFecId fec, AdjacencyConfig const & adjacency ) const;
   Hoba::InternedNextHops build( GlobalFecId fec, Kiv::String const & collection,
                                 Hoba::AdjErrorStates & errors ) const;
   Kiv::Ptr< Hoba::L2Adjacency > nextLevel( GlobalFecId fec, GlobalFecId next,
                                            Hoba::AdjErrorStates & errors ) const;

   // Returns whether something else stands there now.
   bool publish( GlobalFecId fec, AdjacencyConfig const * adjacency );
   Kiv::Ptr< Hoba::L2Adjacency > l2AdjOf( Hoba::L2AdjKey const & key );
   void settleTables( Hoba::L2Adjacency & l2Adj, GlobalFecId fec,
                      AdjacencyConfig const & adjacency );
   // It goes if nobody uses it, and then what only it has used.
   void release( Kiv::Ptr< Hoba::L2Adjacency > const & l2Adj );

   class KivAdjacency
         : public Kiv::Hears<
                 AdjacencyFeeder, AdjacencyConfig const, GlobalFecId,
                 Kiv::WhenReadyAny< &AdjacencyFeeder::handleAdjacency,
                                    AdjacencyConfig::collectionAttr, AdjacencyConfig::backupAttr,
                                    AdjacencyConfig::tableAttr > > {};
   KIV_REACTORS( GlobalFecId, KivAdjacency, adjacency );
   class KivCollection
         : public Kiv::Hears<
                 AdjacencyFeeder, NextHopCollectionConfig const, Kiv::String,
                 Kiv::WhenReadyAny<
                       &AdjacencyFeeder::handleCollection, NextHopCollectionConfig::viaAttr,
                       NextHopCollectionConfig::groupTypeAttr, NextHopCollectionConfig::ttlAttr,
                       NextHopCollectionConfig::tosAttr > > {};
   KIV_REACTORS( Kiv::String, KivCollection, collection );
   class KivConfig
         : public Kiv::Hears<
                 AdjacencyFeeder, Config const,
                 Kiv::Follow< Config::nextHopCollectionAttr, &AdjacencyFeeder::collection_ >,
                 Kiv::WhenReady< Config::nextHopCollectionAttr,
                                 &AdjacencyFeeder::handleCollection >,
                 Kiv::Follow< Config::adjacencyAttr, &AdjacencyFeeder::adjacency_ >,
                 Kiv::OnceReady< Config::adjacencyAttr, &AdjacencyFeeder::handleAdjacency > > {};
   KIV_REACTOR( KivConfig, config );
   class KivClock : public Kiv::ClockReactor< AdjacencyFeeder, &AdjacencyFeeder::handleTime > {};
   KIV_REACTOR( KivClock, clock );

   Kiv::Ptr< Hoba::AdjEntryList > const adjEntryList_;
   Kiv::Ptr< Hoba::AdjStateCollection > const adjStates_;
   Kiv::Ptr< Hoba::L2AdjList > const l2AdjList_;
   Kiv::HashMap< GlobalFecId, Names > names_;
   // The way back.
   Kiv::HashMap< Kiv::String, FecSet > usersOfCollection_;
   Kiv::HashMap< GlobalFecId, FecSet > users_;
   // By layer-2 adjacency: how many others go on at it.
   Kiv::HashMap< Hoba::L2AdjKey, std::uint32_t > above_;
   bool working_ = false;
};

} // namespace Feeders
