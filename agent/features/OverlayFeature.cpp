// SPDX-License-Identifier: Apache-2.0
#include "L2Rib/L2Rib.h"
#include "agent/features/Feature.h"
#include "agent/feeders/OverlayFeeder.h"
#include "agent/import/Tables.h"
#include "chips/sim/SimChip.h"
#include "types/RemoteMac.h"

// The overlay: which VLANs it carries, which stations are behind it, and what these resolve through.

namespace HobaAgent {

using Bridging::VlanId;
using Kiv::String;
using Kiv::toText;

class OverlayFeature : public Feature {
 public:
   explicit OverlayFeature( Board & board );

   void mounts() override;
   void importers( Import::Tables & tables ) override;
   void start() override;

 private:
   void attachTables();

   Kiv::Ptr< Vxlan::VxlanConfigDir > const vxlanConfigDir_ =
         Kiv::make< Vxlan::VxlanConfigDir >( "config" );
   Kiv::Ptr< Vxlan::VlanVniMap > const vlanVniMap_ = Kiv::make< Vxlan::VlanVniMap >( "vlanVniMap" );
   Kiv::Ptr< HobaTypes::RemoteMacInfoDir > const remoteMacInfo_ =
         Kiv::make< HobaTypes::RemoteMacInfoDir >( "remoteMacInfo" );
   Kiv::Ptr< HobaTypes::RemoteMacTable > const evpnMacTable_ =
         Kiv::make< HobaTypes::RemoteMacTable >( "evpnMac" );
   Kiv::Ptr< L2Rib::HostOutput > const hostOutput_ = Kiv::make< L2Rib::HostOutput >( "hostOutput" );
   Kiv::Ptr< L2Rib::DestOutput > const destOutput_ = Kiv::make< L2Rib::DestOutput >( "destOutput" );
   Kiv::Ptr< L2Rib::LoadBalanceOutput > const loadBalanceOutput_ =
         Kiv::make< L2Rib::LoadBalanceOutput >( "loadBalanceOutput" );
   Kiv::Ptr< Hoba::ObjTupleToHwId > const objTupleToHwId_ =
         Kiv::make< Hoba::ObjTupleToHwId >( "objTupleToHwId" );
   Kiv::Ptr< Hoba::SwTunnelGroupIdMap > const swTunnelGroupIdMap_ =
         Kiv::make< Hoba::SwTunnelGroupIdMap >( "swTunnelGroupIdMap" );
   Machine< Feeders::OverlayFeeder > feeder_{ *this, "overlayFeeder" };
};

OverlayFeature::OverlayFeature( Board & board ) : Feature( board, "overlay" ) {
   board.offer( vxlanConfigDir_ );
   board.offer( vlanVniMap_ );
   board.offer( remoteMacInfo_ );
   board.offer( evpnMacTable_ );
   board.offer( hostOutput_ );
   board.offer( destOutput_ );
   board.offer( loadBalanceOutput_ );
   board.offer( objTupleToHwId_ );
   board.offer( swTunnelGroupIdMap_ );
}

void
OverlayFeature::mounts() {
   using enum Tessera::Access;
   mount( "/vxlan/config", vxlanConfigDir_, configuration );
   mount( "/vxlan/vlanVniMap", vlanVniMap_, status );
   auto & info = *remoteMacInfo_;
   mount( "/vxlan/remoteMacInfo/receivedRemoteHost", info.receivedRemoteHost(), configuration );
   mount( "/vxlan/remoteMacInfo/tunnelLearnEvent", info.tunnelLearnEvent(), configuration );
   mount( "/vxlan/remoteMacInfo/bootStatus", info.bootStatus(), configuration );
   mount( "/vxlan/remoteMacInfo/tunnelInfoDir", info.tunnelInfoDir(), configuration );
   mount( "/vxlan/remoteMacInfo/flushRequest", info.flushRequest(), writable );
   mount( "/vxlan/remoteMacInfo/remoteHost", info.remoteHost(), status );
   mount( "/vxlan/remoteMacInfo/remoteHostStatus", info.remoteHostStatus(), status );
   mount( "/vxlan/remoteMacInfo/nextHopIdRefcount", info.nextHopIdRefcountTable(), status );
   mount( "/vxlan/remoteMacInfo/vlanRefcount", info.vlanRefcountTable(), status );
   mount( "/l2rib/hostOutput", hostOutput_, configuration );
   mount( "/l2rib/destOutput", destOutput_, configuration );
   mount( "/l2rib/loadBalanceOutput", loadBalanceOutput_, configuration );
   mount( "/hoba/objTupleToHwId", objTupleToHwId_, status );
   mount( "/hoba/swTunnelGroupIdMap", swTunnelGroupIdMap_, configuration );
   mount( "/hoba/evpnMac", evpnMacTable_, status );
}

void
OverlayFeature::start() {
   attachTables();
   feeder_.is( Feeders::OverlayFeeder::OverlayFeederIs(
         context(),
         Feeders::OverlayFeeder::Inputs{ .config = board().feederConfig,
                                         .vxlanConfigDir = vxlanConfigDir_,
                                         .destOutput = destOutput_,
                                         .loadBalanceOutput = loadBalanceOutput_ },
         Feeders::OverlayFeeder::Outputs{ .vlanVniMap = vlanVniMap_,
                                          .evpnMacTable = evpnMacTable_,
                                          .objTupleToHwId = objTupleToHwId_ } ) );
   feeder_->initializedIs( true );
}

// With a chip memory the overlay's stations, and those that are programmed, are in shared memory, too, under
// its name: two agents do not write one table. How many there may be is known when the chip has been
// described. What a killed agent had programmed the machine says anew.
void
OverlayFeature::attachTables() {
   auto const & memory = board().chip->memoryName();
   for( auto const & table : { evpnMacTable_, remoteMacInfo_->remoteHost() } ) {
      auto & control = table->remoteMacControl();
      if( control.mounted() ) {
         continue;
      }
      control.attachWriter( memory.empty() ? table->name() : memory + '.' + table->name(),
                            { .rows = board().chip->mac()->maxRemoteMacs(),
                              .privateMemory = memory.empty(),
                              .replace = true } );
      table->remoteMacDelAll();
   }
}

// ---- Imported configurations

namespace {

using ConfigPtr = Kiv::Ptr< Vxlan::VxlanConfigDir >;

constexpr std::string_view mapForm = "<tunnel>|map_<vni>_Vlan<n>";

// In files a tunnel end point has any name, "vtep1"; here it is the interface of that number, the first
// if the name has none.
Pelt::VxlanIntfId
tunnelNamed( std::string_view name ) {
   auto const digits = name.find_last_not_of( "0123456789" ) + 1;
   if( name.empty() ) {
      Kiv::parseFailed( name, "the name of a tunnel end point" );
   }
   return Pelt::VxlanIntfId(
         digits == name.size() ? 1 : Kiv::fromText< std::uint32_t >( name.substr( digits ) ) );
}

VlanId
vlanNamed( std::string_view name ) {
   return VlanId( Pelt::VlanIntfId::vlanId( Pelt::VlanIntfId::parse( name ) ) );
}

String
mapText( Pelt::VxlanIntfId intf, VlanId vlan, Vxlan::Vni vni ) {
   return toText( intf ) + "|map_" + toText( vni ) + "_Vlan" + toText( vlan );
}

// What the key of a map says, for whoever knows nothing else of it.
struct MapKey {
   Pelt::VxlanIntfId intf;
   VlanId vlan;

