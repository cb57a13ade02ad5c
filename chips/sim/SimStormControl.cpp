// SPDX-License-Identifier: Apache-2.0
#include "chips/sim/SimStormControl.h"

#include "Hoba/HobaStormControlRate.h"
#include "Kiv/Reflect.h"
#include "Zipline/Zipline.h"

#include <algorithm>

ZIPLINE_HANDLE( SimStormControl );

KIV_DEFINE( HobaSim::StormPort );
KIV_DEFINE( HobaSim::StormUnit );
KIV_DEFINE( HobaSim::StormControlHelper );

namespace HobaSim {

using namespace Bridging::StormControl;
using Hoba::LevelType;

namespace {

// What the chip does about a threshold.
StormLimit
limitFor( Threshold const & threshold, std::uint32_t speedKbps, Pelt::IntfId parent ) {
   if( threshold.isDefault() ) {
      return {};
   }
   switch( threshold.mode ) {
   case meteringPps:
      return { true, threshold.rate, unitPps, parent };
   case meteringBps:
      return { true, threshold.rateKbps(), unitKbps, parent };
   default:
      return { true, Hoba::rateOf( speedKbps, threshold ), unitKbps, parent };
   }
}

Kiv::String
limitText( StormLimit const & limit ) {
   if( !limit.limited ) {
      return "no limit";
   }
   return Kiv::toText( limit.rate ) + ( limit.unit == unitPps ? " pps" : " kbps" ) + " of " +
          Kiv::toText( limit.parent );
}

Kiv::String
levelName( LevelType levelType ) {
   return Kiv::String( Hoba::levelText( levelType ).substr( 1 ) );
}

void
addItem( Kiv::String & items, Kiv::String const & item ) {
   items += items.empty() || item.empty() ? "" : "; ";
   items += item;
}

std::uint64_t
packetsLetThrough( StormLimit const & limit, std::uint64_t packets, std::uint32_t bytes,
                   Kiv::Seconds seconds ) {
   if( !limit.limited ) {
      return packets;
   }
   double const packetsPerSecond =
         limit.unit == unitPps ? static_cast< double >( limit.rate )
                               : static_cast< double >( limit.rate ) * 1000 / ( 8.0 * bytes );
   double const allowed = packetsPerSecond * seconds;
   return allowed < static_cast< double >( packets ) ? static_cast< std::uint64_t >( allowed )
                                                     : packets;
}

} // namespace

StormLimit const &
StormPort::limit( LevelType levelType ) const {
   switch( levelType ) {
   case Hoba::levelTypeBroadcast:
      return broadcast();
   case Hoba::levelTypeMulticast:
      return multicast();
   case Hoba::levelTypeUUcast:
      return uucast();
   default:
      return all();
   }
}

void
StormPort::limitIs( LevelType levelType, StormLimit const & limit ) {
   switch( levelType ) {
   case Hoba::levelTypeBroadcast:
      return broadcastIs( limit );
   case Hoba::levelTypeMulticast:
      return multicastIs( limit );
   case Hoba::levelTypeUUcast:
      return uucastIs( limit );
   default:
      return allIs( limit );
   }
}

std::uint64_t
StormPort::drops( LevelType levelType ) const {
   switch( levelType ) {
   case Hoba::levelTypeBroadcast:
      return broadcastDrop();
   case Hoba::levelTypeMulticast:
      return multicastDrop();
   case Hoba::levelTypeUUcast:
      return uucastDrop();
   default:
      return allDrop();
   }
}

void
StormPort::dropsInc( LevelType levelType, std::uint64_t packets ) {
   switch( levelType ) {
   case Hoba::levelTypeBroadcast:
      broadcastDropInc( packets );
      break;
   case Hoba::levelTypeMulticast:
      multicastDropInc( packets );
      break;
   case Hoba::levelTypeUUcast:
      uucastDropInc( packets );
      break;
   default:
      allDropInc( packets );
   }
}

void
StormUnit::checkTrafficClass( std::uint32_t number ) const {
   if( number >= trafficClasses() ) {
      Kiv::parseFailed( Kiv::toText( number ),
                        trafficClasses() == 0
                              ? "a traffic class of this chip, which has none"
                              : "a traffic class of this chip: a number from 0 to " +
                                      Kiv::toText( trafficClasses() - 1 ) );
   }
}

std::uint64_t
StormUnit::inject( Pelt::IntfId intf, LevelType levelType, std::uint64_t packets,
                   std::uint32_t bytes, Kiv::Seconds seconds ) {
   if( levelType >= Hoba::levelTypeAll ) {
      throw Kiv::ParseError( "traffic is broadcast, multicast or unknown unicast" );
   }
   if( !( seconds > 0 ) || bytes == 0 ) {
      throw Kiv::ParseError( "traffic needs a time and a packet size above 0" );
   }
   auto const stormPort = port( intf );
   if( !stormPort ) {
      return 0; // nothing was ever limited there
   }
   auto const ofClass = packetsLetThrough( stormPort->limit( levelType ), packets, bytes, seconds );
   auto const ofAll = packetsLetThrough( stormPort->all(), ofClass, bytes, seconds );
   stormPort->dropsInc( levelType, packets - ofClass );
   stormPort->dropsInc( Hoba::levelTypeAll, ofClass - ofAll );
   return packets - ofAll;
}

void
StormControlHelper::hwInit() {
   unit_->portDelAll();
   unit_->bcastSkipDelAll();
   unit_->trafficClassDelAll();
   unit_->burstTimeDelAll();
   unit_->rulesInstalledIs( false );
}

void
StormControlHelper::installRules() {
   unit_->rulesInstalledIs( true );
}

void
StormControlHelper::setHwRate( LevelType levelType, Pelt::IntfId intf, Pelt::IntfId parentIntf,
                               std::uint32_t speedKbps, Threshold const & threshold ) {
   auto const limit = limitFor( threshold, speedKbps, parentIntf );
   ZTRACE( 4, intf, Hoba::levelText( levelType ), " limit is ", limit );
   unit_->writesInc( 1 );
   unit_->portIs( intf )->limitIs( levelType, limit );
}

void
StormControlHelper::updateBcastSkipRule( Pelt::IntfId intf, bool skip ) {
   if( skip ) {
      unit_->bcastSkipIs( intf );
   } else {
      unit_->bcastSkipDel( intf );
   }
}

void
StormControlHelper::programTcAggregateHwRate( std::uint32_t trafficClass,
                                              Threshold const & threshold ) {
   if( trafficClass >= unit_->trafficClasses() ) {
      ZTRACE( 4, "No traffic class ", trafficClass, " on this chip, nothing programmed" );
      return;
   }
   auto const key = static_cast< std::uint16_t >( trafficClass );
   unit_->writesInc( 1 );
   if( threshold.isDefault() ) {
      unit_->trafficClassDel( key );
   } else {
      unit_->trafficClassIs( key, threshold );
   }
}

void
StormControlHelper::setBurstTime( BurstConfig const & burstConfig ) {
   if( burstConfig.burstTime() == 0 ) {
      unit_->burstTimeDel( burstConfig.name() ); // its own
   } else {
      unit_->burstTimeIs( burstConfig.name(), burstConfig.burstTime() );
   }
}

Kiv::String
StormControlHelper::verifyEnabled( Pelt::IntfId intf, bool enabled ) {
   auto const port = unit_->port( intf );
   bool const limited =
         port && std::any_of( std::begin( Hoba::allLevelTypes ), std::end( Hoba::allLevelTypes ),
                              [ & ]( LevelType type ) { return port->limit( type ).limited; } );
   if( limited == enabled ) {
      return enabled || !unit_->bcastSkipHas( intf ) ? "" : "no skip rule expected, one found";
   }
   return enabled ? "limits expected, none found" : "no limits expected, some found";
}

Kiv::String
StormControlHelper::verifyPort( Pelt::IntfId intf, Pelt::IntfId parentIntf, std::uint32_t speedKbps,
                                IntfConfig const & intfConfig ) {
   Kiv::String mismatches;
   auto const port = unit_->port( intf );
   for( auto levelType : Hoba::allLevelTypes ) {
      addItem( mismatches,
               verifyLevel( port.get(), levelType, parentIntf, speedKbps, intfConfig ) );
   }
   addItem( mismatches, verifySkip( intf, parentIntf, speedKbps, intfConfig ) );
   return mismatches;
}

Kiv::String
StormControlHelper::verifyLevel( StormPort const * port, LevelType levelType,
                                 Pelt::IntfId parentIntf, std::uint32_t speedKbps,
                                 IntfConfig const & intfConfig ) const {
   auto const found = port ? port->limit( levelType ) : StormLimit{};
   auto const decision = Hoba::decideLevelOnPort( Hoba::decideLevels( *this, &intfConfig ),
                                                  levelType, port && port->all().limited );
   auto const expected = limitFor( decision.threshold, speedKbps, parentIntf );
   // Without a speed, or for a zero that was refused, nothing is programmed. What stood before stays,
   // of which the chip knows only that it is of the same configuration.
   bool const stays = speedKbps == 0 || decision.refused();
   if( stays ? !found.limited || found.parent == parentIntf : found == expected ) {
      return {};
   }
   return levelName( levelType ) + ": " +
          ( stays ? "no limit but of " + Kiv::toText( parentIntf ) : limitText( expected ) ) +
          " expected, " + limitText( found ) + " found";
}

Kiv::String
StormControlHelper::verifySkip( Pelt::IntfId intf, Pelt::IntfId parentIntf, std::uint32_t speedKbps,
                                IntfConfig const & intfConfig ) const {
   if( intf != parentIntf && unit_->bcastSkipHas( intf ) ) {
      return "a skip rule of its own found";
   }
   auto const asked = Hoba::decideLevels( *this, &intfConfig );
   if( speedKbps == 0 || asked[ Hoba::levelTypeMulticast ].refused() ||
       asked[ Hoba::levelTypeAll ].refused() ) {
      return {}; // as above
   }
   bool const expected = Hoba::broadcastSkips( asked );
   if( unit_->bcastSkipHas( parentIntf ) == expected ) {
      return {};
   }
   return expected ? "skip rule expected, none found" : "no skip rule expected, one found";
}

Kiv::String
StormControlHelper::verifyAggregateTc( std::uint32_t trafficClass,
                                       AggregateTcConfig const & config ) {
   auto const key = static_cast< std::uint16_t >( trafficClass );
   auto const & found = unit_->trafficClass( key );
   if( found == config.level() ) {
      return {};
   }
   if( trafficClass >= unit_->trafficClasses() ) {
      return "the chip has no such traffic class";
   }
   return Kiv::toText( config.level() ) + " expected, " + Kiv::toText( found ) + " found";
}

Kiv::String
StormControlHelper::verifyPlatformStormControl( Config const & config, Status const & ) {
   Kiv::String mismatches;
   if( !unit_->rulesInstalled() && !unit_->chipStormControl() ) {
      addItem( mismatches, "the rules are missing" );
   }
   // What is configured has been compared already, item by item.
   Kiv::String const nobodys = ", which nobody configured";
   for( auto const & [ intf, port ] : unit_->port() ) {
      for( auto levelType : Hoba::allLevelTypes ) {
         auto const & limit = port->limit( levelType );
         if( limit.limited && !config.intfConfigHas( limit.parent ) ) {
            addItem( mismatches, Kiv::toText( intf ) + ' ' + levelName( levelType ) + ": " +
                                       limitText( limit ) + nobodys );
         }
      }
   }
   for( auto intf : unit_->bcastSkip() ) {
      if( !config.intfConfigHas( intf ) ) {
         addItem( mismatches, Kiv::toText( intf ) + ": a skip rule" + nobodys );
      }
   }
   for( auto const & [ trafficClass, threshold ] : unit_->trafficClass() ) {
      if( !config.aggregateTcConfigHas( trafficClass ) ) {
         addItem( mismatches, "traffic class " + Kiv::toText( trafficClass ) + ": " +
                                    Kiv::toText( threshold ) + nobodys );
      }
   }
   return mismatches;
}

std::uint64_t
StormControlHelper::drops( Pelt::IntfId intf, LevelType levelType ) const {
   auto const port = unit_->port( intf );
   return port ? port->drops( levelType ) : 0;
}

std::uint64_t
StormControlHelper::getUUcastDropCnt( Pelt::IntfId intf ) const {
   return drops( intf, Hoba::levelTypeUUcast );
}

std::uint64_t
StormControlHelper::getBcastDropCnt( Pelt::IntfId intf ) const {
   return drops( intf, Hoba::levelTypeBroadcast );
}

std::uint64_t
StormControlHelper::getMcastDropCnt( Pelt::IntfId intf ) const {
   return drops( intf, Hoba::levelTypeMulticast );
}

std::uint64_t
StormControlHelper::getAllDropCnt( Pelt::IntfId intf ) const {
   return drops( intf, Hoba::levelTypeAll );
}

} // namespace HobaSim
