// SPDX-License-Identifier: Apache-2.0
#include "simulation/observers/StationEvents.h"

#include "simulation/Step.h"

#include <algorithm>

namespace Simulation {

using Hoba::HobaEvent;
using Kiv::String;
using Kiv::toText;
using Pelt::IntfId;

namespace {

constexpr StationEvent kinds[] = {
      { "mac-address-learned", HobaEvent::eventTypeMacAddressLearned, StationEvent::learns,
        Bridging::learnedDynamicMac, Bridging::learnedRemoteMac },
      { "mac-address-aged", HobaEvent::eventTypeMacAddressAged, StationEvent::ages },
      { "mac-address-aged-local", HobaEvent::eventTypeMacAddressAgedLocal,
        StationEvent::agesLocal },
      { "mac-address-aged-remote", HobaEvent::eventTypeMacAddressAgedRemote,
        StationEvent::agesRemote },
      { "mac-address-deleted", HobaEvent::eventTypeMacAddressDeleted, StationEvent::deletes },
      { "drop-mac-address", HobaEvent::eventTypeDropMacAddress, StationEvent::deletes },
      { "static-mac-address", HobaEvent::eventTypeStaticMacAddress, StationEvent::learns,
        Bridging::configuredStaticMac, Bridging::configuredRemoteMac },
      { "authenticated-mac", HobaEvent::eventTypeAuthenticatedMac, StationEvent::learns,
        Bridging::authenticatedMac },
      { "evpn-intf-dynamic-mac", HobaEvent::eventTypeEvpnIntfDynamicMac, StationEvent::learns,
        Bridging::evpnIntfDynamicMac, Bridging::evpnDynamicRemoteMac },
      { "peer-mac-address-learned", HobaEvent::eventTypePeerMacAddressLearned, StationEvent::learns,
        Bridging::peerDynamicMac, Bridging::peerLearnedRemoteMac },
      { "peer-static-mac-address", HobaEvent::eventTypePeerStaticMacAddress, StationEvent::learns,
        Bridging::peerStaticMac, Bridging::peerStaticRemoteMac },
      { "peer-authenticated-mac", HobaEvent::eventTypePeerAuthenticatedMac, StationEvent::learns,
        Bridging::peerAuthenticatedMac },
};

} // namespace

std::span< StationEvent const >
stationEvents() {
   return kinds;
}

StationEvent const *
stationEventOf( String const & word ) {
   auto const found = std::ranges::find_if( kinds, [ & ]( StationEvent const & kind ) {
      return kind.word == word || toText( kind.type ) == word;
   } );
   return found == std::end( kinds ) ? nullptr : found;
}

std::optional< HobaEvent::PortType >
portTypeOf( IntfId intf ) {
   if( Pelt::VxlanIntfId::isVxlanIntfId( intf ) ) {
      return HobaEvent::vxlanPort;
   }
   if( Pelt::PortChannelIntfId::isPortChannelIntfId( intf ) ) {
      return HobaEvent::trunkPort;
   }
   return Pelt::EthIntfId::isEthIntfId( intf ) || Pelt::CpuIntfId::isCpuIntfId( intf )
                ? std::optional( HobaEvent::fpPort )
                : std::nullopt;
}

std::optional< IntfId >
intfIn( String const & word ) {
   auto const intf = parsed< IntfId >( word );
   return intf && portTypeOf( *intf ) ? intf : std::nullopt;
}

std::optional< Bridging::MacVlanPair >
hostIn( String const & mac, String const & vlan ) {
   auto const addr = parsed< Pelt::EthAddr >( mac );
   auto const vlanId = parsed< Bridging::VlanId >( vlan );
   return addr && vlanId ? std::optional( Bridging::MacVlanPair( *addr, *vlanId ) ) : std::nullopt;
}

HobaEvent
eventOf( HobaEvent::HobaEventType type, Bridging::MacVlanPair host, IntfId intf,
         std::uint32_t tunnel ) {
   HobaEvent event;
   event.eventType = type;
   event.portType = *portTypeOf( intf );
   event.port = intf;
   event.tunnelId = event.portType == HobaEvent::vxlanPort ? tunnel : 0;
   event.host = host;
   return event;
}

} // namespace Simulation
