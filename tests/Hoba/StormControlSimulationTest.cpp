// SPDX-License-Identifier: Apache-2.0

// Storm control under random changes. After every single write an observer of its own mind works
// out, from the configuration alone, what the chip must hold and what the status must say.
//
// HOBA_SIMULATION_SEED=n runs that one seed.

#include "HobaTest.h"

#include "Hoba/HobaStormControlRate.h"

#include <algorithm>
#include <random>
#include <set>

namespace {

using namespace HobaTest;
using namespace Bridging::StormControl;
using HobaSim::StormLimit;
using Pelt::IntfId;

struct Holding {
   std::map< Hoba::LevelType, StormLimit > limit;
   bool skips = false;
   bool nothing() const {
      return !skips && std::none_of( limit.begin(), limit.end(),
                                     []( auto const & entry ) { return entry.second.limited; } );
   }
};
using Holdings = std::map< IntfId, Holding >;

// ---- The observer

class Observer {
 public:
   explicit Observer( StormWorld & world ) : world_( world ), unit_( world.unit() ) {}

   // `ports` and `lags` are all that ever take part.
   void check( std::vector< IntfId > const & ports, std::vector< IntfId > const & lags ) {
      Holdings now;
      for( auto port : ports ) {
         now[ port ] = held( port );
         SCOPED_TRACE( Kiv::toText( port ) );
         checkPort( port, now[ port ], before_[ port ] );
      }
      for( auto lag : lags ) {
         SCOPED_TRACE( Kiv::toText( lag ) );
         if( auto const * config = configOf( lag ) ) {
            expectSkip( *config, unit_.bcastSkipHas( lag ) );
         } else {
            EXPECT_FALSE( unit_.bcastSkipHas( lag ) );
         }
      }
      checkStatus();
      checkTables();
      before_ = now;
   }

   // What of a LAG or a port the hardware has to do with.
   std::vector< IntfId > portsOf( IntfId intf ) const {
      std::vector< IntfId > ports;
      for( auto const & [ port, present ] : world_.data->intf() ) {
         if( port == intf || ( lagOf( port ) == intf && listed( intf, port ) && active( port ) ) ) {
            ports.push_back( port );
         }
      }
      return ports;
   }

 private:
   static constexpr Hoba::LevelType levelTypes[] = { Hoba::levelTypeBroadcast,
                                                     Hoba::levelTypeMulticast,
                                                     Hoba::levelTypeUUcast, Hoba::levelTypeAll };

   static Threshold asked( IntfConfig const & config, Hoba::LevelType levelType ) {
      Threshold const all[] = { config.broadcast(), config.multicast(), config.uucast(),
                                config.all() };
      return all[ levelType ];
   }
   static bool isNone( Threshold const & threshold ) {
      return threshold.mode == 0 && threshold.level == 10000 && threshold.rate == 0 &&
             threshold.unit == 4;
   }
   bool has( Hoba::LevelType levelType ) const {
      return levelType == Hoba::levelTypeUUcast ? unit_.uucastLevel()
             : levelType == Hoba::levelTypeAll  ? unit_.allLevel()
                                                : true;
   }
   bool meters( Threshold const & threshold ) const {
      bool const can[] = { true, unit_.ppsMetering(), unit_.bpsMetering() };
      return can[ threshold.mode ];
   }
   // Asked for and metered, but the platform does not take a zero.
   bool isRefusedZero( Threshold const & threshold ) const {
      return !unit_.zeroRate() && threshold.level + threshold.rate == 0 && meters( threshold );
   }
   bool limits( IntfConfig const & config, Hoba::LevelType levelType ) const {
      auto const threshold = asked( config, levelType );
      return has( levelType ) && meters( threshold ) && !isNone( threshold ) &&
             !isRefusedZero( threshold );
   }
   bool covered( IntfConfig const & config, Hoba::LevelType levelType ) const {
      return ( levelType == Hoba::levelTypeBroadcast || levelType == Hoba::levelTypeUUcast ) &&
             limits( config, Hoba::levelTypeAll );
   }

