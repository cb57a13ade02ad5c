// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaNonAgingMacSm.h"

#include "Hoba/HobaAssert.h"
#include "Zipline/Zipline.h"

ZIPLINE_HANDLE( HobaNonAgingMacSm );

namespace Hoba {

// ---- One client

NonAgingConfigSm::NonAgingConfigSm( Kiv::String const & name,
                                    Kiv::Ptr< NonAgingConfig const > const & config,
                                    NonAgingConfigDirSm * dirSm )
      : HobaBaseSm( dirSm->commonSmData() ), name_( name ), dirSm_( *dirSm ),
        party_( dirSm->claims().newParty() ) {
   configIs( config );
}

Kiv::Ptr< NonAgingConfigSm >
nonAgingConfigSmFactory( Kiv::String const & name, Kiv::Ptr< NonAgingConfig const > const & config,
                         NonAgingConfigDirSm & dirSm ) {
   return smIs< NonAgingConfigSm >( name, config, &dirSm );
}

// A directory machine that loses its last owner while it notifies is marked, but not taken apart
// before the notification has returned.
bool
NonAgingConfigSm::gone() const {
   return kivMarkedForDeletion() || dirSm_.kivMarkedForDeletion();
}

void
NonAgingConfigSm::handleInitialized() {
   if( initialized() && config() ) {
      handleEnable();
   }
}

void
NonAgingConfigSm::KivConfig::handleEnable() {
   if( owner().initialized() ) {
      owner().handleEnable();
   }
}

void
NonAgingConfigSm::KivConfig::handleMacEntries( Bridging::MacVlanPair const & pair ) {
   if( owner().initialized() ) {
      owner().handleMacEntries( pair );
   }
}

void
NonAgingConfigSm::handleEnable() {
   enabled_ = config()->notifier()->enable();
   ZTRACE( 5, "NonAgingConfigSm::handleEnable ", name(), ", Config:", enabled_ );
   followAll();
   dirSm_.publish();
}

void
NonAgingConfigSm::handleMacEntries() {
   HOBA_INVARIANT( initialized(), "entries are followed once the machine is initialized" );
   if( config() && !gone() ) {
      followAll();
      dirSm_.publish();
   }
}

void
NonAgingConfigSm::handleMacEntries( Bridging::MacVlanPair pair ) {
   HOBA_INVARIANT( initialized(), "entries are followed once the machine is initialized" );
   if( config() && !gone() ) {
      follow( pair );
      dirSm_.publish();
   }
}

void
NonAgingConfigSm::followAll() {
   if( !enabled_ ) {
      delMacEntries();
      return;
   }
   // What went while nobody listened, then what is there.
   for( auto const & pair : Kiv::keysOf( held_ ) ) {
      follow( pair );
   }
   for( auto const & [ pair, entry ] : config()->notifier()->macEntries() ) {
      follow( pair );
   }
}

void
NonAgingConfigSm::follow( Bridging::MacVlanPair pair ) {
   auto const * wanted = enabled_ ? config()->notifier()->macEntries().find( pair ) : nullptr;
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
   dirSm_.claims().claim( party_, entry->macEntry, *entry );
   if( held_.insert( entry->macEntry ) ) {
      dirSm_.macEntriesRefInc( entry->macEntry, 1 );
   }
}

void
NonAgingConfigSm::delNonAgingEntry( Bridging::MacVlanPair pair ) {
   if( !held_.erase( pair ) ) {
      return;
   }
   ZTRACE( 5, "NonAgingConfigSm::delNonAgingEntry ", name(), ", Non Aging Entry Key: ", pair );
   dirSm_.claims().release( party_, pair );
   if( dirSm_.macEntriesRefDec( pair, 1 ) == 0 ) {
      dirSm_.macEntriesRefDel( pair );
   }
}

void
NonAgingConfigSm::delMacEntries() {
   for( auto const & pair : Kiv::keysOf( held_ ) ) {
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
   if( gone() ) {
      return;
   }
   configDel();
   enabled_ = false;
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

Kiv::Ptr< NonAgingConfigDirSm >
NonAgingConfigDirSm::NonAgingConfigDirSmIs( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                                            Kiv::Ptr< Kiv::Dir const > const & configDir,
                                            Kiv::Ptr< NonAgingStatus > const & status ) {
   return smIs< NonAgingConfigDirSm >( commonSmData, configDir, status );
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
   configSmFollow( *configDir()->notifier(), name );
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
      enabled = enabled || client.sm->enabled();
   }
   status_->enabledIs( enabled );
   while( publishes() ) {
      auto const pair = claims_.nextStale();
      if( !pair ) {
         return;
      }
      publishEntry( *pair );
   }
}

void
NonAgingConfigDirSm::publishEntry( Bridging::MacVlanPair const & pair ) {
   if( auto const * entry = claims_.standing( pair, status_->macEntries().find( pair ) ) ) {
      status_->macEntriesIs( *entry );
   } else if( status_->macEntriesHas( pair ) ) {
      ZTRACE( 5, "NonAgingConfigDirSm::publishEntry",
              ", Deleting NonAging Entry from configDirSmstatus Key:", pair );
      status_->macEntriesDel( pair );
   }
}

std::uint32_t
NonAgingConfigDirSm::macEntriesRefInc( Bridging::MacVlanPair const & pair, std::uint32_t by ) {
   return *macEntriesRef_.tryEmplace( pair, 0u ).value += by;
}

std::uint32_t
NonAgingConfigDirSm::macEntriesRefDec( Bridging::MacVlanPair const & pair, std::uint32_t by ) {
   auto const count = macEntriesRef( pair );
   HOBA_INVARIANT( count >= by, "more clients released an entry than hold it" );
   macEntriesRefIs( pair, count - by );
   return count - by;
}

} // namespace Hoba
