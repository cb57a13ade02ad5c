// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaStormControlSm.h"

#include "Hoba/HobaAssert.h"
#include "Hoba/HobaHelper.h"
#include "Hoba/HobaHook.h"
#include "Zipline/Zipline.h"

#include <algorithm>
#include <utility>

ZIPLINE_HANDLE( HobaStormControlSm );

namespace Hoba {

using namespace Bridging::StormControl;
using Helper = StormControlSmHelper;

namespace {

void
levelStatusIs( IntfStatus & status, LevelType levelType, LevelStatus const & value ) {
   switch( levelType ) {
   case levelTypeBroadcast:
      return status.broadcastIs( value );
   case levelTypeMulticast:
      return status.multicastIs( value );
   case levelTypeUUcast:
      return status.uucastIs( value );
   default:
      return status.allIs( value );
   }
}

} // namespace

// ---- Life

StormControlSm::StormControlSm(
      Kiv::Ptr< HobaCommonSmData > const & commonSmData, Kiv::Ptr< Config const > const & config,
      Kiv::Ptr< Interface::AllEthPhyIntfStatusDir const > const & ethPhyIntfStatusDir,
      Kiv::Ptr< Status > const & status, Kiv::Ptr< StormControlSmHelper > const & platformHelper,
      Kiv::Ptr< Lag::Input::Config const > const & lagInputConfig,
      Kiv::Ptr< Mox::TimerWheel const > const & clock )
      : HobaVerifiedSm( commonSmData, "StormControlSm" ), status_( status ),
        platformHelper_( platformHelper ) {
   HOBA_INVARIANT( status && platformHelper, "storm control works on a status and a platform" );
   configIs( config );
   ethPhyIntfStatusDirIs( ethPhyIntfStatusDir );
   lagInputConfigIs( lagInputConfig );
   clockIs( clock );
   followVerification();
   bogusAcsdIs( commonSmData );
}

Kiv::Ptr< StormControlSm >
StormControlSm::StormControlSmIs(
      Kiv::Ptr< HobaCommonSmData > const & commonSmData, Kiv::Ptr< Config const > const & config,
      Kiv::Ptr< Interface::AllEthPhyIntfStatusDir const > const & ethPhyIntfStatusDir,
      Kiv::Ptr< Status > const & status, Kiv::Ptr< StormControlSmHelper > const & platformHelper,
      Kiv::Ptr< Lag::Input::Config const > const & lagInputConfig,
      Kiv::Ptr< Mox::TimerWheel const > const & clock ) {
   return smIs< StormControlSm >( commonSmData, config, ethPhyIntfStatusDir, status, platformHelper,
                                  lagInputConfig, clock );
}

void
StormControlSm::handleInitialized() {
   ZTRACE_ENTRY( 8 );
   Kiv::Dispatch::Frame frame;
   if( !initialized() ) {
      handlePeriod();
      reactorsUninitialize();
      return;
   }
   callHook< &Helper::hwInit >( platform() );
   held_.clear();
   lagOfPort_ = commonSmData()->portToLag();
   if( !platform().chipStormControlEnabled() ) {
      callHook< &Helper::installRules >( platform() );
   }
   removeOrphanedStatus();
   if( lagInputConfig() ) {
      for( auto const & [ intf, lag ] : lagInputConfig()->notifier()->ethPhyIntfLagConfig() ) {
         handleEthPhyIntfLagConfig( intf );
      }
   }
   reactorsInitialize();
   handlePeriod();
}

void
StormControlSm::removeOrphanedStatus() {
   for( auto const & [ intf, status ] : status_->intfStatus() ) {
      if( !intfConfig( intf ) ) {
         ZTRACE( 3, "Removing orphaned status for ", intf );
         status_->intfStatusDel( intf );
      }
   }
}

// ---- What is configured

void
StormControlSm::handleIntfConfig( Pelt::IntfId const & intf ) {
   if( auto const entity = config()->notifier()->intfConfig( intf ) ) {
      intfConfigIs( intf, entity );
   } else if( auto * reactor = intfConfig( intf ) ) {
      if( initialized() ) {
         reactor->doCleanup();
      }
      intfConfigDel( intf );
   }
}

void
StormControlSm::KivIntfConfig::handleInitialized() {
   auto & sm = owner();
   if( !sm.status_->intfStatusHas( key() ) ) {
      ZTRACE( 3, "Creating status for ", key() );
      sm.status_->intfStatusIs( key() );
   }
   if( !sm.intfExists( key() ) ) {
      ZTRACE( 3, "Interface doesn't exists in platform, skip initializing the sm" );
      sm.resetStormControlStatusForIntf( key() );
      return;
   }
   initializedIs( true );
   applyConfig();
}

void
StormControlSm::KivIntfConfig::doCleanup() {
   auto & sm = owner();
   if( isPortChannel( key() ) ) {
      ZTRACE( 3, key(), " removed. Disabling reactor" );
   }
   // What stands on a member of a LAG is the LAG's. A first pass that failed may have come far.
   if( !sm.lagIntfForIntf( key() ) ) {
      sm.clear( key() );
   }
   initializedIs( false );
   if( sm.status_->intfStatusHas( key() ) ) {
      ZTRACE( 3, "Deleting status for ", key() );
      sm.status_->intfStatusDel( key() );
   }
}

template< LevelType levelType >
void
StormControlSm::KivIntfConfig::handleLevel() {
   auto & sm = owner();
   if( !initialized() ) {
      if( sm.initialized() && sm.status_->intfStatusHas( key() ) ) {
         sm.resetStormControlStatusForIntf( key() ); // what is asked for, it waits for
      }
      return;
   }
   if( isPortChannel( key() ) ) {
      ZTRACE( 5, key(), " updated. Reapplying config" );
   }
   updateLevel( levelType );
}

// The all-traffic level goes first, so that it supersedes others or gives way to them.
void
StormControlSm::KivIntfConfig::handleAllLevel() {
   handleLevel< levelTypeAll >();
   if( decideLevel( owner().platform(), levelTypeAll, notifier()->all() ).isDefault() ) {
      updateLevel( levelTypeUUcast );
      updateLevel( levelTypeBroadcast );
      updateLevel( levelTypeMulticast );
   }
}

void
StormControlSm::KivIntfConfig::applyConfig() {
   Kiv::Dispatch::Frame frame;
   for( auto levelType : allLevelTypes ) {
      updateLevel( levelType );
   }
}

// ---- Programming a level

void
StormControlSm::KivIntfConfig::updateLevel( LevelType levelType ) {
   Kiv::Dispatch::Frame frame;
   if( !working() ) {
      return;
   }
   auto & sm = owner();
   auto ports = sm.portSpeedsOf( key() );
   // The all-traffic level takes along what it supersedes.
   static constexpr LevelType superseding[] = { levelTypeAll, levelTypeBroadcast, levelTypeUUcast };
   std::span< LevelType const > levels( &levelType, 1 );
   if( levelType == levelTypeAll &&
       !decideLevel( sm.platform(), levelTypeAll, notifier()->all() ).threshold.isDefault() ) {
      levels = superseding;
   }
   if( obstacle() == programmed ) {
      bool told = false;
      for( auto each : levels ) {
         told = program( each, ports ) || told;
      }
      if( told ) {
         callHook< &Helper::updateBcastSkipRule >( sm.platform(), key(),
                                                   broadcastSkips( sm.platform(), *notifier() ) );
      }
   }
   if( working() ) {
      report( *sm.status_->intfStatusIs( key() ), levels, std::move( ports ) );
   }
}

bool
StormControlSm::KivIntfConfig::working() const {
   return initialized() && !kivMarkedForDeletion() && !owner().kivMarkedForDeletion();
}

class StormControlSm::KivIntfConfig::Decisions {
 public:
   Decisions( KivIntfConfig const & config, LevelType levelType )
         : sm_( config.owner() ), parent_( config.key() ),
           alone_( decideLevelOnPort( sm_.platform(), levelType, *config.notifier(), false ) ),
           behindAll_( decideLevelOnPort( sm_.platform(), levelType, *config.notifier(), true ) ) {}

