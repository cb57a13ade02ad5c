// SPDX-License-Identifier: Apache-2.0
#pragma once

// MAC tables of other switches, as text that these print,
//
//      vlan   mac address     type    learn     age              ports
//    ------+----------------+--------+-----+----------+--------------------------
//    *  660  0200.00c7.9c36   dynamic  Yes          0   Te3/3
//    *  353  3333.0000.000d    static  Yes          -   Gi1/1,Gi1/2
//                                                       Te2/4,Router
//
// or in the open fdb.json shape, a list of operations:
//
//    [ { "FDB_TABLE:Vlan9:02-00-00-C7-9C-36": { "port": "Ethernet0", "type": "dynamic" }, "OP": "SET" } ]
//
// Of text, a line with a MAC address in it is a row: before the address stands its VLAN, behind it the type,
// and the first name behind that is the port; other columns do not count. A line of names alone goes on with
// the ports of the row before it. Headings, rules and page breaks are passed over, also behind a row.

#include "Bridging/VlanId.h"
#include "Kiv/Datum.h"
#include "Pelt/EthAddr.h"

#include <string_view>
#include <vector>

namespace Import {

struct MacRow {
   std::size_t place = 0; // its line, or its place in the list; from 1
   Pelt::EthAddr addr;
   Bridging::VlanId vlan{ 1 };
   bool isStatic = false;
   // As the file has it; empty for the switch itself, which files call Router, Switch or CPU.
   Kiv::String port;
};

// Rows that are not taken, alike ones together.
struct RefusedMacRows {
   Kiv::String reason;
   std::size_t count = 0;
   Kiv::String first; // where the first is, and what it says
};

class MacTable {
 public:
   // Whether the content of a file looks like one, as text or as operations.
   static bool isPrinted( std::string_view text );
   static bool isOperations( Kiv::Datum const & file );

   // Read one. Throw Kiv::ParseError if there is no row in it.
   static MacTable printed( std::string_view text );
   static MacTable operations( Kiv::Datum const & file );

   std::vector< MacRow > const & rows() const { return rows_; }
   std::vector< RefusedMacRows > const & refused() const { return refused_; }
   // One more that is not taken.
   void refuse( Kiv::String const & reason, Kiv::String const & what );
   // "line 7" or "operation 7"
   Kiv::String placeText( std::size_t place ) const;

 private:
   struct Raw;
   explicit MacTable( char const * placeName ) : placeName_( placeName ) {}
   void readOperation( Kiv::Datum const & operation, std::size_t place );
   void take( Raw const & raw );
   void requireRows() const;

   char const * const placeName_;
   std::vector< MacRow > rows_;
   std::vector< RefusedMacRows > refused_;
};

} // namespace Import
