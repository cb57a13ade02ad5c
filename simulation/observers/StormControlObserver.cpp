// SPDX-License-Identifier: Apache-2.0

// Storm control: levels of ports and LAGs, traffic classes, bursts, and what was dropped.

#include "Kiv/Dispatch.h"
#include "Tessera/Read.h"
#include "simulation/TableFaults.h"
#include "simulation/observers/LagObserver.h"
#include "simulation/observers/StormControlModel.h"

#include <algorithm>

namespace Simulation {

using namespace Bridging::StormControl;
using Kiv::Datum;
using Kiv::String;
using Kiv::toText;
using Pelt::IntfId;
using Model = StormControlModel;

class StormControlObserver : public Observer {
 public:
   StormControlObserver( Switch & simulated, Observers & observers );

   unsigned weight() const override { return 20; }
   void prepare( Draw & draw, Steps & steps ) override;
   void propose( Draw & draw, Steps & steps ) override;
   Steps heal() override;
   bool hasFaults() const override { return faults_.any(); }
   bool mayFail( std::string_view step ) const override {
      return step.substr( 0, step.find( ' ' ) ).find( "StormControl" ) != step.npos;
   }
   Kiv::Seconds settlingTime() const override { return 0.5; } // longer than writes take to land
   Verdict judge( Step const & step ) const override;
   void heard( Step const & step, Datum const & answer ) override;
   void follow() override;
   void timeIs( Kiv::Seconds now ) override;
   void chipForgot() override;
   void began( HobaAgent::RestartKind kind ) override;
   void verifyItems( Items & items ) const override;
   std::uint64_t restartWrites() const override { return model_.writes(); }
   std::uint64_t restartSwept() const override { return model_.swept(); }
   void check() override;

 private:
   // Quiet must come in between.
   static constexpr Kiv::Seconds shortestQuietPeriod = 4;

   void proposeLevel( Draw & draw, Steps & steps ) const;
   void proposeSpoiling( Draw & draw, Steps & steps ) const;
   void proposeChangeOfMind( Draw & draw, Steps & steps ) const;
   void proposeFault( Draw & draw, Steps & steps ) const;
   Verdict judgeConfig( Step const & step ) const;
   Verdict judgeSpoiling( Step const & step ) const;
   void spoil( Step const & step );
   void drop( Step const & step, Datum const & answer );

   Model::Inputs inputs() const;
   Model::Chip chip() const;
   // What the chip holds: by the model, or, when some of it was refused, as it is.
   Model seen() const;
   void armReading();
   void read();
   void checkStatus();

