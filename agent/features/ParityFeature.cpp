// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaHelper.h"
#include "Hoba/HobaParityEventQueueSm.h"
#include "Hoba/HobaParitySm.h"
#include "Kiv/ClockDriver.h"
#include "agent/features/Feature.h"
#include "agent/features/Words.h"
#include "chips/sim/SimChip.h"
#include "chips/sim/SimParityHelperSm.h"

// Parity errors in the memories of the chip.

namespace HobaAgent {

using Kiv::Datum;

class ParityFeature : public Feature {
 public:
   explicit ParityFeature( Board & board ) : Feature( board, "parity errors" ) {}

   void mounts() override { mount( "/hoba/parityEvents/queue", queue_, Tessera::Access::status ); }
   void commands( Commands & commands ) override;
   void start() override;
   void stop() override {
      if( queueSm_ ) {
         queueSm_->cleanup();
      }
   }

 private:
   HobaSim::ParityUnit & unit() const { return *board().chip->parity(); }
   Datum show( Request const & ) const;
   Datum raise( Request const & request );

   Kiv::Ptr< Hoba::HobaParityEventQueue > const queue_ =
         Hoba::HobaParityEventQueue::HobaParityEventQueueIs( "parityEvents" );
   Machine< Hoba::HobaParitySm > sm_{ *this, "parity" };
   Machine< Hoba::HobaParityEventHelperSm > helperSm_{ *this, "parityHelper" };
   Machine< Hoba::HobaParityEventQueueSm > queueSm_{ *this, "parityEvents" };
};

void
ParityFeature::start() {
   sm_.is( Hoba::HobaParitySm::HobaParitySmIs( context(), unit().slices() ) );
   helperSm_.is(
         HobaSim::ChipParityHelperSm::ChipParityHelperSmIs( context(), board().chip->parity() ) );
   queueSm_.is( Hoba::HobaParityEventQueueSm::HobaParityEventQueueSmIs( context(), queue_,
                                                                        helperSm_.ptr() ) );
   mountRunning( "/hoba/parityEvents/status", queueSm_->eventStatus() );
   sm_->initializedIs( true );
   helperSm_->initializedIs( true );
   queueSm_->runningIs( true );
   queueSm_->initializedIs( true );
}

Datum
ParityFeature::show( Request const & ) const {
   TableAnswer table( { "Slice", "Memory", "Entry", "Times", "Last" } );
   for( auto const & [ key, event ] : context()->parityEvent() ) {
      table.row(
            { key.slice, key.memory, key.index, event.count,
              Hoba::doubleToDateTimeStr( Kiv::ClockDriver::ambient().wallTime( event.time ) ) } );
   }
   table.note( Kiv::toText( context()->parityEvent().size() ) + " not corrected; since the start " +
               Kiv::toText( unit().count( HobaSim::parityCountCorrected ) ) +
               " corrected one by one, " +
               Kiv::toText( unit().count( HobaSim::parityCountReset ) ) + " by a reset" );
   return table.take();
}

Datum
ParityFeature::raise( Request const & request ) {
   auto const severity = request.oneOf< Hoba::ParitySeverity >(
         "severity", { { "correctable", Hoba::parityCorrectable },
                       { "reset", Hoba::parityNeedsReset },
                       { "fatal", Hoba::parityFatal } } );
   unit().raise( request.text( "slice" ), request.text( "memory" ),
                 request.value< std::uint32_t >( "index" ), severity );
   return {};
}

void
ParityFeature::commands( Commands & commands ) {
   addShow( commands, *this, "show parity", "Parity errors that are not corrected yet", {},
            &ParityFeature::show );
   addInput( commands, *this, "sim event parity", "The chip finds an entry of a memory wrong",
             { { "slice", "The slice of the chip", true },
               { "memory", "The memory", true },
               { "index", "The entry", true },
               { "severity", "correctable, reset or fatal" } },
             &ParityFeature::raise );
}

HOBA_FEATURE( ParityFeature );

} // namespace HobaAgent
