// SPDX-License-Identifier: Apache-2.0
#include "agent/feeders/FeederConfig.h"
#include "simulation/Observer.h"

#include <algorithm>
#include <set>

// Stations that never age: who asks for which, and what stands.

namespace Simulation {

using Bridging::MacVlanPair;
using HobaTypes::MacAddressTableEntry;
using Kiv::String;

namespace {

constexpr char clientsPath[] = "/feeders/config/nonAgingClient";

} // namespace

class NonAgingObserver : public Observer {
 public:
   NonAgingObserver( Switch & simulated, Observers & observers );

   void prepare( Draw & draw, Steps & steps ) override;
   unsigned weight() const override { return 8; }
   void propose( Draw & draw, Steps & steps ) override;
   Verdict judge( Step const & step ) const override;
   void follow() override;
   void check() override;

 private:
   // A wish that is heard. Of two, the one of the higher time was heard later.
   struct Claim {
      String client;
      std::uint64_t time;
      MacAddressTableEntry record;
   };
   using Claims = std::vector< Claim >; // in the order in which they were heard

   void lookForMachine();
   Verdict judgeEntry( Step const & step, String const & name, std::string_view rest ) const;
   // What the client asks for, by the configuration.
   bool asksFor( String const & client, MacVlanPair host ) const;
   void release();
   void claim( String const & client, MacAddressTableEntry const & entry );
   MacAddressTableEntry const & standing( MacVlanPair host, Claims const & claims ) const;
   void checkClients();

