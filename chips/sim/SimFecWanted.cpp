// SPDX-License-Identifier: Apache-2.0
#include "chips/sim/SimFecWanted.h"

#include "Hoba/HobaCommon.h"
#include "Hoba/HobaHelper.h"

#include <algorithm>
#include <map>

namespace HobaSim {

namespace {

WantedSlots
inOrder( Hoba::NextHopCollection const & collection, IsUp const & isTaken ) {
   collection.verify();
   std::map< std::uint32_t, WantedSlot > taken;
   std::uint32_t end = 0;
   for( auto const & [ nextHop, bitmap ] : collection.nextHopBitmap() ) {
      bool const isUp = collection.nextHop( nextHop ) && isTaken( nextHop->l2Intf );
      for( auto const position : bitmap.positions() ) {
         end = std::max( end, position + 1 );
         if( isUp ) {
            taken.try_emplace( position,
                               WantedSlot{ nextHop, collection.nextHop( nextHop ) } );
         }
      }
   }
   WantedSlots wanted{ true, {} };
   if( taken.empty() ) {
      return wanted;
   }
   auto substitute = taken.begin();
   for( std::uint32_t position = 0; position != end; ++position ) {
      if( auto const found = taken.find( position ); found != taken.end() ) {
         wanted.slot.push_back( found->second );
         continue;
      }
      wanted.slot.push_back( substitute->second );
      if( ++substitute == taken.end() ) {
         substitute = taken.begin();
      }
   }
   return wanted;
}

WantedSlots
slotsOf( Hoba::NextHopCollection const & collection, IsUp const & isUp ) {
   if( !collection.nextHopBitmap().empty() ) {
      return inOrder( collection, isUp );
   }
   WantedSlots wanted;
   for( auto const & [ nextHop, weight ] : collection.nextHop() ) {
      if( weight && isUp( nextHop->l2Intf ) ) {
         wanted.slot.push_back( { nextHop, weight } );
      }
   }
   return wanted;
}

} // namespace

WantedSlots
wantedSlots( Hoba::L2Adjacency const & adjacency, IsUp const & isUp ) {
   auto wanted = slotsOf( adjacency.nextHops(), isUp );
   if( auto const backup = adjacency.backupVia(); backup && wanted.slot.empty() ) {
      return slotsOf( *backup->nextHops(), isUp );
   }
   return wanted;
}

bool
intfIsUp( Pelt::IntfId intf, Hoba::HobaCommonSmData const & context,
          Interface::AllEthPhyIntfStatusDir const & ports ) {
   if( intf.isOnly( Pelt::IntfId::Kind::ethernet ) ) {
      auto const status = ports.ethPhyIntfStatus( intf );
      return context.intfHas( intf ) && status && status->linkStatus() == Interface::linkUp;
   }
   return !Hoba::isPortChannel( intf ) || !context.lagToPort( intf ).port.empty();
}

} // namespace HobaSim
