// SPDX-License-Identifier: Apache-2.0

// Next hops, collections of them, and layer-2 adjacencies: values that must be equal, ordered and hashed
// alike however they came about, and books that must balance.

#include "Helpers.h"
#include "RandomNextHops.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>

namespace {

using namespace Hoba;
using HobaTests::errorOf;
using HobaTests::RandomNextHops;
using Kiv::make;
using Kiv::Ptr;
using Kiv::toText;

bool
has( std::string_view text, std::string_view part ) {
   return text.find( part ) != text.npos;
}

// By its printed form, which shows everything, two values are the same or not. The rest must agree.
template< class T >
void
expectAgreement( T const & a, T const & b ) {
   bool const same = toText( a ) == toText( b );
   ASSERT_EQ( a == b, same ) << toText( a ) << "\n" << toText( b );
   ASSERT_EQ( ( a <=> b ) == 0, same );
   ASSERT_EQ( a< b, b > a );
   for( std::size_t const seed : { 0ul, 1ul, ~0ul } ) {
      ASSERT_EQ( a.hash( seed ) == b.hash( seed ), same );
   }
}

TEST( HobaNextHop, differsByEveryFieldAndByNothingElse ) {
   RandomNextHops draw( 1 );
   auto const at = [ & ]( std::uint64_t weight ) {
      NextHopCollection collection;
      collection.nextHopIs( NextHop{}, static_cast< std::uint32_t >( weight ) );
      return make< L2Adjacency >( L2AdjKey{ collection } );
   };
   // Not the same adjacencies, but what they are is the same.
   Ptr< L2Adjacency > const levels[] = { at( 1 ), at( 1 ), at( 2 ) };
   for( int round = 0; round < 300; ++round ) {
      auto const base = draw.nextHop( levels[ 0 ] );
      ASSERT_EQ( Kiv::FieldsOf< NextHop >::toDatum( base ).as< Kiv::Datum::Object >()->size(),
                 17u );
      auto other = base;
      expectAgreement( base, other );
      // One field of another one: the same, or nothing else but it.
      auto const drawn = draw.nextHop( levels[ draw.below( 3 ) ] );
      void ( *const changes[] )( NextHop &, NextHop const & ) = {
            []( NextHop & a, NextHop const & b ) { a.type = b.type; },
            []( NextHop & a, NextHop const & b ) { a.macAddr = b.macAddr; },
            []( NextHop & a, NextHop const & b ) { a.l3Intf = b.l3Intf; },
            []( NextHop & a, NextHop const & b ) { a.l2Intf = b.l2Intf; },
            []( NextHop & a, NextHop const & b ) { a.encapInfo = b.encapInfo; },
            []( NextHop & a, NextHop const & b ) { a.l2IntfHwId = b.l2IntfHwId; },
            []( NextHop & a, NextHop const & b ) { a.hwTunnelId = b.hwTunnelId; },
            []( NextHop & a, NextHop const & b ) { a.tunnelL2Info = b.tunnelL2Info; },
            []( NextHop & a, NextHop const & b ) {
               a.hierarchicalNextLevelL2Adj = b.hierarchicalNextLevelL2Adj;
            },
            []( NextHop & a, NextHop const & b ) { a.flowSmac = b.flowSmac; },
            []( NextHop & a, NextHop const & b ) { a.flowInfo = b.flowInfo; },
            []( NextHop & a, NextHop const & b ) { a.flowVlan = b.flowVlan; },
            []( NextHop & a, NextHop const & b ) { a.sourceMac = b.sourceMac; },
            []( NextHop & a, NextHop const & b ) { a.vlanId = b.vlanId; },
            []( NextHop & a, NextHop const & b ) { a.skipEgressAcl = b.skipEgressAcl; },
            []( NextHop & a, NextHop const & b ) { a.allocationId = b.allocationId; },
            []( NextHop & a, NextHop const & b ) {
               a.staticInterfaceTunnelIntfId = b.staticInterfaceTunnelIntfId;
            },
      };
      for( auto const change : changes ) {
         other = base;
         change( other, drawn );
         expectAgreement( base, other );
      }
   }
}

TEST( HobaNextHop, encapsulationsAreCopiedBeforeTheyChange ) {
   NextHop first;
   EXPECT_FALSE( first.encapInfo );
   first.labelsIs(
         { Pelt::mplsLabelSwap,
           { Pelt::MplsLabel( 16001 ), Pelt::entropyLabelIndicator, Pelt::MplsLabel( 99 ) } } );
   EXPECT_EQ( toText( first.encapInfo ), "MPLS Label Stack: TOP ( 16001 ELI 99 ) BOTTOM, swap" );
   NextHop second = first;
   auto const before = toText( first );
   second.labelsIs( { Pelt::mplsLabelPop, {} } );
   EXPECT_EQ( toText( first ), before );
   second = first;
   second.greEncapIs( { .ttl = 7 } );
   EXPECT_EQ( second.greEncap().ttl, 7 );
   EXPECT_EQ( toText( first ), before );
   // What is carried may be set to itself.
   first.labelsIs( first.labels() );
   EXPECT_EQ( toText( first ), before );

   struct Wrong {
      char const * kind;
      void ( *read )( NextHop const & );
   };
   Wrong const wrongs[] = {
         { "mplsEncap()", []( NextHop const & nextHop ) { nextHop.labels(); } },
         { "greEncap()", []( NextHop const & nextHop ) { nextHop.greEncap(); } },
         { "ipSecEncap()", []( NextHop const & nextHop ) { nextHop.ipsecEncap(); } },
         { "vxlanEncap()", []( NextHop const & nextHop ) { nextHop.vxlanEncap(); } } };
   NextHop tunnels[ 2 ];
   tunnels[ 0 ].ipsecEncapIs( { .spi = 5 } );
   tunnels[ 1 ].vxlanEncapIs( {} );
   for( NextHop const & nextHop : { NextHop(), first, second, tunnels[ 0 ], tunnels[ 1 ] } ) {
      int failures = 0;
      for( auto const & [ kind, read ] : wrongs ) {
         auto const error =
               errorOf< Kiv::Exception >( [ use = read, &nextHop ] { use( nextHop ); } );
         failures += !error.empty();
         EXPECT_TRUE( error.empty() ||
                      has( error, Kiv::String( "assertion failed(wrapper_->encapType() == "
                                               "Tunnel::TunnelTable::" ) +
                                        kind ) )
               << error;
      }
      EXPECT_EQ( failures, nextHop.encapInfo ? 3 : 4 ) << toText( nextHop );
   }
}

TEST( HobaNextHop, allocationsSayWhatIsCounted ) {
   auto const max = ~0ull >> AllocationId::nhgIdIndexPos();
   ASSERT_GE( AllocationId::nhgIdIndexPos(), 32u );
   NextHop entry, shared, tunnel;
   entry.allocationId = AllocationId::allocationIdFromNhgId( AllocationId::maxNhgId, max - 1 );
   shared.allocationId = AllocationId::allocationIdFromNhgId( 3, AllocationId::sharedEntryIdx() );
   tunnel.allocationId = AllocationId::allocationIdFromTunnelId(
         { Tunnel::TunnelTable::greTunnel, 0xffffffffffff } );
   EXPECT_EQ( entry.allocationId.entryIdx(), max - 1 );
   EXPECT_EQ( entry.allocationId.nhgId(), AllocationId::maxNhgId );
   EXPECT_EQ( entry.unsharedCountedNhgEntryKey()->nhgEntryIndex, max - 1 );
   EXPECT_FALSE( entry.isUsingSharedNhgCounter() || tunnel.isUsingSharedNhgCounter() );
   EXPECT_TRUE( shared.isUsingSharedNhgCounter() );
   EXPECT_FALSE( shared.unsharedCountedNhgEntryKey() || tunnel.unsharedCountedNhgEntryKey() );
   EXPECT_EQ( toText( tunnel.countedTunnelId() ), "greTunnel/281474976710655" );
   EXPECT_FALSE( entry.countedTunnelId() || NextHop().countedTunnelId() );
   auto const refused = []( auto const & act ) { return errorOf< Kiv::Exception >( act ); };
   EXPECT_TRUE( has( refused( [ & ] { AllocationId::allocationIdFromNhgId( 1, max + 1 ); } ),
                     "assertion failed(entryIdx <= ( (18446744073709551615ULL) >> "
                     "AllocationId::nhgIdIndexPos() ))" ) );
   EXPECT_TRUE( has( refused( [] {
                        AllocationId::allocationIdFromTunnelId( Tunnel::TunnelId( 1ull << 56 ) );
                     } ),
                     "assertion failed(!( tunnelId & ( ~AllocationId::tunnelIdMask() ) ))" ) );
   EXPECT_NE( refused( [] {
                 AllocationId::allocationIdFromTunnelId(
                       { Tunnel::TunnelTable::nexthopGroupTunnel, 1 } );
              } ),
              "" );
   NextHop smushed;
   smushed.vxlanEncapIs( {} );
   EXPECT_FALSE( smushed.isSmushedVxlanNextHop() );
   smushed.macAddr = Pelt::EthAddr( 0x00005e005301 );
   smushed.l2Intf = Pelt::EthIntfId( 1 );
   EXPECT_TRUE( smushed.isSmushedVxlanNextHop() );
}

// What a collection must be, told by a map.
struct Model {
   std::map< NextHop, std::uint32_t > weight;
   std::map< NextHop, HobaTypes::ViaBitmap > bitmap;
   std::uint32_t ttl = 0;
};

TEST( HobaNextHopCollection, isWhatItHoldsHoweverItCameAbout ) {
   RandomNextHops draw( 2 );
   std::vector< NextHop > some;
   for( int i = 0; i < 40; ++i ) { // more than are found without an index
      some.push_back( draw.nextHop() );
   }
   std::vector< std::pair< NextHopCollection, Model > > kept;
   NextHopCollection collection( l2AdjMpls );
   Model model;
   for( int step = 0; step < 6000; ++step ) {
      auto const & nextHop = some[ draw.below( step % 2000 < 1000 ? 8 : 40 ) ];
      auto const weight = draw.below( 3 );
      switch( draw.below( step % 1000 < 500 ? 5 : 9 ) ) {
      case 0:
      case 1:
      case 2:
         collection.nextHopIs( nextHop, weight );
         model.weight[ nextHop ] = weight;
         break;
      case 3:
         collection.nextHopBitmapIs( nextHop, { weight, 70 } );
         model.bitmap[ nextHop ] = { 70, weight };
         break;
      case 4:
         collection.ttlIs( weight );
         model.ttl = weight;
         break;
      case 5:
      case 6:
         collection.nextHopDel( nextHop );
         model.weight.erase( nextHop );
         break;
      case 7:
         collection.nextHopBitmapDel( nextHop );
         model.bitmap.erase( nextHop );
         break;
      case 8:
         if( draw.below( 10 ) == 0 ) {
            collection.nextHopDelAll();
            model.weight.clear();
         }
      }
      // What is derived is as if it were found out now.
      std::uint64_t total = 0;
      bool ones = true;
      for( auto const & [ key, value ] : model.weight ) {
         total += value;
         ones = ones && value == 1;
      }
      ASSERT_EQ( collection.totalWeight(), total );
      ASSERT_EQ( collection.allNextHopWeightsAreOne(), ones );
      auto const type = std::min_element(
            model.weight.begin(), model.weight.end(),
            []( auto const & a, auto const & b ) { return a.first.type < b.first.type; } );
      ASSERT_EQ( collection.nextHopType(),
                 type == model.weight.end() ? nextHopDrop : type->first.type );
      if( step % 20 ) {
         continue;
      }
      // The same, filled in another order.
      NextHopCollection anew( l2AdjMpls );
      anew.ttlIs( model.ttl );
      for( auto at = model.bitmap.rbegin(); at != model.bitmap.rend(); ++at ) {
         anew.nextHopBitmapIs( at->first, at->second );
      }
      for( auto const & [ key, value ] : model.weight ) {
         anew.nextHopIs( key, value );
      }
      expectAgreement( collection, anew );
      ASSERT_EQ( collection, anew );
      InternedNextHops const interned = collection;
      ASSERT_TRUE( interned == InternedNextHops( anew ) );
      // All at once, in any order, some twice: of those the last one counts.
      std::vector< WeightedNextHop > given;
      for( auto const & [ key, value ] : model.weight ) {
         given.insert( given.begin() +
                             draw.below( static_cast< std::uint32_t >( given.size() + 1 ) ),
                       { key, value } );
      }
      auto settings = anew;
      settings.nextHopDelAll();
      ASSERT_TRUE( settings.with( given ) == interned );
      if( !given.empty() ) {
         given.push_back( given[ draw.below( static_cast< std::uint32_t >( given.size() ) ) ] );
         ASSERT_TRUE( settings.with( given ) == interned );
         ++given.back().weight;
         anew.nextHopIs( given.back().nextHop, given.back().weight );
         ASSERT_TRUE( settings.with( given ) == InternedNextHops( anew ) );
         given.pop_back();
         given.back() = given.front();
         ASSERT_EQ( settings.with( given ) == interned, given.size() == 1 );
      }
      kept.emplace_back( collection, model );
      auto const & [ other, otherModel ] =
            kept[ draw.below( static_cast< std::uint32_t >( kept.size() ) ) ];
      expectAgreement( collection, other );
      ASSERT_EQ( collection == other, model.weight == otherModel.weight &&
                                            model.bitmap == otherModel.bitmap &&
                                            model.ttl == otherModel.ttl );
   }
   kept.clear();
   collection = NextHopCollection();
   EXPECT_EQ( InternedNextHops::count() + InternedNextHop::count(), 0u ) << "nobody holds any";
}

TEST( HobaNextHopCollection, cachesAndGroupsAreDetached ) {
   NextHopCollection collection;
   EXPECT_TRUE( collection.allNextHopWeightsAreOne() && collection.allDrop() );
   EXPECT_FALSE( collection.allArpRequired() || collection.nhgcRaw() );
   NextHop arp{ .type = nextHopArpRequired };
   NextHop up{ .type = nextHopHierarchical };
   up.hierarchicalNextLevelL2Adj = make< L2Adjacency >( L2AdjKey{} );
   collection.nextHopIs( arp, 4 );
   EXPECT_TRUE( collection.allArpRequired() && !collection.hasResolvedNextHops() );
   EXPECT_EQ( collection.totalWeight(), 4u );
   collection.nextHopIs( arp, 4 );
   EXPECT_EQ( collection.totalWeightCache(), 4u ) << "nothing has changed";
   collection.nextHopIs( arp, 5 );
   EXPECT_EQ( collection.totalWeightCache(), NextHopCollection::unknownWeight );
   EXPECT_FALSE( collection.nextHopTypeCache().isValid ||
                 collection.potentialHierarchicalNextHop() );
   up.tunnelL2Info.tunnelIntf = Pelt::IntfId( "Vxlan1" );
   up.allocationId = AllocationId( 1 );
   collection.nextHopIs( up, 1 );
   EXPECT_TRUE( collection.potentialHierarchicalNextHop() &&
                collection.hasVxlanHFecTunnelL2Info() && collection.hasResolvedNextHops() &&
                collection.hasAllocationIds() );

   // Group information is shared, also with what is interned, until it changes.
   collection.nextHopGroupSizeIs( 8 );
   NextHopCollection copy = collection;
   InternedNextHops const kept = collection;
   EXPECT_EQ( copy.nhgcRaw(), kept->nhgcRaw() );
   copy.nextHopGroupSizeIs( 8 );
   EXPECT_EQ( copy.nhgcRaw(), kept->nhgcRaw() );
   copy.nhgcMutate().ttlIs( 9 );
   copy.nhgEntryKeyToPositionIs( { .nhgId = 1 }, { 2 } );
   EXPECT_EQ( kept->ttl() + collection.ttl(), 0u );
   EXPECT_NE( copy, *kept );
   copy.nhgEntryKeyToPositionDelAll();
   copy.ttlIs( 0 );
   expectAgreement( copy, *kept );
   copy.nextHopGroupSizeIs( 0 );
   NextHopCollection plain;
   plain.nextHopIs( arp, 5 );
   plain.nextHopIs( up, 1 );
   expectAgreement( plain, copy );

   std::uint32_t const table[] = { 0, 2, 3, 4, 1, 5, 6, 7 };
   for( std::uint32_t i = 0; i < 8; ++i ) {
      EXPECT_EQ( NextHopCollection::nextHopGroupTypeToTunnelType( i ), table[ i ] );
   }
   auto const refused = []( auto const & act ) { return errorOf< Kiv::Exception >( act ); };
   EXPECT_TRUE( has( refused( [] { NextHopCollection::nextHopGroupTypeToTunnelType( 8 ); } ),
                     "assertion failed(!\"Invalid NexthopGroupType\")" ) );
   EXPECT_TRUE( has( refused( [] { NextHopCollection( Kiv::String( "x" ) ); } ),
                     "(!\"No String constructor for NextHopCollection - has collection\")" ) );
   plain.nextHopBitmapIs( arp, { 3, 0 } );
   EXPECT_TRUE(
         has( refused( [ & ] { plain.verify(); } ),
              "(nextHopBitmapHas( nh )): nextHopBitmap missing entry Value('Hoba::NextHop'" ) );
   plain.nextHopBitmapIs( up, { 1, 65 } );
   plain.verify();
   EXPECT_EQ( plain.getLogicalPositionIndexes(), ( std::vector< std::uint32_t >{ 0, 1, 3, 65 } ) );
   plain.nextHopDel( up );
   EXPECT_TRUE( has( refused( [ & ] { plain.verify(); } ),
                     "(nextHopHas( nh )): nextHop missing entry " ) );
}

TEST( HobaL2Adjacency, countsPerTableTypeAreThoseOfTheLists ) {
   RandomNextHops draw( 3 );
   auto const adjacency = make< L2Adjacency >( L2AdjKey{} );
   for( int step = 0; step < 5000; ++step ) {
      GlobalFecId const fec( draw.below( 6 ) );
      auto const table = static_cast< TableType >( draw.below( 4 ) );
      switch( draw.below( 8 ) ) {
      case 0:
      case 1:
         adjacency->setTableTypeForAdj( fec, table );
         ASSERT_TRUE( adjacency->isTableTypeSetForAdj( fec, table ) );
         break;
      case 2:
         adjacency->unsetTableTypeForAdj( fec, table );
         ASSERT_FALSE( adjacency->isTableTypeSetForAdj( fec, table ) );
         break;
      case 3:
         adjacency->adjEntryIs( fec );
         break;
      case 4:
         if( adjacency->adjEntryHas( fec ) ) {
            adjacency->adjEntryDel( fec );
            ASSERT_FALSE( adjacency->adjEntryAndTableTypeHas( fec ) );
         }
         break;
      case 5:
         adjacency->adjEntryAndTableTypeIs( fec,
                                            { static_cast< std::uint8_t >( draw.below( 256 ) ) } );
         break;
      case 6:
         adjacency->adjEntryAndTableTypeDel( fec );
         break;
      case 7:
         if( draw.below( 20 ) == 0 ) {
            adjacency->adjEntryDelAll();
         }
      }
      TableTypeBoolSet all;
      std::map< TableType, std::uint32_t > counts;
      for( auto const & [ entry, tables ] : adjacency->adjEntryAndTableType() ) {
         all = all | tables;
         for( std::uint8_t i = 0; i < 4; ++i ) {
            if( tables.raw() >> i & 1 ) {
               ++counts[ static_cast< TableType >( i ) ];
            }
         }
      }
      ASSERT_EQ( adjacency->adjTableType().size(), counts.size() );
      for( auto const & [ type, count ] : counts ) {
         ASSERT_EQ( adjacency->adjTableType( type ), count );
      }
      ASSERT_EQ( adjacency->adjTableTypeBoolSet(), all );
      ASSERT_EQ( adjacency->isDirectlyOwnedByAdjEntry(), !adjacency->adjEntry().empty() );
   }
   EXPECT_TRUE( has(
         errorOf< Kiv::Exception >( [] { tableTypeToBoolSet( static_cast< TableType >( 4 ) ); } ),
         "assertion failed(false && \"Unreachable code\")" ) );
}

TEST( HobaL2Adjacency, backupsDoNotLeadBack ) {
   auto const above = []( Ptr< L2Adjacency > const & next, std::uint32_t weight ) {
      NextHop up{ .type = nextHopHierarchical };
      up.hierarchicalNextLevelL2Adj = next;
      NextHopCollection collection;
      collection.nextHopIs( up, weight );
      return make< L2Adjacency >( L2AdjKey{ collection } );
   };
   auto const live = [] { return L2Adjacency::kivType().live(); };
   auto const before = live();
   {
      auto const low = make< L2Adjacency >( L2AdjKey{} );
      auto const middle = above( low, 1 );
      auto const high = above( middle, 1 );
      auto const other = above( low, 2 );
      high->backupViaIs( above( other, 4 )->key().nextHops );
      EXPECT_TRUE( high->potentialHasBackup() );
      auto const refused = []( Ptr< L2Adjacency > const & owner, Ptr< L2Adjacency > const & to ) {
         return !errorOf< Kiv::Exception >( [ & ] {
                    owner->backupViaIs( to->key().nextHops );
                 } ).empty();
      };
      EXPECT_TRUE( refused( low, middle ) && refused( low, other ) && refused( middle, high ) );
      EXPECT_TRUE( refused( other, above( high, 3 ) ) ) << "over a backup";
      EXPECT_FALSE( low->backupVia() );
      EXPECT_FALSE( refused( middle, other ) );
   }
   EXPECT_EQ( live(), before ) << "none points to itself";
}

TEST( HobaL2Adjacency, buildResultsAreTakenOverAndListsCompare ) {
   L2AdjKeyCollection keys;
   keys.l2AdjKeyIs( L2AdjKey{} );
   auto const result = make< NextHopCollBuildResult >( NextHopCollection( l2AdjMpls ), keys );
   result->trimmedL2IntfIs( Pelt::EthIntfId( 1 ) );
   result->trimmedTunnelKeyIs( TunnelKey{} );
   result->nhInfoMissingAndDropIs( true );
   result->rebaseStateIs( forcefullyRebased );
   auto const other = make< NextHopCollBuildResult >();
   other->trimmedL3IntfIs( Pelt::EthIntfId( 2 ) );
   other->updateNhCollBuildResult( *result );
   EXPECT_EQ( other->flattenedL2Adjs(), keys );
   EXPECT_EQ( other->nextHops().type(), l2AdjMpls );
   EXPECT_TRUE( other->trimmedL2IntfHas( Pelt::EthIntfId( 1 ) ) && other->trimmedL3Intf().empty() &&
                other->trimmedTunnelKeyHas( TunnelKey{} ) && other->nhInfoMissingAndDrop() );
   other->updateNhCollBuildResult( *make< NextHopCollBuildResult >() );
   EXPECT_FALSE( other->internalFlattenedL2Adjs() || other->nhInfoMissingAndDrop() );

   auto const one = make< NextHopEntryList >( VrfAndIpAddr{} );
   auto const two = make< NextHopEntryList >( VrfAndIpGenAddr{ VrfId( 7 ) } );
   RandomNextHops draw( 4 );
   for( int i = 0; i < 9; ++i ) {
      auto const nextHop = draw.nextHop();
      one->nextHopEntryInfoIs( nextHop, { .intf = nextHop.l2Intf } );
      EXPECT_FALSE( one->isEqual( *two ) );
      two->nextHopEntryInfoIs( nextHop, { .intf = nextHop.l2Intf } );
      one->nextHopEntryIs( { .l2Intf = nextHop.l2Intf }, true );
      two->nextHopEntryIs( { .l2Intf = nextHop.l2Intf }, true );
      EXPECT_TRUE( one->isEqual( *two ) && one->hash() == two->hash() );
   }
}

} // namespace
