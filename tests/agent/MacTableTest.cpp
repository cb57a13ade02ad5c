// SPDX-License-Identifier: Apache-2.0
// MAC tables as switches print them, and what of them is no station.

#include "agent/import/MacTable.h"
#include "Helpers.h"
#include "agent/common/Json.h"

namespace {

using Import::MacTable;
using Lines = std::vector< std::string >;

Lines
rowsOf( MacTable const & table ) {
   Lines lines;
   for( auto const & row : table.rows() ) {
      lines.push_back( table.placeText( row.place ) + ": " + Kiv::toText( row.addr ) + '@' +
                       Kiv::toText( row.vlan ) + ( row.isStatic ? " static " : " " ) + row.port );
   }
   return lines;
}

Lines
refusedOf( MacTable const & table ) {
   Lines lines;
   for( auto const & refused : table.refused() ) {
      lines.push_back( Kiv::toText( refused.count ) + ' ' + refused.reason + ", " + refused.first );
   }
   return lines;
}

constexpr std::string_view printed = R"(
  vlan   mac address     type    learn     age              ports
------+----------------+--------+-----+----------+--------------------------
*  660  0200.00c7.9c36   dynamic  Yes          0   Te3/3
*  353  0300.0000.000d    static  Yes          -   Gi1/1,Gi1/2
                                                   Te2/4,Po30
                                                   Router
*  840  0300.0000.0026    static  Yes          -   
*  203  0200.00c7.e980    static  No           -   Router
 --More--
*  ---  0000.0000.0000    static  No           -   Router
*  560  0000.0000.0000   dynamic  Yes          5   Te3/3
*  729  0200.001f.5a8e   dynamic  Yes          0   Gi4/3  vlan   mac address     type    learn
*  10   0200.0000.0007    static  Yes          -   Gi1/1,Gi1/2
* 4095  0200.0000.0008   dynamic  Yes          0   Gi4/3
   11  02:00:00:00:00:09  DYNAMIC  Et1        1       0:01:02 ago
*  12  0200.0000   dynamic  Yes          0   Gi4/3
*  13  0200.0000.000a   sticky  Yes          0   Gi4/3
*  14  0200.0000.000b   dynamic  Yes          0   
                                                   Gi4/4
*  15  0200.0000.000c   dynamic  Yes          0   Switch
Total Mac Addresses for this criterion: 11
)";

TEST( MacTableTest, rowsOfAPrintedTable ) {
   ASSERT_TRUE( MacTable::isPrinted( printed ) );
   auto const table = MacTable::printed( printed );
   EXPECT_EQ(
         rowsOf( table ),
         ( Lines{ "line 4: 02:00:00:c7:9c:36@660 Te3/3", "line 9: 02:00:00:c7:e9:80@203 static ",
                  "line 13: 02:00:00:1f:5a:8e@729 Gi4/3", "line 16: 02:00:00:00:00:09@11 Et1",
                  "line 19: 02:00:00:00:00:0b@14 Gi4/4" } ) );
   EXPECT_EQ(
         refusedOf( table ),
         ( Lines{ "2 a group's address is no station's, line 5: 0300.0000.000d in VLAN 353",
                  "1 no VLAN, line 11: 0000.0000.0000",
                  "1 the address zero is no station's, line 12: 0000.0000.0000 in VLAN 560",
                  "1 behind several ports, line 14: 0200.0000.0007 in VLAN 10",
                  "1 not a VLAN from 1 to 4094, line 15: 0200.0000.0008 in VLAN 4095",
                  "1 no MAC address, line 17: 12",
                  "1 neither dynamic nor static, line 18: 0200.0000.000a in VLAN 13",
                  "1 learnt behind the switch itself, line 21: 0200.0000.000c in VLAN 15" } ) );
}

TEST( MacTableTest, rowsOfOperations ) {
   auto const file = HobaAgent::parseJson( R"([
      { "FDB_TABLE:Vlan9:02-00-00-00-00-01": { "port": "Ethernet0", "type": "dynamic" }, "OP": "SET" },
      { "OP": "SET", "FDB_TABLE:Vlan9:02:00:00:00:00:02": { "port": "Ethernet4", "type": "static" } },
      { "FDB_TABLE:Vlan9:02-00-00-00-00-03": {}, "OP": "DEL" },
      { "FDB_TABLE:Vlan9:02-00-00-00-00-04": { "type": "dynamic" }, "OP": "SET" },
      { "FDB_TABLE:Vlan9:nobody": { "port": "Ethernet0", "type": "dynamic" }, "OP": "SET" },
      { "FDB_TABLE": {}, "OP": "SET" }, 7, { "FDB_TABLE:Vlan9:02-00-00-00-00-05": [], "OP": "SET" }
   ])" );
   ASSERT_TRUE( MacTable::isOperations( file ) );
   auto const table = MacTable::operations( file );
   EXPECT_EQ( rowsOf( table ), ( Lines{ "operation 1: 02:00:00:00:00:01@9 Ethernet0",
                                        "operation 2: 02:00:00:00:00:02@9 static Ethernet4" } ) );
   EXPECT_EQ(
         refusedOf( table ),
         ( Lines{ "1 its OP is not SET, operation 3: FDB_TABLE:Vlan9:02-00-00-00-00-03",
                  "1 behind no port, operation 4: 02-00-00-00-00-04 in VLAN 9",
                  "1 no MAC address, operation 5: nobody in VLAN 9",
                  "2 not a row of FDB_TABLE:Vlan<n>:<address>, operation 6",
                  "1 neither dynamic nor static, operation 8: 02-00-00-00-00-05 in VLAN 9" } ) );
}

TEST( MacTableTest, whatIsNone ) {
   for( auto const * text : { "", "{}", "{ \"PORT\": {} }", "vlan 10\n name a\n", "\xff\xfe\n" } ) {
      EXPECT_FALSE( MacTable::isPrinted( text ) ) << text;
      HobaTests::expectIn(
            HobaTests::errorOf< Kiv::ParseError >( [ & ] { MacTable::printed( text ); } ),
            "not a MAC table" );
   }
   for( auto const * json :
        { "[]", "[ 1 ]", "{}", R"([ { "PORT:Ethernet0": {}, "OP": "SET" } ])" } ) {
      EXPECT_FALSE( MacTable::isOperations( HobaAgent::parseJson( json ) ) ) << json;
   }
}

} // namespace
