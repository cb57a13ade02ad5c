// SPDX-License-Identifier: Apache-2.0
// Drives the small chip: asks for things as an operator does, lets things happen as the world does,
// and prints what the chip is told and what the status says. expected.txt is the output.

#include "Switch.h"

#include "Hoba/HobaCliCallback.h"
#include "Hoba/HobaStormControlRate.h"
#include "Kiv/ClockDriver.h"

namespace {

using Bridging::StormControl::Threshold;

Threshold
percent( std::uint32_t hundredths ) {
   return { Bridging::StormControl::meteringPercent, hundredths, 0,
            Bridging::StormControl::unitPercent };
}

void
show( SmallChip::Switch const & sw ) {
   for( auto const & [ intf, status ] : sw.stormControlStatus->intfStatus() ) {
      for( auto levelType : { Hoba::levelTypeBroadcast, Hoba::levelTypeMulticast } ) {
         auto const level = Hoba::levelStatus( *status, levelType );
         if( level.state != Bridging::StormControl::notConfigured ) {
            std::printf( "   status: %s%s: %s, %llu kbps\n", Kiv::toText( intf ).c_str(),
                         Hoba::levelText( levelType ).data(), Kiv::toText( level.state ).c_str(),
                         static_cast< unsigned long long >( level.rate ) );
         }
      }
   }
}

void
verify() {
   auto * const command = Hoba::CliCallback::find( "VerifyAgentCli" );
   std::printf( "   %s\n", command->handleCommand( 1, "VTS#verify" ).c_str() );
}

Pelt::IntfId const et1( "Ethernet1" ), et2( "Ethernet2" ), et3( "Ethernet3" );
Pelt::IntfId const lag( "Port-Channel1" );

bool
firstLife( SmallChip::Driver & driver, Kiv::ClockDriver & time ) {
   SmallChip::Switch sw( driver );
   std::printf( "Two ports, and limits on one of them and on one that is not there:\n" );
   driver.cableIs( 1, true );
   sw.portIs( et1, Interface::speed10Gbps );
   sw.portIs( et2, Interface::speed1Gbps );
   sw.stormControlConfig->intfConfigIs( et1 )->broadcastIs( percent( 250 ) );
   sw.stormControlConfig->intfConfigIs( et3 )->broadcastIs( percent( 250 ) );
   sw.start();
   show( sw );

   std::printf( "The third port arrives:\n" );
   sw.portIs( et3, Interface::speed25Gbps );
   show( sw );

   std::printf( "A limit on a LAG of the first two, whose own limits wait meanwhile:\n" );
   sw.stormControlConfig->intfConfigIs( lag )->multicastIs( percent( 1000 ) );
   sw.lagMemberIs( lag, et1 );
   sw.lagMemberIs( lag, et2 );
   show( sw );

   std::printf( "The chip reports: applied when the event loop comes round.\n" );
   driver.cableIs( 3, false );
   driver.frame( 1, 10, 0x020000000001 );
   time.run();
   for( auto const & [ port, status ] : sw.portStatusDir->portStatus() ) {
      std::printf( "   %s: %s\n", Kiv::toText( port ).c_str(),
                   Kiv::toText( status->linkStatus() ).c_str() );
   }
   for( auto const & [ station, entry ] : sw.macTable->macEntry() ) {
      std::printf( "   %s behind %s\n", Kiv::toText( station ).c_str(),
                   Kiv::toText( entry.intf ).c_str() );
   }

   std::printf( "A bit of the chip flips, and verification finds it:\n" );
   driver.meterIs( "Ethernet3 broadcast", 625001 );
   verify();
   return sw.restartWanted;
}

bool
secondLife( SmallChip::Driver & driver ) {
   std::printf( "The agent comes back, and is asked for the third port's limit only:\n" );
   SmallChip::Switch sw( driver );
   sw.portIs( et1, Interface::speed10Gbps );
   sw.portIs( et2, Interface::speed1Gbps );
   sw.portIs( et3, Interface::speed25Gbps );
   sw.stormControlConfig->intfConfigIs( et3 )->broadcastIs( percent( 250 ) );
   sw.start();
   return sw.restartWanted;
}

} // namespace

int
main() {
   // Time that moves only when told. An agent leaves the ambient driver as it is, sleeps in its
   // event loop until nextTimeout() at the latest, and then says run().
   Kiv::VirtualDriver time;
   Kiv::ClockDriver::ambientIs( time );
   SmallChip::Driver driver;
   return firstLife( driver, time ) || secondLife( driver ) ? 1 : 0;
}
