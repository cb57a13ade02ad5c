// SPDX-License-Identifier: Apache-2.0
#include "chips/sim/SimMac.h"

#include "Hoba/HobaMacEvaluation.h"
#include "Kiv/DispatchRecorder.h"
#include "Kiv/Reflect.h"
#include "chips/sim/SimMacAccess.h"

#include <cmath>

KIV_DEFINE( HobaSim::MacUnit );

namespace HobaSim {

using Bridging::MacVlanPair;
using Bridging::VlanId;
using Hoba::HobaEvent;
using Pelt::IntfId;

// ---- Rows

bool
HostRow::isBound() const {
   return !ages && Hoba::isMacEntryStatic( entryType );
}

bool
HostRow::isSameEntry( HostRow const & other ) const {
   auto same = other;
   same.byChip = byChip;
   same.heardIn = heardIn;
   same.flushes = flushes;
   return *this == same;
}

void
MacScope::print( std::string & out ) const {
   out += vlan ? Kiv::toText( vlan ) : "*";
   out += '@';
   out += intf ? Kiv::toText( intf ) : "*";
}

MacScope
MacScope::parse( std::string_view text ) {
   auto const at = text.find( '@' );
   if( at == text.npos ) {
      Kiv::parseFailed( text, "a VLAN and an interface, each of them * for all: 10@Ethernet1" );
   }
   MacScope scope;
   if( auto const vlan = text.substr( 0, at ); vlan != "*" ) {
      scope.vlan = VlanId::parse( vlan ).value();
   }
   if( auto const intf = text.substr( at + 1 ); intf != "*" ) {
      scope.intf = IntfId::parse( intf );
   }
   return scope;
}

// ---- What the unit has beside its tables

class MacUnit::Turn final : public Kiv::Timer {
 public:
   using Handler = void ( MacUnit::* )();

   Turn( MacUnit & unit, Handler handler ) : Turn( unit, handler, Kiv::make< Kiv::Clock >() ) {}

 private:
   Turn( MacUnit & unit, Handler handler, Kiv::Ptr< Kiv::Clock > const & clockOf )
         : Timer( *clockOf ), unit_( unit ), handler_( handler ), keptClock_( clockOf ) {}

   void onTimeout() override {
      // Who hears of it may drop the whole chip: it lives until this has returned.
      Kiv::Dispatch::Frame frame;
      Kiv::DispatchRecorder::Scope recorded( Kiv::DispatchRecorder::Kind::timeout, "timeout" );
      ( unit_.*handler_ )();
   }

