// SPDX-License-Identifier: Apache-2.0
#include "agent/features/Feature.h"
#include "agent/features/StationExplanation.h"
#include "agent/features/Stations.h"
#include "agent/feeders/FlushClient.h"
#include "chips/sim/SimChip.h"
#include "chips/sim/SimMacHelper.h"

#include <algorithm>
#include <functional>
#include <map>

// The MAC address table: where each station is, why, and having stations forgotten.

namespace HobaAgent {

using Bridging::MacVlanPair;
using Bridging::VlanId;
using Kiv::Datum;
using Kiv::String;
using Kiv::toText;

class MacFeature : public Feature {
 public:
   explicit MacFeature( Board & board ) : Feature( board, "MAC address table" ) {
      board.offer( status_ );
   }

   void mounts() override;
   void commands( Commands & commands ) override;
   void start() override;

 private:
   Hoba::MacAddrInputs inputs() const;
   // Null if the chip is written directly.
   Kiv::Ptr< HobaSim::MacProgrammer > programmer() const {
      return board().find< HobaSim::MacProgrammer >();
   }

   std::size_t waitingCount() const;
   Datum show( Request const & request ) const;
   Datum explain( Request const & request ) const;
   Datum showPending( Request const & ) const;
   Datum showMoves( Request const & ) const;
   Datum showFlush( Request const & ) const;
   Datum clear( Request const & request );

   Kiv::Ptr< Bridging::Status > const status_ = Kiv::make< Bridging::Status >( "status" );
   Kiv::Ptr< Bridging::DynamicHostStatus > const dynamicHostStatus_ =
         Kiv::make< Bridging::DynamicHostStatus >( "dynHostStatus" );
   Kiv::Ptr< Bridging::AllHostTableFlushRequestDir > const flushRequestDir_ =
         Kiv::make< Bridging::AllHostTableFlushRequestDir >( "request" );
   Kiv::Ptr< Bridging::AllHostTableFlushReplyDir > const flushReplyDir_ =
         Kiv::make< Bridging::AllHostTableFlushReplyDir >( "reply" );
   Machine< Hoba::MacAddrSm > sm_{ *this, "mac" };
   Machine< Feeders::FlushClient > flushClient_{ *this, "flushClient" };
};

void
MacFeature::mounts() {
   mount( "/bridging/status", status_, Tessera::Access::status );
   mount( "/bridging/dynHostStatus", dynamicHostStatus_, Tessera::Access::status );
   mount( "/bridging/flush/request", flushRequestDir_, Tessera::Access::writable );
   mount( "/bridging/flush/reply", flushReplyDir_, Tessera::Access::status );
}

Hoba::MacAddrInputs
MacFeature::inputs() const {
   auto const find = [ this ]( auto & input ) {
      using Input = std::remove_cvref_t< decltype( *input ) >;
      input = board().find< Input >();
   };
   Hoba::MacAddrInputs all;
   find( all.macTable );
   find( all.bridgingConfig );
   find( all.switchIntfConfigDir );
   find( all.vlanConfigDir );
   find( all.ethPhyIntfConfigDir );
   all.ethPhyIntfStatusDir = board().ethPhyIntfStatusDir;
   find( all.portVlanMembership );
   find( all.mlagStatus );
   find( all.mlagHostTable );
   find( all.l2RibHostOutput );
   find( all.l2RibDestOutput );
   find( all.l2RibLoadBalanceOutput );
   find( all.objTupleToHwId );
   find( all.swTunnelGroupIdMap );
   find( all.evpnMacTable );
   find( all.vxlanConfigDir );
   find( all.vlanVniMap );
   find( all.routerMacTable );
   find( all.dot1xStatus );
   find( all.dot1xHostTable );
   find( all.nonAgingStatus );
   find( all.fsfStatus );
   find( all.rmacInfoDir );
   all.flushRequestDir = flushRequestDir_;
   all.bridgingStatus = status_;
   all.dynamicHostStatus = dynamicHostStatus_;
   all.flushReplyDir = flushReplyDir_;
   return all;
}

void
MacFeature::start() {
   auto const helper =
         Kiv::make< HobaSim::MacHelper >( board().chip->mac(), context(), programmer() );
   sm_.is( Hoba::MacAddrSm::MacAddrSmIs( context(), helper, inputs() ) );
   firstPassGoesOn();
   sm_->whenFirstPassIsDone( [ this ] { firstPassIsOver(); } );
   sm_->initializedIs( true );
   flushClient_.is(
         Feeders::FlushClient::FlushClientIs( context(), flushRequestDir_, flushReplyDir_ ) );
   flushClient_->initializedIs( true );
}

// ---- Stations in force

namespace {

using Shown = std::vector< std::pair< MacVlanPair, Bridging::LearnedHost const * > >;

// Looks for the stations that somebody wants to see, where few others are.
class StationSearch {
 public:
   StationSearch( Hoba::MacAddrSm const & sm, Bridging::Status const & status,
                  StationFilter const & wanted, std::optional< Bridging::EntryType > type )
         : sm_( sm ), status_( status ), wanted_( wanted ), type_( type ) {}

