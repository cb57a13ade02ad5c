// SPDX-License-Identifier: Apache-2.0
#include "chips/sim/SimChip.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( HobaSim::Chip );

namespace HobaSim {

template< class U, class... Args >
Kiv::Ptr< U >
Chip::unit( Kiv::String const & unitName, Args const &... args ) {
   auto const made = Kiv::make< U >( unitName, args..., memory_.forUnits() );
   units_.push_back( made );
   return made;
}

Chip::Chip( Kiv::String const & chipName, Memory const & memory )
      : Entity( chipName ), memory_( memory ) {
   try {
      parityIs( unit< ParityUnit >( "parity" ) );
      stormControlIs( unit< StormUnit >( "stormControl" ) );
      eventsIs( unit< EventUnit >( "events" ) );
      trunkIs( unit< TrunkUnit >( "trunk" ) );
      macIs( unit< MacUnit >( "mac", events(), trunk() ) );
      vlanIs( unit< VlanUnit >( "vlan" ) );
      pathIs( unit< PathUnit >( "path", vlan(), trunk(), mac() ) );
   } catch( Glim::Error const & error ) {
      throw memory_.faultOf( error );
   }
   memory_.complete();
   captureIs( Kiv::make< CaptureReplay >( "capture", path() ) );
   for( auto const & each : units_ ) {
      if( each != parity() ) {
         each->parityErrorIs( [ to = parity() ]( Kiv::String const & table, std::uint32_t index ) {
            to->raise( table, index );
         } );
      }
   }
}

void
Chip::checkCapacities() {
   std::vector< RowsBase const * > tables;
   for( auto const & each : units_ ) {
      tables.insert( tables.end(), each->tables().begin(), each->tables().end() );
   }
   memory_.checkCapacities( tables );
}

void
Chip::reportingIs( bool reporting ) {
   events()->reportingIs( reporting );
   if( reporting ) {
      events()->reportPorts();
   }
   mac()->reportingAllIs( reporting );
}

std::uint64_t
Chip::writes() const {
   std::uint64_t sum = 0;
   for( auto const & each : units_ ) {
      sum += each->writes();
   }
   return sum;
}

std::uint64_t
Chip::swept() const {
   std::uint64_t sum = 0;
   for( auto const & each : units_ ) {
      sum += each->swept();
   }
   return sum;
}

void
Chip::beginPass() {
   for( auto const & each : units_ ) {
      each->beginPass();
   }
}

void
Chip::sweep() {
   Kiv::Dispatch::Frame frame;
   for( auto const & each : units_ ) {
      each->sweep();
   }
}

void
Chip::reset() {
   Kiv::Dispatch::Frame frame;
   for( auto const & each : units_ ) {
      each->reset();
   }
}

} // namespace HobaSim