   IntfConfig const * configOf( IntfId intf ) const {
      auto const * const found = world_.config->intfConfig().find( intf );
      return found ? found->get() : nullptr;
   }
   IntfId lagOf( IntfId port ) const {
      auto const * const lag = world_.data->portToLag().find( port );
      return lag ? *lag : IntfId();
   }
   bool listed( IntfId lag, IntfId port ) const {
      auto const * const list = world_.data->lagToPort().find( lag );
      return list && std::count( list->port.begin(), list->port.end(), port );
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

   Holding held( IntfId port ) const {
      Holding holding;
      if( auto const entity = unit_.port( port ) ) {
         holding.limit = { { Hoba::levelTypeBroadcast, entity->broadcast() },
                           { Hoba::levelTypeMulticast, entity->multicast() },
                           { Hoba::levelTypeUUcast, entity->uucast() },
                           { Hoba::levelTypeAll, entity->all() } };
      }
      holding.skips = unit_.bcastSkipHas( port );
      return holding;
   }

   void checkPort( IntfId port, Holding const & now, Holding const & before ) {
      auto const lag = lagOf( port );
      auto const parent = lag ? lag : port;
      auto const * config = configOf( parent );
      bool const participates =
            world_.data->intfHas( port ) && active( port ) && ( !lag || listed( lag, port ) );
      if( !config || !participates ) {
         EXPECT_TRUE( now.nothing() ) << "nothing may be limited here";
         return;
      }
      auto const speed = speedOf( port );
      for( auto levelType : levelTypes ) {
         auto const limit = at( now, levelType );
         auto const threshold = asked( *config, levelType );
         bool const stays = speed == 0 || ( has( levelType ) && isRefusedZero( threshold ) );
         auto const wanted =
               stays ? at( before, levelType ) : wantedLimit( *config, levelType, speed, parent );
         bool const mayBeNothing = stays || covered( *config, levelType );
         if( limit != wanted && !( mayBeNothing && !limit.limited ) ) {
            ADD_FAILURE() << Hoba::levelText( levelType ) << " is " << Kiv::toText( limit )
                          << "\nand must be " << Kiv::toText( wanted );
         }
         if( limit.limited && limit.parent != parent ) {
            ADD_FAILURE() << Hoba::levelText( levelType ) << " is of "
                          << Kiv::toText( limit.parent );
         }
      }
      if( lag ) {
         EXPECT_FALSE( now.skips );
      } else if( speed != 0 ) {
         expectSkip( *config, now.skips );
      } else {
         EXPECT_TRUE( !now.skips || before.skips );
      }
   }

   static StormLimit at( Holding const & holding, Hoba::LevelType levelType ) {
      auto const found = holding.limit.find( levelType );
      return found == holding.limit.end() ? StormLimit{} : found->second;
   }

   StormLimit wantedLimit( IntfConfig const & config, Hoba::LevelType levelType,
                           std::uint64_t speed, IntfId parent ) const {
      if( !limits( config, levelType ) ) {
         return {};
      }
      auto const threshold = asked( config, levelType );
      switch( threshold.mode ) {
      case meteringPps:
         return { true, threshold.rate, unitPps, parent };
      case meteringBps:
         return { true, threshold.rate, unitKbps, parent }; // all here are in kbps
      default:
         return { true, share( speed, threshold.level ), unitKbps, parent };
      }
   }

   // A zero that is refused leaves the rule as it was.
   void expectSkip( IntfConfig const & config, bool skips ) const {
      if( !isRefusedZero( config.multicast() ) && !isRefusedZero( config.all() ) ) {
         EXPECT_EQ( skips, limits( config, Hoba::levelTypeMulticast ) &&
                                 !limits( config, Hoba::levelTypeAll ) );
      }
   }

   // ---- Status

   void checkStatus() {
      std::set< IntfId > configured, stated;
      for( auto const & [ intf, config ] : world_.config->intfConfig() ) {
         configured.insert( intf );
      }
      for( auto const & [ intf, status ] : world_.status->intfStatus() ) {
         stated.insert( intf );
      }
      EXPECT_EQ( configured, stated );
      for( auto intf : configured ) {
         SCOPED_TRACE( "status of " + Kiv::toText( intf ) );
         if( settled( intf ) && stated.count( intf ) ) {
            for( auto levelType : levelTypes ) {
               checkLevelStatus( intf, levelType );
            }
         }
      }
   }

   // Whether both maps say the same of a LAG's ports; a port always is.
   bool settled( IntfId lag ) const {
      auto const * const list = world_.data->lagToPort().find( lag );
      return !list || std::all_of( list->port.begin(), list->port.end(),
                                   [ & ]( IntfId port ) { return lagOf( port ) == lag; } );
   }

   void checkLevelStatus( IntfId intf, Hoba::LevelType levelType ) {
      auto const & config = *configOf( intf );
      auto const threshold = asked( config, levelType );
      auto const status = world_.levelStatus( intf, levelType );
      auto const wanted = wantedState( intf, config, levelType );
      bool const mayBeCovered = covered( config, levelType ) && !isNone( threshold );
      EXPECT_TRUE( status.state == wanted || ( mayBeCovered && status.state == supersededByAll ) )
            << Hoba::levelText( levelType ) << ": " << Kiv::toText( status ) << "\nmust be "
            << Kiv::toText( wanted );
      if( status.state == programmed ) {
         std::uint64_t rate = 0, speed = 0;
         for( auto port : portsOf( intf ) ) {
            speed += speedOf( port );
            rate +=
                  threshold.mode == meteringPercent ? share( speedOf( port ), threshold.level ) : 0;
         }
         EXPECT_EQ( status.threshold, threshold ) << Hoba::levelText( levelType );
         EXPECT_EQ( status.rate, rate ) << Hoba::levelText( levelType );
         EXPECT_EQ( world_.status->intfStatus( intf )->speed(), speed );
      }
   }

   LevelState wantedState( IntfId intf, IntfConfig const & config,
                           Hoba::LevelType levelType ) const {
      auto const threshold = asked( config, levelType );
      if( isNone( threshold ) ) {
         return notConfigured;
      }
      if( !has( levelType ) ) {
         return levelNotSupported;
      }
      if( isRefusedZero( threshold ) ) {
         return zeroRateNotSupported;
      }
      auto const ports = portsOf( intf );
      bool const fast = std::any_of( ports.begin(), ports.end(),
                                     [ & ]( IntfId port ) { return speedOf( port ) != 0; } );
      bool const isLag = intf.kind() == IntfId::Kind::portChannel;
      if( !isLag && ports.empty() ) {
         return intfNotPresent;
      }
      if( !isLag && lagOf( intf ) ) {
         return memberOfLag;
      }
      if( !isLag && !active( intf ) ) {
         return intfInactive;
      }
      if( !fast ) {
         return ports.empty() ? lagHasNoMember : LevelState::speedUnknown;
      }
      return meters( threshold ) ? programmed : meteringModeNotSupported;
   }

   // ---- Traffic classes and bursts

   void checkTables() {
      std::map< std::uint16_t, Threshold > wanted, found;
      for( auto const & [ trafficClass, config ] : world_.config->aggregateTcConfig() ) {
         if( !isNone( config->level() ) ) {
            wanted[ trafficClass ] = config->level();
         }
      }
      for( auto const & [ trafficClass, threshold ] : unit_.trafficClass() ) {
         found[ trafficClass ] = threshold;
      }
      EXPECT_EQ( wanted, found );
      for( auto const & [ burst, time ] : unit_.burstTime() ) {
         auto const config = world_.config->burstConfig( burst );
         EXPECT_EQ( time, config ? config->burstTime() : 0u );
      }
      for( auto const & [ burst, config ] : world_.config->burstConfig() ) {
         EXPECT_EQ( unit_.burstTimeHas( burst ), unit_.burst() );
      }
   }

   StormWorld & world_;
   HobaSim::StormUnit & unit_;
   Holdings before_;
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
      return oneOf< Threshold >( { {},
                                   {},
                                   percent( 1 ),
                                   percent( 250 ),
                                   percent( 3333 ),
                                   percent( 9999 ),
                                   percent( 0 ),
                                   pps( 0 ),
                                   pps( 7000 ),
                                   kbps( 8000 ),
                                   { meteringPercent, 10000, 5, unitPercent } } );
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
      switch( pick( 12 ) ) {
      case 0:
      case 1:
      case 2:
      case 3: {
         auto const levelType = static_cast< Hoba::LevelType >( pick( 4 ) );
         auto const wanted = threshold();
         now( intf, Hoba::levelText( levelType ), wanted );
         return world.levelIs( intf, levelType, wanted );
      }
      case 4:
         return configChange( intf );
      case 5:
      case 6:
         return membership( port, oneOf( lags_ ) );
      case 7:
         return presence( port );
      case 8:
         return tables();
      case 9:
         now( port, "changes its activity" );
         return world.activeIs( port, chance( 60 ) );
      default: {
         auto const kbps = speed();
         now( port, "has the speed", kbps );
         return world.speedIs( port, kbps );
      }
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

   // A port's hardware comes and goes with it.
   void presence( IntfId port ) {
      if( chance( 50 ) ) {
         bool const there = world.dir->ethPhyIntfStatusHas( port );
         now( port, there ? "loses its status" : "gets a status" );
         there ? world.dir->ethPhyIntfStatusDel( port ) : world.portIs( port, speed() );
      } else if( world.data->intfHas( port ) ) {
         now( port, "is unplugged" );
         world.data->intfDel( port );
         world.unit().portDel( port );
         world.unit().bcastSkipDel( port );
      } else {
         now( port, "is plugged" );
         world.data->intfIs( port, true );
      }
   }

   void tables() {
      now( "traffic classes and bursts" );
      auto const trafficClass = static_cast< std::uint16_t >( pick( 3 ) );
      Kiv::String const burst = chance( 50 ) ? "a" : "b";
      switch( pick( 4 ) ) {
      case 0:
         return world.config->aggregateTcConfigIs( trafficClass )->levelIs( threshold() );
      case 1:
         return world.config->aggregateTcConfigDel( trafficClass );
      case 2:
         return world.config->burstConfigIs( burst )->burstTimeIs(
               static_cast< std::uint32_t >( pick( 100 ) ) );
      default:
         return world.config->burstConfigDel( burst );
      }
   }

   // What the chip dropped stands in the status a period later.
   void traffic() {
      now( "traffic" );
      for( auto port : ports_ ) {
         world.unit().inject( port, static_cast< Hoba::LevelType >( pick( 3 ) ), pick( 1'000'000 ),
                              200, 0.01 );
      }
      driver_.advance( world.config->period() );
      for( auto const & [ intf, status ] : world.status->intfStatus() ) {
         auto const ports = observer_.portsOf( intf );
         std::vector< std::uint64_t > drops( 4 );
         for( auto port : ports ) {
            if( auto const entity = world.unit().port( port ) ) {
               drops[ 0 ] += entity->broadcastDrop();
               drops[ 1 ] += entity->multicastDrop();
               drops[ 2 ] += entity->uucastDrop();
               drops[ 3 ] += entity->allDrop();
            }
         }
         bool const isLag = intf.kind() == IntfId::Kind::portChannel;
         if( isLag || !ports.empty() ) {
            EXPECT_EQ( drops, ( std::vector{ status->broadcastDrop(), status->multicastDrop(),
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
         EXPECT_TRUE( text.ends_with( ": \"ok\" }," ) ) << text;
      }
      EXPECT_TRUE( verify->cliVerifyOutputHas( "storm control platform" ) );
   }

   // The machine's inputs change while it is not there.
   void restart() {
      now( "restart" );
      bool const whole = chance( 50 );
      if( whole ) {
         world.sm = nullptr;
      } else {
         world.sm->initializedIs( false );
      }
      for( unsigned n = pick( 5 ); n != 0; --n ) {
         whole ? world.levelIs( oneOf( ports_ ), Hoba::levelTypeAll, threshold() )
               : world.config->intfConfigDel( oneOf( ports_ ) );
      }
      if( whole ) {
         world.create();
      }
      world.sm->initializedIs( true );
   }

   std::vector< IntfId > const ports_ = { IntfId( "Ethernet1" ), IntfId( "Ethernet2" ),
                                          IntfId( "Ethernet3/1" ), IntfId( "Ethernet4" ),
                                          IntfId( "Ethernet5" ) };
   std::vector< IntfId > const lags_ = { IntfId( "Port-Channel1" ), IntfId( "Port-Channel2" ) };
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

// What a seed does, byte for byte: calls of the hardware, and traces with their times.
std::pair< Strings, std::string >
recordOf( std::uint64_t seed ) {
   char const * const handles[] = { "HobaStormControlSm", "SimStormControl", "HobaCommon" };
   for( auto const * handle : handles ) {
      Zipline::levelsIs( handle, Zipline::Levels::upTo( 9 ) );
   }
   Zipline::timeSourceIs( []( void * ) { return Kiv::ClockDriver::ambient().now(); } );
   std::pair< Strings, std::string > record;
   Zipline::sinkIs( [ & ]( Zipline::Record const & line ) {
      line.print( record.second );
      record.second += '\n';
   } );
   {
      Simulation simulation( seed );
      simulation.run( 200 );
      record.first = simulation.world.helper->take();
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
   auto const twice = recordOf( 4711 );
   EXPECT_TRUE( once.first == twice.first );
   EXPECT_TRUE( once.second == twice.second );
   EXPECT_FALSE( once.first == other.first );
   EXPECT_GT( once.first.size(), 500u );
   EXPECT_GT( once.second.size(), 50'000u );
}

} // namespace