   Kiv::Ptr< Config const > const config_;
   Kiv::Ptr< Feeders::Config const > const ports_;
   TableFaults faults_{
         { "/sim/chip/stormControl/limitTable", "/sim/chip/stormControl/bcastSkipTable",
           "/sim/chip/stormControl/trafficClassTable", "/sim/chip/stormControl/burstTimeTable" } };
   Model model_;
   // Some writes may have been refused since the machines began: the model knows no more which.
   bool lost_ = false;
   std::uint64_t failuresSeen_ = Kiv::Dispatch::failures;
   std::map< Model::LevelKey, std::uint64_t > drops_; // as the chip counts them
   std::map< IntfId, Model::Drops > read_;            // as they were read last
   Kiv::Seconds period_ = 0;
   Kiv::Seconds nextReading_ = Kiv::never;
};

namespace {

String const configPath = "/bridging/stormControl/config";
String const chipPath = "/sim/chip/stormControl";

constexpr std::string_view capabilities[] = {
      "burst",       "uucastLevel", "allLevel",         "zeroRate",           "ppsMetering",
      "bpsMetering", "dropCount",   "chipStormControl", "dynamicLogicalPorts" };

// The component of a path at that place: 0 for the first.
String
component( String const & path, std::size_t place ) {
   std::size_t begin = 1;
   for( ; place != 0 && begin != 0; --place ) {
      begin = path.find( '/', begin ) + 1;
   }
   return begin == 0 ? "" : path.substr( begin, path.find( '/', begin ) - begin );
}

bool
isNumber( String const & text, std::uint64_t most ) {
   return !text.empty() && text.size() < 12 &&
          std::ranges::all_of( text, []( char c ) { return c >= '0' && c <= '9'; } ) &&
          Kiv::fromText< std::uint64_t >( text ) <= most;
}

template< class Enum >
bool
isNameOf( String const & text, std::initializer_list< Enum > all ) {
   return std::ranges::any_of( all, [ & ]( Enum each ) { return toText( each ) == text; } );
}

// What may stand in the field of that name, of whichever value.
bool
isValid( String const & field, String const & text ) {
   if( field == "mode" ) {
      return isNameOf( text, { meteringPercent, meteringPps, meteringBps } );
   }
   if( field == "unit" ) {
      return isNameOf( text, { unitBps, unitKbps, unitMbps, unitPps, unitPercent } );
   }
   if( field == "period" ) {
      auto const period = Kiv::fromText< Kiv::Seconds >( text );
      return period <= 0 || period >= 0.1;
   }
   if( field == "limited" ) {
      return text == "true" || text == "false";
   }
   bool const isCount = field == "rate" || field == "burstTime";
   return isCount ? isNumber( text, UINT32_MAX ) : field == "level" && isNumber( text, 10000 );
}

Model::LevelKey
levelKey( String const & text ) {
   auto const colon = text.find( ':' );
   auto const name = std::ranges::find( Model::levelNames, text.substr( colon + 1 ) );
   return { IntfId( text.substr( 0, colon ) ),
            static_cast< Model::Level >( name - std::begin( Model::levelNames ) ) };
}

} // namespace

StormControlObserver::StormControlObserver( Switch & simulated, Observers & observers )
      : Observer( simulated, observers, "storm control" ),
        config_( simulated.entity< Config >( configPath ) ),
        ports_( simulated.entity< Feeders::Config >( "/feeders/config" ) ) {}

// ---- What happens

void
StormControlObserver::prepare( Draw & draw, Steps & steps ) {
   for( auto const capability : capabilities ) {
      bool const can = draw.chance( capability == "dropCount" ? 90 : 60 );
      steps.push_back( "set " + chipPath + '/' + String( capability ) +
                       ( can ? " true" : " false" ) );
   }
   auto const classes = draw.oneOf( { "0", "3", "8" } );
   steps.push_back( "set " + chipPath + "/trafficClasses " + classes );
   for( auto n = draw.below( 8 ); n != 0; --n ) {
      proposeLevel( draw, steps );
   }
}

void
StormControlObserver::proposeLevel( Draw & draw, Steps & steps ) const {
   auto const intf = draw.chance( 97 ) ? draw.intf() : String( "Ethernet9" );
   auto const level = String( Model::levelNames[ draw.below( Model::levels ) ] );
   auto const at = "set " + configPath + "/intfConfig/" + intf + '/' + level;
   auto const kind = draw.below( 20 );
   auto const percent = draw.oneOf( { "0", "1", "250", "3333", "9999", "10000" } );
   auto const rate = draw.oneOf( { "0", "7000", "7000", "4294967295" } );
   auto const unit = draw.oneOf( { "unitBps", "unitKbps", "unitMbps" } );
   auto const whole = [ & ]( String const & mode, String const & hundredths, String const & amount,
                             String const & in ) {
      steps.insert( steps.end(), { at + "/mode " + mode, at + "/level " + hundredths,
                                   at + "/rate " + amount, at + "/unit " + in } );
   };
   if( kind < 12 ) {
      steps.push_back( at + "/level " + percent );
   } else if( kind < 14 ) {
      whole( "meteringPps", "0", rate, "unitPps" );
   } else if( kind < 16 ) {
      whole( "meteringBps", "0", rate, unit );
   } else if( kind < 19 ) {
      whole( "meteringPercent", "10000", "0", "unitPercent" );
   } else {
      steps.push_back( at + "/rate " + rate );
   }
}

void
StormControlObserver::propose( Draw & draw, Steps & steps ) {
   auto const intf = draw.intf();
   auto const port = draw.port();
   auto const kind = draw.below( 40 );
   auto const trafficClass = std::to_string( draw.below( 4 ) );
   auto const burst = draw.oneOf( { "short", "long" } );
   bool const mostly = draw.chance( 75 );
   auto const number = draw.oneOf( { "0", "50", "9999", "10000" } );
   auto const set = "set " + configPath, del = "del " + configPath;
   if( kind < 18 ) {
      proposeLevel( draw, steps );
   } else if( kind < 21 ) {
      steps.push_back( del + "/intfConfig/" + intf );
   } else if( kind < 23 ) {
      auto const at = "/aggregateTcConfig/" + trafficClass;
      steps.push_back( mostly ? set + at + "/level/level " + number : del + at );
   } else if( kind < 25 ) {
      auto const at = "/burstConfig/" + burst;
      steps.push_back( mostly ? set + at + "/burstTime " + number : del + at );
   } else if( kind < 27 ) {
      auto const period = draw.oneOf( { "0", "0.5", "2", "5", "7.5", "20" } );
      steps.push_back( set + "/period " + period );
   } else if( kind < 33 ) {
      auto const traffic = draw.oneOf( { "broadcast", "multicast", "uucast" } );
      auto const packets = draw.oneOf( { "1", "10000", "100000000" } );
      auto const more = draw.oneOf( { "", " 125", " 1250 0.5" } );
      steps.push_back( "sim drop " + port + ' ' + traffic + ' ' + packets + more );
   } else if( kind < 36 ) {
      proposeSpoiling( draw, steps );
   } else if( kind < 37 ) {
      proposeFault( draw, steps );
   } else if( kind < 38 ) {
      proposeChangeOfMind( draw, steps );
   } else {
      steps.push_back( draw.oneOf(
            { "set /bridging/stormControl/config/intfConfig/Ethernet1/broadcast/level 10001",
              "set /bridging/stormControl/config/intfConfig/Ethernet1/all/mode meteringLoose",
              "set /bridging/stormControl/config/aggregateTcConfig/8/level/level 5",
              "set /bridging/stormControl/config/period 0.05",
              "del /bridging/stormControl/config/burstConfig/medium",
              "sim drop Ethernet1 unicast 5", "sim drop Ethernet1 broadcast 5 64 0",
              "sim drop Port-Channel1 multicast 5", "sim forget Ethernet99",
              "set /sim/chip/stormControl/limit/Ethernet1:most/rate 5" } ) );
   }
}

void
StormControlObserver::proposeSpoiling( Draw & draw, Steps & steps ) const {
   auto const intf = draw.intf();
   auto const port = draw.port();
   auto const kind = draw.below( 10 );
   auto const level = String( Model::levelNames[ draw.below( Model::levels ) ] );
   auto const trafficClass = std::to_string( draw.below( 4 ) );
   auto const burst = draw.oneOf( { "short", "long" } );
   auto const limit = chipPath + "/limit/" + port + ':' + level;
   if( kind < 2 ) {
      steps.push_back( "sim forget " + port );
   } else if( kind < 3 ) {
      steps.push_back( "del " + limit );
   } else if( kind < 6 ) {
      auto const rate = draw.oneOf( { "0", "5", "7000" } );
      auto const limited = draw.oneOf( { "true", "true", "false" } );
      steps.push_back( "set " + limit + "/limited " + limited );
      steps.push_back( "set " + limit + "/rate " + rate );
      steps.push_back( "set " + limit + "/parent " + intf );
   } else if( kind < 7 ) {
      steps.push_back( "set " + chipPath + "/bcastSkip/" + intf + " true" );
   } else if( kind < 8 ) {
      steps.push_back( "del " + chipPath + "/bcastSkip/" + intf );
   } else if( kind < 9 ) {
      auto const row = draw.oneOf( { "/trafficClass/" + trafficClass, "/burstTime/" + burst } );
      steps.push_back( "del " + chipPath + row );
   } else {
      steps.push_back( "del " + chipPath + "/rule/trafficClasses" );
   }
}

// All levels of a port are programmed anew, and whoever hears of the first asks for something else of
// another. Then or never: in the middle of other things nobody could say what a port that goes leaves.
void
StormControlObserver::proposeChangeOfMind( Draw & draw, Steps & steps ) const {
   auto const port = draw.port();
   auto const heard =
         draw.oneOf( { "/bridging/stormControl/status", "/hoba/machines/stormControl/held" } );
   auto const at = configPath + "/intfConfig/" + port;
   auto const later = draw.oneOf( { "multicast", "uucast" } );
   auto const lag = draw.lag();
   auto const change = draw.chance( 80 ) ? "set " + at + '/' + later + "/level 1" : "del " + at;
   auto const speed = "set /feeders/config/port/" + port + "/speed ";
   steps.push_back( speed + "1000" );
   steps.push_back( "set " + at + "/broadcast/level 250" );
   steps.push_back( "set " + at + '/' + later + "/level 3333" );
   steps.push_back( "upon " + heard + ' ' + change );
   // A port that joins a LAG has the status of all its levels written, one after the other.
   bool const joins = heard != "/hoba/machines/stormControl/held" && draw.chance( 50 );
   steps.push_back( joins ? "sim lag " + port + ' ' + lag : speed + "10000" );
   steps.push_back( "quiet" );
}

// Whether a spoilt row finds room in a table that is full would depend on what is on its way there.
void
StormControlObserver::proposeFault( Draw & draw, Steps & steps ) const {
   faults_.propose( draw, steps );
   auto const & path = steps.back()[ 1 ];
   if( path == chipPath + "/limitTable/capacity" ||
       path == chipPath + "/bcastSkipTable/capacity" ) {
      steps.pop_back();
   }
}

Steps
StormControlObserver::heal() {
   auto steps = faults_.heal();
   if( auto const period = config_->period().value(); period > 0 && period < shortestQuietPeriod ) {
      steps.push_back( "set " + configPath + "/period 5" );
   }
   if( lost_ ) {
      steps.push_back( "sim restart hitless" ); // what was refused is not tried again
   }
   return steps;
}

Observer::Verdict
StormControlObserver::judge( Step const & step ) const {
   if( faults_.isMine( step ) ) {
      return accepts;
   }
   if( step.begins( "sim forget" ) || step.begins( "sim drop" ) ) {
      auto const port = IntfId( step[ 2 ] );
      bool const isPort =
            Pelt::EthIntfId::isEthIntfId( port ) && ports_->portHas( Pelt::EthIntfId( port ) );
      bool const isTraffic =
            step[ 3 ] == "broadcast" || step[ 3 ] == "multicast" || step[ 3 ] == "uucast";
      return isPort && ( step[ 1 ] == "forget" || ( isTraffic && step[ 6 ] != "0" ) ) ? accepts
                                                                                      : refuses;
   }
   if( step.isAt( configPath ) ) {
      return judgeConfig( step );
   }
   return step.isAt( chipPath ) ? judgeSpoiling( step ) : notMine;
}

Observer::Verdict
StormControlObserver::judgeConfig( Step const & step ) const {
   auto const collection = component( step[ 1 ], 3 ), key = component( step[ 1 ], 4 );
   if( step[ 0 ] == "del" ) {
      bool const is =
            collection == "intfConfig" ? config_->intfConfigHas( IntfId( key ) )
            : collection == "burstConfig"
                  ? config_->burstConfigHas( key )
                  : config_->aggregateTcConfigHas( Kiv::fromText< std::uint16_t >( key ) );
      return is ? accepts : refuses;
   }
   // The chip gets no more traffic classes.
   auto const classes = Kiv::fromText< std::uint64_t >( textAt( chipPath + "/trafficClasses" ) );
   bool const isKey =
         collection != "aggregateTcConfig" || Kiv::fromText< std::uint64_t >( key ) < classes;
   auto const field = step[ 1 ].substr( step[ 1 ].rfind( '/' ) + 1 );
   return isKey && isValid( field, step[ 2 ] ) ? accepts : refuses;
}

Observer::Verdict
StormControlObserver::judgeSpoiling( Step const & step ) const {
   auto const table = component( step[ 1 ], 3 ), key = component( step[ 1 ], 4 );
   if( step[ 0 ] == "del" ) {
      return textAt( step[ 1 ] ).empty() ? refuses : accepts;
   }
   if( table == "limit" ) {
      auto const field = component( step[ 1 ], 5 );
      bool const isField = field == "parent" || isValid( field, step[ 2 ] );
      return levelKey( key ).level != Model::levels && isField ? accepts : refuses;
   }
   return accepts; // a skip rule, or what the chip can do
}

// ---- What the model hears

void
StormControlObserver::heard( Step const & step, Datum const & answer ) {
   faults_.heard( step );
   lost_ = lost_ || faults_.any();
   if( step.begins( "sim drop" ) ) {
      drop( step, answer );
   } else if( step.begins( "sim forget" ) ) {
      for( auto level = 0u; level != Model::levels; ++level ) {
         model_.limit.rows.erase( { IntfId( step[ 2 ] ), static_cast< Model::Level >( level ) } );
      }
   } else if( step.isAt( chipPath ) && !component( step[ 1 ], 4 ).empty() ) {
      spoil( step );
   }
}

void
StormControlObserver::spoil( Step const & step ) {
   auto const table = component( step[ 1 ], 3 ), key = component( step[ 1 ], 4 );
   auto const field = component( step[ 1 ], 5 );
   bool const goes = step[ 0 ] == "del";
   if( table == "limit" && goes ) {
      model_.limit.rows.erase( levelKey( key ) );
   } else if( table == "limit" ) {
      auto & row = model_.limit.rows[ levelKey( key ) ];
      row.limited = field == "limited" ? step[ 2 ] == "true" : row.limited;
      row.rate = field == "rate" ? Kiv::fromText< std::uint64_t >( step[ 2 ] ) : row.rate;
      row.parent = field == "parent" ? IntfId( step[ 2 ] ) : row.parent;
   } else if( table == "bcastSkip" && goes ) {
      model_.bcastSkip.rows.erase( IntfId( key ) );
   } else if( table == "bcastSkip" ) {
      model_.bcastSkip.rows[ IntfId( key ) ] = true;
   } else if( table == "trafficClass" ) {
      model_.trafficClass.rows.erase( Kiv::fromText< std::uint16_t >( key ) );
   } else if( table == "burstTime" ) {
      model_.burstTime.rows.erase( key );
   } else if( table == "rule" ) {
      model_.rule.rows.erase( key );
   }
}

// What exceeds the limit of its class is dropped, and of the rest what exceeds that of all traffic.
void
StormControlObserver::drop( Step const & step, Datum const & answer ) {
   IntfId const port( step[ 2 ] );
   auto const packets = Kiv::fromText< std::uint64_t >( step[ 4 ] );
   auto const bytes = step[ 5 ].empty() ? 64 : Kiv::fromText< std::uint64_t >( step[ 5 ] );
   std::uint64_t const halfSeconds = step[ 6 ] == "0.5" ? 1 : 2;
   auto const holds = seen();
   auto left = packets;
   for( auto const level : { levelKey( ":" + step[ 3 ] ).level, Model::all } ) {
      Model::LevelKey const key{ port, level };
      auto const limit = holds.limit.get( key );
      auto const passes = limit.unit == unitPps ? limit.rate * halfSeconds / 2
                                                : limit.rate * halfSeconds * 1000 / ( 16 * bytes );
      if( auto const excess = limit.limited && passes < left ? left - passes : 0 ) {
         drops_[ key ] += excess;
         left -= excess;
      }
   }
   auto const expected =
         "dropped " + toText( packets - left ) + " of " + toText( packets ) + " packets";
   if( Kiv::datumText( answer ) != expected ) {
      found( step.text() + ": answers " + Kiv::datumText( answer ) + ", and must " + expected );
   }
}

Model::Inputs
StormControlObserver::inputs() const {
   auto const & lags = observers().find< LagObserver >();
   Model::Inputs all;
   for( auto const & [ port, is ] : observers().find< PortsObserver >().ports() ) {
      all.ports[ port ] = { is.kbps, is.active, lags.lagOf( port ) };
   }
   for( auto const lag : lags.lags() ) {
      all.lags[ lag ] = lags.active( lag );
   }
   for( auto const & [ intf, is ] : config_->intfConfig() ) {
      all.intfs[ intf ] = { is->broadcast(), is->multicast(), is->uucast(), is->all() };
   }
   for( auto const & [ number, is ] : config_->aggregateTcConfig() ) {
      all.trafficClasses[ number ] = is->level();
   }
   for( auto const & [ name, is ] : config_->burstConfig() ) {
      all.bursts[ name ] = is->burstTime();
   }
   return all;
}

Model::Chip
StormControlObserver::chip() const {
   auto const can = [ this ]( char const * what ) {
      return textAt( chipPath + '/' + what ) == "true";
   };
   return { can( "burst" ),     can( "uucastLevel" ),      can( "allLevel" ),
            can( "zeroRate" ),  can( "ppsMetering" ),      can( "bpsMetering" ),
            can( "dropCount" ), can( "chipStormControl" ), can( "dynamicLogicalPorts" ) };
}

void
StormControlObserver::follow() {
   if( simulated().isRunning() ) {
      model_.inputsAre( inputs() );
      std::erase_if( read_,
                     [ this ]( auto const & r ) { return !config_->intfConfigHas( r.first ); } );
      if( period_ != config_->period().value() ) {
         armReading();
      }
   }
   failuresSeen_ = Kiv::Dispatch::failures;
}

void
StormControlObserver::chipForgot() {
   model_.reset();
   drops_.clear();
}

void
StormControlObserver::began( HobaAgent::RestartKind ) {
   model_.begin( chip(), inputs() );
   // When a step failed on the way, nothing was swept.
   lost_ =
         faults_.any() || std::exchange( failuresSeen_, Kiv::Dispatch::failures ) != failuresSeen_;
   armReading();
}

// ---- What was dropped

void
StormControlObserver::armReading() {
   period_ = config_->period().value();
   nextReading_ = period_ > 0 ? simulated().now() + period_ : Kiv::never;
}

void
StormControlObserver::timeIs( Kiv::Seconds now ) {
   while( simulated().isRunning() && nextReading_ <= now ) {
      if( textAt( chipPath + "/dropCount" ) == "true" ) {
         read();
      }
      armReading();
   }
   failuresSeen_ = Kiv::Dispatch::failures;
}

// Of a port that is not there nothing is read.
void
StormControlObserver::read() {
   for( auto const & [ intf, thresholds ] : model_.inputs().intfs ) {
      auto const ports = model_.portsOf( intf );
      if( ports.empty() && Pelt::EthIntfId::isEthIntfId( intf ) ) {
         continue;
      }
      Model::Drops sum{};
      for( auto const & [ key, drops ] : drops_ ) {
         if( std::ranges::find( ports, key.intf ) != ports.end() ) {
            sum[ key.level ] += drops;
         }
      }
      read_[ intf ] = sum;
   }
}

// ---- What must be

void
StormControlObserver::check() {
   expectRows( chipPath + "/limit", rowsOf( model_.limit.rows ) );
   expectRows( chipPath + "/bcastSkip", rowsOf( model_.bcastSkip.rows ) );
   expectRows( chipPath + "/trafficClass", rowsOf( model_.trafficClass.rows ) );
   expectRows( chipPath + "/burstTime", rowsOf( model_.burstTime.rows ) );
   expectRows( chipPath + "/rule", rowsOf( model_.rule.rows ) );
   expectRows( chipPath + "/drop", rowsOf( drops_ ) );
   String const machine = "/hoba/machines/stormControl";
   expectRows( machine + "/held", rowsOf( model_.held ) );
   Rows present, lagOfPort, membersOfLag;
   for( auto const & [ port, is ] : model_.inputs().ports ) {
      present[ toText( port ) ] = "";
      if( is.lag ) {
         lagOfPort[ toText( port ) ] = toText( is.lag );
      }
   }
   for( auto const & [ lag, members ] : model_.inputs().lags ) {
      membersOfLag[ toText( lag ) ] =
            Kiv::datumText( Datum::Object{ { "port", Kiv::toDatum( members ) } } );
   }
   expectRows( machine + "/present", present );
   expectRows( machine + "/lagOfPort", lagOfPort );
   expectRows( machine + "/membersOfLag", membersOfLag );
   checkStatus();
}

void
StormControlObserver::checkStatus() {
   Rows status;
   for( auto const & [ intf, thresholds ] : model_.inputs().intfs ) {
      auto const is = Kiv::make< IntfStatus >( intf );
      is->broadcastIs( model_.levelStatus( intf, Model::broadcast ) );
      is->multicastIs( model_.levelStatus( intf, Model::multicast ) );
      is->uucastIs( model_.levelStatus( intf, Model::uucast ) );
      is->allIs( model_.levelStatus( intf, Model::all ) );
      is->speedIs( model_.speedOf( intf ) );
      auto const & drops = read_[ intf ];
      is->broadcastDropIs( drops[ Model::broadcast ] );
      is->multicastDropIs( drops[ Model::multicast ] );
      is->uucastDropIs( drops[ Model::uucast ] );
      is->allDropIs( drops[ Model::all ] );
      status[ toText( intf ) ] = Kiv::datumText( Tessera::readEntity( *is, Tessera::Path() ) );
   }
   expectRows( "/bridging/stormControl/status/intfStatus", status );
}

// ---- What verification finds: what is configured is compared with the chip's rows, item by item

namespace {

class Verification {
 public:
   explicit Verification( Model const & model ) : model_( model ) {}

