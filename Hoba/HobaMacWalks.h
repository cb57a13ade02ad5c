// SPDX-License-Identifier: Apache-2.0
#pragma once

// Walks over many stations, which must not hold the thread: they wait their turn, in the order in which they
// were asked for, and are cut into slices. What goes from a collection meanwhile is not visited, what comes is.
// A visit that throws has had its turn, and so has what is called at the end: the rest goes on.

#include "Bridging/Fdb.h"
#include "Hoba/HobaSlicedWalk.h"
#include "Kiv/ClockDriver.h"

#include <deque>
#include <functional>
#include <memory>
#include <vector>

namespace Hoba {

class MacWalks {
 public:
   using Visit = std::function< void( Bridging::MacVlanPair ) >;
   using Done = std::function< void() >;

   // Visits every member of the collection; pairOf( member ) says which station it is about. `owner`, if
   // given, is held meanwhile. `done` runs once it is over.
   template< class Collection, class PairOf >
   void add( Collection const & collection, PairOf pairOf, Visit visit, Done done = {},
             Kiv::Ptr< Kiv::Entity const > owner = {} ) {
      auto walk = std::make_shared< WalkOver< Collection, PairOf > >( pairOf );
      walk->visit = std::move( visit );
      walk->done = std::move( done );
      walk->owner = std::move( owner );
      walk->walk.start( collection );
      walks_.push_back( std::move( walk ) );
   }
   // The station that a member is about, of collections by station.
   static constexpr auto byKey = []( auto const & member ) -> Bridging::MacVlanPair {
      return member.key;
   };
   // Visits the stations of a VLAN, whose addresses `owner` has in `hosts`.
   template< class Owner, class Hosts >
   void addVlan( Bridging::VlanId vlan, Kiv::Ptr< Owner > const & owner, Hosts const & hosts,
                 Visit visit ) {
      add(
            hosts,
            [ vlan ]( auto const & member ) { return Bridging::MacVlanPair( member.key, vlan ); },
            std::move( visit ), {}, owner );
   }
   // Visits all stations that are in force.
   void addStatus( Bridging::Status const & status, Visit const & visit ) {
      for( auto const & [ vlan, database ] : status.fdbStatus() ) {
         addVlan( vlan, database, database->learnedHost(), visit );
      }
   }
   // Visits these.
   void add( std::vector< Bridging::MacVlanPair > pairs, Visit visit ) {
      auto walk = std::make_shared< WalkOverList >();
      walk->pairs = std::move( pairs );
      walk->visit = std::move( visit );
      walks_.push_back( std::move( walk ) );
   }
   // Nothing to visit, but it has its turn.
   void add( Done done ) {
      auto walk = std::make_shared< NoWalk >();
      walk->done = std::move( done );
      walks_.push_back( std::move( walk ) );
   }

   bool empty() const { return walks_.empty(); }
   // None has another visit, the one under way included, and none its end.
   void clear() {
      for( auto const & walk : std::exchange( walks_, {} ) ) {
         walk->isOver = true;
      }
   }

   // Goes on for a time slice, in visits of at most `quantum` of one walk. While some are left, the clock is armed
   // for now. Returns whether all is over.
   template< class Clock >
   bool run( HobaBaseSm & machine, Clock & clock, std::uint32_t quantum ) {
      Kiv::Dispatch::Frame frame;
      auto const end = clock.now() + machine.commonSmData()->yieldTimeSlice();
      while( !walks_.empty() && !machine.kivMarkedForDeletion() ) {
         auto const walk = walks_.front();
         bool const isOver = walk->run( machine, quantum );
         if( walks_.empty() || walks_.front() != walk ) {
            continue; // a visit has ended all of them, this one included, and may have begun others
         }
         if( !isOver ) {
            clock.noLaterThan( clock.now() );
            return false;
         }
         walks_.pop_front();
         if( walk->done && !machine.kivMarkedForDeletion() ) {
            Kiv::guarded( "MacWalks::done", {}, walk->done );
         }
         if( !walks_.empty() && clock.now() >= end ) {
            clock.noLaterThan( clock.now() );
            return false;
         }
      }
      return walks_.empty();
   }

 private:
   struct Walk {
      virtual ~Walk() = default;
      // Whether it is over.
      virtual bool run( HobaBaseSm & machine, std::uint32_t quantum ) = 0;
      void visitOne( Bridging::MacVlanPair pair ) const {
         try {
            visit( pair );
         } catch( ... ) {
            Kiv::Dispatch::failed( "MacWalks::visit", Kiv::toText( pair ) );
         }
      }
      Visit visit;
      Done done;
      bool isOver = false; // whatever is left
   };
   struct NoWalk : Walk {
      bool run( HobaBaseSm &, std::uint32_t ) override { return true; }
   };
   template< class Collection, class PairOf >
   struct WalkOver : Walk {
      explicit WalkOver( PairOf of ) : pairOf( of ) {}
      bool run( HobaBaseSm & machine, std::uint32_t quantum ) override {
         SliceClock clock;
         return walk.run( machine, clock, quantum, [ this ]( auto const & member ) {
            visitOne( pairOf( member ) );
            if( isOver ) {
               walk.stop();
            }
         } );
      }
      SlicedWalk< Collection > walk;
      PairOf const pairOf;
      Kiv::Ptr< Kiv::Entity const > owner;
   };
   struct WalkOverList : Walk {
      bool run( HobaBaseSm & machine, std::uint32_t quantum ) override {
         SliceClock const clock;
         TimeSlice slice( machine, clock, quantum );
         while( next < pairs.size() && !isOver && !machine.kivMarkedForDeletion() ) {
            if( !slice.next() ) {
               return false;
            }
            visitOne( pairs[ next++ ] );
         }
         return true;
      }
      std::vector< Bridging::MacVlanPair > pairs;
      std::size_t next = 0;
   };
   // Tells the time, and leaves the arming to who runs the walks.
   class SliceClock {
    public:
      Kiv::Seconds now() const { return Kiv::ClockDriver::ambient().now(); }
      void noLaterThan( Kiv::Seconds ) {}
   };

   std::deque< std::shared_ptr< Walk > > walks_;
};

// One walk for all who ask for one, until it begins: many do in one turn, when many VLANs or interfaces change.
// `Asked` is a set of what they ask for.
template< class Asked >
class MacSharedWalk {
 public:
   // What is asked for by now. Unless one waits to begin, `add( which, begun )` adds the walk: its visits go by
   // *which, and call begun() before, as its end does.
   template< class Add >
   Asked & ask( Add const & add ) {
      if( !which_ ) {
         which_ = std::make_shared< Asked >();
         add( which_, [ this, which = which_ ] { which_ = which_ == which ? nullptr : which_; } );
      }
      return *which_;
   }
   // The walk will not be.
   void clear() { which_ = nullptr; }

 private:
   std::shared_ptr< Asked > which_;
};

} // namespace Hoba
