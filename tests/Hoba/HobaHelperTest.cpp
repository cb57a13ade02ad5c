// SPDX-License-Identifier: Apache-2.0

// What kind of interface an id names, and what happens when something must not be.

#include "HobaTest.h"

#include "Hoba/HobaAssert.h"
#include "Hoba/HobaBaseHelper.h"
#include "Hoba/HobaHelper.h"
#include "Hoba/HobaVerifiedSm.h"
#include "Kiv/Exception.h"

#include <cmath>
#include <ctime>
#include <limits>

namespace {

using namespace HobaTest;

std::string
kindsOf( Pelt::IntfId intf ) {
   std::pair< char const *, bool ( * )( Pelt::IntfId ) > const questions[] = {
         { "portChannel", Hoba::isPortChannel },
         { "recirc", Hoba::isRecircChannel },
         { "peer", Hoba::isPeerEthernet },
         { "cpu", Hoba::isCpuPort },
         { "fabric", Hoba::isFabricInterface },
         { "routed", Hoba::isRoutedPort },
         { "hw", Hoba::isHwSupportedIntf },
         { "subIntf", Hoba::isSubIntf },
         { "vlan", Hoba::isVlan },
   };
   std::string kinds;
   for( auto const & [ name, isKind ] : questions ) {
      if( isKind( intf ) ) {
         kinds += kinds.empty() ? "" : " ";
         kinds += name;
      }
   }
   return kinds;
}

TEST( HobaHelperTest, kindsOfInterfaces ) {
   struct Row {
      char const * name;
      char const * kinds;
      char const * parent;
   };
   Row const rows[] = {
         { "", "", "" },
         { "Ethernet1", "routed hw", "Ethernet1" },
         { "Ethernet3/1", "routed hw", "Ethernet3/1" },
         { "Ethernet3/1.100", "subIntf", "Ethernet3/1" },
         { "Port-Channel7", "portChannel routed hw", "Port-Channel7" },
         { "Port-Channel7.5", "subIntf", "Port-Channel7" },
         { "Recirc-Channel2", "portChannel recirc routed hw", "Recirc-Channel2" },
         { "Tunnel4", "routed hw", "Tunnel4" },
         { "Vlan4094", "hw vlan", "Vlan4094" },
         { "Loopback0", "", "Loopback0" },
         { "Management1", "", "Management1" },
         { "Cpu", "cpu", "Cpu" },
         { "Fabric0/255", "fabric", "Fabric0/255" },
         { "PeerEthernet1", "peer", "PeerEthernet1" },
         { "PeerPort-Channel7", "peer", "PeerPort-Channel7" },
   };
   for( auto const & row : rows ) {
      Pelt::IntfId const intf( row.name );
      EXPECT_EQ( kindsOf( intf ), row.kinds ) << row.name;
      EXPECT_EQ( Hoba::getParentIntfId( intf ), Pelt::IntfId( row.parent ) ) << row.name;
   }
   EXPECT_EQ( Hoba::CpuPortName(), Pelt::IntfId( "Cpu" ) );
   EXPECT_EQ( Hoba::CpuPortCount(), 1u );
   EXPECT_EQ( Hoba::fabricIntfName(), "Fabric0/255" );
   EXPECT_EQ( Kiv::toText( Hoba::fabricIntfId() ), "Fabric0/255" );
}

TEST( HobaHelperTest, vlanNumbers ) {
   for( unsigned short vlan : { 1, 4094 } ) {
      EXPECT_EQ( Hoba::getVlanId( Hoba::vlanIdToIntfId( vlan ) ).value(), vlan );
   }
   for( unsigned short vlan : { 0, 4095 } ) {
      EXPECT_EQ( thrown< Kiv::RangeException >(
                       [ & ] { Hoba::getVlanId( Hoba::vlanIdToIntfId( vlan ) ); } ),
                 "Bridging::VlanId::value < 1 or > 4094 not allowed" );
   }
   EXPECT_DEATH(
         Hoba::getVlanId( Pelt::IntfId( "Ethernet1" ) ),
         "^Hoba/HobaHelper.cpp:[0-9]+: .*getVlanId.*: Assertion `isVlan\\( intfId \\)' failed" );
}

TEST( HobaHelperTest, timeStamps ) {
   Environment const zone( "TZ", "UTC-2" );
   tzset();
   struct Row {
      double seconds;
      char const * text;
   };
   Row const rows[] = {
         { 0, "Thu Jan  1 02:00:00 1970.000000" },
         { 1'792'000'000.25, "Wed Oct 14 19:46:40 2026.250000" },
         { 1.9999999, "Thu Jan  1 02:00:02 1970.000000" }, // rounded before it is split
         { -7200.0, "Thu Jan  1 00:00:00 1970.000000" },
         { 1e300, "Invalid Timestamp" },
         { 1e17, "Invalid Timestamp" },
         { std::numeric_limits< double >::infinity(), "Invalid Timestamp" },
         { std::nan( "" ), "Invalid Timestamp" },
   };
   for( auto const & row : rows ) {
      EXPECT_EQ( Hoba::doubleToDateTimeStr( row.seconds ), row.text ) << row.seconds;
   }
}

// ---- What must not be

class HobaAssertTest : public HobaFixture {};

TEST_F( HobaAssertTest, invariantsThrowWithPlaceAndReason ) {
   auto ready = [] { return false; };
   HOBA_INVARIANT( !ready(), "no reason" );
   auto const refuse = [ & ] { HOBA_INVARIANT( ready(), "It must not revert to false." ); };
   auto const text = thrown< Kiv::Exception >( refuse );
   EXPECT_TRUE( text.starts_with( "Hoba/HobaHelperTest.cpp:" + std::to_string( __LINE__ - 2 ) ) );
   EXPECT_TRUE( has( text, " -- assertion failed(ready()): It must not revert to false." ) );
}

TEST_F( HobaAssertTest, stopsTheAgentExceptInASimulation ) {
   auto const helper = Kiv::make< Hoba::HobaBaseHelper >( "helper" );
   EXPECT_EQ( helper->name(), "helper" );
   auto const stopped = "^nothing works\nHoba/HobaAssert.cpp:[0-9]+: .*hobaAssert.*: Assertion `0' "
                        "failed.\n$";
   EXPECT_DEATH( helper->hobaAssert( "nothing works" ), stopped );
   // Who must restart and has nobody to do it is stopped, and started by whoever watches over it.
   auto const data = Kiv::make< Hoba::HobaCommonSmData >( "agent" );
   EXPECT_DEATH( data->agentRestart( "nothing works" ), stopped );
   Environment const noop( "HOBA_NOOP_AGENT", "" );
   EXPECT_DEATH( helper->hobaAssert( "nothing works" ), stopped )
         << "only hooks may be missing then";
   Environment const simulation( "SIMULATION_VMID", "" );
   testing::internal::CaptureStderr();
   helper->hobaAssert( "nothing works" );
   EXPECT_EQ( testing::internal::GetCapturedStderr(), "" );
}

// A machine that leaves out what its chip had to bring.
class SwitchIntfSm : public Hoba::HobaVerifiedSm {
 public:
   KIV_TYPE( SwitchIntfSm );

 protected:
   explicit SwitchIntfSm( Kiv::Ptr< Hoba::HobaCommonSmData > const & data )
         : HobaVerifiedSm( data ) {}
};

TEST_F( HobaAssertTest, unimplementedHooks ) {
   auto const text = "^Call to unimplemented function SwitchIntfSm::handleVerify\nHoba/";
   auto const data = Kiv::make< Hoba::HobaCommonSmData >( "agent" );
   auto const sm = Hoba::smIs< SwitchIntfSm >( data );
   data->handleInitialized();
   auto const verify = data->verifyData();
   verify->verifyInc( 1 ); // not before the machine is initialized
   sm->initializedIs( true );
   EXPECT_DEATH( verify->verifyInc( 1 ), text );
   for( auto const * variable : { "HOBA_NOOP_AGENT", "SIMULATION_VMID" } ) {
      Environment const without( variable, "1" );
      verify->verifyInc( 1 );
   }
   EXPECT_DEATH( Hoba::unimplementedHook( "SwitchIntfSm::handleVerify" ), text );
   data->cleanup();
}

} // namespace
