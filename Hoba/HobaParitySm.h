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
#include "Hoba/HobaDirSm.h"
#include "Hoba/HobaUnion.h"

namespace Hoba {

class HobaParitySm;

// One slice.
class ParitySliceSm : public HobaBaseSm {
 public:
   // Its events are the slice's part of the union of `paritySm`, which outlives it.
   static Kiv::Ptr< ParitySliceSm >
   ParitySliceSmIs( Kiv::Ptr< ParityEventStatus const > const & status, HobaParitySm * paritySm );
   KIV_TYPE( ParitySliceSm );

   // The slice comes, with all events that it has.
   void doBegin();
   // All that is in the union for `former` is there for this machine instead.
   void takeOver( ParitySliceSm & former );
   // The slice goes: its events leave the union.
   void doSliceCleanup();
   void doCleanUp() { doSliceCleanup(); }

   HobaParitySm * paritySm() const { return paritySm_; }

 protected:
   ParitySliceSm( Kiv::Ptr< ParityEventStatus const > const & status, HobaParitySm * paritySm );

 private:
   void handleParityEvent( ParityEvent::Key const & key );
   // What the slice says of the key is its claim.
   void follow( ParityEvent::Key const & key );

   class KivParityEventStatus
         : public Kiv::Reactor< KivParityEventStatus, ParityEventStatus const, ParitySliceSm > {
    public:
      static constexpr auto handlers =
            Kiv::handlers( Kiv::onChange< ParityEventStatus::parityEventAttr,
                                          &ParitySliceSm::handleParityEvent >() );
   };

   HobaParitySm * const paritySm_;
   std::uint32_t party_;
   KIV_REACTOR( KivParityEventStatus, parityEventStatus );
};

Kiv::Ptr< ParitySliceSm > paritySliceSmFactory( Kiv::String const & slice,
                                                Kiv::Ptr< ParityEventStatus const > const & status,
                                                HobaParitySm & paritySm );

class HobaParitySm : public HobaBaseSm {
 public:
   // The entries of `parityEventStatusDir` that are a ParityEventStatus are the slices, by name. It
   // may be null: then there are none.
   static Kiv::Ptr< HobaParitySm >
   HobaParitySmIs( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                   Kiv::Ptr< Kiv::Dir const > const & parityEventStatusDir );
   KIV_TYPE( HobaParitySm );
   ~HobaParitySm() override;

   void kivDoZombieReactors( bool marked ) override;

   // For the slices' machines: what each claims, and the context brought in line with it.
   Union< ParityEvent::Key, ParityEvent > & claims() { return claims_; }
   void publish();

 protected:
   HobaParitySm( Kiv::Ptr< HobaCommonSmData > const & commonSmData,
                 Kiv::Ptr< Kiv::Dir const > const & parityEventStatusDir );

 private:
   void handleInitialEntries();
   void handleParityEventStatus( Kiv::String const & slice );

   class KivParityEventStatusDir
         : public Kiv::Reactor< KivParityEventStatusDir, Kiv::Dir const, HobaParitySm > {
    public:
      static constexpr auto handlers = Kiv::handlers(
            Kiv::onChange< Kiv::Dir::entryAttr, &HobaParitySm::handleParityEventStatus >() );
   };

   Union< ParityEvent::Key, ParityEvent > claims_;
   KIV_REACTOR( KivParityEventStatusDir, parityEventStatusDir );
   HOBA_DIR_SMS( paritySliceSmFactory, paritySliceSm );
};

} // namespace Hoba
