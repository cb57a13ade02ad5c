// SPDX-License-Identifier: Apache-2.0
#include "chips/sim/SimFecSm.h"

#include "Hoba/HobaAssert.h"
#include "Hoba/HobaSlicedWalk.h"
#include "Kiv/Reflect.h"
#include "Kiv/SetsByKey.h"
#include "Zipline/Zipline.h"
#include "chips/sim/SimComparison.h"

ZIPLINE_HANDLE( SimFecSm );

KIV_DEFINE( HobaSim::FecSm );

namespace HobaSim {

using Hoba::L2Adjacency;
using Hoba::L2AdjKey;

namespace {

template< class Key >
Key
takeFirst( Kiv::HashSet< Key > & set ) {
   Key const key = *set.first();
   set.erase( key );
   return key;
}

} // namespace

FecSm::FecSm( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
              Kiv::Ptr< Hoba::L2AdjList > const & l2Adjs,
              Kiv::Ptr< Hoba::AdjEntryList > const & adjEntries,
              Kiv::Ptr< Interface::AllEthPhyIntfStatusDir const > const & ports,
              Kiv::Ptr< FecUnit > const & unit )
      : HobaVerifiedSm( commonSmData ), l2Adjs_( l2Adjs ), adjEntries_( adjEntries ),
        ports_( ports ), unit_( unit ), books_( std::make_shared< Books >( unit ) ) {
   HOBA_INVARIANT( commonSmData && l2Adjs && adjEntries && ports,
                   "FECs are made of adjacencies, and what these are made of" );
   clockIs( Kiv::make< Kiv::Clock >() );
   for( auto const * rows : unit_->tables() ) {
      tableIs( rows->name(), rows->control() );
   }
   contextIs( commonSmData );
   portDirIs( ports );
   l2AdjListIs( l2Adjs );
   adjEntryListIs( adjEntries );
}

// ---- Life

void
FecSm::handleInitialized() {
   Kiv::Dispatch::Frame frame;
   if( inTurn_ ) {
      books_->chip.stop();
      beginsAnew_ = true;
   } else {
      beginAnew();
   }
}

void
FecSm::beginAnew() {
   beginsAnew_ = false;
   reactorsUninitialize();
   end();
   if( initialized() ) {
      begin();
      reactorsInitialize();
      wake();
   }
}

void
FecSm::kivDoZombieReactors( bool marked ) {
   if( marked ) {
      books_->chip.stop();
   }
   HobaVerifiedSm::kivDoZombieReactors( marked );
}

void
FecSm::whenFirstPassIsDone( std::function< void() > call ) {
   whenFirstPassIsDone_ = std::move( call );
}

void
FecSm::begin() {
   unit_->beginPass();
   books_->nextHops.begin();
   books_->groups.begin();
   for( auto const & [ key, adjacency ] : l2Adjs_->l2Adj() ) {
      toAdopt_.push_back( key );
   }
}

// Nothing is remembered: the chip knows what it holds.
void
FecSm::end() {
   books_->chip.stop();
   books_ = std::make_shared< Books >( unit_ );
   known_.clear();
   onIntf_.clear();
   onLevel_.clear();
   waitingFecs_.clear();
   ready_.clear();
   toAdopt_.clear();
   toAdoptLevels_.clear();
   lack_.clear();
   roomWalk_.clear();
   fecRoomWalk_.clear();
   freedSeen_ = 0;
   roomChanged_ = false;
   dueLeaving_.clear();
   retryL2Adj_.clear();
   retryFec_.clear();
   retryAt_ = Kiv::never;
   clock()->timeMinIs( Kiv::never );
   firstPassDoneIs( false );
   dueL2AdjDelAll();
   dueFecDelAll();
   groupOfDelAll();
   leavingGroupDelAll();
   refusedL2AdjDelAll();
   awaitsRoomDelAll();
   awaitedLevelDelAll();
   refusedFecDelAll();
   fecAwaitsRoomDelAll();
   fecAwaitsDelAll();
}

void
FecSm::finishFirstPass() {
   books_->nextHops.endOfFirstPass();
   books_->groups.endOfFirstPass();
   firstPassDoneIs( true );
   if( auto const call = std::exchange( whenFirstPassIsDone_, nullptr ) ) {
      call();
   }
   roomChanged_ = true; // what nobody asked for may be gone now
}

// ---- What is heard

void
FecSm::handleL2Adj( L2AdjKey const & key ) {
   if( initialized() ) {
      dueL2AdjIs( key );
      wake();
   }
}

void
FecSm::handleFec( GlobalFecId const & fec ) {
   if( initialized() ) {
      dueFecIs( fec );
      wake();
   }
}

void
FecSm::handleIntf( Pelt::IntfId const & intf ) {
   if( auto const * users = onIntf_.find( intf ) ) {
      for( auto const & key : *users ) {
         dueL2AdjIs( key );
      }
      wake();
   }
}

void
FecSm::handleRoom() {
   if( !awaitsRoom().empty() || !fecAwaitsRoom().empty() ) {
      roomChanged_ = true;
      wake();
   }
}

void
FecSm::handleRows() {
   if( !inTurn_ ) { // what the machine itself frees it counts
      handleRoom();
   }
}

// ---- The machine's own time

void
FecSm::handleTime() {
   Hoba::TimeSlice slice( *this, *clock(), quantum );
   inTurn_ = true;
   if( clock()->now() >= retryAt_ ) {
      Kiv::guarded( "FecSm::retry", name(), [ this ] { retry(); } );
   }
   bool goesOn = true;
   while( goesOn && !beginsAnew_ && !kivMarkedForDeletion() ) {
      if( !slice.next() ) {
         Hoba::traceYield( fwkType().name(), slice.done() );
         wake();
         break;
      }
      Kiv::guarded( "FecSm::step", name(), [ & ] {
         try {
            goesOn = step();
         } catch( FecStopped const & ) {
            goesOn = false;
         }
      } );
   }
   inTurn_ = false;
   if( !kivMarkedForDeletion() ) {
      clock()->noLaterThan( retryAt_ );
      if( beginsAnew_ ) {
         beginAnew();
      }
   }
}

// Room that was freed goes to those that wait for it before anybody who comes; an adjacency is there before the
// FECs that move to it, and the former one goes when they have left it.
bool
FecSm::step() {
   for( auto const group : books_->nextHops.takeUnreferenced() ) {
      if( leavingGroupHas( group ) ) {
         dueLeaving_.insert( group );
      }
   }
   if( stepAdoption() || stepRoom() ) {
      return true;
   }
   if( auto const * first = dueL2Adj().first() ) {
      auto const key = *first;
      dueL2AdjDel( key );
      evaluate( key );
   } else if( stepReadyFec() ) {
      return true;
   } else if( auto const * fec = dueFec().first() ) {
      evaluateFec( GlobalFecId( *fec ) );
   } else if( !dueLeaving_.empty() ) {
      if( auto const group = takeFirst( dueLeaving_ ); leavingGroupHas( group ) ) {
         leave( group );
      }
   } else if( !firstPassDone() ) {
      finishFirstPass();
   } else {
      return false;
   }
   return true;
}

bool
FecSm::stepAdoption() {
   if( !toAdopt_.empty() ) {
      auto const key = toAdopt_.front();
      toAdopt_.pop_front();
      adopt( key );
   } else if( !toAdoptLevels_.empty() ) {
      auto const key = toAdoptLevels_.front();
      toAdoptLevels_.pop_front();
      adoptLevels( key );
   } else {
      return false;
   }
   return true;
}

// Looks at all that wait once more, if there is more room.
bool
FecSm::stepRoom() {
   auto const & chip = books_->chip;
   if( roomWalk_.empty() && fecRoomWalk_.empty() &&
       ( roomChanged_ || chip.freed() != freedSeen_ ) ) {
      freedSeen_ = chip.freed();
      if( std::exchange( roomChanged_, false ) ) {
         lack_.clear();
      }
      for( auto const & key : awaitsRoom() ) {
         roomWalk_.push_back( key );
      }
      if( unit_->fec().room() ) {
         for( auto const & fec : fecAwaitsRoom() ) {
            fecRoomWalk_.push_back( fec );
         }
      }
   }
   if( !roomWalk_.empty() ) {
      auto const key = roomWalk_.front();
      roomWalk_.pop_front();
      if( awaitsRoomHas( key ) && mayFit( key ) ) {
         dueL2AdjDel( key );
         evaluate( key );
      }
   } else if( !fecRoomWalk_.empty() ) {
      auto const fec = fecRoomWalk_.front();
      fecRoomWalk_.pop_front();
      if( fecAwaitsRoomHas( fec ) && unit_->fec().room() ) {
         evaluateFec( fec );
      }
   } else {
      return false;
   }
   return true;
}

bool
FecSm::stepReadyFec() {
   while( !ready_.empty() ) {
      auto const key = *ready_.first();
      auto const * fecs = waitingFecs_.find( key );
      if( fecs && Kiv::valueOrDefault( known_, key ).isProgrammed ) {
         evaluateFec( GlobalFecId( *fecs->first() ) );
         return true;
      }
      ready_.erase( key );
   }
   return false;
}

void
FecSm::retryLater() {
   retryAt_ = std::min( retryAt_, clock()->now() + retryDelay );
   clock()->noLaterThan( retryAt_ );
}

void
FecSm::retry() {
   retryAt_ = Kiv::never;
   for( auto const & key : Kiv::keysOf( retryL2Adj_ ) ) {
      dueL2AdjIs( key );
   }
   for( auto const & fec : Kiv::keysOf( retryFec_ ) ) {
      dueFecIs( fec );
   }
   retryL2Adj_.clear();
   retryFec_.clear();
   for( auto const & group : leavingGroup() ) {
      dueLeaving_.insert( group );
   }
   try {
      books_->nextHops.tidy();
   } catch( FecStopped const & ) {
      return;
   }
   if( !books_->nextHops.isTidy() ) {
      retryLater();
   }
}

// ---- Adjacencies

// After a restart an adjacency goes on with the group that the rows of its FECs name.
void
FecSm::adopt( L2AdjKey const & key ) {
   auto const adjacency = l2Adjs_->l2Adj( key );
   if( !adjacency ) {
      return;
   }
   for( auto const & fec : adjacency->adjEntry() ) {
      if( auto const row = unit_->fec().acceptedOf( fec );
          row && books_->groups.adopt( key, *row ) ) {
         groupOfIs( key, *row );
         toAdoptLevels_.push_back( key );
         return;
      }
   }
}

// And its next levels with the groups that its next hops go on in.
void
FecSm::adoptLevels( L2AdjKey const & key ) {
   auto const adjacency = l2Adjs_->l2Adj( key );
   auto const * group = books_->groups.find( books_->groups.of( key ) );
   if( !adjacency || !group ) {
      return;
   }
   auto const backup = adjacency->backupVia();
   for( auto const & collection :
        { key.nextHops, backup ? backup->nextHops() : Hoba::InternedNextHops() } ) {
      if( collection->potentialHierarchicalNextHop() ) {
         adoptLevels( *collection, group->slot );
      }
   }
}

void
FecSm::adoptLevels( Hoba::NextHopCollection const & collection,
                    std::vector< HwMember > const & slots ) {
   for( auto const & [ nextHop, weight ] : collection.nextHop() ) {
      auto const & next = nextHop->hierarchicalNextLevelL2Adj;
      if( !next || !l2Adjs_->l2AdjHas( next->key() ) ) {
         continue;
      }
      for( auto const & slot : slots ) {
         auto const * row = books_->nextHops.row( slot.nextHop );
         if( row && row->nextGroup.value() && *row == hwNextHop( *nextHop, row->nextGroup ) &&
             books_->groups.adopt( next->key(), row->nextGroup ) ) {
            groupOfIs( next->key(), row->nextGroup );
            toAdoptLevels_.push_back( next->key() );
            break;
         }
      }
   }
}

void
FecSm::evaluate( L2AdjKey const & key ) {
   auto const adjacency = l2Adjs_->l2Adj( key );
   retryL2Adj_.erase( key );
   if( !adjacency ) {
      forget( key );
      return;
   }
   watchMembers( *adjacency );
   if( auto const group = books_->groups.of( key ); books_->groups.isThere( group ) ) {
      leavingGroupDel( group ); // it has come back
   }
   try {
      L2AdjKey awaited;
      auto const rows = rowsOf( *adjacency, awaited );
      if( rows ) {
         awaitedLevelDel( key );
         program( *adjacency, *rows );
         return;
      }
      giveBackUnfinished( key );
      awaitedLevelIs( key, awaited );
      refusedL2AdjDel( key );
      stateIs( *adjacency, Hoba::l2AdjPending, false );
   } catch( Kiv::Exception const & ) { // nobody could program it
      awaitedLevelDel( key );
      giveBackUnfinished( key );
      refuse( *adjacency, Hoba::l2AdjFailed, Kiv::exceptionText() );
   }
   awaitsRoomDel( key );
}

WantedSlots
FecSm::slotsOf( L2Adjacency const & adjacency ) const {
   return wantedSlots( adjacency, [ this ]( Pelt::IntfId intf ) {
      return intfIsUp( intf, *commonSmData(), *ports_ );
   } );
}

std::optional< WantedRows >
FecSm::rowsOf( L2Adjacency const & adjacency, L2AdjKey & awaited ) const {
   auto const slots = slotsOf( adjacency );
   WantedRows rows{ slots.isOrdered, {} };
   for( auto const & [ nextHop, weight ] : slots.slot ) {
      HwGroupId nextGroup;
      if( auto const & next = nextHop->hierarchicalNextLevelL2Adj ) {
         awaited = next->key();
         if( awaited == adjacency.key() ) {
            throw Kiv::Exception( "a next hop goes on at its own adjacency" );
         }
         if( !Kiv::valueOrDefault( known_, awaited ).isIn ) {
            return std::nullopt;
         }
         nextGroup = books_->groups.of( awaited );
      }
      rows.slot.push_back( { hwNextHop( *nextHop, nextGroup ), weight } );
   }
   return rows;
}

void
FecSm::program( L2Adjacency & adjacency, WantedRows const & rows ) {
   auto const key = adjacency.key();
   auto const writes = books_->chip.writes();
   try {
      books_->groups.program( key, rows );
   } catch( FecRefused const & refused ) {
      refuse( adjacency, refused );
      return;
   } catch( Kiv::Exception const & ) {
      refuse( adjacency, { tableFailed, Kiv::exceptionText() } );
      return;
   }
   auto const group = books_->groups.of( key );
   leavingGroupDel( group );
   awaitsRoomDel( key );
   refusedL2AdjDel( key );
   groupOfIs( key, group );
   if( !books_->nextHops.isTidy() ) {
      retryLater();
   }
   stateIs( adjacency, Hoba::l2AdjProgrammed, books_->chip.writes() != writes );
}

void
FecSm::refuse( L2Adjacency & adjacency, FecRefused const & refused ) {
   auto const key = adjacency.key();
   if( refused.lack ) {
      giveBackUnfinished( key );
      lack_.insertOrAssign( key, *refused.lack );
      awaitsRoomIs( key );
   } else {
      retryL2Adj_.insert( key );
      retryLater();
   }
   if( auto const group = books_->groups.of( key ); group.value() ) {
      groupOfIs( key, group );
   }
   refuse( adjacency, refused.result == tableFull ? Hoba::l2AdjFull : Hoba::l2AdjFailed,
           refused.why );
}

// What was begun makes room for others.
void
FecSm::giveBackUnfinished( L2AdjKey const & key ) {
   if( auto const group = books_->groups.of( key );
       group.value() && !books_->groups.isThere( group ) ) {
      leave( group );
   }
}

void
FecSm::refuse( L2Adjacency & adjacency, Hoba::L2AdjState state, Kiv::String const & why ) {
   ZTRACE( 3, "an adjacency is refused: ", why );
   refusedL2AdjIs( adjacency.key(), why );
   auto stats = adjacency.l2AdjStats();
   ++stats.refused;
   adjacency.l2AdjStatsIs( stats );
   stateIs( adjacency, state, false );
}

void
FecSm::stateIs( L2Adjacency & adjacency, Hoba::L2AdjState state, bool isChanged ) {
   auto const key = adjacency.key();
   bool const isProgrammed = state == Hoba::l2AdjProgrammed;
   bool const isIn = books_->groups.isThere( books_->groups.of( key ) );
   known_.find( key )->isProgrammed = isProgrammed;
   isInIs( key, isIn );
   if( isProgrammed ) {
      ready_.insert( key );
   }
   if( isProgrammed && ( isChanged || adjacency.state() != state ) ) {
      auto stats = adjacency.l2AdjStats();
      ++stats.programmed;
      adjacency.l2AdjStatsIs( stats );
   }
   adjacency.stateIs( isIn && !isProgrammed ? Hoba::l2AdjStale : state );
}

void
FecSm::isInIs( L2AdjKey const & key, bool isIn ) {
   auto * known = known_.find( key );
   if( !known || known->isIn == isIn ) {
      return;
   }
   known->isIn = isIn;
   if( auto const * users = onLevel_.find( key ) ) {
      for( auto const & user : *users ) {
         dueL2AdjIs( user );
      }
   }
}

void
FecSm::forget( L2AdjKey const & key ) {
   isInIs( key, false );
   if( auto const known = known_.extract( key ) ) {
      eachMember( key, known->backup, false );
   }
   refusedL2AdjDel( key );
   awaitsRoomDel( key );
   lack_.erase( key );
   awaitedLevelDel( key );
   ready_.erase( key );
   if( auto const group = books_->groups.of( key ); group.value() ) {
      leavingGroupIs( group );
      dueLeaving_.insert( group );
   }
}

void
FecSm::watchMembers( L2Adjacency const & adjacency ) {
   auto const key = adjacency.key();
   auto const via = adjacency.backupVia();
   auto const backup = via ? via->nextHops() : Hoba::InternedNextHops();
   auto const [ known, isNew ] = known_.tryEmplace( key );
   if( isNew || known->backup != backup ) {
      if( !isNew ) {
         eachMember( key, known->backup, false );
      }
      known->backup = backup;
      eachMember( key, backup, true );
   }
}

void
FecSm::eachMember( L2AdjKey const & key, Hoba::InternedNextHops const & backup, bool isUsed ) {
   auto const note = [ & ]( auto & users, auto const & used ) {
      isUsed ? Kiv::addToSet( users, used, key ) : Kiv::removeFromSet( users, used, key );
   };
   for( auto const * collection : { &*key.nextHops, &*backup } ) {
      for( auto const & [ nextHop, weight ] : collection->nextHop() ) {
         if( nextHop->l2Intf ) {
            note( onIntf_, nextHop->l2Intf );
         }
         if( auto const & next = nextHop->hierarchicalNextLevelL2Adj ) {
            note( onLevel_, next->key() );
         }
      }
   }
}

// ---- Room

// Whether it is worth to look closer. That others come and go with the same next hops changes nothing of
// how much is lacking.
bool
FecSm::mayFit( L2AdjKey const & key ) const {
   auto const * lack = lack_.find( key );
   if( !lack ) {
      return true;
   }
   switch( lack->table ) {
   case FecRefused::Lack::groups:
      return unit_->group().room() >= lack->until;
   case FecRefused::Lack::members:
      return unit_->member().room() >= lack->until;
   default:
      return books_->nextHops.gone() >= lack->until;
   }
}

// Takes one FEC off the group, or, when there are none, the group away.
void
FecSm::leave( HwGroupId group ) {
   auto const * known = books_->groups.find( group );
   if( !known ) {
      leavingGroupDel( group );
      return;
   }
   auto const key = known->adjacency;
   if( auto const * fecs = books_->fecsOn.find( group ) ) {
      GlobalFecId const fec = *fecs->first();
      evaluateFec( fec );
      if( Kiv::valueOrDefault( books_->fecRow, fec ) != group ) {
         dueLeaving_.insert( group );
      } else {
         retryLater();
      }
      return;
   }
   if( books_->nextHops.goOnIn( group ) ) {
      return; // until they go: whoever has one is looked at, and tells
   }
   try {
      books_->groups.remove( group );
   } catch( FecRefused const & ) {
      leavingGroupIs( group );
      retryLater();
      return;
   }
   leavingGroupDel( group );
   groupOfDel( key );
   if( !books_->nextHops.isTidy() ) {
      retryLater();
   }
}

// ---- FECs

HwGroupId
FecSm::wantedGroup( GlobalFecId const & fec, L2Adjacency const * l2Adj ) const {
   auto const & groups = books_->groups;
   if( !l2Adj || !l2Adjs_->l2AdjHas( l2Adj->key() ) ) {
      return {};
   }
   if( Kiv::valueOrDefault( known_, l2Adj->key() ).isProgrammed ) {
      return groups.of( l2Adj->key() );
   }
   auto const * row = books_->fecRow.find( fec );
   auto const stands = row ? *row : unit_->fec().acceptedOf( fec ).value_or( HwGroupId() );
   return groups.isThere( stands ) && l2Adjs_->l2AdjHas( groups.find( stands )->adjacency )
                ? stands
                : HwGroupId();
}

void
FecSm::evaluateFec( GlobalFecId const & fec ) {
   dueFecDel( fec );
   retryFec_.erase( fec );
   try {
      auto const entry = adjEntries_->adj( fec );
      auto const l2Adj = entry ? entry->l2Adj() : nullptr;
      waitFor( fec, l2Adj.get() );
      fecRowIs( fec, wantedGroup( fec, l2Adj.get() ) );
      refusedFecDel( fec );
      fecAwaitsRoomDel( fec );
   } catch( FecRefused const & refused ) {
      refuseFec( fec, refused );
   } catch( Kiv::Exception const & ) {
      refuseFec( fec, { tableFailed, Kiv::exceptionText() } );
   }
}

void
FecSm::refuseFec( GlobalFecId const & fec, FecRefused const & refused ) {
   refusedFecIs( fec, refused.why );
   if( refused.result == tableFull && !unit_->fecHasRoomFor( { fec } ) ) {
      fecAwaitsRoomIs( fec );
   } else {
      fecAwaitsRoomDel( fec );
      retryFec_.insert( fec );
      retryLater();
   }
}

void
FecSm::fecRowIs( GlobalFecId const & fec, HwGroupId group ) {
   auto & books = *books_;
   if( group.value() ) {
      books.chip.fecIs( fec, group );
   } else {
      books.chip.fecDel( fec );
   }
   auto const before = Kiv::valueOrDefault( books.fecRow, fec );
   if( before == group ) {
      return;
   }
   Kiv::removeFromSet( books.fecsOn, before, fec );
   if( group.value() ) {
      books.fecRow.insertOrAssign( fec, group );
      Kiv::addToSet( books.fecsOn, group, fec );
   } else {
      books.fecRow.erase( fec );
   }
   if( leavingGroupHas( before ) ) {
      dueLeaving_.insert( before );
   }
}

void
FecSm::waitFor( GlobalFecId const & fec, L2Adjacency const * l2Adj ) {
   if( auto const * before = fecAwaits().find( fec ) ) {
      Kiv::removeFromSet( waitingFecs_, L2AdjKey( *before ), fec );
   }
   if( l2Adj && !Kiv::valueOrDefault( known_, l2Adj->key() ).isProgrammed ) {
      Kiv::addToSet( waitingFecs_, l2Adj->key(), fec );
      fecAwaitsIs( fec, l2Adj->key() );
   } else {
      fecAwaitsDel( fec );
   }
}

// ---- Verification

void
FecSm::handleVerify() {
   auto const verify = verifyData();
   if( !initialized() || !verify ) {
      return;
   }
   auto const & books = *books_;
   Kiv::String mismatch;
   Comparison< Rows< HwGroupId, std::uint32_t >, std::uint32_t > groups( "group", unit_->group(),
                                                                        mismatch );
   Comparison< Rows< HwSlot, HwMember >, HwMember > members( "group member", unit_->member(),
                                                            mismatch );
   for( auto const & [ id, group ] : books.groups.all() ) {
      groups.expect( id, group.size );
      for( std::uint32_t slot = 0; slot != group.slot.size(); ++slot ) {
         members.expect( { id, slot }, std::optional( group.slot[ slot ] ) );
      }
      auto const adjacency = l2Adjs_->l2Adj( group.adjacency );
      if( mismatch.empty() && adjacency &&
          Kiv::valueOrDefault( known_, group.adjacency ).isProgrammed ) {
         L2AdjKey awaited;
         auto const rows = rowsOf( *adjacency, awaited );
         if( !rows || !books.groups.isInLine( group, *rows ) ) {
            mismatch = "group " + Kiv::toText( id ) + ": not what its adjacency wants";
         }
      }
   }
   groups.conclude();
   members.conclude();
   Comparison< Rows< HwNextHopId, HwNextHop >, HwNextHop > nextHops( "next hop", unit_->nextHop(),
                                                                    mismatch );
   books.nextHops.each(
         [ & ]( HwNextHopId id, HwNextHop const & row ) { nextHops.expect( id, std::optional( row ) ); } );
   nextHops.conclude();
   Comparison< Rows< GlobalFecId, HwGroupId >, HwGroupId > fecs( "FEC", unit_->fec(), mismatch );
   for( auto const & [ fec, group ] : books.fecRow ) {
      fecs.expect( fec, std::optional( group ) );
   }
   fecs.conclude();
   bool const isSettled =
         unit_->isSettled() && firstPassDone() && dueL2Adj().empty() && dueFec().empty();
   if( !mismatch.empty() && !isSettled ) {
      verify->retryVerifyIs( true );
   } else {
      verify->updateCliVerifyOutput( "FECs", mismatch.empty() ? "ok" : mismatch );
   }
}

} // namespace HobaSim
