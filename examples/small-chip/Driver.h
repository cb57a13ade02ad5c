// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the maker of a chip delivers with it: its registers, and what it calls when something
// happens. The library does not know it. This one is all in memory, and prints what is written to it.

#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>

namespace SmallChip {

class Driver {
 public:
   static constexpr std::uint64_t noLimit = ~std::uint64_t( 0 );

   // What the meters are set to outlives the agent. From now on it is noted which of them are set again;
   // the others are unlimited by sweep().
   void beginPass() {
      for( auto const & [ name, kbps ] : meters_ ) {
         unclaimed_.insert( name );
      }
   }
   void sweep() {
      for( auto const & name : std::exchange( unclaimed_, {} ) ) {
         meterIs( name, noLimit );
      }
   }
   // A meter drops what comes in faster than `kbps`. Written where the chip holds something else.
   void meterIs( std::string const & name, std::uint64_t kbps ) {
      unclaimed_.erase( name );
      if( meter( name ) != kbps ) {
         meters_[ name ] = kbps;
         std::printf( "   chip: %s %s\n", name.c_str(),
                      kbps == noLimit ? "unlimited"
                                      : ( std::to_string( kbps ) + " kbps" ).c_str() );
      }
   }
   std::uint64_t meter( std::string const & name ) const {
      auto const found = meters_.find( name );
      return found == meters_.end() ? noLimit : found->second;
   }

   // Called when a link changes, and when a frame comes from a station that is not known behind the
   // port. Empty: nobody wants to know.
   std::function< void( unsigned port, bool up ) > onLink;
   std::function< void( unsigned port, unsigned vlan, std::uint64_t station ) > onStation;

   // Calls them for all that the chip holds.
   void reportAll() const {
      for( auto const & [ port, up ] : links_ ) {
         onLink( port, up );
      }
      for( auto const & [ station, port ] : stations_ ) {
         onStation( port, station.first, station.second );
      }
   }

   // The world outside: a cable is plugged in or pulled out, a frame comes in.
   void cableIs( unsigned port, bool plugged ) {
      links_[ port ] = plugged;
      if( onLink ) {
         onLink( port, plugged );
      }
   }
   void frame( unsigned port, unsigned vlan, std::uint64_t station ) {
      auto & behind = stations_[ { vlan, station } ];
      if( behind != port && onStation ) {
         onStation( port, vlan, station );
      }
      behind = port;
   }

 private:
   std::map< std::string, std::uint64_t > meters_;
   std::set< std::string > unclaimed_;
   std::map< unsigned, bool > links_;
   // The port, of each VLAN and address; ports count from 1.
   std::map< std::pair< unsigned, std::uint64_t >, unsigned > stations_;
};

} // namespace SmallChip
