// SPDX-License-Identifier: Apache-2.0

// Storm control under random changes. After every single write an observer of its own mind works
// out what the chip must hold and what the status must say: from the configuration, and, where
// nothing is programmed for want of a speed or because a zero was refused, from what stood before.
// In the end all is as a fresh machine makes it.
//
// HOBA_SIMULATION_SEED=n runs that one seed.

#include "StormControlTest.h"

#include <array>
#include <random>
#include <set>

namespace {

using namespace HobaTest;
using HobaSim::StormLimit;
using Pelt::IntfId;

// What the chip holds of a port or a LAG, and on whose behalf.
struct Holding {
   std::array< StormLimit, Hoba::levelTypeMax > limit;
   bool skips = false;
   // Whose levels are in force; empty for nobody's.
   IntfId answersTo;
   // What was asked for when `limit` came to stand.
   std::array< Threshold, Hoba::levelTypeMax > threshold;

   bool sameAs( Holding const & other ) const {
      return limit == other.limit && skips == other.skips;
   }
};
using Holdings = std::map< IntfId, Holding >;

// ---- The observer

class Observer {
 public:
   explicit Observer( StormWorld & world ) : world_( world ), unit_( world.unit() ) {}

   // `ports` and `lags` are all that ever take part.
   void check( std::vector< IntfId > const & ports, std::vector< IntfId > const & lags ) {
      hearCalls();
      auto const before = std::exchange( now_, {} );
      auto const beforeOf = [ & ]( IntfId intf ) {
         return before.contains( intf ) ? before.at( intf ) : Holding{};
      };
      for( auto port : ports ) {
         SCOPED_TRACE( Kiv::toText( port ) );
         checkPort( port, now_[ port ] = held( port ), beforeOf( port ) );
      }
      for( auto lag : lags ) {
         SCOPED_TRACE( Kiv::toText( lag ) );
         now_[ lag ] = held( lag );
         if( auto const * config = configOf( lag ) ) {
            checkSkip( lag, *config );
         } else {
            EXPECT_FALSE( now_[ lag ].skips );
         }
      }
      checkStatus();
      checkTables();
   }
   // The chip was initialized.
   void forget() { now_.clear(); }

   // What of a LAG or a port the hardware has to do with.
   std::vector< IntfId > portsOf( IntfId intf ) const {
      auto ports = isLag( intf ) ? world_.data->lagToPort( intf ).port : std::vector{ intf };
      std::erase_if( ports, [ & ]( IntfId port ) {
         return !world_.data->intfHas( port ) ||
                ( isLag( intf ) && ( lagOf( port ) != intf || !active( port ) ) );
      } );
      return ports;
   }
   // What is left over on a port that nobody can reach.
   bool leftOver( IntfId port ) const {
      auto const holding = held( port );
      bool const nobodys =
            std::any_of( holding.limit.begin(), holding.limit.end(),
                         [ & ]( auto const & l ) { return l.limited && !configOf( l.parent ); } );
      return nobodys || ( holding.skips && !configOf( port ) );
   }

 private:
   static constexpr LevelType levelTypes[] = { bc, mc, uu, at };

   static Threshold asked( IntfConfig const & config, LevelType levelType ) {
      Threshold const all[] = { config.broadcast(), config.multicast(), config.uucast(),
                                config.all() };
      return all[ levelType ];
   }
   static bool isNone( Threshold const & threshold ) {
      return threshold.mode == 0 && threshold.level == 10000 && threshold.rate == 0 &&
             threshold.unit == 4;
   }
   bool has( LevelType levelType ) const {
      return levelType == uu ? unit_.uucastLevel() : levelType != at || unit_.allLevel();
   }
   bool meters( Threshold const & threshold ) const {
      bool const can[] = { true, unit_.ppsMetering(), unit_.bpsMetering() };
      return can[ threshold.mode ];
   }
   // Asked for and metered, but the platform does not take a zero.
   bool isRefusedZero( Threshold const & threshold ) const {
      return !unit_.zeroRate() && threshold.level + threshold.rate == 0 && meters( threshold );
   }
   bool refuses( IntfConfig const & config, LevelType levelType ) const {
      return has( levelType ) && isRefusedZero( asked( config, levelType ) );
   }
   // As good as no threshold at all; a refused zero is not.
   bool isDefault( IntfConfig const & config, LevelType levelType ) const {
      auto const threshold = asked( config, levelType );
      return !has( levelType ) || isNone( threshold ) || !meters( threshold );
   }
   // Whether the all-traffic level stands in for this one; `allStood`: there is an older one.
   bool covered( IntfConfig const & config, LevelType levelType, bool allStood ) const {
      return has( levelType ) && ( levelType == bc || levelType == uu ) &&
             ( refuses( config, at ) ? allStood : !isDefault( config, at ) );
   }
   static bool isLag( IntfId intf ) { return intf.kind() == IntfId::Kind::portChannel; }

