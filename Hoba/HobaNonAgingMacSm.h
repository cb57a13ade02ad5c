// SPDX-License-Identifier: Apache-2.0
#pragma once

// Stations that never age. Every client, an agent that asks for some, has a NonAgingConfig in a
// directory; here all of them become one NonAgingStatus.
//
// - The status is enabled while any client that is there is enabled.
// - It has an entry while any enabled client lists it: the pair's count in macEntriesRef is the
//   number of clients that hold it. An entry that changes is held once, as before.
// - Clients may list one pair with different records. The record that was heard last stands, and
//   when its client lets go of the pair, the one heard last among those who still hold it. A record is
//   heard when it is written, or when its client is enabled. Initialized, the machine hears all clients
//   at once: of their records the one that is in the status already stands, and if none is, that of
//   the client which is the last in the directory.
// - A client whose entity is replaced by another, under the same name, holds what both list, as
//   before.
// - Torn down, the machine leaves the status as it is. The next one on that status, when it is
//   initialized, keeps what some client still asks for and removes the rest.
// - So whoever watches the status hears of what differs, once, and of nothing that some client asks
//   for before and after.
// - What can be no station (a group address, the address zero, VLAN 0) is not taken, and traced.

#include "Hoba/HobaCommon.h"
#include "Hoba/HobaSmMap.h"
#include "Hoba/HobaUnion.h"
#include "Kiv/Dir.h"
#include "types/NonAging.h"

namespace Hoba {

class NonAgingConfigDirSm;

// One client, under its name. It belongs to its NonAgingConfigDirSm, which makes and initializes it.
class NonAgingConfigSm : public HobaBaseSm {
   HOBA_MACHINE( NonAgingConfigSm );
   // Whether it takes part at the moment.
   KIV_ATTRIBUTE( bool, enabled, false );
   // What it added and has not released yet, whatever its configuration lists by now.
   KIV_SET( Bridging::MacVlanPair, held );

 public:
   using Entry = HobaTypes::MacAddressTableEntry;

   // Initialized, it catches up with its configuration. Before that, and while it is not, it
   // neither adds nor releases.
   void handleInitialized() override;
   // Brings one pair, or all, in step with the configuration. Throw Kiv::Exception unless the
   // machine is initialized.
   void handleMacEntries( Bridging::MacVlanPair const & pair );
   void handleMacEntries();
   // All that `former` holds is held by this machine instead, until it is initialized and catches up.
   void takeOver( NonAgingConfigSm & former );
   // The client goes: releases all that it holds, and hears nothing from now on.
   void doCleanUp();

 protected:
   NonAgingConfigSm( Kiv::String const & name, Kiv::Ptr< NonAgingConfig const > const & config,
                     NonAgingConfigDirSm * dirSm );

 private:
   void handleEnable();
   void handleMacEntry( Bridging::MacVlanPair const & pair ) { handleMacEntries( pair ); }
   // Adds or releases the pair as the configuration says. Here and below nobody is told: that is
   // NonAgingConfigDirSm::publish().
   void follow( Bridging::MacVlanPair pair );
   void followAll();
   void addNonAgingEntry( Entry const * entry );
   void delNonAgingEntry( Bridging::MacVlanPair pair );
   void delMacEntries();

   // The first pass is that of handleInitialized().
   class KivConfig
         : public Kiv::Hears<
                 NonAgingConfigSm, NonAgingConfig const,
                 Kiv::WhenReady< NonAgingConfig::enableAttr, &NonAgingConfigSm::handleEnable >,
                 Kiv::WhenReady< NonAgingConfig::macEntriesAttr,
                                 &NonAgingConfigSm::handleMacEntry > > {};

   NonAgingConfigDirSm & dirSm_;
   std::uint32_t party_;
   KIV_REACTOR( KivConfig, config );
};

// The machine of the client `name` of `dirSm`, which must live until the machine is marked.
Kiv::Ptr< NonAgingConfigSm >
nonAgingConfigSmFactory( Kiv::String const & name, Kiv::Ptr< NonAgingConfig const > const & config,
                         NonAgingConfigDirSm & dirSm );

class NonAgingConfigDirSm : public HobaBaseSm {
   HOBA_MACHINE( NonAgingConfigDirSm );
   // By pair: how many clients hold it. The clients' machines write it.
   KIV_REFCOUNTS( Bridging::MacVlanPair, macEntriesRef );
   // The clients' machines: configSm(), configSmIs( name, config ), configSmDel( name ), configSmDelAll().
   // Removed, they release first; what they hold when this machine goes is the next one's to keep.
   HOBA_SMS( nonAgingConfigSmFactory, configSm, TakesOver< &NonAgingConfigSm::takeOver >,
             LastWord< &NonAgingConfigSm::doCleanUp > );

 public:
   void handleInitialized() override;

   Kiv::Ptr< NonAgingStatus > const & status() const { return status_; }

   // For the clients' machines: what each asks for, and the status brought in line with it.
   Union< Bridging::MacVlanPair, HobaTypes::MacAddressTableEntry > & claims() { return claims_; }
   void publish();

 protected:
   // Watches `configDir`, where every NonAgingConfig is a client and whatever else there is counts
   // for nothing, and writes `status`, which has no other writer. Throws Kiv::Exception when `status`
   // is null.
   NonAgingConfigDirSm( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                        Kiv::Ptr< Kiv::Dir const > const & configDir,
                        Kiv::Ptr< NonAgingStatus > const & status );

 private:
   void handleConfigDir( Kiv::String const & name );
   // Not before all clients that it began with have been heard.
   bool publishes() const { return caughtUp_ && !kivMarkedForDeletion(); }

   class KivConfigDir
         : public Kiv::Hears<
                 NonAgingConfigDirSm, Kiv::Dir const,
                 Kiv::On< Kiv::Dir::entryAttr, &NonAgingConfigDirSm::handleConfigDir > > {};

   Kiv::Ptr< NonAgingStatus > const status_;
   Union< Bridging::MacVlanPair, HobaTypes::MacAddressTableEntry > claims_;
   bool caughtUp_ = false;
   KIV_REACTOR( KivConfigDir, configDir );
};

} // namespace Hoba
