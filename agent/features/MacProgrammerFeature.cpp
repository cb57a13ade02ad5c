// SPDX-License-Identifier: Apache-2.0
#include "agent/features/Feature.h"
#include "agent/features/StationExplanation.h"
#include "agent/features/Stations.h"
#include "chips/sim/SimChip.h"
#include "chips/sim/SimMacProgrammer.h"

#include <array>
#include <cmath>

// The pipeline of a chip whose MAC table is written through an interface that answers later, and how the simulated
// table behaves.

namespace HobaAgent {

using Hoba::IndirectAccessMacCmd;
using Kiv::Datum;
using Kiv::String;
using Kiv::toText;

class MacProgrammerFeature : public Feature {
 public:
   explicit MacProgrammerFeature( Board & board ) : Feature( board, "MAC programmer" ) {}

   void commands( Commands & commands ) override;
   void start() override;

 private:
   HobaSim::MacUnit & unit() const { return *board().chip->mac(); }
   Datum show( Request const & ) const;
   Datum simulate( Request const & request );
   Datum settings() const;

   Machine< HobaSim::MacProgrammer > programmer_{ *this, "macProgrammer",
                                                  Tessera::Access::writable };
};

void
MacProgrammerFeature::start() {
   bool const isIndirect = unit().indirectAccess();
   unit().writtenIndirectlyIs( isIndirect );
   if( isIndirect ) {
      programmer_.is(
            HobaSim::MacProgrammer::MacProgrammerIs( board().clock(), board().chip->mac() ) );
      programmer_->handleInitialized();
   }
}

// ---- What is on its way

namespace {

constexpr char const * direct =
      "not in use: the MAC table is written directly (sim mac-table mode=indirect, sim restart)";

// Cells of one place: how many of which kind are there, and since when the oldest waits.
class Place {
 public:
   Place( Hoba::HobaMacProgrammer const & programmer, Hoba::MacCmdPlace place )
         : programmer_( programmer ), place_( place ) {}

   void consider( IndirectAccessMacCmd const & cmd ) {
      oldest_ = std::min( oldest_, cmd.acceptedTime() );
      outOfDate_ += cmd.invalid();
   }
   Datum::Array cells() const {
      std::uint64_t flushes = 0;
      for( auto type = std::size_t( Hoba::flushAll ); type < Hoba::indirectAccessMacCmdTypes;
           ++type ) {
         flushes += count( type );
      }
      auto const depth = programmer_.depth( place_ );
      return { toText( place_ ),
               depth.now,
               depth.most,
               oldest_ == Kiv::never ? Datum() : Datum( agoText( oldest_ ) ),
               count( Hoba::addHost ),
               count( Hoba::addMcastHost ),
               count( Hoba::removeHost ),
               flushes,
               outOfDate_ };
   }

 private:
   std::uint64_t count( std::size_t type ) const {
      return programmer_.count( static_cast< Hoba::IndirectAccessMacCmdType >( type ), place_ );
   }

   Hoba::HobaMacProgrammer const & programmer_;
   Hoba::MacCmdPlace const place_;
   Kiv::Seconds oldest_ = Kiv::never;
   std::uint64_t outOfDate_ = 0;
};

// Those of a queue or a map that there is time for.
template< class Commands, class Use >
void
consider( BoundedLook & look, Commands const & commands, Use const & use ) {
   for( auto const & member : commands ) {
      if( !look.next() ) {
         return;
      }
      if constexpr( requires { member.value; } ) {
         use( *member.value );
      } else {
         use( *member );
      }
   }
}

// " VLAN 10 Ethernet1"
String
scopeText( IndirectAccessMacCmd const & flush ) {
   auto const vlan = flush.key().key.vlanId().value();
   return ( vlan ? " VLAN " + toText( vlan ) : String() ) +
          ( flush.intf() ? ' ' + toText( flush.intf() ) : String() );
}

// The first of them by name, and how many there are.
class Names {
 public:
   void add( IndirectAccessMacCmd const & cmd ) {
      if( ++count_ <= most ) {
         text_ += ( text_.empty() ? "" : ", " ) + toText( cmd.op() ) +
                  ( cmd.addrOp() ? ' ' + toText( cmd.key().key ) : scopeText( cmd ) );
      }
   }
   // Whether another one would be named.
   bool hasRoom() const { return count_ < most; }
   // So many there are, named or not.
   void countIs( std::size_t count ) { count_ = count; }
   void tell( TableAnswer & table, String const & what ) const {
      if( count_ ) {
         table.note( toText( count_ ) + ' ' + what + ": " + text_ +
                     ( count_ > most ? ", ..." : "" ) );
      }
   }