   IntfConfig const * configOf( IntfId intf ) const {
      auto const * const found = world_.config->intfConfig().find( intf );
      return found ? found->get() : nullptr;
   }
   IntfId lagOf( IntfId port ) const { return world_.data->portToLag( port ); }
   bool listed( IntfId lag, IntfId port ) const {
      auto const ports = world_.data->lagToPort( lag ).port;
      return std::count( ports.begin(), ports.end(), port );
   }
   bool active( IntfId port ) const {
      auto const status = world_.dir->ethPhyIntfStatus( port );
      return !unit_.dynamicLogicalPorts() || ( status && status->active() );
   }
   std::uint64_t speedOf( IntfId port ) const {
      static std::map< Interface::EthSpeed, std::uint64_t > const kbps = {
            { Interface::speed10Mbps, 10'000 },
            { Interface::speed1Gbps, 1'000'000 },
            { Interface::speed10Gbps, 10'000'000 },
            { Interface::speed400Gbps, 400'000'000 },
            { Interface::speed800Gbps, 800'000'000 } };
      auto const status = world_.dir->ethPhyIntfStatus( port );
      auto const found = kbps.find( status ? status->speed() : Interface::speedUnknown );
      return found == kbps.end() ? 0 : found->second;
   }
   static std::uint64_t share( std::uint64_t speed, std::uint64_t hundredths ) {
      return speed / 10000 * hundredths + speed % 10000 * hundredths / 10000;
   }

   Holding held( IntfId intf ) const {
      Holding holding;
      for( auto levelType : Hoba::allLevelTypes ) {
         holding.limit[ levelType ] = unit_.limit( { intf, levelType } );
      }
      holding.skips = unit_.bcastSkipHas( intf );
      return holding;
   }

   void checkPort( IntfId port, Holding & now, Holding const & before ) const {
      if( !world_.data->intfHas( port ) ) {
         EXPECT_TRUE( now.sameAs( before ) ) << "nobody can program what is not there";
         return;
      }
      auto const lag = lagOf( port );
      auto const parent = lag ? lag : port;
      auto const * config = configOf( parent );
      if( !config || !active( port ) || ( lag && !listed( lag, port ) ) ) {
         EXPECT_TRUE( now.sameAs( {} ) ) << "nothing may be limited here";
         return;
      }
      now.answersTo = parent;
      auto const stood = before.answersTo == parent ? before : Holding{};
      auto const speed = speedOf( port );
      for( auto levelType : levelTypes ) {
         bool const covers = covered( *config, levelType, stood.limit[ 3 ].limited );
         if( speed == 0 || ( !covers && refuses( *config, levelType ) ) ) {
            EXPECT_EQ( now.limit[ levelType ], stood.limit[ levelType ] ) << "must stay";
            now.threshold[ levelType ] = stood.threshold[ levelType ];
         } else if( covers || isDefault( *config, levelType ) ) {
            EXPECT_EQ( now.limit[ levelType ], StormLimit{} ) << Hoba::levelText( levelType );
         } else {
            now.threshold[ levelType ] = asked( *config, levelType );
            EXPECT_EQ( now.limit[ levelType ],
                       wantedLimit( now.threshold[ levelType ], speed, parent ) )
                  << Hoba::levelText( levelType );
         }
      }
      if( lag ) {
         EXPECT_FALSE( now.skips );
      } else if( speed == 0 ) {
         EXPECT_EQ( now.skips, stood.skips );
      } else {
         checkSkip( port, *config );
      }
   }

   static StormLimit wantedLimit( Threshold const & threshold, std::uint64_t speed,
                                  IntfId parent ) {
      switch( threshold.mode ) {
      case meteringPps:
         return { true, threshold.rate, unitPps, parent };
      case meteringBps:
         return { true, threshold.rate, unitKbps, parent }; // all here are in kbps
      default:
         return { true, share( speed, threshold.level ), unitKbps, parent };
      }
   }

   // Nobody calls for a port that is not there, nor for a level that the platform does not have.
   void hearCalls() {
      auto const & calls = world_.helper->calls;
      for( ; callsHeard_ < calls.size(); ++callsHeard_ ) {
         auto const & call = calls[ callsHeard_ ];
         EXPECT_TRUE( has( uu ) || !call.starts_with( "uucast" ) ) << call;
         EXPECT_TRUE( has( at ) || !call.starts_with( "all" ) ) << call;
         if( auto const begin = call.find( "Ethernet" ); begin != call.npos ) {
            auto const end = call.find_first_of( "( ", begin );
            EXPECT_TRUE( world_.data->intfHas( IntfId( call.substr( begin, end - begin ) ) ) );
         }
      }
   }

   void checkSkip( IntfId intf, IntfConfig const & config ) const {
      EXPECT_EQ( unit_.bcastSkipHas( intf ), isDefault( config, at ) && !isDefault( config, mc ) )
            << "skip rule";
   }

   // ---- Status

   void checkStatus() {
      EXPECT_EQ( world_.status->intfStatus().size(), world_.config->intfConfig().size() );
      for( auto const & [ intf, config ] : world_.config->intfConfig() ) {
         SCOPED_TRACE( "status of " + Kiv::toText( intf ) );
         auto const status = world_.status->intfStatus( intf );
         ASSERT_TRUE( status );
         std::uint64_t speed = 0;
         for( auto port : portsOf( intf ) ) {
            speed += speedOf( port );
         }
         EXPECT_EQ( status->speed(), speed );
         for( auto levelType : levelTypes ) {
            checkLevelStatus( intf, levelType );
         }
      }
   }

   void checkLevelStatus( IntfId intf, LevelType levelType ) {
      LevelStatus wanted;
      wanted.state = wantedState( intf, *configOf( intf ), levelType );
      for( auto port : portsOf( intf ) ) {
         auto const & holding = now_[ port ];
         if( holding.answersTo != intf || ( isLag( intf ) && speedOf( port ) == 0 ) ) {
            continue;
         }
         if( auto const & threshold = holding.threshold[ levelType ]; !isNone( threshold ) ) {
            wanted.threshold = isNone( wanted.threshold ) ? threshold : wanted.threshold;
            wanted.rate += threshold.mode == meteringPercent ? holding.limit[ levelType ].rate : 0;
         }
      }
      EXPECT_EQ( world_.levelStatus( intf, levelType ), wanted ) << Hoba::levelText( levelType );
   }

   LevelState wantedState( IntfId intf, IntfConfig const & config, LevelType levelType ) {
      auto const threshold = asked( config, levelType );
      if( isNone( threshold ) ) {
         return notConfigured;
      }
      if( !has( levelType ) ) {
         return levelNotSupported;
      }
      auto ports = portsOf( intf );
      auto const none = isLag( intf ) ? lagHasNoMember : intfNotPresent;
      auto obstacle = ports.empty() ? none : LevelState::speedUnknown;
      std::erase_if( ports, [ & ]( IntfId port ) { return speedOf( port ) == 0; } );
      obstacle = ports.empty() ? obstacle : programmed;
      if( !isLag( intf ) && obstacle != intfNotPresent ) {
         obstacle = lagOf( intf ) ? memberOfLag : !active( intf ) ? intfInactive : obstacle;
      }
      if( obstacle == programmed && std::all_of( ports.begin(), ports.end(), [ & ]( IntfId port ) {
             return covered( config, levelType, now_[ port ].limit[ 3 ].limited );
          } ) ) {
         return supersededByAll;
      }
      if( isRefusedZero( threshold ) ) {
         return zeroRateNotSupported;
      }
      return obstacle != programmed || meters( threshold ) ? obstacle : meteringModeNotSupported;
   }

   // ---- Traffic classes and bursts

   void checkTables() {
      std::map< std::uint16_t, Threshold > classes;
      for( auto const & [ trafficClass, config ] : world_.config->aggregateTcConfig() ) {
         if( !isNone( config->level() ) ) {
            classes[ trafficClass ] = config->level();
         }
      }
      EXPECT_EQ( mapOf( unit_.trafficClass() ), classes );
      std::map< HobaSim::Name, std::uint32_t > bursts;
      for( auto const & [ burst, config ] : world_.config->burstConfig() ) {
         if( unit_.burst() && config->burstTime() != 0 ) {
            bursts[ HobaSim::Name( burst ) ] = config->burstTime();
         }
      }
      EXPECT_EQ( mapOf( unit_.burstTime() ), bursts );
   }

   StormWorld & world_;
   HobaSim::StormUnit & unit_;
   Holdings now_;
   std::size_t callsHeard_ = 0;
};

// ---- The world that it observes

class Simulation {
 public:
   explicit Simulation( std::uint64_t seed ) : random_( seed ), observer_( world ) {
      Kiv::ClockDriver::ambientIs( driver_ );
      world.clock->driverIs( driver_ );
      auto & unit = world.unit();
      unit.burstIs( chance( 70 ) );
      unit.uucastLevelIs( chance( 70 ) );
      unit.allLevelIs( chance( 80 ) );
      unit.zeroRateIs( chance( 40 ) );
      unit.ppsMeteringIs( chance( 50 ) );
      unit.bpsMeteringIs( chance( 50 ) );
      unit.chipStormControlIs( chance( 30 ) );
      unit.dynamicLogicalPortsIs( chance( 50 ) );
      for( auto port : ports_ ) {
         world.portIs( port, speed() );
      }
      world.create();
      world.data->handleInitialized();
      for( unsigned n = pick( 20 ); n != 0; --n ) {
         change(); // configured before the first pass
      }
      world.sm->initializedIs( true );
      observe();
   }

