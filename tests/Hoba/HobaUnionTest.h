// SPDX-License-Identifier: Apache-2.0
#pragma once

// The random life of a directory of which a machine makes one union: entities come and go, are
// replaced by others, by copies and by what counts for nothing, stand under two names, and change,
// also those that are no longer there. With the even seeds it goes on inside the notifications of
// the union, three deep; with the odd ones nothing nests, and what is told is exactly what became
// different, each key once. After every step the union is worked out anew from the directory.

#include "HobaTest.h"

#include "Kiv/Dir.h"

#include <algorithm>
#include <random>

namespace HobaTest {

class Random : public testing::WithParamInterface< unsigned > {
 protected:
   unsigned pick( std::size_t choices ) { return static_cast< unsigned >( random_() % choices ); }

 private:
   std::mt19937 random_{ GetParam() };
};

// `Fixture` is Random, has `dir`, the machine `sm`, which may be null, and start(), which makes it,
// and brings
//
//    using Entity, Key, Value
//    static constexpr bool beginsAtOnce     its beginning is one change of the union; else many
//    Kiv::Ptr< Entity > entityIs( Entity const * like )     a new one; like that, unless null
//    void change( Entity & )
//    void changeMachine()                   drops it, or does something else to it
//    bool inStep() const                    it is there, and works
//    std::map< Key, Value > published() const               the union
//    static std::map< Key, Value > listed( Entity const & )
//    void check( entities, wanted ) const   what else there is to say
//
// It calls the virtual told() whenever the union tells of one change, and nested() where else a
// step may nest.
template< class Fixture >
class UnionTest : public Fixture {
 public:
   void live( unsigned steps ) {
      this->start();
      for( unsigned n = 0; n != steps && !testing::Test::HasFailure(); ++n ) {
         SCOPED_TRACE( "step " + std::to_string( n ) );
         auto const before = seen_ = this->published();
         tells_ = 0;
         bool const begins = !this->sm;
         begins ? this->start() : step();
         if( !nests() && this->sm && ( !begins || Fixture::beginsAtOnce ) ) {
            EXPECT_EQ( tells_, changedKeys( before, this->published() ).size() );
         }
         if( this->inStep() ) {
            checkUnion();
         }
      }
      over_ = true;
      this->sm = nullptr;
      EXPECT_FALSE( this->inStep() );
   }

 protected:
   void told() override {
      ++tells_;
      auto const now = this->published();
      EXPECT_TRUE( nests() || over_ || changedKeys( seen_, now ).size() == 1 );
      seen_ = now;
      nested();
   }
   void nested() override {
      if( nests() && !over_ && depth_ < 3 && this->pick( 5 ) == 0 ) {
         ++depth_;
         step();
         --depth_;
      }
   }

 private:
   using Entity = typename Fixture::Entity;

   bool nests() const { return this->GetParam() % 2 == 0; }
   void step() {
      auto const name = "entity" + std::to_string( this->pick( 4 ) );
      auto const what = this->pick( 20 );
      if( what == 0 ) {
         this->dir->entryDel( name );
      } else if( what == 1 ) {
         this->dir->entryIs( name, Kiv::make< Kiv::Dir >( name ) );
      } else if( what == 2 ) {
         this->changeMachine();
      } else if( what < 5 || made_.empty() ) {
         auto const like = this->pick( 2 ) ? this->dir->entry( name ) : nullptr;
         made_.push_back( this->entityIs( dynamic_cast< Entity * >( like.get() ) ) );
         this->dir->entryIs( name, made_.back() );
      } else {
         auto const recent = std::min< std::size_t >( 8, made_.size() );
         auto const entity = made_[ made_.size() - 1 - this->pick( recent ) ];
         what < 8 ? this->dir->entryIs( name, entity ) : this->change( *entity );
      }
   }
   void checkUnion() const {
      auto const found = this->published();
      std::map< typename Fixture::Key, std::vector< typename Fixture::Value > > wanted;
      std::size_t entities = 0;
      for( auto const & [ name, entry ] : this->dir->entry() ) {
         if( auto const * entity = dynamic_cast< Entity const * >( entry.get() ) ) {
            ++entities;
            for( auto const & [ key, value ] : Fixture::listed( *entity ) ) {
               wanted[ key ].push_back( value );
            }
         }
      }
      EXPECT_EQ( found.size(), wanted.size() );
      for( auto const & [ key, value ] : found ) {
         EXPECT_TRUE( std::count( wanted[ key ].begin(), wanted[ key ].end(), value ) )
               << "nobody's value stands for " << Kiv::toText( key );
      }
      this->check( entities, wanted );
   }

   std::vector< Kiv::Ptr< Entity > > made_;
   std::map< typename Fixture::Key, typename Fixture::Value > seen_;
   unsigned tells_ = 0;
   unsigned depth_ = 0;
   bool over_ = false;
};

} // namespace HobaTest
