// SPDX-License-Identifier: Apache-2.0
// VLANs as an operator configures them, sees them and sends frames through them.
#include "operator/Operator.h"

namespace HobaOperator {
namespace {

using HobaTests::expectIn;

class VlanTest : public OperatorTest {};

TEST_F( VlanTest, configuredShownAndUsed ) {
   start( { "--config", folder.file( "config.json", R"({ "/feeders/config": {
      "port": { "Ethernet1": {}, "Ethernet2": {}, "Ethernet3": {}, "Ethernet4": {} },
      "vlan": { "10": { "member": [ "Ethernet3", "Ethernet77" ] } },
      "switchIntf": { "Ethernet1": { "nativeVlan": 10 },
                      "Ethernet3": { "switchportMode": "switchportModeTrunk" },
                      "Ethernet4": { "switchportMode": "switchportModeRouted" } } } })" ) } );
   EXPECT_EQ( row( "show vlan", "1 active" ), "0 Ethernet2 -" );
   EXPECT_EQ( row( "show vlan", "10 active" ), "0 Ethernet1 Ethernet3" );
   expectIn( ok( "show vlan port=Ethernet3" ),
             { "1 VLAN\n", "is a trunk, native VLAN 1, which it does not carry\n" } );
   expectIn( ok( "show vlan port=Ethernet4" ), { "0 VLANs\n", "Ethernet4 is routed\n" } );
   expectIn( ok( "verify" ), allAsTheyShouldBe );

   // One frame out, one back, and one that nobody wants.
   expectIn( HobaTests::squeezed(
                   ok( "sim frame Ethernet1 ff:ff:ff:ff:ff:ff 02:00:00:00:00:01 --type 0x86dd" ) ),
             { "type 0x86dd", "vlan VLAN 10, native of Ethernet1",
               "learning learnt 02:00:00:00:00:01 behind Ethernet1", "out Ethernet3, tagged 10",
               "left by 1 port" } );
   expectIn( ok( "sim frame Ethernet3 02:00:00:00:00:01 02:00:00:00:00:02 10 77 --json" ),
             { R"("port": "Ethernet1")", R"("vlan": 77)" } );
   expectIn( ok( "sim frame Ethernet3 02:00:00:00:00:01 02:00:00:00:00:02" ),
             { "has no native VLAN", "\ndropped\n" } );
   EXPECT_EQ( row( "show vlan 10", "10 active" ), "2 Ethernet1 Ethernet3" );
   EXPECT_EQ( ok( "get /sim/chip/path/drop/vlan" ), "1\n" );
   for( auto const & [ words, error ] :
        std::initializer_list< std::pair< char const *, char const * > >{
              { "Ethernet77 ff:ff:ff:ff:ff:ff 02:00:00:00:00:01", "Ethernet77 is not a port" },
              { "Ethernet1 nobody 02:00:00:00:00:01", "destination: " },
              { "Ethernet1 ff:ff:ff:ff:ff:ff 02:00:00:00:00:01 4096",
                "vlan: \"4096\" is not a number" },
              { "Ethernet1 ff:ff:ff:ff:ff:ff 02:00:00:00:00:01 --inner 7", "inner: a second tag" },
              { "Ethernet1 ff:ff:ff:ff:ff:ff 02:00:00:00:00:01 --priority 7",
                "priority: it stands" },
              { "Ethernet1 ff:ff:ff:ff:ff:ff 02:00:00:00:00:01 --type 0x",
                "type: \"0x\" is not" } } ) {
      expectOneLine( ctl( "sim frame " + std::string( words ) ), 1, error );
   }
   expectOneLine( ctl( "show vlan port=Ethernet77" ), 1, "Ethernet77 is not a port or LAG" );

   // A LAG takes the place of its ports, and a chip without room says so, until there is some.
   ok( "sim lag Ethernet1 Port-Channel1" );
   EXPECT_EQ( row( "show vlan", "1 active" ), "0 Ethernet2, Port-Channel1 -" );
   expectIn( ok( "show vlan port=Ethernet1" ),
             "is a member of Port-Channel1, which stands for it" );
   expectIn( ok( "sim restart hitless" ), "running" );
   ok( "set /sim/chip/vlan/vlanTable/capacity 2" );
   expectOneLine( ctl( "set /feeders/config/vlan/20 {}" ), 3, "setVlan on 20 failed: " );
   expectIn( ok( "show vlan" ), { "the chip refuses VLAN 20: table vlan.vlan, row 20: full" } );
   ok( "set /sim/chip/vlan/vlanTable/capacity 3" );
   EXPECT_TRUE( eventually( [ & ] { return row( "show vlan 20", "20 active" ) != ""; } ) );
}

} // namespace
} // namespace HobaOperator
