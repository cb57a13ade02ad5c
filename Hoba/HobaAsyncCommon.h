// SPDX-License-Identifier: Apache-2.0
#pragma once

// Operations that a chip completes later, such as TCAM requests.
//
// A machine that derives from HobaAsyncBaseSm sends a request, marks it with its helper's
// nextPriority() and getNextSequence( table ), and sets pendingOperationTimeoutClock for
// pendingOperationTimeout() seconds from now. The chip's code says asyncOperationResultIs() on the
// helper when the request is done or has failed, and the machine's handleAsyncOperationResult() runs.

#include "Hoba/HobaBaseHelper.h"
#include "Hoba/HobaBaseSm.h"
#include "Hoba/HobaEvent.h"
#include "Kiv/ClockDriver.h"
#include "Kiv/ClockReactor.h"

namespace Hoba {

// How an operation ended.
struct AsyncOperationResult {
   KIV_VALUE( Hoba::AsyncOperationResult );
   // Empty when it succeeded; else what went wrong.
   KIV_FIELD( Kiv::String, error );
   // When it ended, in seconds of the ambient clock driver; a value begins with the present time.
   KIV_FIELD( Kiv::Seconds, timestamp, Kiv::ClockDriver::ambient().now() );

   // Whether it differs from a result made at this moment: false for no error at exactly the
   // present time, true for all else. This is no test of success, which is error.empty(): a success
   // turns true as soon as time has passed.
   explicit operator bool() const { return !( *this == AsyncOperationResult{} ); }
};

// How far one operation of a machine is. Machines keep it as `asyncState`, beside the key of the
// request, `reqKey`.
KIV_ENUM( AsyncOperationState, std::uint8_t, asyncNone = 0, asyncInCall, asyncWaiting,
          asyncCompleted );

class HobaAsyncBaseHelper : public HobaBaseHelper {
   KIV_ENTITY( Hoba::HobaAsyncBaseHelper, Hoba::HobaBaseHelper );
   // Equal results at one and the same time are one: the second notifies nobody. Who reports
   // several in one go waits for each to be taken, or tells them apart by their text.
   KIV_ATTRIBUTE( AsyncOperationResult, asyncOperationResult );
   KIV_ATTRIBUTE( bool, asyncTcamOperationsSupported, false );
   // The last one given; and the last number given of each table or operation. Both run downwards.
   KIV_ATTRIBUTE( std::uint32_t, priority, 4294967295u );
   KIV_COLLECTION( Kiv::String, std::uint16_t, sequence );

 public:
   static constexpr std::uint16_t firstSequence = 65535;

   explicit HobaAsyncBaseHelper( Kiv::String const & helperName ) : HobaBaseHelper( helperName ) {}

   // A lower priority than any given before: 4294967294 is the first. Stops the process when none
   // is left, which is after the one that would be 0.
   std::uint32_t nextPriority();
   // The next number for `name`, which begins at firstSequence. Stops the process when none is left:
   // 1 is the last.
   std::uint16_t getNextSequence( Kiv::String const & name );
};

// The base of machines with such operations.
//
// Its clocks run, and results arrive, whether or not the machine is initialized: what the chip was
// asked for ends also when the machine does not work any more. Nothing arrives once it is marked.
class HobaAsyncBaseSm : public HobaBaseSm {
   HOBA_MACHINE( HobaAsyncBaseSm );
   // How long an operation may take. In seconds.
   KIV_ATTRIBUTE( Kiv::Seconds, pendingOperationTimeout, 60.0 );

 public:
   // The helper has a new result, asyncHelper()->notifier()->asyncOperationResult(). A machine that
   // has a helper overrides it: the base stops the process.
   virtual void handleAsyncOperationResult();
   // The time of tcamRequestClock has come.
   virtual void processTcamRequestQueue() {}
   // The time of pendingOperationTimeoutClock has come: an operation did not end in time. Its result
   // may still arrive.
   virtual void handlePendingOperationTimeout() {}

 protected:
   // Both clock reactors are on one clock on the ambient driver, and wait for nothing yet.
   explicit HobaAsyncBaseSm( Kiv::Ptr< HobaCommonSmData > const & commonSmData );

 private:
   class KivTcamRequestClock
         : public Kiv::ClockReactor< HobaAsyncBaseSm,
                                     &HobaAsyncBaseSm::processTcamRequestQueue > {};
   class KivPendingOperationTimeoutClock
         : public Kiv::ClockReactor< HobaAsyncBaseSm,
                                     &HobaAsyncBaseSm::handlePendingOperationTimeout > {};
   // What the helper holds when it is set is the end of no operation of this machine.
   class KivAsyncHelper
         : public Kiv::Hears< HobaAsyncBaseSm, HobaAsyncBaseHelper const,
                              Kiv::OnChange< HobaAsyncBaseHelper::asyncOperationResultAttr,
                                             &HobaAsyncBaseSm::handleAsyncOperationResult > > {};

   KIV_REACTOR( KivTcamRequestClock, tcamRequestClock );
   KIV_REACTOR( KivPendingOperationTimeoutClock, pendingOperationTimeoutClock );
   KIV_REACTOR( KivAsyncHelper, asyncHelper );
};

// What the machines of one chip share.
class AsyncSharedData : public Kiv::Entity {
   KIV_ENTITY( Hoba::AsyncSharedData );
   // By interface: the first port event that was reported of it.
   KIV_COLLECTION( Pelt::IntfId, HobaEvent, initialPortEvent );

 public:
   explicit AsyncSharedData( Kiv::String const & dataName = {} ) : Entity( dataName ) {}
};

} // namespace Hoba
