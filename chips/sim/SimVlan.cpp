// SPDX-License-Identifier: Apache-2.0
#include "chips/sim/SimVlan.h"

#include "Kiv/Reflect.h"
#include "chips/sim/SimComparison.h"

#include <optional>

KIV_DEFINE( HobaSim::VlanUnit );
KIV_DEFINE( HobaSim::VlanHelper );

namespace HobaSim {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;

namespace {

// ---- The row that each wish takes, none for no row

std::optional< bool >
vlanRow( bool active ) {
   return active ? std::optional( true ) : std::nullopt;
}
std::optional< Hoba::VlanTagging >
memberRow( Hoba::VlanTagging how ) {
   return how != Hoba::vlanNotCarried ? std::optional( how ) : std::nullopt;
}
std::optional< VlanIdOrNone >
nativeRow( VlanIdOrNone vlan ) {
   return vlan.value() ? std::optional( vlan ) : std::nullopt;
}

} // namespace

void
VlanMember::print( std::string & out ) const {
   out += Kiv::toText( vlan_ ) + '@' + Kiv::toText( intf_ );
}

VlanMember
VlanMember::parse( std::string_view text ) {
   auto const at = text.find( '@' );
   if( at == text.npos ) {
      Kiv::parseFailed( text, "a VLAN and an interface, such as 10@Ethernet1" );
   }
   return { VlanId::parse( text.substr( 0, at ) ), Pelt::IntfId::parse( text.substr( at + 1 ) ) };
}

std::vector< Pelt::IntfId > const &
VlanUnit::carrying( VlanId vlan ) const {
   return carrying_.find( member(), vlan, []( VlanMember const & row, Hoba::VlanTagging how ) {
      return std::pair( row.vlan(), how == Hoba::vlanNotCarried ? Pelt::IntfId() : row.intf() );
   } );
}

VlanHelper::VlanHelper( Kiv::Ptr< VlanUnit > const & unit,
                        Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
                        Kiv::Ptr< Hoba::PortVlanMembership const > const & membership )
      : VlanHelperBase( "vlan" ), unit_( unit ), commonSmData_( commonSmData ),
        membership_( membership ) {}

void
VlanHelper::setVlan( VlanId vlan, bool active ) {
   if( auto const row = vlanRow( active ) ) {
      unit_->vlanMustProgram( vlan, *row );
   } else {
      unit_->vlanMustClear( vlan );
   }
}

void
VlanHelper::setTagging( VlanId vlan, Pelt::IntfId intf, Hoba::VlanTagging how ) {
   if( auto const row = memberRow( how ) ) {
      unit_->memberMustProgram( { vlan, intf }, *row );
   } else {
      unit_->memberMustClear( { vlan, intf } );
   }
}

void
VlanHelper::setNativeVlan( Pelt::IntfId intf, VlanIdOrNone vlan ) {
   if( auto const row = nativeRow( vlan ) ) {
      unit_->nativeMustProgram( intf, *row );
   } else {
      unit_->nativeMustClear( intf );
   }
}

void
VlanHelper::setTpids( Pelt::IntfId port, Hoba::HobaPortVlanTpidData const & tpids ) {
   unit_->tpidMustProgram( port, tpids );
}

void
VlanHelper::clearTpids( Pelt::IntfId port ) {
   unit_->tpidMustClear( port );
}

Kiv::String
VlanHelper::verify() {
   Kiv::String mismatch;
   Comparison< Rows< VlanId, bool >, bool > vlans( "VLAN", unit_->vlan(), mismatch );
   for( auto const & [ vlan, status ] : commonSmData_->vlanStatus() ) {
      vlans.expect( vlan, vlanRow( status->active() ) );
   }
   vlans.conclude();
   Comparison< Rows< VlanMember, Hoba::VlanTagging >, Hoba::VlanTagging > members(
         "VLAN member", unit_->member(), mismatch );
   Comparison< Rows< Pelt::IntfId, VlanIdOrNone >, VlanIdOrNone > natives(
         "native VLAN of", unit_->native(), mismatch );
   for( auto const & [ intf, carries ] : membership_->intf() ) {
      for( auto const vlan : carries.carried() ) {
         members.expect( { vlan, intf }, memberRow( carries.tagging( vlan ) ) );
      }
      natives.expect( intf, nativeRow( carries.nativeVlan ) );
   }
   members.conclude();
   natives.conclude();
   Comparison< Rows< Pelt::IntfId, Hoba::HobaPortVlanTpidData >, Hoba::HobaPortVlanTpidData > tpids(
         "TPIDs of", unit_->tpid(), mismatch );
   for( auto const & [ port, wanted ] : commonSmData_->portVlanTpidData() ) {
      if( commonSmData_->intfHas( port ) ) {
         tpids.expect( port, std::optional( wanted ) );
      }
   }
   tpids.conclude();
   if( !mismatch.empty() && !unit_->isSettled() ) {
      if( auto const pass = commonSmData_->verifyData() ) {
         pass->retryVerifyIs( true );
      }
      return {};
   }
   return mismatch;
}

} // namespace HobaSim
