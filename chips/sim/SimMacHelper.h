// SPDX-License-Identifier: Apache-2.0
#pragma once

// What software writes to the L2 table of the simulated chip.

#include "Hoba/HobaCommon.h"
#include "Hoba/HobaHelperMacAddrSm.h"
#include "chips/sim/SimMacProgrammer.h"

namespace HobaSim {

// Programs the unit, entries of stations and flushes by the pipeline if it is given one (MacUnit::indirectAccess).
//
// By the pipeline: a station that the chip holds as it is to be, and of which nothing is on its way, is not
// written. All else is macProgramInProgress. What the chip refuses then is the pipeline's matter:
// command() there tells of each station.
//
// Without: of what the table says to a write of an entry the caller is told: written and on its way
// (a table with a latency) is macProgramInProgress. There is no room, too, for an entry behind the overlay
// beyond MacUnit::maxRemoteMacs. All else throws TableRefused for what the chip does not take.
class MacHelper : public HobaHelper::HobaHelperMacAddrSm {
   KIV_ENTITY( HobaSim::MacHelper, HobaHelper::HobaHelperMacAddrSm );
   using Host = HobaHelper::Host;
   using RemoteHost = HobaHelper::RemoteHost;

 public:
   // A mismatch of what is on its way to the chip is none yet: another verification pass is asked for in
   // `commonSmData`, if there is one. Of what waits for room, or has stalled, it is none either, but
   // there is nothing to wait for.
   explicit MacHelper( Kiv::Ptr< MacUnit > const & unit,
                       Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData = nullptr,
                       Kiv::Ptr< MacProgrammer > const & programmer = nullptr );

   // Begins a pass on the unit's tables: what software wrote and does not write again goes with the next
   // sweep. What the chip learnt stays.
   void hwInit() override { unit_->beginPass(); }

   Hoba::MacProgramStatus doAddHost( Host const & host ) override { return addHost( host ); }
   Hoba::MacProgramStatus addHost( Host const & host ) override;
   Hoba::MacProgramStatus addRemoteHost( RemoteHost const & host ) override;
   Hoba::MacProgramStatus removeHost( Bridging::MacVlanPair host ) override;
   void removeLag( Pelt::IntfId lag ) override { unit_->intfLearningMustClear( lag ); }

   void flushAll() override { flushIn( {} ); }
   void flushVlan( Bridging::VlanId vlanId ) override;
   void flushVlanPort( Bridging::VlanIdOrNone vlanId, Pelt::IntfId port ) override;
   void flushVlanLag( Bridging::VlanIdOrNone vlanId, Pelt::IntfId lag ) override;

   void configureAgingTime( Kiv::Seconds agingTime ) override;
   bool enableLearning( Pelt::IntfId intf, bool enable ) override;
   bool enableLearningOnVlan( Bridging::VlanId vlanId, bool enable ) override;
   void configureSourceMacInvalid( bool drop ) override;
   void configureSourceCheckCPUMac( bool drop ) override;

   // The chip knows its links.
   void handleLinkStateAtInit( Pelt::IntfId, Interface::LinkStatus ) override {}
   void handleVlanDelete( Bridging::VlanId vlanId ) override {
      unit_->vlanLearningMustClear( vlanId );
   }
   // Names the stations that software wrote; what the chip learnt there it forgets, and reports as aged.
   std::vector< Bridging::MacVlanPair >
   handleParityEvent( Hoba::ParityEvent::Key const & key ) override;

   std::uint32_t getMaxRemoteMacs() const override { return unit_->maxRemoteMacs(); }
   std::uint32_t numRemoteHost() const override { return unit_->remoteHosts(); }
   // Sorted by address and VLAN.
   Kiv::String showL2TableAll() const override;

   // Such as "00:00:5e:00:53:01@10: behind Ethernet1, ages expected, nothing found".
   Kiv::String handleVerify( Host const & host ) const override;
   Kiv::String verifyRemoteHost( RemoteHost const & host ) const override;
   Kiv::String verifyNumRemoteHost( std::uint32_t hosts ) const override;
   Kiv::String verifyLearning( Pelt::IntfId intf, bool enable ) const override;
   Kiv::String verifyLearningOnVlan( Bridging::VlanId vlanId, bool enable ) const override;

 private:
   Hoba::MacProgramStatus program( Bridging::MacVlanPair station, HostRow const & row );
   void flushIn( MacScope const & scope );
   Hoba::MacProgramStatus statusOf( TableResult result ) const;
   void settingIs( MacSetting what, Kiv::Seconds value );
   Kiv::String verifyRow( Bridging::MacVlanPair station,
                          std::optional< HostRow > const & wanted ) const;
   // The text, unless something is on its way to the chip's tables.
   Kiv::String mismatch( Kiv::String const & text ) const;
   // Nothing now: if there is a text, another verification pass is asked for.
   Kiv::String mismatchLater( Kiv::String const & text ) const;

   Kiv::Ptr< MacUnit > const unit_;
   Kiv::Ptr< Hoba::HobaCommonSmData > const commonSmData_;
   Kiv::Ptr< MacProgrammer > const programmer_;
};

// What software wrote of the entry, or would write to have it; of one behind the overlay, or of any other.
HobaHelper::Host hostOf( Bridging::MacVlanPair station, HostRow const & row );
HobaHelper::RemoteHost remoteHostOf( Bridging::MacVlanPair station, HostRow const & row );
// "behind Ethernet1, learnedDynamicMac, ages"; "nothing" for none.
Kiv::String entryText( std::optional< HostRow > const & row );

} // namespace HobaSim
