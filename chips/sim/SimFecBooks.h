// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the machine of the FECs (SimFecSm.h) keeps of the chip: which numbers stand for what, and who refers
// to it. The books say what the chip has accepted, never what is merely wanted: each is changed behind the
// write that it tells of, so that what throws in the middle leaves them right.
//
// Whoever hears of a write may end the machine, or have it begin anew: then the write throws FecStopped, and
// the books are not touched any more.

#include "Hoba/HobaL2AdjTypes.h"
#include "chips/sim/SimFec.h"

#include <map>
#include <optional>
#include <vector>

namespace HobaSim {

struct FecStopped {};

// Why something is not in the chip.
struct FecRefused {
   // What lacks room: it may fit when the table has room for so many rows, or, for next hops, when so many
   // have gone in all.
   struct Lack {
      enum Table { groups, members, nextHops } table;
      std::uint64_t until;
   };

   TableResult result;
   Kiv::String why;
   // None: to be tried again after a while.
   std::optional< Lack > lack = {};
};

// The unit as the machine writes it: what is refused is thrown, as FecRefused.
class FecChip {
 public:
   explicit FecChip( Kiv::Ptr< FecUnit > const & unit ) : unit_( unit ) {}

   FecUnit & unit() const { return *unit_; }
   void stop() { stopped_ = true; }
   // Changes that were accepted, and those among them that made room.
   std::uint64_t writes() const { return writes_; }
   std::uint64_t freed() const { return freed_; }

#define SIM_FEC_WRITES_( Key, Record, table )                                                      \
   void table##Is( Key key, Record const & record ) {                                              \
      accept( unit_->table##Program( key, record ), *unit_->table##Table(), key );                 \
   }                                                                                               \
   void table##Del( Key key ) {                                                                    \
      freed_ += accept( unit_->table##Clear( key ), *unit_->table##Table(), key );                 \
   }
   SIM_FEC_WRITES_( GlobalFecId, HwGroupId, fec )
   SIM_FEC_WRITES_( HwGroupId, std::uint32_t, group )
   SIM_FEC_WRITES_( HwSlot, HwMember, member )
   SIM_FEC_WRITES_( HwNextHopId, HwNextHop, nextHop )
#undef SIM_FEC_WRITES_

 private:
   // Whether that was a change.
   template< class Key >
   bool accept( TableResult result, SimTable const & table, Key const & key ) {
      if( stopped_ ) {
         throw FecStopped();
      }
      if( isRefusal( result ) ) {
         throw FecRefused{ result, "table " + table.name() + ", row " + Kiv::toText( key ) + ": " +
                                         Kiv::toText( result ) };
      }
      writes_ += result != tableUnchanged;
      return result != tableUnchanged;
   }

   Kiv::Ptr< FecUnit > const unit_;
   bool stopped_ = false;
   std::uint64_t writes_ = 0;
   std::uint64_t freed_ = 0;
};

// The numbers from 1 on that nobody has.
class FreeNumbers {
 public:
   FreeNumbers() { free_[ 1 ] = ~0u; }

   // The smallest `count` of them, without those for which isTaken( number ) says that somebody else has
   // them, at the moment. Fewer if there are no more.
   template< class IsTaken >
   std::vector< std::uint32_t > smallest( std::size_t count, IsTaken const & isTaken ) const {
      std::vector< std::uint32_t > found;
      for( auto const & [ first, last ] : free_ ) {
         for( std::uint64_t number = first; number <= last; ++number ) {
            if( found.size() == count ) {
               return found;
            }
            if( !isTaken( static_cast< std::uint32_t >( number ) ) ) {
               found.push_back( static_cast< std::uint32_t >( number ) );
            }
         }
      }
      return found;
   }
   void take( std::uint32_t number );
   void giveBack( std::uint32_t number );

 private:
   std::map< std::uint32_t, std::uint32_t > free_; // first and last of each interval
};

// Next hops with equal rows are one, which is there as long as somebody refers to it.
class HwNextHops {
 public:
   explicit HwNextHops( FecChip & chip ) : chip_( chip ) {}

   // Learns what the chip holds, to be found again; and forgets what nobody has referred to since then.
   void begin();
   void endOfFirstPass();

   // None if there is no such row.
   HwNextHopId find( HwNextHop const & row ) const {
      return Kiv::valueOrDefault( number_, row );
   }
   HwNextHop const * row( HwNextHopId id ) const {
      auto const * entry = entry_.find( id );
      return entry ? &entry->row : nullptr;
   }
   // One more refers to it: the row is written if it is not there. Throws FecRefused, and nobody more does.
   HwNextHopId acquire( HwNextHop const & row );
   // One less does. The row goes with the last; what the chip refuses then is tidied up later. 0 is nobody.
   void release( HwNextHopId id );
   // One more refers to it as it stands in the chip. 0 if it does not.
   HwNextHopId adopt( HwNextHopId id );