   Kiv::Ptr< Feeders::Config const > const config_;
   std::map< MacVlanPair, Claims > claims_;
   // Stays when the machines go.
   std::map< MacVlanPair, MacAddressTableEntry > status_;
   bool enabled_ = false;
   std::uint64_t time_ = 0;
   bool isHeard_ = false; // there is a machine, and it has begun
};

NonAgingObserver::NonAgingObserver( Switch & simulated, Observers & observers )
      : Observer( simulated, observers, "non-aging stations" ),
        config_( simulated.entity< Feeders::Config >( "/feeders/config" ) ) {
   simulated.watch( "/hoba/machines/nonAging/initialized", [ this ] { lookForMachine(); } );
}

// ---- The generator

namespace {

String
client( Draw & draw ) {
   return draw.oneOf( { "dot1x", "dhcp", "mlag" } );
}

// A change of one field of one wish, or a wish less.
Step
entryStep( Draw & draw ) {
   auto const entries = String( clientsPath ) + '/' + client( draw ) + "/macEntries/";
   // Few enough that several clients ask for one.
   auto const station = std::to_string( 1 + draw.below( 3 ) );
   auto const vlan = std::to_string( 1 + draw.below( 2 ) );
   auto const host = "00:00:5e:00:53:0" + station + '@' + vlan;
   auto const intf = draw.intf();
   auto const tunnel = std::to_string( draw.below( 2 ) );
   switch( draw.below( 6 ) ) {
   case 0:
   case 1:
      return "del " + entries + host;
   case 2:
      return "set " + entries + host + "/tunnelId " + tunnel;
   default:
      return "set " + entries + host + "/intf " + intf;
   }
}

Step
wrongStep( Draw & draw ) {
   auto const path = String( clientsPath ) + '/' + client( draw );
   return draw.oneOf(
         { "set " + path + "/enable maybe",
           "set " + path + "/macEntries/00:00:00:00:00:00@1/intf Ethernet1",
           "set " + path + "/macEntries/01:00:5e:00:00:01@1/intf Ethernet1",
           "set " + path + "/macEntries/ff:ff:ff:ff:ff:ff@2/tunnelId 1",
           "set " + path + "/macEntries/00:00:5e:00:53:01@0/intf Ethernet1",
           "set " + path + "/macEntries/00:00:5e:00:53:01@4095/intf Ethernet1",
           "set " + path + "/macEntries/00:00:5e:00:53:01/intf Ethernet1",
           "set " + path + "/macEntries/00:00:5e:00:53:01@1/tunnelId -1",
           "set " + path + "/macEntries/00:00:5e:00:53:01@1/macEntry 00:00:5e:00:53:02@1",
           "set " + path + "/macEntries/00:00:5e:00:53:01@1/age 1" } );
}

} // namespace

void
NonAgingObserver::prepare( Draw & draw, Steps & steps ) {
   for( auto count = draw.below( 10 ); count-- > 0; ) {
      propose( draw, steps );
   }
}

void
NonAgingObserver::propose( Draw & draw, Steps & steps ) {
   auto const kind = draw.below( 30 );
   if( kind == 0 ) {
      steps.push_back( wrongStep( draw ) );
   } else if( kind < 4 ) {
      steps.push_back( "del " + String( clientsPath ) + '/' + client( draw ) );
   } else if( kind < 12 ) {
      auto const path = String( clientsPath ) + '/' + client( draw );
      steps.push_back( "set " + path + "/enable " + ( draw.chance( 70 ) ? "true" : "false" ) );
   } else {
      steps.push_back( entryStep( draw ) );
   }
}

// ---- What is accepted

Observer::Verdict
NonAgingObserver::judge( Step const & step ) const {
   if( !step.isAt( clientsPath ) || step[ 1 ].size() <= sizeof clientsPath ) {
      return notMine;
   }
   auto const path = std::string_view( step[ 1 ] ).substr( sizeof clientsPath );
   auto const name = String( path.substr( 0, path.find( '/' ) ) );
   if( path.size() == name.size() ) {
      return step[ 0 ] == "del" && config_->nonAgingClientHas( name ) ? accepts : refuses;
   }
   auto const rest = path.substr( name.size() + 1 );
   if( rest == "enable" ) {
      return step[ 0 ] == "set" && ( step[ 2 ] == "true" || step[ 2 ] == "false" ) ? accepts
                                                                                   : refuses;
   }
   return rest.starts_with( "macEntries/" ) ? judgeEntry( step, name, rest.substr( 11 ) ) : refuses;
}

Observer::Verdict
NonAgingObserver::judgeEntry( Step const & step, String const & name,
                              std::string_view rest ) const {
   auto const slash = std::min( rest.find( '/' ), rest.size() );
   try {
      auto const host = MacVlanPair::parse( rest.substr( 0, slash ) );
      if( step[ 0 ] == "del" ) {
         auto const client = config_->nonAgingClient( name );
         return slash == rest.size() && client && client->macEntriesHas( host ) ? accepts : refuses;
      }
      auto const field = slash == rest.size() ? "" : rest.substr( slash + 1 );
      if( field == "intf" ) {
         Pelt::IntfId::parse( step[ 2 ] );
      } else if( field == "tunnelId" ) {
         Kiv::fromText< std::uint32_t >( step[ 2 ] );
      } else {
         return refuses;
      }
      return host.isStation() ? accepts : refuses;
   } catch( Kiv::Exception const & ) {
      return refuses;
   }
}

// ---- What becomes of it

bool
NonAgingObserver::asksFor( String const & client, MacVlanPair host ) const {
   auto const wishes = config_->nonAgingClient( client );
   return wishes && wishes->enable() && wishes->macEntriesHas( host );
}

void
NonAgingObserver::release() {
   for( auto & each : claims_ ) {
      std::erase_if( each.second, [ & ]( Claim const & claim ) {
         return !asksFor( claim.client, each.first );
      } );
   }
   std::erase_if( claims_, []( auto const & each ) { return each.second.empty(); } );
}

// One that says the same as before is not heard again.
void
NonAgingObserver::claim( String const & client, MacAddressTableEntry const & entry ) {
   auto & claims = claims_[ entry.macEntry ];
   auto const own = std::ranges::find( claims, client, &Claim::client );
   if( own != claims.end() ) {
      if( own->record == entry ) {
         return;
      }
      claims.erase( own );
   }
   claims.push_back( { client, time_, entry } );
}

// The one heard last; of those that were heard at once the one that stands already.
MacAddressTableEntry const &
NonAgingObserver::standing( MacVlanPair host, Claims const & claims ) const {
   auto const & last = claims.back();
   auto const before = status_.find( host );
   if( before != status_.end() ) {
      for( auto const & each : claims ) {
         if( each.time == last.time && each.record == before->second ) {
            return each.record;
         }
      }
   }
   return last.record;
}

// Machines come and go in the middle of a step, and so may wishes.
void
NonAgingObserver::lookForMachine() {
   bool const isThere = textAt( "/hoba/machines/nonAging/initialized" ) == "true";
   if( std::exchange( isHeard_, isThere ) != isThere && isThere ) {
      claims_.clear();
      follow();
   }
}

void
NonAgingObserver::follow() {
   if( !isHeard_ ) {
      return;
   }
   ++time_;
   release();
   enabled_ = false;
   for( auto const & [ name, wishes ] : config_->nonAgingClient() ) {
      enabled_ = enabled_ || wishes->enable();
      for( auto const & [ host, entry ] : wishes->macEntries() ) {
         if( wishes->enable() ) {
            claim( name, entry );
         }
      }
   }
   std::erase_if( status_, [ & ]( auto const & each ) { return !claims_.contains( each.first ); } );
   for( auto const & [ host, claims ] : claims_ ) {
      status_[ host ] = MacAddressTableEntry( standing( host, claims ) );
   }
}

// ---- What must be

void
NonAgingObserver::check() {
   Rows counts;
   for( auto const & [ host, claims ] : claims_ ) {
      counts.emplace( Kiv::toText( host ), std::to_string( claims.size() ) );
   }
   expectText( "/hoba/nonAging/status/enabled", enabled_ ? "true" : "false" );
   expectRows( "/hoba/nonAging/status/macEntries", rowsOf( status_ ) );
   expectRows( "/hoba/machines/nonAging/macEntriesRef", counts );
   checkClients();
}

void
NonAgingObserver::checkClients() {
   constexpr char machines[] = "/hoba/machines/nonAging/configSm";
   std::set< String > there;
   for( auto const & [ name, machine ] : rowsAt( machines ) ) {
      there.insert( name );
   }
   for( auto const & [ name, wishes ] : config_->nonAgingClient() ) {
      auto const path = String( machines ) + '/' + name;
      Rows held;
      for( auto const & [ host, claims ] : claims_ ) {
         if( std::ranges::find( claims, name, &Claim::client ) != claims.end() ) {
            held.emplace( Kiv::toText( host ), "" );
         }
      }
      expectText( path + "/initialized", "true" );
      expectText( path + "/enabled", wishes->enable() ? "true" : "false" );
      expectRows( path + "/held", held );
      there.erase( name );
   }
   for( auto const & name : there ) {
      found( String( machines ) + ": has " + name + ", which is no client" );
   }
}

SIMULATION_OBSERVER( NonAgingObserver );

} // namespace Simulation
