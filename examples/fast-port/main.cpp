// SPDX-License-Identifier: Apache-2.0
// Drives the machine, and prints what the chip is told and what waits. expected.txt is the output.

#include "FastPortSm.h"

#include "Kiv/ClockDriver.h"
#include "Tessera/Database.h"

namespace {

class Chip : public FastPort::Helper {
 public:
   Chip() : Helper( "chip" ) {}
   void setFast( Pelt::IntfId intf, bool fast ) override {
      std::printf( "   chip: %s is %s\n", Kiv::toText( intf ).c_str(), fast ? "fast" : "slow" );
   }
   std::size_t deepBuffers() const override { return 2; }
};

} // namespace

int
main() {
   Kiv::VirtualDriver time;
   Kiv::ClockDriver::ambientIs( time );
   auto const context = Kiv::make< Hoba::HobaCommonSmData >( "example" );
   auto const config = Kiv::make< FastPort::Config >( "config" );
   auto const ports = Kiv::make< Interface::AllEthPhyIntfStatusDir >( "status" );
   auto sm = FastPort::FastPortSm::FastPortSmIs( context, config, ports, Kiv::make< Chip >() );
   Tessera::Database database;
   database.mount( "/machines/fastPort", sm, Tessera::Access::status );
   auto const show = [ & ]( char const * what ) {
      std::printf( "%s\n   %s\n", what,
                   Kiv::datumText( database.get( "/machines/fastPort" ) ).c_str() );
   };
   auto const portIs = [ & ]( char const * intf, Interface::EthSpeed speed ) {
      ports->ethPhyIntfStatusIs( Pelt::IntfId( intf ) )->speedIs( speed );
   };

   portIs( "Ethernet1", Interface::speed10Gbps );
   portIs( "Ethernet2", Interface::speed1Gbps );
   show( "Before the owner says so, the machine only follows:" );
   sm->initializedIs( true );
   portIs( "Ethernet3", Interface::speed25Gbps );
   portIs( "Ethernet4", Interface::speed100Gbps );
   show( "Two buffers are there, for the first two:" );
   ports->ethPhyIntfStatusDel( Pelt::IntfId( "Ethernet1" ) );
   show( "A port goes, and its buffer is another's:" );
   config->thresholdKbpsIs( 50'000'000 );
   show( "Only the fastest count now:" );
   ports->ethPhyIntfStatusIs( Pelt::IntfId( "Ethernet4" ), Kiv::make< Interface::EthPhyIntfStatus >(
                                                                 Pelt::IntfId( "Ethernet4" ) ) );
   show( "Nothing is known of the speed of a port that was put in another's place:" );

   database.unmount( "/machines/fastPort" );
   Hoba::letGo( sm );
   portIs( "Ethernet3", Interface::speed100Gbps );
   std::printf( "Nobody listens any more.\n" );
}