   void run( unsigned steps ) {
      for( unsigned step = 1; step <= steps && !testing::Test::HasFailure(); ++step ) {
         SCOPED_TRACE( "step " + std::to_string( step ) );
         if( auto const kind = pick( 100 ); kind < 90 ) {
            change();
         } else if( kind < 94 ) {
            traffic();
         } else if( kind < 98 ) {
            verify();
         } else {
            restart();
         }
         observe();
      }
   }

   // No zero that is refused, and no speed that is not known: nothing has to stay as it stood.
   void settle() {
      for( auto port : ports_ ) {
         world.speedIs( port, chance( 50 ) ? speed1Gbps : speed10Gbps );
      }
      for( auto const & [ intf, config ] : world.config->intfConfig() ) {
         for( auto levelType : Hoba::allLevelTypes ) {
            auto const & asked = Hoba::configuredThreshold( *config, levelType );
            if( asked.level + asked.rate == 0 ) {
               world.levelIs( intf, levelType, percent( 700 ) );
            }
         }
      }
      observe();
   }

   StormWorld world;

 private:
   std::uint64_t pick( std::uint64_t bound ) { return random_() % bound; }
   bool chance( unsigned percentage ) { return pick( 100 ) < percentage; }
   template< class T >
   T const & oneOf( std::vector< T > const & all ) {
      return all[ pick( all.size() ) ];
   }