   explicit MapKey( Import::Key const & key )
         : intf( tunnelNamed( key.parts( mapForm )[ 0 ] ) ), vlan( vlanOf( key ) ) {}
   bool isIn( Vxlan::VxlanConfigDir const & dir ) const {
      auto const config = dir.vxlanConfig( intf );
      return config && config->vlanVniHas( vlan );
   }

 private:
   static VlanId vlanOf( Import::Key const & key ) {
      auto const name = key.parts( mapForm )[ 1 ];
      auto const last = name.rfind( '_' );
      if( last == name.npos ) {
         Kiv::parseFailed( key.text(), "a key of the form " + String( mapForm ) );
      }
      return vlanNamed( name.substr( last + 1 ) );
   }
};

// The first map for which `isOne( vlan, vni )` is true; "" if there is none.
template< class IsOne >
String
mapWhich( Vxlan::VxlanConfigDir const & dir, IsOne const & isOne ) {
   for( auto const & [ intf, config ] : dir.vxlanConfig() ) {
      for( auto const & [ vlan, vni ] : config->vlanVni() ) {
         if( isOne( vlan, vni ) ) {
            return mapText( intf, vlan, vni );
         }
      }
   }
   return {};
}

void
mapTunnel( Import::Row & row, ConfigPtr const & dir ) {
   auto const intf = tunnelNamed( row.key().text() );
   row.identityIs( toText( intf ) );
   row.operationIs( toText( intf ), [ dir, intf ] { dir->vxlanConfigIs( intf ); } );
}

void
mapTunnelMap( Import::Row & row, ConfigPtr const & dir ) {
   auto const tunnel =
         row.existing< String >( row.key().parts( mapForm )[ 0 ], { "VXLAN_TUNNEL" } );
   auto const intf = tunnelNamed( tunnel );
   auto const vlanName = row.needed( "vlan", row.text( "vlan" ) );
   auto const vlan = Kiv::inPlace( "vlan", [ & ] {
      row.existing< Pelt::VlanIntfId >( vlanName, { "VLAN" } );
      return vlanNamed( vlanName );
   } );
   auto const vni = row.needed( "vni", row.value< Vxlan::Vni >( "vni" ) );
   row.identityIs( toText( intf ) + "|Vlan" + toText( vlan ) );
   if( auto const other = mapWhich(
             *dir, [ & ]( VlanId each, Vxlan::Vni its ) { return its == vni && each != vlan; } );
       !other.empty() ) {
      throw Kiv::ParseError( "vni: " + toText( vni ) + " is taken by " + other );
   }
   row.operationIs(
         "VLAN " + toText( vlan ) + " is VNI " + toText( vni ) + " on " + toText( intf ),
         [ dir, intf, vlan, vni ] { dir->vxlanConfig( intf )->vlanVniIs( vlan, vni ); } );
}

void
delTunnel( Import::Row & row, ConfigPtr const & dir ) {
   auto const intf = tunnelNamed( row.key().text() );
   row.operationIs( toText( intf ), [ dir, intf ] { dir->vxlanConfigDel( intf ); } );
}

void
delTunnelMap( Import::Row & row, ConfigPtr const & dir ) {
   MapKey const key( row.key() );
   row.operationIs( "VLAN " + toText( key.vlan ) + " on " + toText( key.intf ),
                    [ dir, key ] { dir->vxlanConfig( key.intf )->vlanVniDel( key.vlan ); } );
}

} // namespace

void
OverlayFeature::importers( Import::Tables & tables ) {
   auto const dir = vxlanConfigDir_;
   tables.add( { .name = "VXLAN_TUNNEL",
                 .has =
                       [ dir ]( Import::Key const & key ) {
                          return dir->vxlanConfigHas( tunnelNamed( key.text() ) );
                       },
                 .map = [ dir ]( Import::Row & row ) { mapTunnel( row, dir ); },
                 .del = [ dir ]( Import::Row & row ) { delTunnel( row, dir ); } } );
   auto const ofTunnel = [ dir ]( Import::Key const & key ) -> String {
      auto const intf = tunnelNamed( key.text() );
      auto const & maps = dir->vxlanConfig( intf )->vlanVni();
      return maps.empty() ? "" : mapText( intf, ( *maps.begin() ).key, ( *maps.begin() ).value );
   };
   auto const ofVlan = [ dir ]( Import::Key const & key ) {
      auto const vlan = vlanNamed( key.text() );
      return mapWhich( *dir, [ & ]( VlanId each, Vxlan::Vni ) { return each == vlan; } );
   };
   tables.add( { .name = "VXLAN_TUNNEL_MAP",
                 .refersTo = { { "VXLAN_TUNNEL", ofTunnel }, { "VLAN", ofVlan } },
                 .has = [ dir ]( Import::Key const & key ) { return MapKey( key ).isIn( *dir ); },
                 .map = [ dir ]( Import::Row & row ) { mapTunnelMap( row, dir ); },
                 .del = [ dir ]( Import::Row & row ) { delTunnelMap( row, dir ); } } );
}

HOBA_FEATURE( OverlayFeature );

} // namespace HobaAgent