   // A port on which no levels hold.
   String unlimited( IntfId port ) const {
      for( auto level = 0u; level != Model::levels; ++level ) {
         if( model_.limit.get( { port, static_cast< Model::Level >( level ) } ).limited ) {
            return "no limits expected, some found";
         }
      }
      return model_.bcastSkip.has( port ) ? "no skip rule expected, one found" : "";
   }
   // A port on which those of `parent` hold.
   String limited( IntfId port, IntfId parent ) const {
      String mismatches;
      for( auto level = 0u; level != Model::levels; ++level ) {
         add( mismatches, levelOf( { port, static_cast< Model::Level >( level ) }, parent ) );
      }
      add( mismatches, skipOf( port, parent ) );
      return mismatches;
   }
   String trafficClass( std::uint16_t number ) const {
      auto const & is = model_.trafficClass.get( number );
      auto const & wanted = model_.inputs().trafficClasses.at( number );
      return is == wanted ? "" : toText( wanted ) + " expected, " + toText( is ) + " found";
   }
   // What nobody configured.
   String rest( bool rulesNeeded ) const {
      auto const & inputs = model_.inputs();
      String const nobodys = ", which nobody configured";
      String mismatches;
      add( mismatches,
           rulesNeeded && !model_.rule.has( "trafficClasses" ) ? "the rules are missing" : "" );
      for( auto const & [ key, limit ] : model_.limit.rows ) {
         if( limit.limited && !inputs.intfs.contains( limit.parent ) ) {
            add( mismatches, toText( key.intf ) + ' ' + String( Model::levelNames[ key.level ] ) +
                                   ": " + textOf( limit ) + nobodys );
         }
      }
      for( auto const & [ intf, skips ] : model_.bcastSkip.rows ) {
         add( mismatches,
              inputs.intfs.contains( intf ) ? "" : toText( intf ) + ": a skip rule" + nobodys );
      }
      for( auto const & [ number, threshold ] : model_.trafficClass.rows ) {
         add( mismatches,
              inputs.trafficClasses.contains( number )
                    ? ""
                    : "traffic class " + toText( number ) + ": " + toText( threshold ) + nobodys );
      }
      return mismatches;
   }