   Interface::EthSpeed speed() {
      using namespace Interface;
      return oneOf< EthSpeed >( { EthSpeed::speedUnknown, speed10Mbps, speed1Gbps, speed10Gbps,
                                  speed400Gbps, speed800Gbps } );
   }
   Threshold threshold() {
      Threshold const none, odd{ meteringPercent, 10000, 5, unitPercent };
      return oneOf( std::vector{ none, none, percent( 1 ), percent( 250 ), percent( 3333 ),
                                 percent( 9999 ), percent( 0 ), pps( 0 ), pps( 7000 ), kbps( 8000 ),
                                 odd } );
   }
   void observe() {
      if( world.sm->initialized() ) {
         SCOPED_TRACE( "after: " + done_ );
         observer_.check( ports_, lags_ );
      }
   }
   // Says what comes next.
   template< class... Parts >
   void now( Parts const &... parts ) {
      done_.clear();
      ( ( done_ += Kiv::toText( parts ) + " " ), ... );
   }

   void change() {
      auto const port = oneOf( ports_ );
      auto const intf = chance( 60 ) ? port : oneOf( lags_ );
      auto const kind = pick( 25 );
      if( kind < 8 ) {
         auto const levelType = static_cast< LevelType >( pick( 4 ) );
         auto const wanted = threshold();
         now( intf, "is configured" );
         world.config->intfConfigIs( intf );
         observe();
         now( intf, Hoba::levelText( levelType ), wanted );
         world.levelIs( intf, levelType, wanted );
      } else if( kind < 10 ) {
         configChange( intf );
      } else if( kind < 14 ) {
         membership( port, oneOf( lags_ ) );
      } else if( kind < 16 ) {
         presence( port );
      } else if( kind < 18 ) {
         tables();
      } else if( kind < 20 ) {
         now( port, "changes its activity" );
         world.activeIs( port, chance( 60 ) );
      } else if( kind < 24 ) {
         auto const kbps = speed();
         now( port, "has the speed", kbps );
         world.speedIs( port, kbps );
      } else {
         now( intf, "is programmed again" );
         world.sm->enable( intf );
      }
   }

