// SPDX-License-Identifier: Apache-2.0
#include "chips/sim/SimMacHelper.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( HobaSim::MacHelper );

namespace HobaSim {

using Bridging::MacVlanPair;
using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using Hoba::MacProgramStatus;
using Kiv::String;
using Kiv::toText;
using Pelt::IntfId;

// ---- Rows

namespace {

HostRow
rowOf( HobaHelper::Host const & host ) {
   HostRow row;
   row.intf = host.intf;
   row.entryType = host.entryType;
   row.dropMode = host.dropMode;
   row.ages = host.ages;
   return row;
}

HostRow
rowOf( HobaHelper::RemoteHost const & host ) {
   HostRow row;
   row.intf = host.intf;
   row.entryType = host.entryType;
   row.dropMode = host.dropMode;
   row.swTunnelGroupId = host.swTunnelGroupId;
   row.l2RibObjTuple = host.l2RibObjTuple;
   row.nextHopId = host.nextHopId;
   row.hwId = host.hwId;
   row.isMplsNextHop = host.isMplsNextHop;
   row.ages = host.ages;
   return row;
}

} // namespace

HobaHelper::Host
hostOf( MacVlanPair station, HostRow const & row ) {
   return { station, row.intf, row.entryType, row.dropMode, row.ages };
}

HobaHelper::RemoteHost
remoteHostOf( MacVlanPair station, HostRow const & row ) {
   return { station,           row.intf,      row.entryType, row.dropMode,      row.swTunnelGroupId,
            row.l2RibObjTuple, row.nextHopId, row.hwId,      row.isMplsNextHop, row.ages };
}

String
entryText( std::optional< HostRow > const & row ) {
   if( !row ) {
      return "nothing";
   }
   auto text = "behind " + ( row->intf ? toText( row->intf ) : "no interface" );
   text += ", " + toText( row->entryType );
   text += row->dropMode ? ", " + toText( row->dropMode ) : "";
   text += row->swTunnelGroupId ? ", tunnel group " + toText( row->swTunnelGroupId ) : "";
   text += row->l2RibObjTuple ? ", " + toText( row->l2RibObjTuple ) : "";
   text += row->nextHopId ? ", next hop " + toText( row->nextHopId ) : "";
   text += row->hwId ? ", hardware id " + toText( row->hwId ) : "";
   text += row->isMplsNextHop ? ", MPLS" : "";
   text += row->ages ? ", ages" : "";
   text += row->byChip ? ", learnt by the chip" : "";
   return text;
}

// ---- Entries

MacHelper::MacHelper( Kiv::Ptr< MacUnit > const & unit,
                      Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
                      Kiv::Ptr< MacProgrammer > const & programmer )
      : unit_( unit ), commonSmData_( commonSmData ), programmer_( programmer ) {}

MacProgramStatus
MacHelper::statusOf( TableResult result ) const {
   return result == tableWritten && !unit_->host().isSettled() ? Hoba::macProgramInProgress
                                                               : macProgramStatusOf( result );
}

// What was read back is not written, as the table itself does with what it holds.
MacProgramStatus
MacHelper::program( MacVlanPair station, HostRow const & row ) {
   if( !programmer_ || ( programmer_->isSettled( station ) && unit_->isWritten( station, row ) ) ) {
      return statusOf( unit_->write( station, row ) );
   }
   unit_->hostClaim( station );
   programmer_->write( station, row );
   return Hoba::macProgramInProgress;
}

MacProgramStatus
MacHelper::addHost( Host const & host ) {
   return program( host.macEntry, rowOf( host ) );
}

// How many there are is known for what has landed: beyond that it is not the time to ask.
MacProgramStatus
MacHelper::addRemoteHost( RemoteHost const & host ) {
   auto const row = rowOf( host );
   if( programmer_ ) {
      return program( host.macEntry, row ); // the chip says
   }
   if( !unit_->hasRoomFor( host.macEntry, row ) ) {
      return Hoba::macProgramFull;
   }
   if( unit_->isNewRemote( host.macEntry, row ) &&
       unit_->remoteHosts() + unit_->hostTable()->landing() >= unit_->maxRemoteMacs() ) {
      return Hoba::macProgramBusy;
   }
   return program( host.macEntry, row );
}

MacProgramStatus
MacHelper::removeHost( MacVlanPair host ) {
   if( !programmer_ || ( programmer_->isSettled( host ) && !unit_->entry( host ) ) ) {
      return statusOf( unit_->remove( host ) );
   }
   unit_->hostClaim( host );
   programmer_->remove( host );
   return Hoba::macProgramInProgress;
}

std::vector< MacVlanPair >
MacHelper::handleParityEvent( Hoba::ParityEvent::Key const & key ) {
   return key.memory == unit_->host().name() ? unit_->spoilt( key.index ) : Stations();
}

// ---- Flushes

void
MacHelper::flushIn( MacScope const & scope ) {
   programmer_ ? programmer_->flush( scope ) : unit_->flushIn( scope );
}

void
MacHelper::flushVlan( VlanId vlanId ) {
   flushIn( { IntfId(), vlanId.value() } );
}

void
MacHelper::flushVlanPort( VlanIdOrNone vlanId, IntfId port ) {
   if( port ) {
      flushIn( { port, vlanId.value() } );
   }
}

void
MacHelper::flushVlanLag( VlanIdOrNone vlanId, IntfId lag ) {
   flushVlanPort( vlanId, lag );
}

// ---- Settings

void
MacHelper::settingIs( MacSetting what, Kiv::Seconds value ) {
   value > 0 ? unit_->settingMustProgram( what, value ) : unit_->settingMustClear( what );
}

void
MacHelper::configureAgingTime( Kiv::Seconds agingTime ) {
   settingIs( macAgingTime, agingTime );
}

void
MacHelper::configureSourceMacInvalid( bool drop ) {
   settingIs( macSourceInvalid, drop );
}

void
MacHelper::configureSourceCheckCPUMac( bool drop ) {
   settingIs( macSourceCheckCpu, drop );
}

bool
MacHelper::enableLearning( IntfId intf, bool enable ) {
   enable ? unit_->intfLearningMustClear( intf ) : unit_->intfLearningMustProgram( intf, false );
   return true;
}

bool
MacHelper::enableLearningOnVlan( VlanId vlanId, bool enable ) {
   enable ? unit_->vlanLearningMustClear( vlanId )
          : unit_->vlanLearningMustProgram( vlanId, false );
   return true;
}

// ---- Questions

String
MacHelper::showL2TableAll() const {
   String text;
   for( auto const & row : unit_->host() ) {
      text += toText( row.key ) + ' ' + entryText( row.value ) +
              ( unit_->entry( row.key ) ? "\n" : ", flushed\n" );
   }
   return text;
}

String
MacHelper::mismatchLater( String const & text ) const {
   if( auto const pass = commonSmData_ && !text.empty() ? commonSmData_->verifyData() : nullptr ) {
      pass->retryVerifyIs( true );
   }
   return {};
}

String
MacHelper::mismatch( String const & text ) const {
   return unit_->isSettled() ? text : mismatchLater( text );
}

// Who learnt it does not matter.
String
MacHelper::verifyRow( MacVlanPair station, std::optional< HostRow > const & wanted ) const {
   auto const found = unit_->entry( station );
   bool const isSame = wanted && found ? wanted->isSameEntry( *found ) : !wanted && !found;
   if( isSame ) {
      return {};
   }
   auto const text = toText( station ) + ": " + entryText( wanted ) + " expected, " +
                     entryText( found ) + " found";
   auto const cmd = programmer_ ? programmer_->onItsWay( station ) : nullptr;
   if( cmd && !MacProgrammer::isUnderWay( *cmd ) ) {
      return {};
   }
   return cmd || ( programmer_ && programmer_->isFlushUnderWay() ) ? mismatchLater( text )
                                                                   : mismatch( text );
}

String
MacHelper::handleVerify( Host const & host ) const {
   // A station may well be nowhere: frames to it are dropped.
   bool const isWanted = host.intf || host.entryType;
   return verifyRow( host.macEntry, isWanted ? std::optional( rowOf( host ) ) : std::nullopt );
}

String
MacHelper::verifyRemoteHost( RemoteHost const & host ) const {
   return verifyRow( host.macEntry, host.intf ? std::optional( rowOf( host ) ) : std::nullopt );
}

String
MacHelper::verifyNumRemoteHost( std::uint32_t hosts ) const {
   auto const found = numRemoteHost();
   if( found == hosts ) {
      return {};
   }
   auto const text = toText( hosts ) + " remote stations expected, " + toText( found ) + " found";
   if( !programmer_ ) {
      return mismatch( text );
   }
   if( programmer_->isUnderWay() ) {
      return mismatchLater( text );
   }
   // Each of those that wait, or have failed, is looked at by itself, and is one station at most. What a
   // flush is that was never answered nobody can say.
   auto const unknown = programmer_->inProgMacOp().size() + programmer_->overflowAddrOp().size() +
                        programmer_->failedAddrOp().size();
   auto const difference = found > hosts ? found - hosts : hosts - found;
   return difference <= unknown || programmer_->hasFlush() ? String() : text;
}

namespace {

template< class Key >
String
learningText( Key const & key, bool enable ) {
   return "learning on " + toText( key ) +
          ( enable ? ": on expected, off found" : ": off expected, on found" );
}

} // namespace

String
MacHelper::verifyLearning( IntfId intf, bool enable ) const {
   return mismatch( unit_->intfLearning().has( intf ) != enable ? String()
                                                                : learningText( intf, enable ) );
}

String
MacHelper::verifyLearningOnVlan( VlanId vlanId, bool enable ) const {
   return mismatch( unit_->vlanLearning().has( vlanId ) != enable
                          ? String()
                          : learningText( "VLAN " + toText( vlanId ), enable ) );
}

} // namespace HobaSim
