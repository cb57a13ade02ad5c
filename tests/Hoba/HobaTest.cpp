// SPDX-License-Identifier: Apache-2.0
#include "HobaTest.h"

#include "Hoba/HobaHelper.h"
#include "Hoba/HobaStormControlRate.h"
#include "Kiv/Reflect.h"

#include <algorithm>
#include <numeric>

KIV_DEFINE( HobaTest::RecordingStormHelper );

namespace HobaTest {

namespace {

std::string
text( StormControl::Threshold const & threshold ) {
   return threshold.isDefault()                             ? " none"
          : threshold.mode == StormControl::meteringPercent ? " " + Kiv::toText( threshold.level )
          : threshold.mode == StormControl::meteringPps ? " pps " + Kiv::toText( threshold.rate )
                                                        : " bps " + Kiv::toText( threshold.rate );
}

} // namespace

void
RecordingStormHelper::called( std::string const & call ) {
   calls.push_back( call );
   if( throwAt && --throwAt == 0 ) {
      throw std::runtime_error( "the chip refused" );
   }
}

void
RecordingStormHelper::setHwRate( Hoba::LevelType levelType, Pelt::IntfId intf,
                                 Pelt::IntfId parentIntf, std::uint32_t speedKbps,
                                 Threshold const & threshold ) {
   called( std::string( Hoba::levelText( levelType ).substr( 1 ) ) + " " + Kiv::toText( intf ) +
           ( parentIntf == intf ? "" : "(" + Kiv::toText( parentIntf ) + ")" ) + " " +
           Kiv::toText( speedKbps ) + text( threshold ) );
   StormControlHelper::setHwRate( levelType, intf, parentIntf, speedKbps, threshold );
}

void
RecordingStormHelper::programTcAggregateHwRate( std::uint32_t trafficClass,
                                                Threshold const & threshold ) {
   called( "tc " + Kiv::toText( trafficClass ) + text( threshold ) );
   StormControlHelper::programTcAggregateHwRate( trafficClass, threshold );
}

StormWorld::StormWorld()
      : data( Kiv::make< Hoba::HobaCommonSmData >( "agent" ) ),
        config( Kiv::make< StormControl::Config >() ),
        dir( Kiv::make< Interface::AllEthPhyIntfStatusDir >() ),
        status( Kiv::make< StormControl::Status >() ),
        lagInput( Kiv::make< Lag::Input::Config >() ), chip( Kiv::make< HobaSim::Chip >() ),
        helper( Kiv::make< RecordingStormHelper >( chip->stormControl() ) ),
        clock( Kiv::make< Mox::TimerWheel >() ) {}

StormWorld::~StormWorld() {
   sm = nullptr;
   data->cleanup();
   EXPECT_EQ( failures(), 0u ) << lastLogged();
}

void
StormWorld::lagPortIs( Pelt::IntfId lag, Pelt::IntfId intf ) {
   auto ports = data->lagToPort( lag );
   if( std::find( ports.port.begin(), ports.port.end(), intf ) == ports.port.end() ) {
      ports.port.push_back( intf );
   }
   data->lagToPortIs( lag, ports );
}

void
StormWorld::lagPortDel( Pelt::IntfId lag, Pelt::IntfId intf ) {
   auto ports = data->lagToPort( lag );
   std::erase( ports.port, intf );
   data->lagToPortIs( lag, ports );
}

void
StormWorld::levelIs( Pelt::IntfId intf, Hoba::LevelType levelType, Threshold const & threshold ) {
   auto const entity = config->intfConfigIs( intf );
   switch( levelType ) {
   case Hoba::levelTypeBroadcast:
      return entity->broadcastIs( threshold );
   case Hoba::levelTypeMulticast:
      return entity->multicastIs( threshold );
   case Hoba::levelTypeUUcast:
      return entity->uucastIs( threshold );
   default:
      return entity->allIs( threshold );
   }
}

StormControl::LevelStatus
StormWorld::levelStatus( Pelt::IntfId intf, Hoba::LevelType levelType ) {
   auto const entity = status->intfStatus( intf );
   if( !entity ) {
      ADD_FAILURE() << "no status of " << Kiv::toText( intf );
      return {};
   }
   return Hoba::levelStatus( *entity, levelType );
}

Strings
StormWorld::mismatches() {
   auto const verify = data->verifyData();
   verify->initVerifyData( 7 );
   verify->verifyInc( 1 );
   Strings found;
   for( auto const & [ item, text ] : verify->cliVerifyOutput() ) {
      if( !text.ends_with( ": \"ok\" }," ) ) {
         found.push_back( text );
      }
   }
   verify->resetVerifyData();
   return found;
}

std::string
StormWorld::outcomeOf( HobaSim::StormUnit const & unit,
                       StormControl::Status const & statusOf ) const {
   std::set< std::string > lines;
   auto const line = [ & ]( auto const &... parts ) {
      std::string text;
      ( ( text += Kiv::toText( parts ) + " " ), ... );
      lines.insert( text + "\n" );
   };
   for( auto const & [ key, limit ] : unit.limit() ) {
      if( data->intfHas( key.intf ) ) {
         line( "chip", key, limit );
      }
   }
   for( auto const & [ intf, skips ] : unit.bcastSkip() ) {
      if( Hoba::isPortChannel( intf ) || data->intfHas( intf ) ) {
         line( "skip", intf );
      }
   }
   for( auto const & [ trafficClass, threshold ] : unit.trafficClass() ) {
      line( "class", trafficClass, threshold );
   }
   for( auto const & [ burst, time ] : unit.burstTime() ) {
      line( "burst", burst, time );
   }
   for( auto const & [ intf, of ] : statusOf.intfStatus() ) {
      line( "status", intf, of->speed(), of->broadcast(), of->multicast(), of->uucast(),
            of->all() );
   }
   return std::accumulate( lines.begin(), lines.end(), std::string() );
}

std::string
StormWorld::freshOutcome() const {
   auto const freshChip = Kiv::make< HobaSim::Chip >();
   auto & fresh = *freshChip->stormControl();
   for( auto const * attribute : fresh.fwkType().reflection()->attributes() ) {
      if( attribute->valueType == "bool" && !attribute->isKeyed() ) {
         attribute->set( fresh, attribute->get( *chip->stormControl() ) ); // what it can do
      }
   }
   auto const freshStatus = Kiv::make< StormControl::Status >();
   Hoba::StormControlSm::StormControlSmIs(
         data, config, dir, freshStatus,
         Kiv::make< HobaSim::StormControlHelper >( freshChip->stormControl() ), lagInput, clock )
         ->initializedIs( true );
   return outcomeOf( fresh, *freshStatus );
}

} // namespace HobaTest