   void configChange( IntfId intf ) {
      if( chance( 70 ) ) {
         now( intf, "is not configured" );
         return world.config->intfConfigDel( intf );
      }
      now( intf, "has another configuration" );
      auto const other = Kiv::make< IntfConfig >( intf );
      other->broadcastIs( threshold() );
      other->allIs( threshold() );
      world.config->intfConfigIs( intf, other );
   }

   // Both maps in either order, observed in between; now and then one of them alone.
   void membership( IntfId port, IntfId lag ) {
      bool const joins = chance( 60 );
      bool const portFirst = chance( 50 );
      auto portsTurn = [ & ] {
         now( port, joins ? "joins" : "leaves", lag );
         joins ? world.data->portToLagIs( port, lag ) : world.data->portToLagDel( port );
      };
      auto lagsTurn = [ & ] {
         now( joins ? "has" : "has not", port, "any more:", lag );
         for( auto other : lags_ ) {
            if( !joins || other != lag ) {
               world.lagPortDel( other, port );
            }
         }
         if( joins ) {
            world.lagPortIs( lag, port );
         }
      };
      portFirst ? portsTurn() : lagsTurn();
      observe();
      if( chance( 90 ) ) {
         portFirst ? lagsTurn() : portsTurn();
      }
   }

   void presence( IntfId port ) {
      bool const there = world.dir->ethPhyIntfStatusHas( port );
      if( there && chance( 25 ) ) {
         now( port, "loses its status" );
         world.dir->ethPhyIntfStatusDel( port );
      } else if( chance( 33 ) ) {
         now( port, "gets another status" );
         auto const status = Kiv::make< Interface::EthPhyIntfStatus >( port );
         status->speedIs( speed() );
         status->activeIs( chance( 70 ) );
         world.dir->ethPhyIntfStatusIs( port, status );
      } else if( world.data->intfHas( port ) && chance( 25 ) ) {
         now( port, "is told again" );
         world.data->intfIs( port, !world.data->intf( port ) );
      } else if( world.data->intfHas( port ) ) {
         now( port, "is unplugged" );
         world.data->intfDel( port );
      } else {
         now( port, "is plugged" );
         world.data->intfIs( port, chance( 50 ) );
      }
   }