   void run() {
      if( wanted_.addr ) {
         byAddress( *wanted_.addr );
      } else if( wanted_.intf ) {
         byInterface( wanted_.intf );
         if( wanted_.lag ) {
            byInterface( wanted_.lag );
         }
      } else {
         byVlan();
      }
      std::ranges::sort( shown_, {}, &Shown::value_type::first );
   }
   Shown const & shown() const { return shown_; }
   BoundedLook const & look() const { return look_; }

 private:
   void consider( MacVlanPair station, Bridging::LearnedHost const * host ) {
      if( host && wanted_.takes( station, host->intf ) && ( !type_ || host->entryType == *type_ ) &&
          look_.found() ) {
         shown_.emplace_back( station, host );
      }
   }

   void byAddress( Pelt::EthAddr addr ) {
      for( auto const & [ vlan, database ] : status_.fdbStatus() ) {
         consider( { addr, vlan }, database->learnedHost().find( addr ) );
      }
   }

   void byInterface( Pelt::IntfId intf ) {
      for( auto const & station : sm_.hostsBehind( intf ) ) {
         if( !look_.next() ) {
            return;
         }
         consider( station, sm_.fdb().find( station ) );
      }
   }

   void byVlan() {
      for( auto const vlan : sortedKeys( status_.fdbStatus() ) ) {
         if( wanted_.vlan.value() && wanted_.vlan.value() != vlan.value() ) {
            continue;
         }
         auto const & hosts = status_.fdbStatus( vlan )->learnedHost();
         std::size_t left = hosts.size();
         for( auto const & [ addr, host ] : hosts ) {
            if( !type_ && shown_.size() == BoundedLook::mostRows ) {
               look_.foundMore( left ); // nobody needs to look at them
               break;
            }
            if( !look_.next() ) {
               return;
            }
            consider( { addr, vlan }, &host );
            --left;
         }
      }
   }

   Hoba::MacAddrSm const & sm_;
   Bridging::Status const & status_;
   StationFilter const & wanted_;
   std::optional< Bridging::EntryType > const type_;
   BoundedLook look_;
   Shown shown_;
};

// Whether the chip has it, and what it waits for.
String
inHardware( Hoba::MacAddrSm const & sm, HobaSim::MacUnit const & chip,
            HobaSim::MacProgrammer const * programmer, MacVlanPair station ) {
   String const isThere = chip.entry( station ) ? "yes" : "no";
   for( auto const * list : { &sm.refusedList(), &sm.updateList() } ) {
      if( auto const * change = list->find( station ) ) {
         return isThere + ", a change waits for " + waitText( *change );
      }
   }
   auto const text = pipelineText( programmer, station );
   return text.empty() ? isThere : isThere + ", " + text;
}

} // namespace

// All that show mac pending lists.
std::size_t
MacFeature::waitingCount() const {
   std::size_t count =
         sm_->updateList().size() + sm_->refusedList().size() + sm_->withheld().size();
   if( auto const pipeline = programmer() ) {
      count += pipeline->pendingAddrOp().size() + pipeline->inProgAddrOp().size() +
               pipeline->overflowAddrOp().size() + pipeline->failedAddrOp().size();
   }
   return count;
}

Datum
MacFeature::show( Request const & request ) const {
   StationFilter const wanted( board(), request );
   std::optional< Bridging::EntryType > type;
   if( request.has( "type" ) ) {
      type = Kiv::inPlace( "type", [ & ] { return macTypeOf( request.text( "type" ) ); } );
   }
   auto const & sm = *sm_;
   auto const pipeline = programmer();
   StationSearch search( sm, *status_, wanted, type );
   search.run();
   TableAnswer table(
         { "MAC address", "VLAN", "Interface", "Type", "Moves", "Last move", "In hardware" } );
   for( auto const & [ station, host ] : search.shown() ) {
      table.row( { toText( station.addr() ), station.vlanId().value(), toText( host->intf ),
                   typeCell( table, host->entryType ), toText( host->moves ),
                   agoText( host->lastMoveTime ),
                   inHardware( sm, *board().chip->mac(), pipeline.get(), station ) } );
   }
   table.note( search.look().text( "station", sm.fdb().size() ) );
   wanted.tellLag( table );
   table.note( "in all: " + counted( sm.fdb().size(), "station" ) + ", " +
               toText( sm.fdb().remotes() ) + " behind the overlay; " +
               counted( sm.moveCount(), "move" ) );
   if( auto const waiting = waitingCount() ) {
      table.note( toText( waiting ) + " wait for something: show mac pending" );
   }
   if( !sm.firstPassDone() ) {
      table.note( "the first pass goes on: what nobody claims any more goes when it is over" );
   }
   return table.take();
}

Datum
MacFeature::explain( Request const & request ) const {
   return explainStation( board(), *sm_, hostOf( request ) );
}

// ---- What waits

namespace {

// Rows of what waits, and how many for what.
class Pending {
 public:
   void change( Hoba::ModifyMacEntry const & change ) {
      row( change.macEntry, waitText( change ), change.since, toText( change.action ),
           change.intf );
   }
   void command( HobaSim::MacProgrammer const & programmer,
                 Hoba::IndirectAccessMacCmd const & cmd ) {
      constexpr std::pair< Hoba::MacCmdPlace, char const * > reasons[] = {
            { Hoba::macCmdPending, "the chip, unwritten" },
            { Hoba::macCmdInProgress, "the chip's answer" },
            { Hoba::macCmdOverflow, "room in the chip" },
            { Hoba::macCmdIdle, "somebody to ask anew" } };
      auto const reason = std::ranges::find( reasons, cmd.place(),
                                             []( auto const & each ) { return each.first; } );
      row( cmd.key().key, reason->second, cmd.acceptedTime(), pipelineText( programmer, cmd ),
           cmd.intf() );
   }
   void withheld( MacVlanPair station, Hoba::MacWithheld const & held, Pelt::IntfId intf ) {
      row( station, toText( held.obstacle ), held.since, "a claim without a say", intf );
   }
   bool next() { return look_.next(); }

