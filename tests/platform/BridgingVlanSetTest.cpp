// SPDX-License-Identifier: Apache-2.0
// A set of VLANs against std::set: after every change, whatever the ranges are.

#include "Bridging/VlanSet.h"
#include "Kiv/Exception.h"

#include <gtest/gtest.h>

#include <random>
#include <set>

namespace {

using Bridging::VlanId;
using Bridging::VlanSet;
using Numbers = std::set< unsigned >;

Numbers
numbersOf( VlanSet const & vlans ) {
   Numbers numbers;
   for( auto const vlan : vlans ) {
      numbers.insert( vlan.value() );
   }
   return numbers;
}

class VlanSetTest : public testing::TestWithParam< unsigned > {
 protected:
   // Crowded at both ends, so that ranges meet, part and reach the bounds.
   unsigned any() {
      auto const near = static_cast< unsigned >( random() % 12 );
      return random() % 2 ? near + 1 : 4094 - near;
   }

   std::mt19937 random{ GetParam() };
};

INSTANTIATE_TEST_SUITE_P( Seeds, VlanSetTest, testing::Range( 0u, 4u ) );

TEST_P( VlanSetTest, likeASet ) {
   VlanSet vlans[ 2 ];
   Numbers numbers[ 2 ];
   for( unsigned n = 0; n != 2000; ++n ) {
      auto const which = random() % 2;
      auto const number = any();
      bool const inserts = random() % 2;
      bool const changed = inserts ? numbers[ which ].insert( number ).second
                                   : numbers[ which ].erase( number ) != 0;
      auto & set = vlans[ which ];
      ASSERT_EQ( inserts ? set.insert( VlanId( number ) ) : set.erase( VlanId( number ) ),
                 changed );
      ASSERT_EQ( numbersOf( set ), numbers[ which ] );
      EXPECT_EQ( set.size(), numbers[ which ].size() );
      EXPECT_EQ( set.has( VlanId( number ) ), inserts );
      for( std::size_t i = 1; i < set.ranges().size(); ++i ) {
         EXPECT_GT( set.ranges()[ i ].first, set.ranges()[ i - 1 ].last + 1 );
      }
      auto const read = VlanSet::parse( Kiv::toText( set ) );
      EXPECT_TRUE( read == set && read.hash() == set.hash() );
      Numbers both, rest;
      for( auto const each : numbers[ 0 ] ) {
         ( numbers[ 1 ].contains( each ) ? both : rest ).insert( each );
      }
      EXPECT_EQ( numbersOf( vlans[ 0 ].intersected( vlans[ 1 ] ) ), both );
      EXPECT_EQ( numbersOf( vlans[ 0 ].without( vlans[ 1 ] ) ), rest );
   }
}

TEST( VlanSetTexts, readAndRefused ) {
   for( auto const & [ text, read ] : { std::pair( "", "" ),
                                        { "7", "7" },
                                        { "3,1-2", "1-3" },
                                        { "1-10,5-20,4094", "1-20,4094" },
                                        { "1-4094", "1-4094" } } ) {
      EXPECT_EQ( Kiv::toText( VlanSet::parse( text ) ), read );
   }
   for( auto const * text :
        { ",", "1,", ",1", "1-", "-1", "2-1", "0", "4095", "1-4095", "a", "1 2" } ) {
      EXPECT_THROW( VlanSet::parse( text ), Kiv::Exception ) << text;
   }
}

} // namespace
