// SPDX-License-Identifier: Apache-2.0
#pragma once

// Stations that never age. Every client, an agent that asks for some, has a NonAgingConfig in a
// directory; here all of them become one NonAgingStatus.
//
// - The status is enabled while any client that is there is enabled.
// - It has an entry while any enabled client lists it: the pair's count in macEntriesRef is the
//   number of clients that hold it. An entry that changes is held once, as before.
// - Clients may list one pair with different records. The record that was written last stands, and
//   when its client lets go of the pair, the one written last among those who still hold it.
// - A client whose entity is replaced by another, under the same name, holds what both list, as
//   before.
// - Torn down, the machine leaves the status as it is. The next one on that status, when it is
//   initialized, keeps what some client still asks for and removes the rest.
// - So whoever watches the status hears of what differs, once, and of nothing that some client asks
//   for before and after.
// - What can be no station (a group address, the address zero, VLAN 0) is not taken, and traced.

#include "Hoba/HobaCommon.h"
#include "Hoba/HobaDirSm.h"
#include "Hoba/HobaUnion.h"
#include "types/NonAging.h"

namespace Hoba {

class NonAgingConfigDirSm;

// One client. What it holds is what it added and has not released yet, whatever its configuration
// lists by now. It belongs to its NonAgingConfigDirSm, which makes and initializes it.
class NonAgingConfigSm : public HobaBaseSm {
 public:
   using Entry = HobaTypes::MacAddressTableEntry;

   KIV_TYPE( NonAgingConfigSm );

   Kiv::String const & name() const { return name_; }
   // Whether it takes part at the moment.
   bool enabled() const { return enabled_; }
   Kiv::HashSet< Bridging::MacVlanPair > const & held() const { return held_; }

   // Initialized, it catches up with its configuration. Before that, and while it is not, it
   // neither adds nor releases.
   void handleInitialized() override;
   // Brings one pair, or all, in step with the configuration. Throw Kiv::Exception unless the
   // machine is initialized.
   void handleMacEntries( Bridging::MacVlanPair pair );
   void handleMacEntries();
   // All that `former` holds is held by this machine instead, until it is initialized and catches up.
   void takeOver( NonAgingConfigSm & former );
   // The client goes: releases all that it holds, and hears nothing from now on.
   void doCleanUp();

 protected:
   NonAgingConfigSm( Kiv::String const & name, Kiv::Ptr< NonAgingConfig const > const & config,
                     NonAgingConfigDirSm * dirSm );

 private:
   bool gone() const;
   void handleEnable();
   // Adds or releases the pair as the configuration says. Here and below nobody is told: that is
   // NonAgingConfigDirSm::publish().
   void follow( Bridging::MacVlanPair pair );
   void followAll();
   void addNonAgingEntry( Entry const * entry );
   void delNonAgingEntry( Bridging::MacVlanPair pair );
   void delMacEntries();

   // The first pass is that of handleInitialized().
   class KivConfig : public Kiv::Reactor< KivConfig, NonAgingConfig const, NonAgingConfigSm > {
      void handleEnable();
      void handleMacEntries( Bridging::MacVlanPair const & pair );

    public:
      static constexpr auto handlers = Kiv::handlers(
            Kiv::onChange< NonAgingConfig::enableAttr, &KivConfig::handleEnable >(),
            Kiv::onChange< NonAgingConfig::macEntriesAttr, &KivConfig::handleMacEntries >() );
   };

   Kiv::String const name_;
   NonAgingConfigDirSm & dirSm_;
   std::uint32_t party_;
   bool enabled_ = false;
   Kiv::HashSet< Bridging::MacVlanPair > held_;
   KIV_REACTOR( KivConfig, config );
};

// The machine of the client `name` of `dirSm`, which must live until the machine is marked.
Kiv::Ptr< NonAgingConfigSm >
nonAgingConfigSmFactory( Kiv::String const & name, Kiv::Ptr< NonAgingConfig const > const & config,
                         NonAgingConfigDirSm & dirSm );

class NonAgingConfigDirSm : public HobaBaseSm {
 public:
   // Watches `configDir`, where every NonAgingConfig is a client and whatever else there is counts
   // for nothing, and writes `status`, which has no other writer. Throws Kiv::Exception when `status`
   // is null.
   static Kiv::Ptr< NonAgingConfigDirSm >
   NonAgingConfigDirSmIs( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                          Kiv::Ptr< Kiv::Dir const > const & configDir,
                          Kiv::Ptr< NonAgingStatus > const & status );

   KIV_TYPE( NonAgingConfigDirSm );

   void handleInitialized() override;

   Kiv::Ptr< NonAgingStatus > const & status() const { return status_; }

   // By pair: how many clients hold it. The clients' machines write it; who is not there counts 0.
   Kiv::HashMap< Bridging::MacVlanPair, std::uint32_t > const & macEntriesRef() const {
      return macEntriesRef_;
   }
   std::uint32_t macEntriesRef( Bridging::MacVlanPair const & pair ) const {
      return Kiv::valueOrDefault( macEntriesRef_, pair );
   }
   void macEntriesRefIs( Bridging::MacVlanPair const & pair, std::uint32_t count ) {
      macEntriesRef_.insertOrAssign( pair, count );
   }
   // Return the new count. A count that would fall below 0 throws Kiv::Exception.
   std::uint32_t macEntriesRefInc( Bridging::MacVlanPair const & pair, std::uint32_t by );
   std::uint32_t macEntriesRefDec( Bridging::MacVlanPair const & pair, std::uint32_t by );
   void macEntriesRefDel( Bridging::MacVlanPair const & pair ) { macEntriesRef_.erase( pair ); }
   void macEntriesRefDelAll() { macEntriesRef_.clear(); }

   // For the clients' machines: what each asks for, and the status brought in line with it.
   Union< Bridging::MacVlanPair, HobaTypes::MacAddressTableEntry > & claims() { return claims_; }
   void publish();

 protected:
   NonAgingConfigDirSm( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                        Kiv::Ptr< Kiv::Dir const > const & configDir,
                        Kiv::Ptr< NonAgingStatus > const & status );

 private:
   void handleConfigDir( Kiv::String const & name );
   void publishEntry( Bridging::MacVlanPair const & pair );
   // Not before all clients that it began with have been heard.
   bool publishes() const { return caughtUp_ && !kivMarkedForDeletion(); }

   class KivConfigDir : public Kiv::Reactor< KivConfigDir, Kiv::Dir const, NonAgingConfigDirSm > {
    public:
      static constexpr auto handlers = Kiv::handlers(
            Kiv::on< Kiv::Dir::entryAttr, &NonAgingConfigDirSm::handleConfigDir >() );
   };

   Kiv::Ptr< NonAgingStatus > const status_;
   Kiv::HashMap< Bridging::MacVlanPair, std::uint32_t > macEntriesRef_;
   Union< Bridging::MacVlanPair, HobaTypes::MacAddressTableEntry > claims_;
   bool caughtUp_ = false;
   KIV_REACTOR( KivConfigDir, configDir );
   // configSm(), configSmIs( name, config ), configSmDel( name ), configSmDelAll(): the clients'
   // machines. Removed, they release first.
   HOBA_DIR_SMS( nonAgingConfigSmFactory, configSm );
};

} // namespace Hoba