 private:
   static constexpr std::size_t most = 10;
   std::size_t count_ = 0;
   String text_;
};

String
secondsText( Kiv::Seconds seconds ) {
   char text[ 40 ];
   std::snprintf( text, sizeof text, "%.3g s", seconds );
   return text;
}

void
tellCounters( TableAnswer & table, Hoba::HobaMacProgrammer const & programmer ) {
   table.note( toText( programmer.accepted() ) + " accepted: " + toText( programmer.succeeded() ) +
               " succeeded, " + toText( programmer.failed() ) + " failed, " +
               toText( programmer.superseded() ) + " superseded; " +
               toText( programmer.retried() ) + " retried, " + toText( programmer.stalled() ) +
               " stalled, " + counted( programmer.unknownAnswers(), "answer" ) +
               " of unknown transactions" );
}

void
tellTimes( TableAnswer & table, Hoba::HobaMacProgrammer const & programmer ) {
   auto const next = programmer.nextOverflowTry();
   table.note( "overflow delay " + secondsText( programmer.updateOverflowAddressDelay() ) + ", " +
               ( next == Kiv::never ? "nothing to try again"
                                    : "next try in " + secondsText( std::max(
                                                             next - programmer.now(), 0.0 ) ) ) );
   if( programmer.suspendPending() ) {
      table.note( "suspended: nothing is written (suspendPending)" );
   } else if( !programmer.pendingMacOp().empty() ) {
      table.note( "what is pending is written in " + secondsText( programmer.drainTime() ) +
                  " at the present tuning" );
   }
   if( programmer.suspendInProgress() ) {
      table.note( "suspended: no answer is looked at (suspendInProgress)" );
   }
}

} // namespace

Datum
MacProgrammerFeature::show( Request const & ) const {
   context(); // there must be machines
   if( !programmer_ ) {
      return direct;
   }
   auto const & programmer = *programmer_;
   TableAnswer table( { "Queue", "Depth", "Most", "Oldest", "Adds", "Multicast adds", "Removals",
                        "Flushes", "Out of date" } );
   Place pending( programmer, Hoba::macCmdPending ),
         inProgress( programmer, Hoba::macCmdInProgress ),
         overflow( programmer, Hoba::macCmdOverflow );
   Names unanswered, failed;
   // What people ask for first comes first, since the time may be over before all is seen.
   BoundedLook look;
   consider( look, programmer.inProgMacOp(), [ & ]( auto const & cmd ) {
      inProgress.consider( cmd );
      if( cmd.stalled() ) {
         unanswered.add( cmd );
      }
   } );
   for( auto const & [ key, cmd ] : programmer.failedAddrOp() ) {
      if( !failed.hasRoom() ) {
         break;
      }
      failed.add( *cmd );
   }
   failed.countIs( programmer.failedAddrOp().size() );
   consider( look, programmer.overflowAddrOp(),
             [ & ]( auto const & cmd ) { overflow.consider( cmd ); } );
   consider( look, programmer.pendingMacOp(),
             [ & ]( auto const & cmd ) { pending.consider( cmd ); } );
   for( auto const * place : { &pending, &inProgress, &overflow } ) {
      table.row( place->cells() );
   }
   if( auto const looked = look.cutShort() ) {
      table.note( "the oldest, those out of date and those not answered: of " + toText( *looked ) +
                  " commands that there was time to look at" );
   }
   tellCounters( table, programmer );
   tellTimes( table, programmer );
   unanswered.tell( table, "not answered" );
   failed.tell( table, "failed, and not asked for anew" );
   return table.take();
}

// ---- How the simulated table behaves

namespace {

// "3": the next three; "0.1": by chance; "0": none.
HobaSim::TableFault
faultOf( Request const & request, char const * argument ) {
   return Kiv::inPlace( argument, [ & ] {
      auto const text = request.text( argument );
      constexpr char const * expected =
            "how many of the next writes, such as 3, or how likely each, such as 0.1";
      HobaSim::TableFault fault;
      bool const isChance = text.find( '.' ) != text.npos;
      try {
         if( isChance ) {
            fault.chance = Kiv::fromText< double >( text );
            fault.check();
         } else {
            fault.next = Kiv::fromText< std::uint32_t >( text );
         }
      } catch( Kiv::Exception const & ) {
         Kiv::parseFailed( text, expected );
      }
      return fault;
   } );
}

String
faultText( HobaSim::TableFault const & fault ) {
   if( fault.next ) {
      return "the next " + toText( fault.next );
   }
   return fault.chance > 0 ? "by chance, " + toText( fault.chance ) : "none";
}

struct NamedFault {
   char const * argument;
   HobaSim::TableResult kind;
};
constexpr NamedFault tableFaults[] = { { "busy", HobaSim::tableBusy },
                                       { "full", HobaSim::tableFull },
                                       { "failed", HobaSim::tableFailed },
                                       { "parity", HobaSim::tableParity } };

} // namespace

Datum
MacProgrammerFeature::settings() const {
   auto const & table = *unit().hostTable();
   TableAnswer answer( { "Setting", "Value" } );
   answer.row( { "mode", unit().indirectAccess() ? "indirect" : "direct" } );
   answer.row( { "latency", toText( table.latency() ) + " s" } );
   answer.row( { "capacity", table.capacity() ? toText( table.capacity() ) : "any" } );
   answer.row( { "order", unit().answersReordered() ? "any" : "written" } );
   for( auto const & [ argument, kind ] : tableFaults ) {
      answer.row( { argument, faultText( table.fault( kind ) ) } );
   }
   answer.row( { "silent", faultText( unit().silence() ) } );
   if( unit().indirectAccess() != bool( programmer_ ) ) {
      answer.note( "the mode holds from the next restart of the machines: sim restart hitless" );
   }
   auto const parity = table.fault( HobaSim::tableParity );
   if( unit().indirectAccess() && ( parity.next || parity.chance > 0 ) && !Hoba::isSimulation() ) {
      answer.note( "WARNING: a parity answer stops the agent: SIMULATION_VMID is not set" );
   }
   return answer.take();
}

// All is read before anything is set.
Datum
MacProgrammerFeature::simulate( Request const & request ) {
   auto & table = *unit().hostTable();
   bool const isIndirect =
         request.has( "mode" )
               ? request.oneOf< bool >( "mode", { { "direct", false }, { "indirect", true } } )
               : unit().indirectAccess();
   bool const isReordered =
         request.has( "order" )
               ? request.oneOf< bool >( "order", { { "written", false }, { "any", true } } )
               : unit().answersReordered();
   auto const latency = request.value( "latency", table.latency() );
   if( !( latency >= 0 && std::isfinite( latency ) ) ) {
      Kiv::inPlace( "latency", [ & ] {
         Kiv::parseFailed( request.text( "latency" ), "seconds, 0 or more" );
      } );
   }
   auto const capacity = request.value( "capacity", table.capacity() );
   std::array< std::optional< HobaSim::TableFault >, std::size( tableFaults ) > faults;
   for( std::size_t i = 0; i < faults.size(); ++i ) {
      if( request.has( tableFaults[ i ].argument ) ) {
         faults[ i ] = faultOf( request, tableFaults[ i ].argument );
      }
   }
   auto const silence = request.has( "silent" ) ? faultOf( request, "silent" ) : unit().silence();

   unit().indirectAccessIs( isIndirect );
   unit().answersReorderedIs( isReordered );
   unit().silenceIs( silence );
   table.latencyIs( latency );
   table.capacityIs( capacity );
   for( std::size_t i = 0; i < faults.size(); ++i ) {
      if( faults[ i ] ) {
         table.faultIs( tableFaults[ i ].kind, *faults[ i ] );
      }
   }
   return settings();
}

void
MacProgrammerFeature::commands( Commands & commands ) {
   using F = MacProgrammerFeature;
   addShow( commands, *this, "show mac programmer",
            "What is on its way to a MAC table that answers later", {}, &F::show );
   addInput( commands, *this, "sim mac-table",
             "Shows how the simulated MAC table behaves, having set what is given",
             { { "mode", "direct, or indirect: it answers later; from the next sim restart on" },
               { "latency", "Seconds until a write has landed" },
               { "capacity", "How many entries there is room for; 0: any number" },
               { "order", "Of answers in indirect mode: written, or any" },
               { "busy", "It is busy: for the next 3 writes, or with the chance of 0.1" },
               { "full", "It has no room for a new entry: likewise" },
               { "failed", "The write fails: likewise" },
               { "parity", "The write is found wrong: likewise. Stops the agent in indirect mode, "
                           "unless SIMULATION_VMID is set" },
               { "silent", "In indirect mode: it does not answer: likewise" } },
             &F::simulate );
}

HOBA_FEATURE( MacProgrammerFeature );

} // namespace HobaAgent