 private:
   static void add( String & all, String const & one ) {
      all += all.empty() || one.empty() ? one : "; " + one;
   }
   static String textOf( StormLimitRow const & limit ) {
      return !limit.limited ? "no limit"
                            : toText( limit.rate ) + ( limit.unit == unitPps ? " pps" : " kbps" ) +
                                    " of " + toText( limit.parent );
   }
   // Where nothing is programmed only what is of the same configuration may stand.
   String levelOf( Model::LevelKey const & key, IntfId parent ) const {
      auto const kbps = model_.inputs().ports.at( key.intf ).kbps;
      auto const is = model_.limit.get( key );
      bool const allStands = model_.limit.get( { key.intf, Model::all } ).limited;
      auto const what = model_.asked( parent, key.level );
      bool const covered = model_.isCovered( parent, key.level, allStands );
      String const level( Model::levelNames[ key.level ] );
      if( kbps == 0 || ( what == Model::refusedZero && !covered ) ) {
         return !is.limited || is.parent == parent
                      ? ""
                      : level + ": no limit but of " + toText( parent ) + " expected, " +
                              textOf( is ) + " found";
      }
      auto const & threshold = model_.inputs().intfs.at( parent )[ key.level ];
      auto const wanted = covered || what != Model::wanted
                                ? StormLimitRow()
                                : Model::limitOf( threshold, kbps, parent );
      bool const same = is.limited || wanted.limited ? is == wanted : true;
      return same ? "" : level + ": " + textOf( wanted ) + " expected, " + textOf( is ) + " found";
   }
   // Of a LAG the rule is one, whatever the speed of its members.
   String skipOf( IntfId port, IntfId parent ) const {
      if( port != parent && model_.bcastSkip.has( port ) ) {
         return "a skip rule of its own found";
      }
      bool const wanted = model_.wantsSkip( parent );
      bool const stays = port == parent && model_.speedOf( port ) == 0;
      if( stays || model_.bcastSkip.has( parent ) == wanted ) {
         return {};
      }
      return wanted ? "skip rule expected, none found" : "no skip rule expected, one found";
   }