   // Where nothing stands yet.
   LevelDecision const & alone() const { return alone_; }
   LevelDecision const & on( Pelt::IntfId port ) const {
      return alone_.state == behindAll_.state ||
                         sm_.held( port, parent_, levelTypeAll ).threshold.isDefault()
                   ? alone_
                   : behindAll_;
   }

 private:
   StormControlSm const & sm_;
   Pelt::IntfId const parent_;
   LevelDecision const alone_;
   LevelDecision const behindAll_;
};

bool
StormControlSm::KivIntfConfig::program( LevelType levelType, PortSpeeds const & ports ) {
   if( isPortChannel( key() ) ) {
      ZTRACE( 5, "Updating levels for lag ", key() );
   }
   Decisions const decisions( *this, levelType );
   bool told = decisions.alone().program;
   for( auto const & [ port, speed ] : ports ) {
      auto const & decision = decisions.on( port );
      if( speed != 0 && decision.program ) {
         owner().setHwRate( levelType, port, key(), speed, decision.threshold );
         told = true;
      }
   }
   return told;
}

// A LAG's members stand in its way one by one, not as a whole.
LevelState
StormControlSm::KivIntfConfig::obstacle() const {
   auto const & sm = owner();
   if( !sm.intfExists( key() ) ) {
      return intfNotPresent;
   }
   if( isPortChannel( key() ) ) {
      return programmed;
   }
   if( sm.lagIntfForIntf( key() ) ) {
      return memberOfLag;
   }
   if( !active() ) {
      return intfInactive;
   }
   return sm.calculateSpeedForIntf( key() ) == 0 ? LevelState::speedUnknown : programmed;
}

LevelState
StormControlSm::KivIntfConfig::standing( LevelType levelType, PortSpeeds const & ports ) const {
   auto const & platform = owner().platform();
   auto const asked =
         decideLevel( platform, levelType, configuredThreshold( *notifier(), levelType ) );
   if( asked.state == notConfigured || asked.state == levelNotSupported ) {
      return asked.state;
   }
   Decisions const decisions( *this, levelType );
   bool anyKnown = false;
   bool anyUncovered = false;
   for( auto const & [ port, speed ] : ports ) {
      if( speed != 0 ) {
         anyKnown = true;
         anyUncovered = anyUncovered || decisions.on( port ).state != supersededByAll;
      }
   }
   auto why = obstacle();
   if( why == programmed && !anyKnown ) {
      why = ports.empty() ? lagHasNoMember : LevelState::speedUnknown;
   }
   if( why != programmed ) {
      return asked.refused() ? asked.state : why;
   }
   return anyUncovered ? asked.state : supersededByAll;
}

LevelStatus
StormControlSm::KivIntfConfig::statusOf( LevelType levelType, PortSpeeds const & ports ) const {
   LevelStatus level{ {}, 0, standing( levelType, ports ) };
   for( auto const & [ port, speed ] : ports ) {
      auto const & stands = owner().held( port, key(), levelType );
      // A member of a LAG whose speed is not known adds nothing.
      if( !stands.threshold.isDefault() && ( port == key() || speed != 0 ) ) {
         level.rate += rateOf( stands.speedKbps, stands.threshold );
         if( level.threshold.isDefault() ) {
            level.threshold = stands.threshold;
         }
      }
   }
   return level;
}

void
StormControlSm::KivIntfConfig::report( IntfStatus & status, std::span< LevelType const > levels,
                                       PortSpeeds ports ) const {
   for( auto levelType : levels ) {
      auto const level = statusOf( levelType, ports );
      if( level != levelStatus( status, levelType ) ) {
         levelStatusIs( status, levelType, level );
         ports = owner().portSpeedsOf( key() ); // whoever heard of it may have changed them
      }
   }
   std::uint64_t speedOfAll = 0;
   for( auto const & [ port, speed ] : ports ) {
      speedOfAll += speed;
   }
   status.speedIs( speedOfAll );
}

void
StormControlSm::setHwRate( LevelType levelType, Pelt::IntfId intf, Pelt::IntfId parentIntf,
                           std::uint32_t speedKbps, Threshold const & threshold ) {
   ZTRACE( 5, "Setting ", intf, levelText( levelType ), " level threshold to ", threshold );
   callHook< &Helper::setHwRate >( platform(), levelType, intf, parentIntf, speedKbps, threshold );
   auto * holds = threshold.isDefault() ? held_.find( intf ) : held_.tryEmplace( intf ).value;
   if( holds ) {
      holds->parent = parentIntf;
      holds->level[ levelType ] = { threshold, speedKbps };
   }
}

StormControlSm::Held::Level const &
StormControlSm::held( Pelt::IntfId port, Pelt::IntfId parent, LevelType levelType ) const {
   static Held const nothing;
   auto const * holds = held_.find( port );
   return ( holds && holds->parent == parent ? *holds : nothing ).level[ levelType ];
}

void
StormControlSm::enable( Pelt::IntfId intf ) {
   if( auto * reactor = intfConfig( intf ) ) {
      if( reactor->kivFirstPassFailed() ) {
         Kiv::initializeReactor( *reactor );
      } else {
         reactor->applyConfig();
      }
   }
}

void
StormControlSm::disable( Pelt::IntfId intf ) {
   Kiv::Dispatch::Frame frame;
   if( !initialized() || !intfExists( intf ) ) {
      return;
   }
   for( auto port : portsOf( intf ) ) {
      for( auto levelType : allLevelTypes ) {
         if( levelSupported( platform(), levelType ) ) {
            setHwRate( levelType, port, intf, calculateSpeedForIntf( port ), {} );
         }
      }
   }
   callHook< &Helper::updateBcastSkipRule >( platform(), intf, false );
}

void
StormControlSm::clear( Pelt::IntfId intf ) {
   Kiv::guarded( "StormControlSm::disable", Kiv::toText( intf ), [ & ] { disable( intf ); } );
}

void
StormControlSm::resetStormControlStatusForIntf( Pelt::IntfId intf ) {
   auto const status = status_->intfStatus( intf );
   auto const * reactor = intfConfig( intf );
   if( !status || !reactor ) {
      ZTRACE( 5, "No status found, returning...." );
      return;
   }
   reactor->report( *status, allLevelTypes, portSpeedsOf( intf ) );
}

// ---- Ports

std::uint32_t
StormControlSm::calculateSpeedForIntf( Pelt::IntfId intf ) const {
   auto const * reactor = ethPhyIntfStatus( intf );
   return reactor ? Interface::speedToKbps( reactor->notifier()->speed() ) : 0;
}

bool
StormControlSm::intfExists( Pelt::IntfId intf ) const {
   return isPortChannel( intf ) || commonSmData()->intfHas( intf );
}

bool
StormControlSm::intfActive( Pelt::IntfId intf ) const {
   auto const * reactor = ethPhyIntfStatus( intf );
   return !platform().platformSupportsDynamicLogicalPorts() ||
          ( reactor && reactor->notifier()->active() );
}

bool
StormControlSm::KivIntfConfig::active() const {
   return isPortChannel( key() ) || owner().intfActive( key() );
}

// While a port changes its LAG the two maps of the shared context disagree for a moment. Then the
// port is nobody's member, lest two configurations take turns on it.
std::vector< Pelt::IntfId >
StormControlSm::portsOf( Pelt::IntfId intf ) const {
   if( !isPortChannel( intf ) ) {
      return intfExists( intf ) ? std::vector{ intf } : std::vector< Pelt::IntfId >{};
   }
   auto ports = commonSmData()->lagToPort( intf ).port;
   std::erase_if( ports, [ & ]( Pelt::IntfId port ) {
      return lagIntfForIntf( port ) != intf || !intfExists( port ) || !intfActive( port );
   } );
   return ports;
}

StormControlSm::PortSpeeds
StormControlSm::portSpeedsOf( Pelt::IntfId intf ) const {
   PortSpeeds speeds;
   auto const ports = portsOf( intf );
   speeds.reserve( ports.size() );
   for( auto port : ports ) {
      speeds.push_back( { port, calculateSpeedForIntf( port ) } );
   }
   return speeds;
}

bool
StormControlSm::isMember( Pelt::IntfId intf, Pelt::IntfId lag ) const {
   auto const & ports = commonSmData()->lagToPort( lag ).port;
   return lagIntfForIntf( intf ) == lag &&
          std::find( ports.begin(), ports.end(), intf ) != ports.end();
}

void
StormControlSm::handleEthPhyIntfStatus( Pelt::IntfId const & intf ) {
   ethPhyIntfStatusIs( intf, ethPhyIntfStatusDir()->notifier()->ethPhyIntfStatus( intf ) );
   // A port of which nothing is known is not active either.
   if( platform().platformSupportsDynamicLogicalPorts() ) {
      handleEthIntf( intf );
   } else {
      handleSpeed( intf );
   }
}

void
StormControlSm::handleSpeed( Pelt::IntfId const & intf ) {
   if( initialized() ) {
      reprogram( intf );
   }
}

void
StormControlSm::reprogram( Pelt::IntfId intf ) {
   enable( intf ); // also while it belongs to a LAG: its status tells its speed
   if( auto const lag = lagIntfForIntf( intf ) ) {
      enable( lag );
   }
}

void
StormControlSm::handleEthIntf( Pelt::IntfId const & intf ) {
   if( !initialized() ) {
      return;
   }
   if( !platform().platformSupportsDynamicLogicalPorts() ) {
      ZTRACE( 5, "Platform doesn't support DLP, returning...." );
      return;
   }
   if( intfActive( intf ) ) {
      ZTRACE( 3, intf, ": Interface has become active, reprogram storm control" );
   } else {
      ZTRACE( 3, intf, ": Interface has become inactive, clear storm control" );
      clear( intf );
      resetStormControlStatusForIntf( intf );
   }
   // Also when it is gone: its share of a LAG's rate is.
   reprogram( intf );
}

void
StormControlSm::handleIntf( Pelt::IntfId const & intf ) {
   if( !initialized() ) {
      return;
   }
   auto * own = intfConfig( intf );
   if( !intfExists( intf ) ) {
      if( own ) {
         own->initializedIs( false );
         resetStormControlStatusForIntf( intf );
      }
   } else if( !own || !own->initialized() ) {
      // It came (back), and the hardware may have kept what stood when it went.
      clear( intf );
      if( own ) {
         Kiv::initializeReactor( *own );
      }
   }
   if( auto const lag = lagIntfForIntf( intf ) ) {
      enable( lag );
   }
}

// ---- LAGs

Pelt::IntfId
StormControlSm::lagIntfForIntf( Pelt::IntfId intf ) const {
   return commonSmData()->portToLag( intf );
}

Bridging::StormControl::IntfConfig const *
StormControlSm::KivIntfConfig::activeConfig() const {
   auto const lag = owner().lagIntfForIntf( key() );
   if( !lag ) {
      return notifier();
   }
   auto const * lagConfig = owner().intfConfig( lag );
   return lagConfig ? lagConfig->notifier() : nullptr;
}

void
StormControlSm::handlePortToLag( Pelt::IntfId const & intf ) {
   if( !initialized() ) {
      return;
   }
   auto const lag = lagIntfForIntf( intf );
   auto const former = std::exchange( *lagOfPort_.tryEmplace( intf ).value, lag );
   Kiv::guarded( "StormControlSm::handlePortToLag", Kiv::toText( intf ),
                 [ & ] { lag ? joinLag( intf, lag ) : leaveLag( intf ); } );
   // The LAG that it left may still list it, but it has no share of that any more.
   if( former != lag && former && intfConfig( former ) ) {
      resetStormControlStatusForIntf( former );
   }
}

void
StormControlSm::joinLag( Pelt::IntfId intf, Pelt::IntfId lag ) {
   ZTRACE( 3, "Disabling storm control on ", intf,
           " because it is part of a lag, and lag config takes precedence" );
   clear( intf );
   resetStormControlStatusForIntf( intf );
   if( intfConfig( lag ) ) {
      ZTRACE( 3, lag, " config exists, reapplying config" );
      enable( lag );
   }
}

// The LAG's levels must not stay on the port: its own take their place, or the default.
void
StormControlSm::leaveLag( Pelt::IntfId intf ) {
   auto * own = intfConfig( intf );
   if( !own || !own->initialized() || own->obstacle() != programmed ) {
      clear( intf );
      resetStormControlStatusForIntf( intf );
      enable( intf ); // where its first pass failed, another
      return;
   }
   ZTRACE( 3, "Applying config to ", intf, " because it left a lag" );
   for( auto levelType : allLevelTypes ) {
      auto const & asked = configuredThreshold( *own->notifier(), levelType );
      if( levelSupported( platform(), levelType ) &&
          !decideLevel( platform(), levelType, asked ).program ) {
         setHwRate( levelType, intf, intf, calculateSpeedForIntf( intf ), {} );
      }
   }
   own->applyConfig();
}

void
StormControlSm::handleLagToPort( Pelt::IntfId const & lag ) {
   if( !initialized() ) {
      return;
   }
   // Who belongs to the LAG and is no active member must not keep levels that nobody follows up.
   for( auto const & port : Kiv::keysOf( commonSmData()->portToLag() ) ) {
      if( lagIntfForIntf( port ) == lag && !isMember( port, lag ) ) {
         clear( port );
      }
   }
   enable( lag );
}

void
StormControlSm::handleEthPhyIntfLagConfig( Pelt::IntfId const & intf ) {
   if( initialized() ) {
      callHook< &Helper::handleEthPhyIntfLagConfig >( platform(), intf );
   }
}

// ---- Traffic classes and bursts

void
StormControlSm::handleAggregateTcConfig( std::uint16_t const & trafficClass ) {
   auto const entity = config()->notifier()->aggregateTcConfig( trafficClass );
   aggregateTcConfigIs( trafficClass, entity );
   if( !entity && initialized() ) {
      callHook< &Helper::programTcAggregateHwRate >( platform(), trafficClass, Threshold{} );
   }
}

void
StormControlSm::KivAggregateTcConfig::handleInitialized() {
   initializedIs( true );
   handleLevel();
}

void
StormControlSm::KivAggregateTcConfig::handleLevel() {
   if( initialized() ) {
      ZTRACE( 5, "Setting level of traffic class ", key(), " to ", notifier()->level() );
      callHook< &Helper::programTcAggregateHwRate >( owner().platform(), key(),
                                                     notifier()->level() );
   }
}

void
StormControlSm::handleBurstConfig( Kiv::String const & burst ) {
   auto const entity = config()->notifier()->burstConfig( burst );
   burstConfigIs( burst, entity );
   if( !entity && initialized() && platform().burstEnabled() ) {
      callHook< &Helper::setBurstTime >( platform(), *Kiv::make< BurstConfig >( burst ) );
   }
}

void
StormControlSm::KivBurstConfig::handleInitialized() {
   initializedIs( true );
   handleBurstTime();
}

void
StormControlSm::KivBurstConfig::handleBurstTime() {
   if( initialized() && owner().platform().burstEnabled() ) {
      ZTRACE( 5, key(), " burstTime: ", notifier()->burstTime() );
      callHook< &Helper::setBurstTime >( owner().platform(), *notifier() );
   }
}

// ---- Drop counters

void
StormControlSm::handlePeriod() {
   if( !clock() || !config() ) {
      return;
   }
   Kiv::Seconds const period = initialized() ? config()->notifier()->period().value() : 0;
   clock()->timeMinIs( period > 0 ? clock()->now() + period : Kiv::never );
}

void
StormControlSm::handleTime() {
   if( platform().dropCountEnabled() ) {
      for( auto const & each : intfConfig() ) {
         // What cannot be read of one interface keeps nobody from reading the others.
         Kiv::guarded( "StormControlSm::handleTime", Kiv::toText( each.key ),
                       [ & ] { each.value->handleTime(); } );
      }
   }
   handlePeriod();
}

void
StormControlSm::KivIntfConfig::handleTime() {
   if( !initialized() ) {
      return;
   }
   auto const & platform = owner().platform();
   std::uint64_t uucast = 0, broadcast = 0, multicast = 0, all = 0;
   for( auto port : owner().portsOf( key() ) ) {
      uucast += platform.getUUcastDropCnt( port );
      broadcast += platform.getBcastDropCnt( port );
      multicast += platform.getMcastDropCnt( port );
      all += platform.getAllDropCnt( port );
   }
   ZTRACE( 8, key(), " uucastDrop: ", uucast, " broadcastDrop: ", broadcast,
           " multicastDrop: ", multicast, " allDrop: ", all );
   auto const status = owner().status_->intfStatusIs( key() );
   status->uucastDropIs( uucast );
   status->broadcastDropIs( broadcast );
   status->multicastDropIs( multicast );
   status->allDropIs( all );
}

// ---- Verification

void
StormControlSm::handleVerify() {
   ZTRACE_ENTRY( 8 );
   Kiv::Dispatch::Frame frame;
   if( !initialized() ) {
      return;
   }
   for( auto const & [ intf, reactor ] : intfConfig() ) {
      reactor->handleVerify();
   }
   for( auto const & port : Kiv::keysOf( commonSmData()->intf() ) ) {
      verifyUnlimited( port );
   }
   for( auto const & [ trafficClass, reactor ] : aggregateTcConfig() ) {
      reportVerify( "traffic class " + Kiv::toText( trafficClass ),
                    callHook< &Helper::verifyAggregateTc >( platform(), trafficClass,
                                                            *reactor->notifier() ) );
   }
   if( config() ) {
      reportVerify( "platform", callHook< &Helper::verifyPlatformStormControl >(
                                      platform(), *config()->notifier(), *status_ ) );
   }
}

// A port for which no configuration holds. Nobody asked for it by name, so it is named when something
// is wrong with it.
void
StormControlSm::verifyUnlimited( Pelt::IntfId port ) {
   auto const lag = lagIntfForIntf( port );
   bool const ofLag = lag && intfConfig( lag ) && isMember( port, lag ) && intfActive( port );
   if( isPortChannel( port ) || intfConfig( port ) || ofLag ) {
      return;
   }
   auto const mismatch = callHook< &Helper::verifyEnabled >( platform(), port, false );
   if( !mismatch.empty() ) {
      reportVerify( Kiv::toText( port ), mismatch );
   }
}

void
StormControlSm::KivIntfConfig::handleVerify() {
   if( !initialized() && !kivFirstPassFailed() ) {
      return;
   }
   auto & sm = owner();
   // Named by the configuration that is verified: a member of a LAG has its own and the LAG's.
   auto verifyPort = [ & ]( Pelt::IntfId port, Pelt::IntfId parent, IntfConfig const & config ) {
      auto const item =
            port == key() ? Kiv::toText( port ) : Kiv::toText( key() ) + ' ' + Kiv::toText( port );
      sm.reportVerify( item, callHook< &Helper::verifyPort >( sm.platform(), port, parent,
                                                              sm.calculateSpeedForIntf( port ),
                                                              config ) );
   };
   auto verifyDisabled = [ & ] {
      sm.reportVerify( Kiv::toText( key() ),
                       callHook< &Helper::verifyEnabled >( sm.platform(), key(), false ) );
   };
   auto const lag = sm.lagIntfForIntf( key() );
   if( isPortChannel( key() ) ) {
      ZTRACE( 5, key(), " is a LAG, verify individual interfaces" );
      for( auto port : sm.portsOf( key() ) ) {
         verifyPort( port, key(), *notifier() );
      }
   } else if( auto const * config = activeConfig(); !config ) {
      ZTRACE( 5, key(),
              ": There is no LAG storm-control config, make sure storm-control is disabled" );
      verifyDisabled();
   } else if( !active() || ( lag && !sm.isMember( key(), lag ) ) ) {
      verifyDisabled();
   } else if( lag ) {
      ZTRACE( 5, key(),
              ": Verify storm-control config matches the LAG's config and not the "
              "individual config" );
      verifyPort( key(), lag, *config );
   } else {
      ZTRACE( 5, key(), " is not part of a LAG, verify its individual config" );
      verifyPort( key(), key(), *config );
   }
}

void
StormControlSm::reportVerify( Kiv::String const & item, Kiv::String const & mismatch ) {
   if( !mismatch.empty() ) {
      ZTRACE( 0, "Storm control of ", item, " differs from the hardware: ", mismatch );
   }
   if( auto * verify = verifyData() ) {
      verify->updateCliVerifyOutput( "storm control " + item, mismatch.empty() ? "ok" : mismatch );
   }
}

} // namespace Hoba
