// SPDX-License-Identifier: Apache-2.0
#pragma once

// What several parties ask for, as one table: a key is in it while any party claims it.
//
// Written claim by claim, the table would show what nobody asked for: an entry is taken out because
// one party lets go of it, and put in again because the next one asks for it too. So a party changes
// its claims first, which tells nobody, and the owner of the table has it written then: publish().
//
// Of several records for one key the one that was claimed last stands, and when its party lets go,
// the one claimed last among the rest.

#include "Kiv/Dispatch.h"
#include "Kiv/HashMap.h"

#include <algorithm>
#include <cstdint>
#include <vector>

namespace Hoba {

template< class Key, class Record >
class Union {
 public:
   // A party is a number, so that another machine may take it over with all its claims.
   using Party = std::uint32_t;

   Party newParty() { return ++parties_; }

   // Returns whether that is news.
   bool claim( Party party, Key const & key, Record const & record ) {
      auto & claims = *claims_.tryEmplace( key ).value;
      auto const own = claimOf( claims, party );
      if( own != claims.end() ) {
         if( own->record == record ) {
            return false;
         }
         claims.erase( own );
      }
      claims.push_back( { party, atOnce_ ? claimed_ : ++claimed_, record } );
      stale_.insert( key );
      return true;
   }

   // Returns whether the party had claimed it.
   bool release( Party party, Key const & key ) {
      auto * const claims = claims_.find( key );
      if( !claims ) {
         return false;
      }
      auto const own = claimOf( *claims, party );
      if( own == claims->end() ) {
         return false;
      }
      claims->erase( own );
      stale_.insert( key );
      if( claims->empty() ) {
         claims_.erase( key );
      }
      return true;
   }

   // While it is true, all claims count as made at the same time.
   void atOnceIs( bool atOnce ) {
      atOnce_ = atOnce;
      claimed_ += atOnce;
   }

   // Null when nobody claims the key. Of records that were claimed at the same time `inTable`, which
   // may be null, stands on. Valid until a claim changes.
   Record const * standing( Key const & key, Record const * inTable ) const {
      auto const * const claims = claims_.find( key );
      if( !claims ) {
         return nullptr;
      }
      auto const & last = claims->back();
      for( auto const & claim : *claims ) {
         if( claim.time == last.time && inTable && claim.record == *inTable ) {
            return &claim.record;
         }
      }
      return &last.record;
   }

   // The table's entry for the key may differ from what stands.
   void staleIs( Key const & key ) { stale_.insert( key ); }
   // For each key whose entry may differ, `write( key, record )` brings the entry in line with what
   // stands, which is null when nobody claims the key. `inTable( key )` is the present entry, or null.
   //
   // Who hears of a write may change any claim, and publish in turn; one who throws leaves the rest to
   // the next time, and so does `mayGoOn()` when it is false. So nothing of before a write is relied on
   // after it.
   template< class InTable, class Write, class MayGoOn >
   void publish( InTable const & inTable, Write const & write, MayGoOn const & mayGoOn ) {
      // Whoever hears of it may drop the owner.
      Kiv::Dispatch::Frame frame;
      while( mayGoOn() && !stale_.empty() ) {
         Key const key = *stale_.begin();
         stale_.erase( key );
         write( key, standing( key, inTable( key ) ) );
      }
   }

 private:
   struct Claim {
      Party party;
      std::uint64_t time; // of two, the higher was claimed later
      Record record;
   };
   using Claims = std::vector< Claim >; // in the order in which they were claimed

   static auto claimOf( auto & claims, Party party ) {
      return std::find_if( claims.begin(), claims.end(),
                           [ party ]( Claim const & claim ) { return claim.party == party; } );
   }

   Kiv::HashMap< Key, Claims > claims_;
   Kiv::HashSet< Key > stale_;
   Party parties_ = 0;
   std::uint64_t claimed_ = 0;
   bool atOnce_ = false;
};

} // namespace Hoba
