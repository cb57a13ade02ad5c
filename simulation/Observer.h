// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a feature brings to the simulation, in one file: a generator that thinks of things to happen, and
// an observer that knows by itself what must come of all that happened.
//
// An observer keeps a model: it hears every step, and works out from the configuration, from what was
// put in, and from the documented rules what the switch must publish and what the chip must hold. It
// shares no code with machines and chip: it may include the types of configuration and status (platform/,
// types/, agent/feeders/FeederConfig.h), and reads what machines and chip publish in the state database.
//
// It is exact. What it says nothing about is not observed, and what it excuses hides a fault.
//
// What happens reaches the model in the order in which it reaches the machines: steps one by one, and
// what the chip reported when the machines' clock runs. After each such change all observers follow(), in
// their order, so that one that builds on another's model finds that up to date.

#include "Kiv/Datum.h"
#include "agent/features/Restarts.h"
#include "simulation/Draw.h"
#include "simulation/Switch.h"

#include <map>
#include <memory>
#include <span>
#include <vector>

namespace Simulation {

class Observers;

// The rows of a table or members of a collection, each as text.
using Rows = std::map< Kiv::String, Kiv::String >;

// The row of that key; empty if there is none.
Kiv::String rowIn( Rows const & rows, Kiv::String const & key );

// A model's map, as the state database has it.
template< class Map >
Rows
rowsOf( Map const & map ) {
   Rows rows;
   for( auto const & [ key, value ] : map ) {
      rows[ Kiv::toText( key ) ] = Kiv::datumText( Kiv::toDatum( value ) );
   }
   return rows;
}

class Observer {
 public:
   Observer( Switch & simulated, Observers & observers, char const * name )
         : switch_( simulated ), observers_( observers ), name_( name ) {}
   virtual ~Observer() = default;
   Observer( Observer const & ) = delete;
   Observer & operator=( Observer const & ) = delete;

   char const * name() const { return name_; }

   // ---- The generator. What it proposes depends on what it draws and on nothing else: so a history from
   // which steps were taken still means the same.

   // How often it has its turn, relative to the others; 0 for never.
   virtual unsigned weight() const { return 10; }
   // What the chip is like, and what stands before the machines begin.
   virtual void prepare( Draw &, Steps & ) {}
   // The next thing to happen, at the end of the steps; several that belong together, now and then.
   virtual void propose( Draw &, Steps & ) {}
   // What must be done before things can become quiet: faults that go on end. A restart among the steps
   // comes when all faults have ended and things have settled.
   virtual Steps heal() { return {}; }
   // Whether the chip may refuse what it is told, or was spoilt: steps of machines may fail then, and only
   // then.
   virtual bool hasFaults() const { return false; }
   // Of one that has them: whether this step of a machine, "Class::step on what: why", may fail for that.
   virtual bool mayFail( std::string_view /*step*/ ) const { return true; }
   // How long nothing may happen until things count as quiet: longer than any retry of the feature.
   virtual Kiv::Seconds settlingTime() const { return 0; }
   // Something of the feature goes on by itself, though nothing may happen for longer than that.
   virtual bool isWaiting() const { return false; }

   // ---- The observer

   // Whether a step may be done in the middle of what the machines are doing now. Not if the model hears of
   // that as one change when it is over; a step that is to be done then waits for the next change.
   virtual bool canBeInterrupted() const { return true; }
   enum Verdict { notMine, accepts, refuses };
   static constexpr Verdict verdict( bool accepted ) { return accepted ? accepts : refuses; }
   // What becomes of the step that is about to be run. Exactly one observer answers for each step.
   virtual Verdict judge( Step const & ) const { return notMine; }
   // The step has been run, and was accepted.
   virtual void heard( Step const &, Kiv::Datum const & /*answer*/ ) {}
   // Something has changed: a step, or an event of the chip that the machines applied.
   virtual void follow() {}
   // The machines have run at this time, and at all times before it at which they wanted to.
   virtual void timeIs( Kiv::Seconds ) {}
   // The machines begin cold, and not for the first time: the chip has lost all that it held. Said to all
   // observers before began().
   virtual void chipForgot() {}
   // The machines were let go, and made anew; in the order of the observers.
   virtual void began( HobaAgent::RestartKind ) {}
   // A machine wants the agent restarted: whether this observer expects it now.
   virtual bool expectsRestart( Kiv::String const & /*reason*/ ) { return false; }
   // What the machines of the feature report in a verification pass that runs now: items, in order.
   using Items = std::vector< std::pair< Kiv::String, Kiv::String > >;
   virtual void verifyItems( Items & ) const {}
   // One of them cannot conclude then: what the chip has been told has not landed.
   virtual bool cannotVerifyYet() const { return false; }
   // How often the agent had to write to the chip for a hitless restart out of the quiet, and how many
   // rows were swept: asked after began().
   virtual std::uint64_t restartWrites() const { return 0; }
   virtual std::uint64_t restartSwept() const { return 0; }
   // Faults have ended and nothing happens any more, but the machines are about to be made anew: they
   // began under faults, in which case nothing is swept, or do not all try again what was refused.
   // Compares what must be all the same.
   virtual void settled() {}
   // Things are quiet: compares what is with what must be.
   virtual void check() = 0;

 protected:
   Switch & simulated() const { return switch_; }
   Observers & observers() const { return observers_; }

   // Something is not as it must be: one line.
   void found( Kiv::String const & what );
   // The collection at the path has exactly these members, by key; values as Kiv::datumText() has them.
   void expectRows( std::string_view path, Rows const & expected );
   // What is at the path reads like this; empty for nothing.
   void expectText( std::string_view path, Kiv::String const & expected );
   // The members of the collection at the path, by key; none if there is nothing.
   Rows rowsAt( std::string_view path ) const;
   Kiv::String textAt( std::string_view path ) const;

 private:
   Switch & switch_;
   Observers & observers_;
   char const * const name_;
};

// All observers of a switch, in their order: who builds on another stands behind it.
class Observers {
 public:
   explicit Observers( Switch & simulated );

   std::span< std::unique_ptr< Observer > const > all() const { return observers_; }
   // The observer of that class; there must be one.
   template< class T >
   T & find() const {
      for( auto const & each : observers_ ) {
         if( auto * const found = dynamic_cast< T * >( each.get() ) ) {
            return *found;
         }
      }
      throw Kiv::Exception( "no such observer" );
   }
   // Something has changed, in the model of one of them as it has in the switch.
   void follow();
   // For Observer: what is not as it must be. Looked at by whoever runs the history.
   void found( Kiv::String const & line ) { findings_.push_back( line ); }
   std::vector< Kiv::String > const & findings() const { return findings_; }
   void forget() { findings_.clear(); }
   // What happens now does so in the middle of something else: what of that the machines have done already
   // is open.
   bool inTheMiddle() const { return inTheMiddle_; }
   void inTheMiddleIs( bool middle ) { inTheMiddle_ = middle; }

 private:
   std::vector< std::unique_ptr< Observer > > observers_;
   std::vector< Kiv::String > findings_;
   bool inTheMiddle_ = false;
};

template< class O >
std::unique_ptr< Observer > makeObserver( Switch & simulated, Observers & observers );

} // namespace Simulation

// Stands once in the file of an observer, within its namespace.
#define SIMULATION_OBSERVER( Name )                                                                \
   template< class O >                                                                             \
   std::unique_ptr< Observer > makeObserver( Switch & simulated, Observers & observers ) {         \
      return std::make_unique< O >( simulated, observers );                                        \
   }                                                                                               \
   template std::unique_ptr< Observer > makeObserver< Name >( Switch &, Observers & )
