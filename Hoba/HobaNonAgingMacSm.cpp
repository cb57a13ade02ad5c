// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaNonAgingMacSm.h"

#include "Hoba/HobaAssert.h"
#include "Kiv/Reflect.h"
#include "Zipline/Zipline.h"

ZIPLINE_HANDLE( HobaNonAgingMacSm );

KIV_DEFINE( Hoba::NonAgingConfigSm );
KIV_DEFINE( Hoba::NonAgingConfigDirSm );

namespace Hoba {

// ---- One client

NonAgingConfigSm::NonAgingConfigSm( Kiv::String const & name,
                                    Kiv::Ptr< NonAgingConfig const > const & config,
                                    NonAgingConfigDirSm * dirSm )
      : HobaBaseSm( dirSm->commonSmData(), name ), dirSm_( *dirSm ),
        party_( dirSm->claims().newParty() ) {
   configIs( config );
}

Kiv::Ptr< NonAgingConfigSm >
nonAgingConfigSmFactory( Kiv::String const & name, Kiv::Ptr< NonAgingConfig const > const & config,
                         NonAgingConfigDirSm & dirSm ) {
   return smIs< NonAgingConfigSm >( name, config, &dirSm );
}

void
NonAgingConfigSm::handleInitialized() {
   if( initialized() && config() ) {
      handleEnable();
   }
}

void
NonAgingConfigSm::handleEnable() {
   enabledIs( config()->notifier()->enable() );
   ZTRACE( 5, "NonAgingConfigSm::handleEnable ", name(), ", Config:", enabled() );
   followAll();
   dirSm_.publish();
}

void
NonAgingConfigSm::handleMacEntries() {
   Kiv::Dispatch::Frame frame;
   HOBA_INVARIANT( initialized(), "entries are followed once the machine is initialized" );
   if( config() && !kivMarkedForDeletion() ) {
      followAll();
      dirSm_.publish();
   }
}

void
NonAgingConfigSm::handleMacEntries( Bridging::MacVlanPair const & pair ) {
   Kiv::Dispatch::Frame frame;
   HOBA_INVARIANT( initialized(), "entries are followed once the machine is initialized" );
   if( config() && !kivMarkedForDeletion() ) {
      follow( pair );
      dirSm_.publish();
   }
}

void
NonAgingConfigSm::followAll() {
   if( !enabled() ) {
      delMacEntries();
      return;
   }
   // What went while nobody listened, then what is there.
   for( auto const & pair : Kiv::keysOf( held() ) ) {
      follow( pair );
   }
   for( auto const & [ pair, entry ] : config()->notifier()->macEntries() ) {
      follow( pair );
   }
}

void
NonAgingConfigSm::follow( Bridging::MacVlanPair pair ) {
   auto const * wanted = enabled() ? config()->notifier()->macEntries().find( pair ) : nullptr;
   if( wanted && !pair.isStation() ) {
      ZTRACE( 2, "NonAgingConfigSm::follow ", name(), " lists what is no station: ", pair );
   } else if( wanted ) {
      addNonAgingEntry( wanted );
   } else {
      delNonAgingEntry( pair );
   }
}

void
NonAgingConfigSm::addNonAgingEntry( Entry const * entry ) {
   HOBA_INVARIANT( entry, "there is no entry to add" );
   auto const pair = entry->macEntry;
   dirSm_.claims().claim( party_, pair, *entry );
   // Claimed, held and counted before anybody hears of it, who may remove the client.
   if( held_.insert( pair ) ) {
      dirSm_.macEntriesRefInc( pair, 1 );
      kivChanged( heldAttr, &pair );
   }
}

void
NonAgingConfigSm::delNonAgingEntry( Bridging::MacVlanPair pair ) {
   if( held_.erase( pair ) ) {
      ZTRACE( 5, "NonAgingConfigSm::delNonAgingEntry ", name(), ", Non Aging Entry Key: ", pair );
      dirSm_.claims().release( party_, pair );
      dirSm_.macEntriesRefDec( pair, 1 );
      kivChanged( heldAttr, &pair );
   }
}

void
NonAgingConfigSm::delMacEntries() {
   for( auto const & pair : Kiv::keysOf( held() ) ) {
      delNonAgingEntry( pair );
   }
}

void
NonAgingConfigSm::takeOver( NonAgingConfigSm & former ) {
   std::swap( party_, former.party_ );
   std::swap( enabled_, former.enabled_ );
   std::swap( held_, former.held_ );
}

void
NonAgingConfigSm::doCleanUp() {
   configDel();
   enabledIs( false );
   delMacEntries();
   dirSm_.publish();
}

// ---- All clients

NonAgingConfigDirSm::NonAgingConfigDirSm( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                                          Kiv::Ptr< Kiv::Dir const > const & configDir,
                                          Kiv::Ptr< NonAgingStatus > const & status )
      : HobaBaseSm( commonSmData ), status_( status ) {
   HOBA_INVARIANT( status, "stations that never age are listed in a status" );
   configDirIs( configDir );
}

void
NonAgingConfigDirSm::handleInitialized() {
   if( !initialized() ) {
      reactorsUninitialize();
      return;
   }
   // The status may be that of a former machine, and is not touched before all clients have said
   // what they ask for. Nobody knows who of them did so last: where they differ, what is in the status
   // stands.
   caughtUp_ = false;
   claims_.atOnceIs( true );
   reactorsInitialize();
   claims_.atOnceIs( false );
   caughtUp_ = true;
   for( auto const & [ pair, entry ] : status_->macEntries() ) {
      claims_.staleIs( pair );
   }
   publish();
}

void
NonAgingConfigDirSm::handleConfigDir( Kiv::String const & name ) {
   ZTRACE( 8, "NonAgingConfigDirSm::handleConfigDir ", name );
   configSmFollow( name, configDir()->notifier()->entry( name ) );
}

void
NonAgingConfigDirSm::publish() {
   // Whoever hears of it may drop this machine.
   Kiv::Dispatch::Frame frame;
   if( !publishes() ) {
      return;
   }
   bool enabled = false;
   for( auto const & [ name, client ] : configSm() ) {
      enabled = enabled || client->enabled();
   }
   status_->enabledIs( enabled );
   claims_.publish( [ & ]( auto const & pair ) { return status_->macEntries().find( pair ); },
                    [ & ]( auto const & pair, HobaTypes::MacAddressTableEntry const * entry ) {
                       if( entry ) {
                          status_->macEntriesIs( *entry );
                       } else if( status_->macEntriesHas( pair ) ) {
                          ZTRACE( 5, "NonAgingConfigDirSm::publish",
                                  ", Deleting NonAging Entry from configDirSmstatus Key:", pair );
                          status_->macEntriesDel( pair );
                       }
                    },
                    [ & ] { return publishes(); } );
}

} // namespace Hoba