   Datum take( std::size_t all ) {
      std::ranges::stable_sort( rows_, {}, []( auto const & row ) { return row.first; } );
      for( auto & [ station, cells ] : rows_ ) {
         table_.row( std::move( cells ) );
      }
      table_.note( look_.text( "change", all ) );
      for( auto const & [ reason, count ] : reasons_ ) {
         table_.note( toText( count ) + " for " + reason );
      }
      return table_.take();
   }

 private:
   void row( MacVlanPair station, String const & reason, Kiv::Seconds since, String const & what,
             Pelt::IntfId intf ) {
      ++reasons_[ reason ];
      if( look_.found() ) {
         rows_.emplace_back( station,
                             Datum::Array{ toText( station.addr() ), station.vlanId().value(),
                                           reason, agoText( since ), what,
                                           intf ? Datum( toText( intf ) ) : Datum() } );
      }
   }

   BoundedLook look_;
   std::vector< std::pair< MacVlanPair, Datum::Array > > rows_;
   std::map< String, std::size_t > reasons_;
   TableAnswer table_{ { "MAC address", "VLAN", "Waits for", "Since", "What", "Interface" } };
};

} // namespace

Datum
MacFeature::showPending( Request const & ) const {
   auto const & sm = *sm_;
   Pending pending;
   for( auto const * list : { &sm.refusedList(), &sm.updateList() } ) {
      for( auto const & [ station, change ] : *list ) {
         if( !pending.next() ) {
            break;
         }
         pending.change( change );
      }
   }
   for( auto const & [ station, held ] : sm.withheld() ) {
      if( !pending.next() ) {
         break;
      }
      auto const current = sm.currentEntry( station );
      pending.withheld( station, held, current ? current->intf : Pelt::IntfId() );
   }
   auto const addAll = [ & ]( HobaSim::MacProgrammer const & pipeline, auto const & commands ) {
      for( auto const & [ key, cmd ] : commands ) {
         if( !pending.next() ) {
            break;
         }
         pending.command( pipeline, *cmd );
      }
   };
   if( auto const pipeline = programmer() ) {
      addAll( *pipeline, pipeline->failedAddrOp() );
      addAll( *pipeline, pipeline->overflowAddrOp() );
      addAll( *pipeline, pipeline->inProgAddrOp() );
      addAll( *pipeline, pipeline->pendingAddrOp() );
   }
   return pending.take( waitingCount() );
}

// ---- Moves

Datum
MacFeature::showMoves( Request const & ) const {
   constexpr std::size_t mostMovers = 10;
   auto const & sm = *sm_;
   TableAnswer table( { "MAC address", "VLAN", "From", "To", "When", "Moves" } );
   std::map< MacVlanPair, std::uint32_t > movers;
   std::vector< Hoba::MacMove const * > moves;
   for( auto const & move : sm.moveLog() ) {
      moves.push_back( &move );
      movers[ move.macEntry ] = move.moves;
   }
   for( auto at = moves.rbegin(); at != moves.rend(); ++at ) {
      auto const * const move = *at;
      table.row( { toText( move->macEntry.addr() ), move->macEntry.vlanId().value(),
                   toText( move->from ), toText( move->to ), agoText( move->time ), move->moves } );
   }
   table.note( counted( sm.moveCount(), "move" ) + ", of which the last " + toText( moves.size() ) +
               " are shown" );
   std::vector< std::pair< MacVlanPair, std::uint32_t > > most( movers.begin(), movers.end() );
   std::ranges::stable_sort( most, std::ranges::greater{},
                             []( auto const & mover ) { return mover.second; } );
   String text;
   most.resize( std::min( most.size(), mostMovers ) );
   for( auto const & [ station, count ] : most ) {
      text += ( text.empty() ? "moved most: " : ", " ) + toText( station ) + " (" +
              toText( count ) + ')';
   }
   if( !text.empty() ) {
      table.note( text );
   }
   return table.take();
}

// ---- Having stations forgotten

namespace {

Datum::Array
flushCells( String const & agent, String const & key, Bridging::HostTableFlushRequest const & what,
            char const * state, Datum since ) {
   return { agent,
            key,
            what.vlanId.value() ? Datum( what.vlanId.value() ) : Datum(),
            what.intf ? Datum( toText( what.intf ) ) : Datum(),
            what.addr.isZero() ? Datum() : Datum( toText( what.addr ) ),
            state,
            since };
}

} // namespace

Datum
MacFeature::showFlush( Request const & ) const {
   auto const & sm = *sm_;
   BoundedLook look;
   TableAnswer table(
         { "Agent", "Request", "VLAN", "Interface", "MAC address", "State", "Since" } );
   for( auto const & request : sm.flushes().requests() ) {
      if( look.next() && look.found() ) {
         table.row( flushCells( request.agent, request.key, request.what,
                                request.begun ? "under way" : "waits", agoText( request.since ) ) );
      }
   }
   std::size_t answered = 0;
   for( auto const & [ agent, replies ] : flushReplyDir_->agent() ) {
      auto const asked = flushRequestDir_->agent( agent );
      for( auto const & [ key, isDone ] : replies->reply() ) {
         if( asked && asked->requestHas( key ) && look.next() && look.found() ) {
            table.row( flushCells( agent, key, asked->request( key ), "answered", Datum() ) );
         }
      }
      answered += replies->reply().size();
   }
   table.note( look.text( "request", sm.flushes().requests().size() + answered ) );
   table.note( toText( sm.flushes().answered() ) + " answered since the machine began" );
   if( sm.flushAll() ) {
      table.note( "a flush of all stations is pending" );
   }
   return table.take();
}

Datum
MacFeature::clear( Request const & request ) {
   StationFilter const what( board(), request );
   if( what.addr && !what.addr->isUnicast() ) {
      throw Kiv::ParseError( "mac: " + toText( *what.addr ) + " is no station's address" );
   }
   if( what.addr && what.intf ) {
      throw Kiv::ParseError( "port: a station is forgotten wherever it is; leave mac or port out" );
   }
   if( what.lag ) {
      throw Kiv::ParseError( "port: " + toText( what.intf ) + " is an active member of " +
                             toText( what.lag ) + ", behind which its stations are" );
   }
   Bridging::HostTableFlushRequest flush;
   flush.vlanId = what.vlan;
   flush.intf = what.intf;
   flush.addr = what.addr.value_or( Pelt::EthAddr() );
   return "request " + flushClient_->ask( flush ) + " of " + Feeders::FlushClient::name +
          ": show mac flush has it until it is done";
}

void
MacFeature::commands( Commands & commands ) {
   using F = MacFeature;
   auto arguments = stationArguments();
   arguments.push_back( { "type", "Only of this type, such as learned-dynamic" } );
   addShow( commands, *this, "show mac", "Where stations are: the MAC address table", arguments,
            &F::show );
   addShow( commands, *this, "explain mac", "Why a station is where it is, or is not",
            { macArgument, vlanArgument }, &F::explain );
   addShow( commands, *this, "show mac pending", "What waits to be programmed, and for what", {},
            &F::showPending );
   addShow( commands, *this, "show mac moves", "The last moves of stations, and who moved most", {},
            &F::showMoves );
   addShow( commands, *this, "show mac flush", "Requests to forget stations", {}, &F::showFlush );
   addInput( commands, *this, "clear mac", "Has learnt stations forgotten: all, or these",
             { { "mac", "This station" },
               { "vlan", "Of this VLAN" },
               { "port", "Behind this port or LAG" } },
             &F::clear );
}

HOBA_FEATURE( MacFeature );

} // namespace HobaAgent