   MacUnit & unit_;
   Handler const handler_;
   Kiv::Ptr< Kiv::Clock > const keptClock_;
};

MacUnit::MacUnit( Kiv::String const & unitName, Kiv::Ptr< EventUnit > const & events,
                  Kiv::Ptr< TrunkUnit > const & trunk, Memory const & memory )
      : Unit( unitName, memory ), events_( events ), trunk_( trunk ),
        access_( std::make_unique< MacAccess >( *this ) ) {
   hostTable()->capacityIs( 131072 );
   sweeps_ = count( macSweeps );
   flushes_ = count( macFlushes );
   for( auto const & row : host() ) {
      bool const isRemote = row.value.isRemote() && !row.value.byChip;
      remoteHosts_ += isRemote;
      hostIndex_.is( row.key, { row.value.intf, row.value.isLearnt(), isRemote } );
   }
   for( auto const & row : seen() ) {
      seenIndex_.is( row.key, { row.value.intf, true } );
   }
   // What a former process was at goes on.
   for( auto const & row : flush() ) {
      flushing( row.key.intf );
   }
   armSweep();
}

MacUnit::~MacUnit() = default;

void
MacUnit::rowChanged( Kiv::AttributeId const & attribute, void const * key ) {
   if( &attribute == &hostAttr ) {
      hostChanged( *static_cast< MacVlanPair const * >( key ) );
   } else if( &attribute == &seenAttr ) {
      auto const station = *static_cast< MacVlanPair const * >( key );
      auto const row = seen().find( station );
      row ? seenIndex_.is( station, { row->intf, true } ) : seenIndex_.del( station );
   } else if( &attribute == &countAttr ) {
      sweeps_ = count( macSweeps );
      flushes_ = count( macFlushes );
   } else if( &attribute == &settingAttr &&
              *static_cast< MacSetting const * >( key ) == macAgingTime ) {
      armSweep();
   }
}

// Whoever changed the row: what the chip held as learnt is reported as it is now.
void
MacUnit::hostChanged( MacVlanPair station ) {
   auto const * const place = hostIndex_.find( station );
   auto const before = place ? *place : MacIndex::Place();
   auto const now = host().find( station );
   bool const isRemote = now && now->isRemote() && !now->byChip;
   remoteHosts_ = remoteHosts_ + isRemote - before.remote;
   bool const isLearnt = now && now->isLearnt();
   now ? hostIndex_.is( station, { now->intf, isLearnt, isRemote } ) : hostIndex_.del( station );

   auto const elsewhere = seen().empty() ? IntfId() : seen( station ).intf;
   auto const reported = elsewhere                       ? elsewhere
                         : before.learnt && !isSpoiling_ ? before.intf
                                                         : IntfId();
   bool const isThere = isLearnt && now->intf == reported;
   bool const staysElsewhere = elsewhere && now && !now->isChips() && !now->isBound() && !isThere;
   if( elsewhere && !staysElsewhere ) {
      seenDel( station );
   }
   if( isThere || staysElsewhere ) {
      return;
   }
   if( isLearnt ) {
      report( HobaEvent::eventTypeMacAddressLearned, station, now->intf );
   } else if( reported ) {
      report( HobaEvent::eventTypeMacAddressAged, station, reported );
   }
}

// Somebody may have written what can be no station.
void
MacUnit::report( HobaEvent::HobaEventType eventType, MacVlanPair station, IntfId intf ) {
   if( station.isStation() && hasStations( intf ) ) {
      events_->stationEvent( eventType, station, intf );
   }
}

// ---- Entries

bool
MacUnit::isFlushed( MacVlanPair station, IntfId intf, std::uint32_t stamp ) const {
   if( flush().empty() ) {
      return false;
   }
   std::uint64_t const vlan = station.vlanId().value();
   return stamp < flush( MacScope{} ) || stamp < flush( MacScope{ IntfId(), vlan } ) ||
          stamp < flush( MacScope{ intf, 0 } ) || stamp < flush( MacScope{ intf, vlan } );
}

std::optional< HostRow >
MacUnit::entry( MacVlanPair station ) const {
   auto row = host().find( station );
   if( row && row->ages && isFlushed( station, row->intf, row->flushes ) ) {
      row.reset();
   }
   return row;
}

IntfId
MacUnit::reportedAt( MacVlanPair station ) const {
   if( auto const row = seen().find( station ) ) {
      return isFlushed( station, row->intf, row->flushes ) ? IntfId() : row->intf;
   }
   auto const row = entry( station );
   return row && row->isLearnt() ? row->intf : IntfId();
}

bool
MacUnit::isLearnt( MacVlanPair station ) const {
   return bool( reportedAt( station ) );
}

void
MacUnit::dropFlushed( MacVlanPair station ) {
   if( flush().empty() ) {
      return;
   }
   if( auto const row = host().find( station );
       row && row->ages && isFlushed( station, row->intf, row->flushes ) ) {
      forgetHost( station, macFlushed );
   }
   if( auto const row = seen().find( station );
       row && isFlushed( station, row->intf, row->flushes ) ) {
      forgetSeen( station, macFlushed );
   }
}

void
MacUnit::writtenIndirectlyIs( bool indirectly ) {
   host_.landsAtOnceIs( indirectly );
   access_->attach( {} );
}

bool
MacUnit::isNewRemote( MacVlanPair station, HostRow const & row ) const {
   auto const held = host().acceptedOf( station );
   return row.isRemote() && !( held && held->isRemote() && !held->byChip );
}

bool
MacUnit::isWritten( MacVlanPair station, HostRow const & row ) const {
   auto const held = entry( station );
   return held && held->isSameEntry( row ) && !( held->byChip && row.isRemote() );
}

TableResult
MacUnit::write( MacVlanPair station, HostRow const & row ) {
   Kiv::Dispatch::Frame frame;
   dropFlushed( station );
   auto entry = row;
   entry.byChip = false;
   entry.heardIn = sweeps();
   entry.flushes = flushes();
   if( auto const held = host().acceptedOf( station ); held && held->isSameEntry( row ) ) {
      entry = *held;
      // Those that software wrote are counted.
      entry.byChip = held->byChip && !row.isRemote();
   }
   return hostProgram( station, entry );
}

TableResult
MacUnit::remove( MacVlanPair station ) {
   Kiv::Dispatch::Frame frame;
   dropFlushed( station );
   return hostClear( station );
}

Stations
MacUnit::spoilt( std::uint32_t index ) {
   Kiv::Dispatch::Frame frame;
   Stations written;
   for( auto const & station : host().keysAt( index ) ) {
      isSpoiling_ = !host( station ).byChip;
      if( isSpoiling_ ) {
         written.push_back( station );
      }
      hostDel( station );
      isSpoiling_ = false;
   }
   return written;
}

// ---- Learning

bool
MacUnit::learnsOn( IntfId intf, VlanId vlanId ) const {
   return !intfLearning().has( intf ) && !vlanLearning().has( vlanId );
}

Learning
MacUnit::learn( IntfId port, Pelt::EthAddr addr, VlanId vlanId ) {
   portTypeOf( port );
   if( addr.isMulticast() ) {
      countInc( macGroupSourceRefused );
      return learnGroup;
   }
   if( addr.isZero() ) {
      countInc( macZeroSourceRefused );
      return learnZero;
   }
   auto const lag = trunk_->lag( port );
   return learnHost( lag ? lag : port, MacVlanPair( addr, vlanId ) );
}

Learning
MacUnit::learnHost( IntfId intf, MacVlanPair station ) {
   Kiv::Dispatch::Frame frame;
   dropFlushed( station );
   auto const known = host().find( station );
   bool const isHome = known && known->intf == intf;
   if( isHome && known->heardIn != sweeps() ) {
      auto row = *known;
      row.heardIn = sweeps();
      hostIs( station, row );
   }
   if( isHome && !seen().has( station ) ) {
      countInc( macHits );
      return learnHit;
   }
   if( !learnsOn( intf, VlanId( station.vlanId().value() ) ) ) {
      countInc( macLearningOff );
      return learnOff;
   }
   if( known && !known->isChips() ) {
      return learnedElsewhere( intf, station, *known );
   }
   HostRow row;
   row.intf = intf;
   row.entryType = row.isRemote() ? Bridging::learnedRemoteMac : Bridging::learnedDynamicMac;
   row.ages = row.byChip = true;
   row.heardIn = sweeps();
   row.flushes = flushes();
   if( !hostIs( station, row ) ) {
      countInc( macTableFull );
      return learnFull;
   }
   countInc( known ? macMoved : macLearnt );
   return known ? learnMove : learnNew;
}

// Also where software has it, once it was seen elsewhere: it is news that it is back.
Learning
MacUnit::learnedElsewhere( IntfId intf, MacVlanPair station, HostRow const & row ) {
   if( row.isBound() ) {
      countInc( macBoundElsewhere );
      return learnBound;
   }
   auto const before = seen().find( station );
   bool const isKnown = before && before->intf == intf;
   SeenRow const now{ intf, sweeps(), isKnown ? before->flushes : flushes() };
   if( !seenIs( station, now ) ) {
      countInc( macTableFull );
      return learnFull;
   }
   countInc( isKnown ? macHits : macSeenElsewhere );
   if( !isKnown ) {
      report( HobaEvent::eventTypeMacAddressLearned, station, intf );
   }
   return learnElsewhere;
}

void
MacUnit::frameCame( FrameFault fault ) {
   countInc( macFrames );
   if( fault == frameRunt ) {
      countInc( macRunts );
   } else if( fault == frameReservedVlan ) {
      countInc( macBadVlanRefused );
   }
}

// ---- Forgetting

void
MacUnit::forgetHost( MacVlanPair station, MacCount why ) {
   auto const row = host( station );
   bool const isHeldAsLearnt = row.isLearnt() || seen().has( station );
   countInc( why );
   hostDel( station );
   if( !isHeldAsLearnt ) {
      report( HobaEvent::eventTypeMacAddressAged, station, row.intf );
   }
}

void
MacUnit::forgetSeen( MacVlanPair station, MacCount why ) {
   auto const intf = seen( station ).intf;
   countInc( why );
   seenDel( station );
   report( HobaEvent::eventTypeMacAddressAged, station, intf );
}

void
MacUnit::age( MacVlanPair station ) {
   Kiv::Dispatch::Frame frame;
   auto const row = entry( station );
   auto const elsewhere = seen().find( station );
   if( !row || !( row->ages || elsewhere ) ) {
      Kiv::parseFailed( Kiv::toText( station ), "a host in the table of the chip, one that ages" );
   }
   if( !station.isStation() ) {
      HobaTypes::stationFailed( station );
   }
   portTypeOf( row->intf );
   row->ages ? forgetHost( station, macAged ) : forgetSeen( station, macAged );
}

void
MacUnit::flushIn( MacScope const & scope ) {
   Kiv::Dispatch::Frame frame;
   countInc( macFlushes );
   flushIs( scope, flushes_ );
   flushing( scope.intf );
}

// One walk is for all flushes of an interface, or of all, that were asked for when it began.
void
MacUnit::flushing( IntfId intf ) {
   auto const isIt = [ intf ]( Flushing const & each ) { return each.intf == intf; };
   if( std::none_of( flushings_.begin(), flushings_.end(), isIt ) ) {
      flushings_.push_back( { intf, MacWalk( intf ), MacWalk( intf ) } );
   }
   armTurn();
}

// ---- In turns

namespace {

// The next stations of the walk, sorted.
Stations
next( MacIndex const & index, MacWalk & walk, std::size_t most ) {
   Stations stations;
   index.gather( walk, most, stations );
   std::sort( stations.begin(), stations.end() );
   return stations;
}

} // namespace

void
MacUnit::armTurn() {
   if( !turn_ ) {
      turn_ = std::make_unique< Turn >( *this, &MacUnit::takeTurn );
   }
   turn_->timeMinIs( turn_->clock().now() );
}

// The next one is armed first: what is thrown leaves it the rest.
void
MacUnit::takeTurn() {
   armTurn();
   if( !flushings_.empty() ) {
      flushSlice();
   } else if( !reporting_.isOver() ) {
      reportSlice();
   } else {
      sweepSlice();
   }
   if( flushings_.empty() && reporting_.isOver() && sweepHosts_.isOver() && sweepSeen_.isOver() ) {
      turn_->timeMinIs( Kiv::never );
   }
}

void
MacUnit::flushSlice() {
   auto & at = flushings_.front();
   at.upTo = at.upTo ? at.upTo : flushes_;
   std::vector< std::uint64_t > vlans; // 0 for all
   for( auto const & row : flush() ) {
      if( row.key.intf == at.intf ) {
         vlans.push_back( row.key.vlan );
      }
   }
   std::sort( vlans.begin(), vlans.end() );
   bool const isOfAll = !vlans.empty() && vlans.front() == 0;
   auto const hosts = next( hostIndex_, at.hosts, slice );
   auto const elsewhere = next( seenIndex_, at.seen, slice - hosts.size() );
   for( auto const * stations : { &hosts, &elsewhere } ) {
      for( auto const & station : *stations ) {
         if( isOfAll ||
             std::binary_search( vlans.begin(), vlans.end(), station.vlanId().value() ) ) {
            dropFlushed( station );
         }
      }
   }
   if( !at.hosts.isOver() || !at.seen.isOver() ) {
      return;
   }
   auto const done = at;
   flushings_.pop_front();
   for( auto const & row : flush() ) {
      if( row.key.intf == done.intf ) {
         row.value <= done.upTo ? flushDel( row.key ) : flushing( done.intf );
      }
   }
}

void
MacUnit::reportingAllIs( bool reporting ) {
   Kiv::Dispatch::Frame frame;
   reporting_ = reporting ? MacWalk( IntfId() ) : MacWalk();
   if( reporting && !reportingAll() ) {
      reportingAll_ = true;
      kivChanged( reportingAllAttr );
   }
   reportSlice();
   if( !reporting_.isOver() ) {
      armTurn();
   }
}

void
MacUnit::reportSlice() {
   for( auto const & station : next( hostIndex_, reporting_, slice ) ) {
      if( auto const intf = reportedAt( station ) ) {
         report( HobaEvent::eventTypeMacAddressLearned, station, intf );
      }
   }
   if( reporting_.isOver() && reportingAll() ) {
      reportingAll_ = false;
      kivChanged( reportingAllAttr );
   }
}

void
MacUnit::sweepSlice() {
   auto const isSilent = [ this ]( auto const & row ) { return row.heardIn + 1 < sweeps_; };
   auto const hosts = next( hostIndex_, sweepHosts_, slice );
   for( auto const & station : hosts ) {
      if( auto const row = host().find( station ); row && row->ages && isSilent( *row ) ) {
         forgetHost( station, macAged );
      }
   }
   for( auto const & station : next( seenIndex_, sweepSeen_, slice - hosts.size() ) ) {
      if( auto const row = seen().find( station ); row && isSilent( *row ) ) {
         forgetSeen( station, macAged );
      }
   }
}

// ---- The time of sweeps

namespace {

// Half the aging time; never for none. Somebody may have written any number there: no sweep is due
// before half a second.
Kiv::Seconds
betweenSweeps( Kiv::Seconds agingTime ) {
   return agingTime > 0 ? std::max( agingTime, 1.0 ) / 2 : Kiv::never;
}

} // namespace

void
MacUnit::armSweep() {
   auto const period = betweenSweeps( setting( macAgingTime ) );
   if( period == Kiv::never ) {
      sweepHosts_ = sweepSeen_ = MacWalk();
      if( sweep_ ) {
         sweep_->timeMinIs( Kiv::never );
      }
      return;
   }
   if( !sweep_ ) {
      sweep_ = std::make_unique< Turn >( *this, &MacUnit::sweepTime );
   }
   sweepFrom_ = sweep_->clock().now();
   nextSweep_ = 1;
   sweep_->timeMinIs( sweepFrom_ + period );
}

void
MacUnit::sweepTime() {
   auto const period = betweenSweeps( setting( macAgingTime ) );
   auto const now = sweep_->clock().now();
   nextSweep_ =
         std::max( nextSweep_ + 1, static_cast< std::uint64_t >( ( now - sweepFrom_ ) / period ) );
   while( sweepFrom_ + static_cast< double >( nextSweep_ ) * period <= now ) {
      ++nextSweep_;
   }
   sweep_->timeMinIs( sweepFrom_ + static_cast< double >( nextSweep_ ) * period );
   countInc( macSweeps );
   sweepHosts_ = sweepSeen_ = MacWalk( IntfId() );
   sweepSlice();
   if( !sweepHosts_.isOver() || !sweepSeen_.isOver() ) {
      armTurn();
   }
}

} // namespace HobaSim
