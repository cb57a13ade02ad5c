// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaHelper.h"

#include "Hoba/HobaAssert.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace Hoba {

bool
isPortChannel( Pelt::IntfId intfId ) {
   return Pelt::PortChannelIntfId::isPortChannelIntfId( intfId );
}

bool
isRecircChannel( Pelt::IntfId intfId ) {
   return isPortChannel( intfId ) && Pelt::PortChannelIntfId::isRecirc( intfId );
}

bool
isPeerEthernet( Pelt::IntfId intfId ) {
   return Pelt::PeerPortChannelIntfId::isPeerPortChannelIntfId( intfId ) ||
          Pelt::PeerEthIntfId::isPeerEthIntfId( intfId );
}

bool
isCpuPort( Pelt::IntfId intfId ) {
   return Pelt::CpuIntfId::isCpuIntfId( intfId );
}

bool
isFabricInterface( Pelt::IntfId intfId ) {
   return Pelt::FabricIntfId::isFabricIntfId( intfId );
}

bool
isRoutedPort( Pelt::IntfId intfId ) {
   return isPortChannel( intfId ) || Pelt::EthIntfId::isEthIntfId( intfId ) ||
          Pelt::TunnelIntfId::isTunnelIntfId( intfId );
}

bool
isHwSupportedIntf( Pelt::IntfId intfId ) {
   return isRoutedPort( intfId ) || isVlan( intfId );
}

bool
isSubIntf( Pelt::IntfId intfId ) {
   return Pelt::SubIntfId::isSubIntfId( intfId );
}

bool
isVlan( Pelt::IntfId intfId ) {
   return Pelt::VlanIntfId::isVlanIntfId( intfId );
}

Bridging::VlanId
getVlanId( Pelt::IntfId intfId ) {
   HOBA_PROGRAM_ASSERT( isVlan( intfId ) );
   return Bridging::VlanId( Pelt::VlanIntfId::vlanId( intfId ) );
}

Pelt::IntfId
vlanIdToIntfId( unsigned short vlanId ) {
   return Pelt::VlanIntfId::vlanIdToIntfId( vlanId );
}

Pelt::IntfId
getParentIntfId( Pelt::IntfId intfId ) {
   return isSubIntf( intfId ) ? Pelt::SubIntfId::parentIntfId( intfId ) : intfId;
}

Pelt::IntfId
CpuPortName() {
   return Pelt::IntfId( "Cpu" );
}

unsigned
CpuPortCount() {
   return 1;
}

Kiv::String
fabricIntfName() {
   return "Fabric0/255";
}

Pelt::IntfId
fabricIntfId() {
   return Pelt::IntfId( fabricIntfName() );
}

Kiv::String
doubleToDateTimeStr( double const & seconds ) {
   constexpr char const * invalid = "Invalid Timestamp";
   // Long enough for the largest double with six decimals.
   std::array< char, 400 > digits;
   std::snprintf( digits.data(), digits.size(), "%.6f", seconds );
   Kiv::String const printed = digits.data();
   auto const point = printed.find( '.' );
   if( point == Kiv::String::npos ) {
      return invalid; // no number
   }
   errno = 0;
   std::time_t const whole = std::strtoll( printed.c_str(), nullptr, 10 );
   std::tm local{};
   std::array< char, 100 > date;
   if( errno != 0 || !localtime_r( &whole, &local ) ||
       std::strftime( date.data(), date.size(), "%c", &local ) == 0 ) {
      return invalid;
   }
   return date.data() + printed.substr( point );
}

} // namespace Hoba