   void tables() {
      now( "traffic classes and bursts" );
      auto const trafficClass = static_cast< std::uint16_t >( pick( 3 ) );
      Kiv::String const burst = chance( 50 ) ? "a" : "b";
      if( chance( 30 ) ) {
         chance( 50 ) ? world.config->aggregateTcConfigDel( trafficClass )
                      : world.config->burstConfigDel( burst );
      } else if( chance( 50 ) ) {
         auto const other = Kiv::make< AggregateTcConfig >( trafficClass );
         other->levelIs( threshold() );
         if( chance( 50 ) ) {
            world.config->aggregateTcConfigIs( trafficClass, other );
         } else {
            world.config->aggregateTcConfigIs( trafficClass )->levelIs( other->level() );
         }
      } else {
         auto const other = Kiv::make< BurstConfig >( burst );
         other->burstTimeIs( pick( 100 ) );
         if( chance( 50 ) ) {
            world.config->burstConfigIs( burst, other );
         } else {
            world.config->burstConfigIs( burst )->burstTimeIs( other->burstTime() );
         }
      }
   }

   // What the chip dropped stands in the status a period later.
   void traffic() {
      now( "traffic" );
      for( auto port : ports_ ) {
         world.unit().inject( port, static_cast< LevelType >( pick( 3 ) ), pick( 1'000'000 ), 200,
                              0.01 );
      }
      driver_.advance( world.config->period() );
      for( auto const & [ intf, status ] : world.status->intfStatus() ) {
         auto const ports = observer_.portsOf( intf );
         std::array< std::uint64_t, 4 > drops{};
         for( auto port : ports ) {
            for( auto levelType : Hoba::allLevelTypes ) {
               drops[ levelType ] += world.unit().drop( { port, levelType } );
            }
         }
         // Of a port that is not there nothing is read.
         if( intf.kind() == IntfId::Kind::portChannel || !ports.empty() ) {
            EXPECT_EQ( drops, ( std::array{ status->broadcastDrop(), status->multicastDrop(),
                                            status->uucastDrop(), status->allDrop() } ) )
                  << Kiv::toText( intf );
         }
      }
   }

   void verify() {
      now( "verification" );
      auto const verify = world.data->verifyData();
      verify->initVerifyData( 1 );
      verify->verifyInc( 1 );
      for( auto const & [ item, text ] : verify->cliVerifyOutput() ) {
         bool content = true;
         for( auto port : ports_ ) {
            if( item == "storm control platform" && observer_.leftOver( port ) ) {
               EXPECT_TRUE( has( text, Kiv::toText( port ) ) );
               content = false;
            }
         }
         EXPECT_EQ( text.ends_with( ": \"ok\" }," ), content ) << text;
      }
      EXPECT_TRUE( verify->cliVerifyOutputHas( "storm control platform" ) );
   }

   // The machine's inputs change while it is not there.
   void restart() {
      now( "restart" );
      bool const whole = chance( 50 );
      whole ? void( world.sm = nullptr ) : world.sm->initializedIs( false );
      auto const changes = pick( 5 );
      auto const writes = world.chip->writes();
      for( unsigned n = changes; n != 0; --n ) {
         whole ? world.levelIs( oneOf( ports_ ), at, threshold() )
               : world.config->intfConfigDel( oneOf( ports_ ) );
      }
      if( whole ) {
         world.create();
      }
      world.sm->initializedIs( true );
      if( changes == 0 ) {
         EXPECT_EQ( world.chip->writes(), writes ) << "the chip held all of it";
      }
      world.chip->sweep();
      observer_.forget();
   }

