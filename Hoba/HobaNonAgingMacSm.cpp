// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaNonAgingMacSm.h"

#include "Hoba/HobaAssert.h"
#include "Zipline/Zipline.h"

ZIPLINE_HANDLE( HobaNonAgingMacSm );

// Every write of the status notifies, and who hears of it may change or remove any client, the one
// at work included. So each write comes when all else is in order, and nothing from before it is
// relied on after it.

namespace Hoba {

// ---- One client

NonAgingConfigSm::NonAgingConfigSm( Kiv::String const & name,
                                    Kiv::Ptr< NonAgingConfig const > const & config,
                                    NonAgingConfigDirSm * dirSm )
      : HobaBaseSm( dirSm->commonSmData() ), name_( name ), dirSm_( *dirSm ) {
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
   dirSm_.handleEnabled();
   if( takesPart() ) {
      handleMacEntries();
   } else {
      delMacEntries();
   }
}

void
NonAgingConfigSm::handleMacEntries() {
   HOBA_INVARIANT( initialized(), "entries are followed once the machine is initialized" );
   // What went while nobody listened, then what is there.
   for( auto const & pair : Kiv::keysOf( held_ ) ) {
      if( takesPart() ) {
         handleMacEntries( pair );
      }
   }
   if( !takesPart() ) {
      return;
   }
   for( auto const & [ pair, entry ] : config()->notifier()->macEntries() ) {
      handleMacEntries( pair );
      if( !takesPart() ) {
         return;
      }
   }
}

void
NonAgingConfigSm::handleMacEntries( Bridging::MacVlanPair pair ) {
   HOBA_INVARIANT( initialized(), "entries are followed once the machine is initialized" );
   if( !takesPart() ) {
      return;
   }
   auto const * wanted = config()->notifier()->macEntries().find( pair );
   auto const * held = held_.find( pair );
   if( !wanted ) {
      delNonAgingEntry( pair );
   } else if( !held || !( held->entry == *wanted ) ) {
      addNonAgingEntry( wanted );
   }
}

void
NonAgingConfigSm::addNonAgingEntry( Entry const * entry ) {
   HOBA_INVARIANT( entry, "there is no entry to add" );
   auto const pair = entry->macEntry;
   auto const [ held, isNew ] = held_.tryEmplace( pair );
   *held = { *entry, dirSm_.nextWrite() };
   if( isNew ) {
      dirSm_.macEntriesRefInc( pair, 1 );
   }
   dirSm_.status()->macEntriesIs( *entry );
}

void
NonAgingConfigSm::delNonAgingEntry( Bridging::MacVlanPair pair ) {
   if( !held_.erase( pair ) ) {
      return;
   }
   ZTRACE( 5, "NonAgingConfigSm::delNonAgingEntry ", name(), ", Non Aging Entry Key: ", pair );
   if( dirSm_.macEntriesRefDec( pair, 1 ) == 0 ) {
      dirSm_.macEntriesRefDel( pair );
      ZTRACE( 5, "NonAgingConfigSm::delNonAgingEntry ", name(),
              ", Deleting NonAging Entry from configDirSmstatus Key:", pair );
      dirSm_.status()->macEntriesDel( pair );
   } else if( auto const * standing = dirSm_.standingEntry( pair ) ) {
      dirSm_.status()->macEntriesIs( *standing );
   }
}

void
NonAgingConfigSm::delMacEntries() {
   for( auto const & pair : Kiv::keysOf( held_ ) ) {
      if( enabled_ || gone() ) {
         return; // enabled again meanwhile: then it holds what it shall
      }
      delNonAgingEntry( pair );
   }
}

void
NonAgingConfigSm::doCleanUp() {
   if( gone() ) {
      return;
   }
   configDel();
   enabled_ = false;
   dirSm_.handleEnabled();
   delMacEntries();
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
   reactorsInitialize();
   for( auto const & pair : Kiv::keysOf( status_->macEntries() ) ) {
      if( !initialized() || kivMarkedForDeletion() ) {
         return;
      }
      if( !macEntriesRef_.has( pair ) ) {
         status_->macEntriesDel( pair );
      }
   }
   handleEnabled();
}

void
NonAgingConfigDirSm::handleConfigDir( Kiv::String const & name ) {
   ZTRACE( 8, "NonAgingConfigDirSm::handleConfigDir ", name );
   configSmFollow( *configDir()->notifier(), name );
}

void
NonAgingConfigDirSm::handleEnabled() {
   bool enabled = false;
   for( auto const & [ name, client ] : configSm() ) {
      enabled = enabled || client.sm->enabled();
   }
   if( !kivMarkedForDeletion() ) {
      status_->enabledIs( enabled );
   }
}

HobaTypes::MacAddressTableEntry const *
NonAgingConfigDirSm::standingEntry( Bridging::MacVlanPair const & pair ) const {
   NonAgingConfigSm::Held const * standing = nullptr;
   for( auto const & [ name, client ] : configSm() ) {
      auto const * held = client.sm->held().find( pair );
      if( held && ( !standing || held->written > standing->written ) ) {
         standing = held;
      }
   }
   return standing ? &standing->entry : nullptr;
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
