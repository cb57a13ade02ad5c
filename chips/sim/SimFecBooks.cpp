// SPDX-License-Identifier: Apache-2.0
#include "chips/sim/SimFecBooks.h"

#include <algorithm>

namespace HobaSim {

// ---- Numbers

void
FreeNumbers::take( std::uint32_t number ) {
   auto const after = free_.upper_bound( number );
   if( after == free_.begin() || std::prev( after )->second < number ) {
      return;
   }
   auto const [ first, last ] = *std::prev( after );
   free_.erase( std::prev( after ) );
   if( first < number ) {
      free_[ first ] = number - 1;
   }
   if( number < last ) {
      free_[ number + 1 ] = last;
   }
}

void
FreeNumbers::giveBack( std::uint32_t number ) {
   auto const after = free_.upper_bound( number );
   auto last = number;
   if( after != free_.end() && after->first == number + 1 ) {
      last = after->second;
   }
   auto const before = after == free_.begin() ? free_.end() : std::prev( after );
   if( last != number ) {
      free_.erase( after );
   }
   if( before != free_.end() && before->second + 1 == number ) {
      before->second = last;
   } else {
      free_[ number ] = last;
   }
}

// ---- Next hops

void
HwNextHops::begin() {
   std::map< HwNextHopId, HwNextHop > held;
   chip_.unit().nextHop().eachAccepted(
         [ & ]( HwNextHopId id, HwNextHop const & row ) { held.emplace( id, row ); } );
   for( auto const & [ id, row ] : held ) {
      if( id.value() ) {
         enter( id, row );
      }
   }
}

void
HwNextHops::endOfFirstPass() {
   for( auto const & id : Kiv::keysOf( entry_ ) ) {
      if( !entry_.find( id )->references && !overdue_.has( id ) ) {
         forget( id );
      }
   }
}

void
HwNextHops::enter( HwNextHopId id, HwNextHop const & row ) {
   free_.take( id.value() );
   entry_.insertOrAssign( id, Entry{ row } );
   number_.tryEmplace( row, id );
   if( row.nextGroup.value() ) {
      ++*goesOnIn_.tryEmplace( row.nextGroup ).value;
   }
}

void
HwNextHops::forget( HwNextHopId id ) {
   auto const row = entry_.find( id )->row;
   if( find( row ) == id ) {
      number_.erase( row );
   }
   if( row.nextGroup.value() && --*goesOnIn_.find( row.nextGroup ) == 0 ) {
      goesOnIn_.erase( row.nextGroup );
      unreferenced_.push_back( row.nextGroup );
   }
   overdue_.erase( id );
   entry_.erase( id );
   free_.giveBack( id.value() );
}

HwNextHopId
HwNextHops::acquire( HwNextHop const & row ) {
   auto id = find( row );
   if( id.value() ) {
      chip_.nextHopIs( id, row );
   } else {
      id = newNumbers( 1 ).at( 0 );
      chip_.nextHopIs( id, row );
      enter( id, row );
   }
   ++entry_.find( id )->references;
   overdue_.erase( id );
   return id;
}

void
HwNextHops::release( HwNextHopId id ) {
   if( auto * entry = entry_.find( id ); entry && --entry->references == 0 ) {
      overdue_.insert( id );
      tidy( id );
   }
}

HwNextHopId
HwNextHops::adopt( HwNextHopId id ) {
   auto * entry = entry_.find( id );
   if( !entry ) {
      return {};
   }
   chip_.unit().nextHopClaim( id );
   ++entry->references;
   overdue_.erase( id );
   return id;
}

void
HwNextHops::tidy() {
   for( auto const & id : Kiv::keysOf( overdue_ ) ) {
      tidy( id );
   }
}

void
HwNextHops::tidy( HwNextHopId id ) {
   try {
      chip_.nextHopDel( id );
   } catch( FecRefused const & ) {
      return; // it stays overdue
   }
   ++gone_;
   forget( id );
}

std::vector< HwNextHopId >
HwNextHops::newNumbers( std::size_t count ) const {
   auto const numbers = free_.smallest( count, [ & ]( std::uint32_t number ) {
      return chip_.unit().nextHop().acceptedOf( HwNextHopId( number ) ).has_value();
   } );
   std::vector< HwNextHopId > ids;
   for( auto const number : numbers ) {
      ids.emplace_back( number );
   }
   return ids;
}

// ---- Groups

namespace {

// The same of equal slots in whatever order.
std::size_t
contentOf( std::vector< HwMember > const & slots ) {
   std::size_t sum = slots.size();
   for( auto const & slot : slots ) {
      sum += Kiv::hashOf( slot );
   }
   return sum;
}

} // namespace

void
HwGroups::begin() {
   chip_.unit().group().eachAccepted( [ & ]( HwGroupId id, std::uint32_t size ) {
      if( id.value() ) {
         standing_[ id ].size = size;
         free_.take( id.value() );
      }
   } );
   std::map< HwSlot, HwMember > held;
   chip_.unit().member().eachAccepted(
         [ & ]( HwSlot const & at, HwMember const & member ) { held.emplace( at, member ); } );
   for( auto const & [ at, member ] : held ) {
      // What stands behind a gap nobody asks for.
      auto const found = standing_.find( at.group );
      if( found != standing_.end() && found->second.slot.size() == at.slot ) {
         found->second.slot.push_back( member );
      }
   }
   for( auto const & [ id, group ] : standing_ ) {
      if( group.size == group.slot.size() ) {
         standingByContent_.emplace( contentOf( group.slot ), id );
      }
   }
}

void
HwGroups::endOfFirstPass() {
   for( auto const & [ id, group ] : standing_ ) {
      free_.giveBack( id.value() );
   }
   standing_.clear();
   standingByContent_.clear();
}

bool
HwGroups::adopt( Hoba::L2AdjKey const & key, HwGroupId id ) {
   auto const found = standing_.find( id );
   if( found == standing_.end() || of( key ).value() ) {
      return false;
   }
   auto group = std::move( found->second );
   standing_.erase( found );
   group.adjacency = key;
   chip_.unit().groupClaim( id );
   for( std::uint32_t slot = 0; slot != group.slot.size(); ++slot ) {
      chip_.unit().memberClaim( { id, slot } );
      group.slot[ slot ].nextHop = nextHops_.adopt( group.slot[ slot ].nextHop );
   }
   group_.insertOrAssign( id, std::move( group ) );
   number_.insertOrAssign( key, id );
   return true;
}

HwGroupId
HwGroups::standing( WantedRows const & wanted ) const {
   std::vector< HwMember > slots;
   for( auto const & slot : wanted.slot ) {
      slots.push_back( { nextHops_.find( slot.row ), slot.weight } );
   }
   auto const [ first, last ] = standingByContent_.equal_range( contentOf( slots ) );
   for( auto each = first; each != last; ++each ) {
      auto const found = standing_.find( each->second );
      if( found != standing_.end() && isInLine( found->second, wanted ) ) {
         return found->first;
      }
   }
   return {};
}

HwGroups::Rows
HwGroups::arranged( std::vector< HwMember > const & standing, WantedRows const & wanted ) const {
   Rows rows( wanted.slot.size() );
   if( wanted.isOrdered ) {
      std::transform( wanted.slot.begin(), wanted.slot.end(), rows.begin(),
                      []( WantedRow const & row ) { return &row; } );
      return rows;
   }
   Kiv::HashMap< HwMember, Rows > missing;
   for( auto row = wanted.slot.rbegin(); row != wanted.slot.rend(); ++row ) {
      missing.tryEmplace( HwMember{ nextHops_.find( row->row ), row->weight } )
            .value->push_back( &*row );
   }
   for( std::size_t slot = 0; slot != std::min( rows.size(), standing.size() ); ++slot ) {
      if( auto * same = missing.find( standing[ slot ] ); same && !same->empty() ) {
         rows[ slot ] = same->back();
         same->pop_back();
      }
   }
   // The others in their order, in the slots that are left.
   Kiv::HashSet< WantedRow const * > placed;
   for( auto const * row : rows ) {
      placed.insert( row );
   }
   auto next = wanted.slot.begin();
   for( auto & row : rows ) {
      if( !row ) {
         while( placed.has( &*next ) ) {
            ++next;
         }
         row = &*next++;
      }
   }
   return rows;
}

bool
HwGroups::isInLine( HwGroup const & group, WantedRows const & wanted ) const {
   auto const rows = arranged( group.slot, wanted );
   return group.size == rows.size() &&
          std::equal( rows.begin(), rows.end(), group.slot.begin(), group.slot.end(),
                      [ & ]( WantedRow const * row, HwMember const & slot ) {
                         auto const id = nextHops_.find( row->row );
                         return id.value() && HwMember{ id, row->weight } == slot;
                      } );
}

HwGroupId
HwGroups::newNumber() const {
   auto const isTaken = [ & ]( std::uint32_t number ) {
      return chip_.unit().group().acceptedOf( HwGroupId( number ) ).has_value();
   };
   return HwGroupId( free_.smallest( 1, isTaken ).at( 0 ) );
}

void
HwGroups::program( Hoba::L2AdjKey const & key, WantedRows const & wanted ) {
   if( !of( key ).value() && !standing_.empty() ) {
      adopt( key, standing( wanted ) );
   }
   auto id = of( key );
   auto * group = group_.find( id );
   if( !group ) {
      id = newNumber();
   }
   auto const rows = arranged( group ? group->slot : std::vector< HwMember >(), wanted );
   checkRoom( id, group, rows );
   if( !group ) {
      free_.take( id.value() );
      number_.insertOrAssign( key, id );
      group = group_.insertOrAssign( id, HwGroup{ key, {} } ).value;
   }
   write( id, *group, rows );
}

void
HwGroups::checkRoom( HwGroupId id, HwGroup const * group, Rows const & wanted ) const {
   auto & unit = chip_.unit();
   auto const check = [ & ]( RowsBase const & table, bool fits, std::uint64_t rows,
                             FecRefused::Lack const & lack ) {
      if( !fits ) {
         throw FecRefused{ tableFull,
                           "table " + table.name() + ": " + Kiv::toText( rows ) +
                                 " more rows, there is room for " + Kiv::toText( table.room() ),
                           lack };
      }
   };
   if( !group || !group->size ) {
      check( unit.group(), unit.groupHasRoomFor( { id } ), 1, { FecRefused::Lack::groups, 1 } );
   }
   std::vector< HwSlot > slots;
   for( auto slot = group ? group->slot.size() : 0; slot < wanted.size(); ++slot ) {
      HwSlot const at{ id, static_cast< std::uint32_t >( slot ) };
      if( !unit.member().acceptedOf( at ) ) {
         slots.push_back( at );
      }
   }
   check( unit.member(), unit.memberHasRoomFor( slots ), slots.size(),
          { FecRefused::Lack::members, slots.size() } );
   Kiv::HashSet< HwNextHop > added;
   for( auto const * row : wanted ) {
      if( !nextHops_.find( row->row ).value() ) {
         added.insert( row->row );
      }
   }
   auto const count = added.size();
   if( count ) {
      auto const room = unit.nextHop().room();
      check( unit.nextHop(),
             count <= room && unit.nextHopHasRoomFor( nextHops_.newNumbers( count ) ), count,
             { FecRefused::Lack::nextHops, nextHops_.gone() + ( count > room ? count - room : 1 ) } );
   }
}

void
HwGroups::write( HwGroupId id, HwGroup & group, Rows const & wanted ) {
   for( std::uint32_t slot = 0; slot != wanted.size(); ++slot ) {
      writeSlot( { id, slot }, group, *wanted[ slot ] );
   }
   auto const size = static_cast< std::uint32_t >( wanted.size() );
   chip_.groupIs( id, size );
   group.size = size;
   while( group.slot.size() > size ) {
      dropLast( id, group );
   }
}

void
HwGroups::writeSlot( HwSlot at, HwGroup & group, WantedRow const & wanted ) {
   HwMember const member{ nextHops_.acquire( wanted.row ), wanted.weight };
   try {
      chip_.memberIs( at, member );
   } catch( FecStopped const & ) {
      throw;
   } catch( ... ) {
      nextHops_.release( member.nextHop );
      throw;
   }
   if( at.slot == group.slot.size() ) {
      group.slot.push_back( member );
   } else {
      nextHops_.release( std::exchange( group.slot[ at.slot ], member ).nextHop );
   }
}

void
HwGroups::dropLast( HwGroupId id, HwGroup & group ) {
   auto const last = static_cast< std::uint32_t >( group.slot.size() - 1 );
   chip_.memberDel( { id, last } );
   auto const gone = group.slot.back().nextHop;
   group.slot.pop_back();
   nextHops_.release( gone );
}

void
HwGroups::remove( HwGroupId id ) {
   auto * group = group_.find( id );
   if( group->size ) {
      chip_.groupDel( id );
      group->size.reset();
   }
   while( !group->slot.empty() ) {
      dropLast( id, *group );
   }
   number_.erase( Hoba::L2AdjKey( group->adjacency ) );
   group_.erase( id );
   free_.giveBack( id.value() );
}

} // namespace HobaSim