   // The numbers that new rows would have.
   std::vector< HwNextHopId > newNumbers( std::size_t count ) const;
   // How many have gone.
   std::uint64_t gone() const { return gone_; }
   // Rows that should have gone: the chip was asked, and refused.
   bool isTidy() const { return overdue_.empty(); }
   // Tries those once more. Throws nothing but FecStopped.
   void tidy();
   // Whether the group is the next level of a row.
   bool goOnIn( HwGroupId group ) const { return goesOnIn_.has( group ); }
   // The groups of which that is no longer so, since the last call.
   std::vector< HwGroupId > takeUnreferenced() { return std::exchange( unreferenced_, {} ); }

   template< class Use >
   void each( Use const & use ) const {
      for( auto const & [ id, entry ] : entry_ ) {
         if( entry.references || overdue_.has( id ) ) {
            use( id, entry.row );
         }
      }
   }

 private:
   struct Entry {
      HwNextHop row;
      std::uint32_t references = 0;
   };
   void enter( HwNextHopId id, HwNextHop const & row );
   void forget( HwNextHopId id );
   void tidy( HwNextHopId id );

   FecChip & chip_;
   Kiv::HashMap< HwNextHopId, Entry > entry_;
   Kiv::HashMap< HwNextHop, HwNextHopId > number_;
   Kiv::HashMap< HwGroupId, std::uint32_t > goesOnIn_; // how many rows
   std::vector< HwGroupId > unreferenced_;
   Kiv::HashSet< HwNextHopId > overdue_;
   FreeNumbers free_;
   std::uint64_t gone_ = 0;
};

struct WantedRow {
   HwNextHop row;
   std::uint32_t weight = 0;
};
struct WantedRows {
   bool isOrdered = false;
   std::vector< WantedRow > slot;
};

struct HwGroup {
   Hoba::L2AdjKey adjacency;
   std::vector< HwMember > slot;          // all that are there, also beyond the size
   std::optional< std::uint32_t > size{}; // none: the group is not there, or no more
};

// The groups of the adjacencies.
class HwGroups {
 public:
   HwGroups( FecChip & chip, HwNextHops & nextHops ) : chip_( chip ), nextHops_( nextHops ) {}

   // Learns what the chip holds, to be adopted; and forgets what nobody has.
   void begin();
   void endOfFirstPass();

   // None: the adjacency has no group.
   HwGroupId of( Hoba::L2AdjKey const & key ) const {
      return Kiv::valueOrDefault( number_, key );
   }
   HwGroup const * find( HwGroupId id ) const { return group_.find( id ); }
   // Whether others can refer to it.
   bool isThere( HwGroupId id ) const {
      auto const * group = find( id );
      return group && group->size;
   }
   Kiv::HashMap< HwGroupId, HwGroup > const & all() const { return group_; }

   // The adjacency takes a group as it stands in the chip, and claims its rows. False if there is none, or
   // another adjacency has it.
   bool adopt( Hoba::L2AdjKey const & key, HwGroupId id );
   // Brings the adjacency's group in line; made if there is none. Throws FecRefused: nothing was written if
   // that says what is lacking, and otherwise the group is somewhere on the way, and may be tried again.
   void program( Hoba::L2AdjKey const & key, WantedRows const & wanted );
   // Whether that would change nothing.
   bool isInLine( HwGroup const & group, WantedRows const & wanted ) const;
   // Takes the group away, which nobody refers to any more. Throws FecRefused; it may be tried again.
   void remove( HwGroupId id );

 private:
   using Rows = std::vector< WantedRow const * >;
   // The same rows, each in the slot where it stands already, if it does.
   Rows arranged( std::vector< HwMember > const & standing, WantedRows const & wanted ) const;
   HwGroupId standing( WantedRows const & wanted ) const;
   void checkRoom( HwGroupId id, HwGroup const * group, Rows const & wanted ) const;
   void write( HwGroupId id, HwGroup & group, Rows const & wanted );
   void writeSlot( HwSlot at, HwGroup & group, WantedRow const & wanted );
   void dropLast( HwGroupId id, HwGroup & group );
   HwGroupId newNumber() const;

   FecChip & chip_;
   HwNextHops & nextHops_;
   Kiv::HashMap< HwGroupId, HwGroup > group_;
   Kiv::HashMap< Hoba::L2AdjKey, HwGroupId > number_;
   FreeNumbers free_;
   // What the chip held, and nobody has adopted; by number, and by content.
   std::map< HwGroupId, HwGroup > standing_;
   std::multimap< std::size_t, HwGroupId > standingByContent_;
};

} // namespace HobaSim