   Model const & model_;
};

// A table of the chip as it is.
template< class Key, class Record, class KeyOf >
void
readTable( Datum const & datum, StormTable< Key, Record > & table, KeyOf keyOf ) {
   table.rows.clear();
   for( auto const & [ key, value ] : *datum.as< Datum::Object >() ) {
      table.rows[ keyOf( key ) ] = Kiv::fromDatum< Record >( value );
   }
}

} // namespace

Model
StormControlObserver::seen() const {
   auto model = model_;
   if( lost_ ) {
      auto const table = [ this ]( char const * name ) {
         return simulated().get( chipPath + name );
      };
      auto const same = []( String const & key ) { return key; };
      auto const number = []( String const & key ) {
         return Kiv::fromText< std::uint16_t >( key );
      };
      auto const intf = []( String const & key ) { return IntfId( key ); };
      readTable( table( "/limit" ), model.limit, levelKey );
      readTable( table( "/bcastSkip" ), model.bcastSkip, intf );
      readTable( table( "/trafficClass" ), model.trafficClass, number );
      readTable( table( "/rule" ), model.rule, same );
   }
   return model;
}

void
StormControlObserver::verifyItems( Items & items ) const {
   auto const model = seen();
   auto const & inputs = model.inputs();
   Verification const verification( model );
   auto const add = [ & ]( String const & item, String const & mismatch ) {
      items.emplace_back( "storm control " + item, mismatch.empty() ? "ok" : mismatch );
   };
   for( auto const & [ intf, config ] : config_->intfConfig() ) {
      auto const name = toText( intf );
      if( Pelt::PortChannelIntfId::isPortChannelIntfId( intf ) ) {
         for( auto const port : model.portsOf( intf ) ) {
            add( name + ' ' + toText( port ), verification.limited( port, intf ) );
         }
      } else if( inputs.ports.contains( intf ) ) {
         auto const parent = model.governs( intf );
         add( name,
              parent ? verification.limited( intf, parent ) : verification.unlimited( intf ) );
      }
   }
   // A port that nobody asked for is named when something is wrong with it.
   for( auto const & [ port, config ] : ports_->port() ) {
      auto const mismatch = verification.unlimited( port );
      if( !inputs.intfs.contains( port ) && !model.governs( port ) && !mismatch.empty() ) {
         add( toText( port ), mismatch );
      }
   }
   for( auto const & [ number, config ] : config_->aggregateTcConfig() ) {
      add( "traffic class " + toText( number ), verification.trafficClass( number ) );
   }
   add( "platform", verification.rest( !chip().chipStormControl ) );
}

SIMULATION_OBSERVER( StormControlObserver );

} // namespace Simulation
