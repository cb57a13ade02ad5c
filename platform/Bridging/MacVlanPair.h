// SPDX-License-Identifier: Apache-2.0
#pragma once

// A station as a switch knows it: a MAC address in a VLAN.

#include "Bridging/VlanId.h"
#include "Pelt/EthAddr.h"

namespace Bridging {

// One word, the address above the VLAN: pairs sort by address, then by VLAN. The default is the
// address 00:00:00:00:00:00 in no VLAN.
class MacVlanPair {
 public:
   static constexpr std::string_view kivName = "Bridging::MacVlanPair";

   constexpr MacVlanPair() = default;
   constexpr MacVlanPair( Pelt::EthAddr addr, VlanIdOrNone vlanId )
         : word_( addr.value() << vlanBits | vlanId.value() ) {}
   constexpr MacVlanPair( Pelt::EthAddr addr, VlanId vlanId )
         : MacVlanPair( addr, VlanIdOrNone( vlanId.value() ) ) {}

   constexpr Pelt::EthAddr addr() const { return Pelt::EthAddr( word_ >> vlanBits ); }
   constexpr VlanIdOrNone vlanId() const { return VlanIdOrNone( word_ & vlanMask ); }

   // Whether there can be one: the address is one station's, and it is in a VLAN.
   constexpr bool isStation() const { return addr().isUnicast() && vlanId().value() != 0; }

   constexpr bool operator==( MacVlanPair const & ) const = default;
   constexpr std::strong_ordering operator<=>( MacVlanPair const & ) const = default;
   std::size_t hash() const { return Kiv::hashOf( word_ ); }

   // Appends "00:00:5e:00:53:af@10".
   void print( std::string & out ) const;
   // Reads that, the address in any form that EthAddr reads. Throws Kiv::ParseError, or
   // Kiv::RangeException for a VLAN outside 0..4094.
   static MacVlanPair parse( std::string_view text );

 private:
   static constexpr unsigned vlanBits = 12;
   static constexpr std::uint64_t vlanMask = ( 1u << vlanBits ) - 1;

   std::uint64_t word_ = 0;
};

} // namespace Bridging
