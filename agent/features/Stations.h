// SPDX-License-Identifier: Apache-2.0
#pragma once

// How tables of stations are shown.

#include "Kiv/ClockDriver.h"
#include "agent/features/Words.h"
#include "types/HobaTypes.h"

#include <optional>

namespace HobaAgent {

// The entries of a collection by host, in the order of addresses and VLANs, in which people search.
template< class Entries >
std::vector< HobaTypes::MacAddressTableEntry const * >
sortedStations( Entries const & entries ) {
   std::vector< HobaTypes::MacAddressTableEntry const * > all;
   for( auto const & [ host, entry ] : entries ) {
      all.push_back( &entry );
   }
   std::sort( all.begin(), all.end(),
              []( auto const * a, auto const * b ) { return a->macEntry < b->macEntry; } );
   return all;
}

// Which stations a command is about: its arguments `vlan`, `port` and `mac`.
struct StationFilter {
   // Throws Kiv::ParseError, for an interface that the switch does not have, too.
   StationFilter( Board const & board, Request const & request );
   bool takes( Bridging::MacVlanPair station, Pelt::IntfId behind ) const {
      return ( !vlan.value() || station.vlanId() == vlan ) &&
             ( !intf || behind == intf || ( lag && behind == lag ) ) &&
             ( !addr || station.addr() == *addr );
   }
   // Tells that stations behind an active member of a LAG are behind the LAG.
   void tellLag( TableAnswer & table ) const;

   Bridging::VlanIdOrNone const vlan;
   Pelt::IntfId const intf;
   std::optional< Pelt::EthAddr > const addr;
   Pelt::IntfId const lag; // that `intf` is an active member of
};
std::vector< Argument > stationArguments();

// A look through a table that may be long, which must not hold up the event loop: so many rows at most, and
// so much time.
class BoundedLook {
 public:
   static constexpr std::size_t mostRows = 1000;
   static constexpr Kiv::Seconds mostTime = 0.010;

   // One more is looked at. False: the time is over, and it is not.
   bool next() {
      stopped_ = stopped_ || ( looked_ % looksBetween == 0 && looked_ > 0 &&
                               Kiv::ClockDriver::ambient().now() >= end_ );
      looked_ += stopped_ ? 0 : 1;
      return !stopped_;
   }
   // One that is wanted. False: it is not shown.
   bool found() { return ++found_ <= mostRows; }
   // So many more that nobody needs to look at.
   void foundMore( std::size_t count ) { found_ += count; }
   std::size_t hidden() const { return found_ > mostRows ? found_ - mostRows : 0; }
   // How many were looked at, if the time was over before all were.
   std::optional< std::size_t > cutShort() const {
      return stopped_ ? std::optional( looked_ ) : std::nullopt;
   }
   // "3 stations"; "2,000 stations, of which 1000 are shown"; and how far it came, of so many.
   Kiv::String text( std::string_view what, std::size_t of ) const;

 private:
   // Looking at a clock costs as much as looking at a few rows.
   static constexpr std::size_t looksBetween = 64;

   Kiv::Seconds const end_ = Kiv::ClockDriver::ambient().now() + mostTime;
   std::size_t looked_ = 0;
   std::size_t found_ = 0;
   bool stopped_ = false;
};

// "5 s ago"; "never" for 0
Kiv::String agoText( Kiv::Seconds time );

// "learned dynamic" of learnedDynamicMac.
Kiv::String macTypeText( Bridging::EntryType type );
// Reads that, with a hyphen for each space, and the enumerator. Throws Kiv::ParseError that lists all.
Bridging::EntryType macTypeOf( Kiv::String const & text );

// The cell of the column "Type": people read "learned dynamic" where programs read
// learnedDynamicMac.
inline Kiv::Datum
typeCell( TableAnswer & table, Bridging::EntryType type ) {
   auto const name = Kiv::toText( type );
   table.words( "Type", name, macTypeText( type ) );
   return name;
}

} // namespace HobaAgent