   std::vector< IntfId > const ports_ = { et1, et2, et3, IntfId( "Ethernet4/1" ),
                                          IntfId( "Ethernet5" ) };
   std::vector< IntfId > const lags_ = { po1, IntfId( "Port-Channel2" ) };
   std::mt19937_64 random_;
   Kiv::VirtualDriver driver_{ 1000 };
   Observer observer_;
   std::string done_;
};

TEST( StormControlSimulation, chipAndStatusFollowTheConfiguration ) {
   std::uint64_t first = 1;
   std::uint64_t last = 100;
   if( auto const * seed = std::getenv( "HOBA_SIMULATION_SEED" ) ) {
      first = last = std::strtoull( seed, nullptr, 10 );
   }
   auto const before = liveObjects();
   for( auto seed = first; seed <= last && !HasFailure(); ++seed ) {
      SCOPED_TRACE( "HOBA_SIMULATION_SEED=" + std::to_string( seed ) );
      Simulation( seed ).run( 300 );
   }
   EXPECT_EQ( liveObjects(), before );
}

TEST( StormControlSimulation, historyLeavesNoTrace ) {
   for( std::uint64_t seed = 1; seed <= 300 && !HasFailure(); ++seed ) {
      SCOPED_TRACE( "seed " + std::to_string( seed ) );
      Simulation simulation( seed );
      simulation.run( 60 );
      simulation.settle();
      EXPECT_EQ( simulation.world.outcome(), simulation.world.freshOutcome() );
   }
}

// What a seed does, byte for byte: calls of the hardware, and traces with their times.
std::string
recordOf( std::uint64_t seed ) {
   char const * const handles[] = { "HobaStormControlSm", "SimStormControl", "HobaCommon" };
   for( auto const * handle : handles ) {
      Zipline::levelsIs( handle, Zipline::Levels::upTo( 9 ) );
   }
   std::string record;
   Zipline::timeSourceIs( []( void * ) { return Kiv::ClockDriver::ambient().now(); } );
   Zipline::sinkIs( [ & ]( Zipline::Record const & line ) { line.print( record += '\n' ); } );
   {
      Simulation simulation( seed );
      simulation.run( 300 );
      for( auto const & call : simulation.world.helper->calls ) {
         record += '\n' + call;
      }
   }
   Zipline::sinkIs( nullptr );
   Zipline::timeSourceIs( nullptr );
   for( auto const * handle : handles ) {
      Zipline::levelsDel( handle );
   }
   return record;
}

TEST( StormControlSimulation, sameSeedSameCallsAndTraces ) {
   auto const once = recordOf( 4711 );
   // Other addresses, and other objects before it.
   auto const ballast = Kiv::make< Hoba::HobaCommonSmData >( "ballast" );
   auto const other = recordOf( 4712 );
   EXPECT_TRUE( once == recordOf( 4711 ) );
   EXPECT_FALSE( once == other );
   EXPECT_GT( once.size(), 60'000u );
}

// What people read of it. The simulation comes past everything.
TEST( StormControlSimulation, traceTexts ) {
   std::string record;
   for( std::uint64_t seed = 1; seed <= 20; ++seed ) {
      record += recordOf( seed ) + "\n";
   }
   for( std::string const text :
        { "Removing orphaned status for Ethernet1",
          "Creating status for Ethernet1",
          "Deleting status for Ethernet1",
          "No status found, returning....",
          "Setting Ethernet1 uucast level threshold to Value('Bridging::StormControl::Threshold', "
          "** {'mode': meteringPercent, 'level': 250, 'rate': 0, 'unit': unitPercent})",
          "Platform doesn't support DLP, returning....",
          "Ethernet1: Interface has become active, reprogram storm control",
          "Ethernet1: Interface has become inactive, clear storm control",
          "Interface doesn't exists in platform, skip initializing the sm",
          "Port-Channel1 updated. Reapplying config",
          "Port-Channel1 removed. Disabling reactor",
          "Disabling storm control on Ethernet1 because it is part of a lag, and lag config takes "
          "precedence",
          "Applying config to Ethernet1 because it left a lag",
          "Port-Channel1 config exists, reapplying config",
          "Updating levels for lag Port-Channel1",
          "Port-Channel1 is a LAG, verify individual interfaces",
          "Ethernet1: Verify storm-control config matches the LAG's config and not the individual "
          "config",
          "Ethernet1: There is no LAG storm-control config, make sure storm-control is disabled",
          "Ethernet1 is not part of a LAG, verify its individual config",
          "Ethernet1 uucastDrop: 0 broadcastDrop: 0 multicastDrop: 0 allDrop: 0",
          "a burstTime: 42" } ) {
      EXPECT_NE( record.find( text + "\n" ), record.npos ) << text;
   }
}

} // namespace
