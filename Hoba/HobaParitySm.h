// SPDX-License-Identifier: Apache-2.0
#pragma once

// Gathers the parity errors of all slices of the chips into the shared context, where the machines
// that own hardware entries watch them and write the affected entries again.
//
// HobaCommonSmData::parityEvent is the union of the events of all slices that are there, at any
// time: also before initializedIs( true ), since an error that a machine could repair must not wait
// for a machine that only copies. Of different events for one key the one that was reported last
// stands.

#include "Hoba/HobaCommon.h"
#include "Hoba/HobaSmMap.h"
#include "Hoba/HobaUnion.h"
#include "Kiv/Dir.h"

namespace Hoba {

class HobaParitySm;

// One slice.
class ParitySliceSm : public HobaBaseSm {
   HOBA_MACHINE( ParitySliceSm );
   // What of it is in the union.
   KIV_SET( ParityEvent::Key, held );

 public:
   // The slice comes, with all events that it has.
   void handleNotificationActive() override;
   // All that is in the union for `former` is there for this machine instead.
   void takeOver( ParitySliceSm & former );
   // The slice goes: its events leave the union.
   void doSliceCleanup();

   HobaParitySm * paritySm() const { return paritySm_; }

 protected:
   // Its events are the slice's part of the union of `paritySm`, which outlives it.
   ParitySliceSm( Kiv::Ptr< ParityEventStatus const > const & status, HobaParitySm * paritySm );

 private:
   void handleParityEvent( ParityEvent::Key const & key );
   // What the slice says of the key is its claim.
   void follow( ParityEvent::Key const & key );
   void release( ParityEvent::Key const & key );

   class KivParityEventStatus
         : public Kiv::Hears< ParitySliceSm, ParityEventStatus const,
                              Kiv::OnChange< ParityEventStatus::parityEventAttr,
                                             &ParitySliceSm::handleParityEvent > > {};

   HobaParitySm * const paritySm_;
   std::uint32_t party_;
   KIV_REACTOR( KivParityEventStatus, parityEventStatus );
};

Kiv::Ptr< ParitySliceSm > paritySliceSmFactory( Kiv::String const & slice,
                                                Kiv::Ptr< ParityEventStatus const > const & status,
                                                HobaParitySm & paritySm );

class HobaParitySm : public HobaBaseSm {
   HOBA_MACHINE( HobaParitySm );

 public:
   // Not while it is made, and silent: whoever repairs what he hears of must be heard.
   void handleNotificationActive() override { handleInitialEntries(); }

   // For the slices' machines: what each claims, and the context brought in line with it.
   Union< ParityEvent::Key, ParityEvent > & claims() { return claims_; }
   void publish();

 protected:
   // The entries of `parityEventStatusDir` that are a ParityEventStatus are the slices, by name. It
   // may be null: then there are none.
   HobaParitySm( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                 Kiv::Ptr< Kiv::Dir const > const & parityEventStatusDir );

 private:
   void handleInitialEntries();
   void handleParityEventStatus( Kiv::String const & slice );

   class KivParityEventStatusDir
         : public Kiv::Hears<
                 HobaParitySm, Kiv::Dir const,
                 Kiv::OnChange< Kiv::Dir::entryAttr, &HobaParitySm::handleParityEventStatus > > {};

   Union< ParityEvent::Key, ParityEvent > claims_;
   KIV_REACTOR( KivParityEventStatusDir, parityEventStatusDir );
   // Also with the owner: the context must not go on showing events that nobody follows.
   HOBA_SMS( paritySliceSmFactory, paritySliceSm, TakesOver< &ParitySliceSm::takeOver >,
             LastWordAlsoWithOwner< &ParitySliceSm::doSliceCleanup > );
};

} // namespace Hoba
