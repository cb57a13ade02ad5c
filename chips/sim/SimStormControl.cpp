// SPDX-License-Identifier: Apache-2.0
#include "chips/sim/SimStormControl.h"

#include "Hoba/HobaStormControlRate.h"
#include "Kiv/Reflect.h"
#include "Zipline/Zipline.h"

#include <algorithm>
#include <map>

ZIPLINE_HANDLE( SimStormControl );

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

void
StormKey::print( std::string & out ) const {
   Kiv::print( out, intf );
   out += ':';
   bool const isLevel = levelType < Hoba::levelTypeMax;
   out += isLevel ? levelName( static_cast< LevelType >( levelType ) ) : Kiv::toText( levelType );
}

StormKey
StormKey::parse( std::string_view text ) {
   auto const colon = text.rfind( ':' );
   if( colon != text.npos ) {
      for( auto const levelType : Hoba::allLevelTypes ) {
         if( text.substr( colon + 1 ) == levelName( levelType ) ) {
            return { Pelt::IntfId( text.substr( 0, colon ) ), levelType };
         }
      }
   }
   Kiv::parseFailed( text, "an interface and a class of traffic: Ethernet1:broadcast, :multicast, "
                           ":uucast or :all" );
}

void
StormUnit::forget( Pelt::IntfId intf ) {
   for( auto const levelType : Hoba::allLevelTypes ) {
      limitDel( { intf, levelType } );
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
   auto const dropped = [ & ]( LevelType limitType, std::uint64_t arriving ) {
      StormKey const key{ intf, limitType };
      auto const excess = arriving - packetsLetThrough( limit( key ), arriving, bytes, seconds );
      if( excess ) {
         dropIs( key, drop( key ) + excess );
      }
      return excess;
   };
   auto const ofClass = dropped( levelType, packets );
   return ofClass + dropped( Hoba::levelTypeAll, packets - ofClass );
}

void
StormControlHelper::installRules() {
   unit_->ruleMustProgram( Name( StormUnit::classRules ), true );
}

void
StormControlHelper::setHwRate( LevelType levelType, Pelt::IntfId intf, Pelt::IntfId parentIntf,
                               std::uint32_t speedKbps, Threshold const & threshold ) {
   auto const limit = limitFor( threshold, speedKbps, parentIntf );
   ZTRACE( 4, intf, Hoba::levelText( levelType ), " limit is ", limit );
   StormKey const key{ intf, levelType };
   limit.limited ? unit_->limitMustProgram( key, limit ) : unit_->limitMustClear( key );
}

void
StormControlHelper::updateBcastSkipRule( Pelt::IntfId intf, bool skip ) {
   skip ? unit_->bcastSkipMustProgram( intf, true ) : unit_->bcastSkipMustClear( intf );
}

void
StormControlHelper::programTcAggregateHwRate( std::uint32_t trafficClass,
                                              Threshold const & threshold ) {
   if( trafficClass >= unit_->trafficClasses() ) {
      ZTRACE( 4, "No traffic class ", trafficClass, " on this chip, nothing programmed" );
      return;
   }
   auto const key = static_cast< std::uint16_t >( trafficClass );
   threshold.isDefault() ? unit_->trafficClassMustClear( key )
                         : unit_->trafficClassMustProgram( key, threshold );
}

void
StormControlHelper::setBurstTime( BurstConfig const & burstConfig ) {
   Name const name( burstConfig.name() );
   burstConfig.burstTime() == 0 ? unit_->burstTimeMustClear( name ) // its own
                                : unit_->burstTimeMustProgram( name, burstConfig.burstTime() );
}

Kiv::String
StormControlHelper::verifyEnabled( Pelt::IntfId intf, bool enabled ) {
   bool const limited = std::any_of( std::begin( Hoba::allLevelTypes ),
                                     std::end( Hoba::allLevelTypes ), [ & ]( LevelType type ) {
                                        return unit_->limit( { intf, type } ).limited;
                                     } );
   if( limited == enabled ) {
      return enabled || !unit_->bcastSkipHas( intf ) ? "" : "no skip rule expected, one found";
   }
   return enabled ? "limits expected, none found" : "no limits expected, some found";
}

Kiv::String
StormControlHelper::verifyPort( Pelt::IntfId intf, Pelt::IntfId parentIntf, std::uint32_t speedKbps,
                                IntfConfig const & intfConfig ) {
   Kiv::String mismatches;
   for( auto levelType : Hoba::allLevelTypes ) {
      addItem( mismatches, verifyLevel( { intf, levelType }, parentIntf, speedKbps, intfConfig ) );
   }
   addItem( mismatches, verifySkip( intf, parentIntf, speedKbps, intfConfig ) );
   return mismatches;
}

Kiv::String
StormControlHelper::verifyLevel( StormKey const & key, Pelt::IntfId parentIntf,
                                 std::uint32_t speedKbps, IntfConfig const & intfConfig ) const {
   auto const levelType = static_cast< LevelType >( key.levelType );
   auto const found = unit_->limit( key );
   auto const decision =
         Hoba::decideLevelOnPort( Hoba::decideLevels( *this, &intfConfig ), levelType,
                                  unit_->limit( { key.intf, Hoba::levelTypeAll } ).limited );
   auto const expected = limitFor( decision.threshold, speedKbps, parentIntf );
   // Without a speed, or for a zero that was refused, nothing is programmed. What stood before stays,
   // of which the chip knows only that it is of the same configuration.
   bool const stays = speedKbps == 0 || decision.refused();
   bool const same = found == expected || ( !found.limited && !expected.limited );
   if( stays ? !found.limited || found.parent == parentIntf : same ) {
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
   if( speedKbps == 0 && intf == parentIntf ) {
      return {}; // as above; a LAG's rule does not ask for the speed of its members
   }
   bool const expected = Hoba::broadcastSkips( Hoba::decideLevels( *this, &intfConfig ) );
   if( unit_->bcastSkipHas( parentIntf ) == expected ) {
      return {};
   }
   return expected ? "skip rule expected, none found" : "no skip rule expected, one found";
}

Kiv::String
StormControlHelper::verifyAggregateTc( std::uint32_t trafficClass,
                                       AggregateTcConfig const & config ) {
   auto const key = static_cast< std::uint16_t >( trafficClass );
   auto const found = unit_->trafficClass( key );
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
   std::map< StormKey, StormLimit > orphans; // few, if any: sorted instead of all rows
   unit_->limit().each( [ & ]( StormKey const & key, StormLimit const & limit ) {
      if( limit.limited && !config.intfConfigHas( limit.parent ) ) {
         orphans.emplace( key, limit );
      }
   } );
   for( auto const & [ key, limit ] : orphans ) {
      addItem( mismatches, Kiv::toText( key.intf ) + ' ' +
                                 levelName( static_cast< LevelType >( key.levelType ) ) + ": " +
                                 limitText( limit ) + nobodys );
   }
   for( auto const & [ intf, skips ] : unit_->bcastSkip() ) {
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

} // namespace HobaSim
