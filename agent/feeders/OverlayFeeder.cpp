// SPDX-License-Identifier: Apache-2.0
#include "agent/feeders/OverlayFeeder.h"

#include "Kiv/Reflect.h"

#include <algorithm>

KIV_DEFINE( Feeders::OverlayFeeder );

namespace Feeders {

OverlayFeeder::OverlayFeeder( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
                              Inputs const & inputs, Outputs const & outputs )
      : HobaBaseSm( commonSmData ), outputs_( outputs ) {
   vxlanConfigDirIs( inputs.vxlanConfigDir );
   configIs( inputs.config );
   destOutputIs( inputs.destOutput );
   loadBalanceOutputIs( inputs.loadBalanceOutput );
   clockIs( Kiv::make< Kiv::Clock >() );
}

// What it writes may be older than this machine, and what it goes by have gone meanwhile.
void
OverlayFeeder::handleInitialized() {
   if( !initialized() ) {
      clock()->timeMinIs( Kiv::never );
      dueDelAll();
      return;
   }
   for( auto const & [ vlan, vni ] : outputs_.vlanVniMap->vni() ) {
      handleVlan( vlan );
   }
   for( auto const & [ intf, reactor ] : vxlanConfig() ) {
      handleVxlanIntf( intf );
   }
   outputs_.evpnMacTable->remoteMacForEach(
         [ this ]( auto const & host, auto const & ) { handleEvpnMac( host ); } );
   for( auto const & [ host, entry ] : config()->notifier()->evpnMac() ) {
      handleEvpnMac( host );
   }
   for( auto const & [ next, id ] : outputs_.objTupleToHwId->hwId() ) {
      handleNextHop( next );
   }
   for( auto const & [ next, dest ] : destOutput()->notifier()->dest() ) {
      handleNextHop( next );
   }
   for( auto const & [ next, lb ] : loadBalanceOutput()->notifier()->loadBalance() ) {
      handleNextHop( next );
   }
}

void
OverlayFeeder::handleVxlanIntf( Pelt::IntfId const & intf ) {
   if( auto const * reactor = vxlanConfig( intf ) ) {
      for( auto const & [ vlan, vni ] : reactor->notifier()->vlanVni() ) {
         handleVlan( vlan );
      }
   }
   // What the former one carried.
   for( auto const & [ vlan, vni ] : outputs_.vlanVniMap->vni() ) {
      handleVlan( vlan );
   }
}

void
OverlayFeeder::handleVlan( Bridging::VlanId const & vlan ) {
   Pelt::IntfId lowest;
   for( auto const & [ intf, reactor ] : vxlanConfig() ) {
      if( reactor->notifier()->vlanVniHas( vlan ) && ( !lowest || intf < lowest ) ) {
         lowest = intf;
      }
   }
   if( lowest ) {
      outputs_.vlanVniMap->vniIs( vlan, vxlanConfig( lowest )->notifier()->vlanVni( vlan ) );
   } else {
      outputs_.vlanVniMap->vniDel( vlan );
   }
}

void
OverlayFeeder::handleEvpnMac( Bridging::MacVlanPair const & host ) {
   auto const & asked = *config()->notifier();
   if( asked.evpnMacHas( host ) ) {
      outputs_.evpnMacTable->remoteMacIs( asked.evpnMac( host ) );
   } else {
      outputs_.evpnMacTable->remoteMacDel( host );
   }
}

// ---- Next hops in the hardware

void
OverlayFeeder::handleNextHop( L2Rib::ObjTuple const & next ) {
   auto const delay = config()->notifier()->hwIdDelay();
   auto & ids = *outputs_.objTupleToHwId;
   auto const id = hwIdOf( next );
   if( id == 0 ) {
      dueDel( next );
      ids.hwIdDel( next );
   } else if( ids.hwIdHas( next ) || !( delay > 0 ) ) {
      dueDel( next );
      ids.hwIdIs( next, id );
   } else if( !dueHas( next ) ) {
      dueIs( next, clock()->now() + delay );
      clock()->noLaterThan( due( next ) );
   }
}

std::uint64_t
OverlayFeeder::hwIdOf( L2Rib::ObjTuple next ) const {
   auto const & asked = *config()->notifier();
   if( !destOutput()->notifier()->destHas( next ) &&
       !loadBalanceOutput()->notifier()->loadBalanceHas( next ) ) {
      return 0;
   }
   return asked.hwIdHas( next ) ? asked.hwId( next ) : std::uint64_t( next.kind ) << 32 | next.id;
}

void
OverlayFeeder::handleTime() {
   auto const now = clock()->now();
   auto nextTime = Kiv::never;
   for( auto const & [ next, time ] : due() ) {
      if( time > now ) {
         nextTime = std::min( nextTime, time );
         continue;
      }
      outputs_.objTupleToHwId->hwIdIs( next, hwIdOf( next ) );
      dueDel( next );
   }
   clock()->noLaterThan( nextTime );
}

} // namespace Feeders
