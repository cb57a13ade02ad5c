// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaMacLearning.h"

#include "Hoba/HobaHelper.h"
#include "Hoba/HobaMacAddrSm.h"
#include "Zipline/Zipline.h"

ZIPLINE_HANDLE( HobaMacLearning );

namespace Hoba {

using Helper = HobaHelper::HobaHelperMacAddrSm;

// On the peer link nothing is learnt while there is a peer: what is behind it the peer tells.
bool
MacLearning::wantedOnPort( Pelt::IntfId intf ) const {
   auto const & in = sm_.inputs();
   auto const config =
         in.switchIntfConfigDir ? in.switchIntfConfigDir->switchIntfConfig( intf ) : nullptr;
   // The hardware keeps nothing of a LAG that is none.
   if( isPortChannel( intf ) && !sm_.sources().hasIntf( intf ) ) {
      return true;
   }
   bool enable = !config || config->enableLearning();
   if( in.dot1xStatus && in.dot1xStatus->enabled() ) {
      auto const status = in.dot1xStatus->intfStatus( intf );
      enable = enable && ( !status || status->portAuthState() == Dot1x::portAuthorized );
   }
   if( in.mlagStatus && in.mlagStatus->peerLinkIntf() == intf ) {
      enable = enable && in.mlagStatus->state() == Mlag::mlagDisabled;
      ZTRACE( 5, intf, " is peer link of an MLAG hence enable = ", enable );
   }
   return enable;
}

void
MacLearning::traceHostMode( Pelt::IntfId intf ) const {
   auto const & dot1x = sm_.inputs().dot1xStatus;
   auto const status = dot1x ? dot1x->intfStatus( intf ) : nullptr;
   if( !status ) {
      return;
   }
   if( dot1x->enabled() ) {
      ZTRACE( 5, intf, " dot1x is enabled, setting host mode to ", status->hostMode() );
   } else {
      ZTRACE( 5, intf, " dot1x is disabled, seting host mode to multi-host" );
   }
}

void
MacLearning::configureMacLearningOnPort( Pelt::IntfId intf ) {
   if( isVlan( intf ) ) {
      ZTRACE( 2, intf, " is vlan interface. MAC learning control feature is not supported" );
      return;
   }
   traceHostMode( intf );
   bool const enable = wantedOnPort( intf );
   if( enable == !sm_.portLearningHas( intf ) ) {
      return;
   }
   if( !sm_.helper().call< &Helper::enableLearning >( intf, enable ) ) {
      ZTRACE( 1, "Mac learning cannot be enabled on intf:", intf, ", wanted: ", enable );
      return;
   }
   if( enable ) {
      sm_.portLearningDel( intf );
      return;
   }
   sm_.portLearningIs( intf, false );
   ZTRACE( 4, "mac learning is not configured on ", intf,
           ", clear dynamic mac-address table entries" );
   // A machine that begins has not turned it off: it is told once more.
   if( !sm_.inFirstPass() ) {
      isPortChannel( intf ) ? sm_.flush().flushLag( intf ) : sm_.flush().flushPort( intf );
   }
}

bool
MacLearning::wantedOnVlan( Bridging::VlanId vlanId ) const {
   auto const & dir = sm_.inputs().vlanConfigDir;
   auto const config = dir ? dir->vlanConfig( vlanId ) : nullptr;
   return !config || config->macLearning();
}

void
MacLearning::macLearningStatusOnVlan( Bridging::VlanId vlanId ) {
   bool const enable = wantedOnVlan( vlanId );
   if( enable == !sm_.vlanLearningHas( vlanId ) ) {
      return;
   }
   if( !sm_.helper().call< &Helper::enableLearningOnVlan >( vlanId, enable ) ) {
      ZTRACE( 1, "Mac learning cannot be enabled on vlan:", vlanId, ", wanted: ", enable );
      return;
   }
   if( enable ) {
      sm_.vlanLearningDel( vlanId );
   } else {
      sm_.vlanLearningIs( vlanId, false );
      if( !sm_.inFirstPass() ) {
         sm_.flush().flushVlan( vlanId );
      }
   }
}

void
MacLearning::configureAll() {
   auto const & in = sm_.inputs();
   if( in.switchIntfConfigDir ) {
      for( auto const & [ intf, config ] : in.switchIntfConfigDir->switchIntfConfig() ) {
         configureMacLearningOnPort( intf );
      }
   }
   if( in.dot1xStatus ) {
      for( auto const & [ intf, status ] : in.dot1xStatus->intfStatus() ) {
         configureMacLearningOnPort( intf );
      }
   }
   if( in.mlagStatus && in.mlagStatus->peerLinkIntf() ) {
      configureMacLearningOnPort( in.mlagStatus->peerLinkIntf() );
   }
   if( in.vlanConfigDir ) {
      for( auto const & [ vlanId, config ] : in.vlanConfigDir->vlanConfig() ) {
         macLearningStatusOnVlan( vlanId );
      }
   }
}

} // namespace Hoba
