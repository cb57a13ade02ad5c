// SPDX-License-Identifier: Apache-2.0
#pragma once

// Who is believed when several sources say where a station is. Pure: two candidates in, the better one and
// the rule that decided out.
//
// Each source has a preference, which its candidates carry:
//
//    source               preference   types of its entries
//    l2Rib                its own (16) as the RIB says
//    evpnMacTable         its own      as the overlay says
//    fdbConfig            16           configuredStaticMac, configuredDynamicMac
//    mlagHostTable        16           the peer's
//    vxlanConfigDir       20           configuredRemoteMac: set up by hand, and the rank has no bit for it
//    routerMacTable       32           configuredStaticMac
//    dot1xHostTable       24           authenticatedMac
//    receivedRemoteHost   16           receivedRemoteMac, of a controller
//    macTable             16           what the hardware was told of by others and reports: all types but the
//                                      two that it learns by itself, which are no candidates
//    failedServer         16           configuredDynamicMac, on the CPU port
//
// Candidates are folded in this order: the winner so far against the next.

#include "Kiv/Value.h"
#include "types/RemoteMac.h"

#include <optional>
#include <span>
#include <vector>

namespace Hoba {

KIV_ENUM( MacSource, std::uint8_t, macSourceL2Rib = 0 KIV_SHOWN( "l2Rib" ),
          macSourceEvpnMacTable KIV_SHOWN( "evpnMacTable" ),
          macSourceFdbConfig KIV_SHOWN( "fdbConfig" ),
          macSourceMlagHostTable KIV_SHOWN( "mlagHostTable" ),
          macSourceVxlanConfigDir KIV_SHOWN( "vxlanConfigDir" ),
          macSourceRouterMacTable KIV_SHOWN( "routerMacTable" ),
          macSourceDot1xHostTable KIV_SHOWN( "dot1xHostTable" ),
          macSourceReceivedRemoteHost KIV_SHOWN( "receivedRemoteHost" ),
          macSourceMacTable KIV_SHOWN( "macTable" ),
          macSourceFailedServer KIV_SHOWN( "failedServer" ) );

constexpr std::uint8_t macPreferenceDefault = 16;
constexpr std::uint8_t macPreferenceVxlanConfig = 20;
constexpr std::uint8_t macPreferenceDot1x = 24;
constexpr std::uint8_t macPreferenceRouterMac = 32;

using MacEntry = HobaTypes::RemoteMacAddressTableEntry;

struct MacCandidate {
   MacSource source = macSourceL2Rib;
   MacEntry entry;
};

// What decided between two candidates.
KIV_ENUM( MacRule, std::uint8_t, macRuleOnlyOne = 0 KIV_SHOWN( "there is no other" ),
          macRuleRank KIV_SHOWN( "higher rank" ), macRuleMoves KIV_SHOWN( "moved more often" ),
          macRuleTime KIV_SHOWN( "moved later" ),
          macRuleHasObjTuple KIV_SHOWN( "resolves through the RIB" ),
          macRuleObjTuple KIV_SHOWN( "greater RIB object" ),
          macRuleTunnels KIV_SHOWN( "greater tunnel list" ) );

// preference x 256, and 1 more for an entry that somebody set up by hand: the types 4, 9 and 21. Of types
// above 21 nothing is known.
std::uint32_t macRank( MacEntry const & entry );

struct MacChoice {
   MacEntry const * winner = nullptr;
   MacRule rule = macRuleOnlyOne;
};

// The better of two, either of which may be null; null if both are. `groups`, which may be null, says where
// tunnels end. Not antisymmetric: which one is `a` matters if both have the same object of the RIB (b wins),
// or end points that are the same or unknown (a wins, but for two groups of one member each, of which b alone
// is unknown). Everything else is decided by the entries, in whichever order.
MacChoice betterEntry( MacEntry const * a, MacEntry const * b, SwTunnelGroupIdMap const * groups );
// The same, traced.
MacChoice betterEntryWithTrace( MacEntry const * a, MacEntry const * b,
                                SwTunnelGroupIdMap const * groups );

// The best of several, which are in the order of the list above; null for none.
MacCandidate const * bestCandidate( std::span< MacCandidate const > candidates,
                                    SwTunnelGroupIdMap const * groups );

} // namespace Hoba
