// SPDX-License-Identifier: Apache-2.0
#include "simulation/Observer.h"
#include "types/ParityEvent.h"

#include <algorithm>
#include <array>
#include <optional>
#include <set>

// Parity errors: which the chip has, what the machines were told of them, and when each is corrected.

namespace Simulation {

using Hoba::ParityEvent;
using Hoba::ParitySeverity;
using Kiv::String;
using Key = ParityEvent::Key;

namespace {

constexpr char unitPath[] = "/sim/chip/parity/";

} // namespace

class ParityObserver : public Observer {
 public:
   ParityObserver( Switch & simulated, Observers & observers );

   void prepare( Draw & draw, Steps & steps ) override;
   unsigned weight() const override { return 8; }
   void propose( Draw & draw, Steps & steps ) override;
   Verdict judge( Step const & step ) const override;
   void heard( Step const & step, Kiv::Datum const & answer ) override;
   void follow() override { hearLog(); }
   void timeIs( Kiv::Seconds now ) override;
   void chipForgot() override;
   void began( HobaAgent::RestartKind kind ) override;
   bool expectsRestart( String const & reason ) override;
   void check() override;

 private:
   struct Fault {
      Kiv::Seconds time = 0;
      std::uint64_t count = 0;
      bool operator==( Fault const & ) const = default;
   };
   struct Event {
      Key key;
      ParitySeverity severity;
   };
   using Times = std::vector< std::pair< Key, Kiv::Seconds > >;
   using Line = std::pair< Kiv::Seconds, String >; // of the log

   bool hasRoom( Key const & key ) const;
   Verdict judgeRaise( Step const & step ) const;
   Verdict judgeSet( std::string_view path, String const & text ) const;
   Verdict judgeDel( std::string_view path ) const;
   void hearSet( std::string_view path, String const & text );
   void hearDel( std::string_view path );
   void raise( Step const & step );

   // The chip.
   Fault faultOf( Key const & key ) const {
      auto const is = faults_.find( key );
      return is == faults_.end() ? Fault() : is->second;
   }
   void faultIs( Key const & key, Fault const & fault );
   void faultDel( Key const & key );
   void tell( Key const & key );
   // The machines.
   void dueIs( Key const & key, Kiv::Seconds time );
   void correct( Kiv::Seconds now );
   void drain( Kiv::Seconds now );
   void apply( Event const & event, Kiv::Seconds now );
   void reset( Key const & key, Kiv::Seconds now );
   void logs( Kiv::Seconds now, String const & line ) { expectedLog_.emplace_back( now, line ); }
   void hearLog();

   void checkChip();
   void checkMachines();
   void checkLog();

   // What the chip has: errors, and what it said of them to the machines, by slice.
   std::map< Key, Fault > faults_;
   std::map< String, std::map< Key, ParityEvent > > slices_;
   std::map< String, std::uint64_t > counts_;
   std::set< String > sliceNames_{ "slice0", "slice1", "slice2", "slice3" };
   std::uint64_t capacity_ = 0;
   Kiv::Seconds correctionTime_ = 1;
   // What the machines have.
   std::vector< Event > queue_;
   std::uint32_t queued_ = 0; // ever
   Times due_;                // in the order in which they came to be
   std::array< std::uint64_t, 3 > handled_{};
   std::uint64_t drains_ = 0;
   std::size_t mostWaited_ = 0;
   std::optional< Key > fatal_; // for which the agent must be restarted now

   std::vector< Line > expectedLog_, log_;
   std::uint64_t lastLogged_ = 0;
};

ParityObserver::ParityObserver( Switch & simulated, Observers & observers )
      : Observer( simulated, observers, "parity errors" ) {
   hearLog();
   log_.clear(); // of another switch
}

// ---- The generator

namespace {

String
keyText( Draw & draw ) {
   auto const slice = draw.oneOf( { "slice0", "slice1", "slice3" } );
   auto const memory = draw.oneOf( { "L2", "L2:X" } );
   auto const index = std::to_string( draw.below( 3 ) );
   return slice + ':' + memory + ':' + index;
}

Step
raiseStep( Draw & draw ) {
   auto const slice = draw.oneOf( { "slice0", "slice0", "slice1", "slice3", "slice7" } );
   auto const memory = draw.oneOf( { "L2", "L2:X" } );
   auto const index = std::to_string( draw.below( 3 ) );
   auto const severity =
         draw.oneOf( { "", "", " correctable", " correctable", " reset", " reset", " fatal" } );
   return "sim event parity " + slice + ' ' + memory + ' ' + index + severity;
}

Step
spoilStep( Draw & draw ) {
   auto const path = "set " + String( unitPath );
   auto const key = keyText( draw );
   auto const number = std::to_string( draw.below( 4 ) );
   auto const slice = draw.oneOf( { "slice3", "slice7" } );
   switch( draw.below( 7 ) ) {
   case 0:
      return path + "error/" + key + "/count " + number;
   case 1:
      return "del " + String( unitPath ) + "error/" + key;
   case 2:
      return path + "count/" + draw.oneOf( { "correctable", "entriesReset" } ) + ' ' + number;
   case 3:
      return "del " + String( unitPath ) + "slices/entry/slice" + number;
   case 4:
      return path + "sliceName/" + slice + " true";
   case 5:
      return "del " + String( unitPath ) + "sliceName/" + slice;
   default:
      return path + "errorTable/capacity " + number;
   }
}

Step
wrongStep( Draw & draw ) {
   return draw.oneOf(
         { "sim event parity slice9 L2 1", "sim event parity slice0 L2 -1",
           "sim event parity slice0 L2 4294967296", "sim event parity slice0 L2",
           "sim event parity slice0 a-memory-of-thirty-two-characters 1",
           "sim event parity slice0 L2 1 severe", "set /sim/chip/parity/error/slice0:1/count 1",
           "set /sim/chip/parity/error/a-slice-of-24-characters:L2:1/count 1",
           "set /sim/chip/parity/correctionTime soon", "set /sim/chip/parity/count/corrected 1" } );
}

} // namespace

void
ParityObserver::prepare( Draw & draw, Steps & steps ) {
   if( draw.chance( 30 ) ) {
      steps.push_back( raiseStep( draw ) );
   }
   if( draw.chance( 30 ) ) {
      steps.push_back( spoilStep( draw ) );
   }
}

void
ParityObserver::propose( Draw & draw, Steps & steps ) {
   auto const kind = draw.below( 30 );
   if( kind == 0 ) {
      steps.push_back( wrongStep( draw ) );
   } else if( kind < 4 ) {
      auto const time = draw.oneOf( { "0", "0.1", "0.5", "1", "2.5", "20" } );
      steps.push_back( "set " + String( unitPath ) + "correctionTime " + time );
   } else if( kind < 9 ) {
      steps.push_back( spoilStep( draw ) );
   } else {
      for( auto count = 1 + draw.below( 3 ); count-- > 0; ) {
         steps.push_back( raiseStep( draw ) );
      }
   }
}

// ---- What is accepted

namespace {

constexpr std::array countNames{ "correctable", "needsReset", "fatal" };

// Of those that the chip can store; nothing for a text that is none.
std::optional< Key >
keyOf( std::string_view text ) {
   try {
      auto const key = Key::parse( text );
      if( key.slice.size() <= 23 && key.memory.size() <= 31 ) {
         return key;
      }
   } catch( Kiv::Exception const & ) {
   }
   return {};
}

// What stands behind the prefix; empty if the text does not begin with it.
std::string_view
behind( std::string_view prefix, std::string_view text ) {
   return text.starts_with( prefix ) ? text.substr( prefix.size() ) : std::string_view();
}

// The text in front of its last "/count".
std::string_view
rowOf( std::string_view text ) {
   return text.ends_with( "/count" ) ? text.substr( 0, text.size() - 6 ) : std::string_view();
}

} // namespace

bool
ParityObserver::hasRoom( Key const & key ) const {
   return faults_.contains( key ) || capacity_ == 0 || faults_.size() < capacity_;
}

Observer::Verdict
ParityObserver::judge( Step const & step ) const {
   if( step.begins( "sim event parity" ) ) {
      return judgeRaise( step );
   }
   auto const path = behind( unitPath, step[ 1 ] );
   if( path.empty() || ( step[ 0 ] != "set" && step[ 0 ] != "del" ) ) {
      return notMine;
   }
   return step[ 0 ] == "set" ? judgeSet( path, step[ 2 ] ) : judgeDel( path );
}

Observer::Verdict
ParityObserver::judgeRaise( Step const & step ) const {
   constexpr std::array severities{ "", "correctable", "reset", "fatal" };
   bool const isSlice = sliceNames_.contains( step[ 3 ] ) && step[ 3 ].size() <= 23 &&
                        step[ 3 ].find( ':' ) == String::npos;
   bool const isEntry =
         !step[ 4 ].empty() && step[ 4 ].size() <= 31 && parsed< std::uint32_t >( step[ 5 ] );
   bool const isSeverity =
         step.size() <= 7 && std::ranges::find( severities, step[ 6 ] ) != severities.end();
   return isSlice && isEntry && isSeverity ? accepts : refuses;
}

Observer::Verdict
ParityObserver::judgeSet( std::string_view path, String const & text ) const {
   if( path == "correctionTime" ) {
      return parsed< double >( text ) ? accepts : refuses;
   }
   if( !behind( "sliceName/", path ).empty() ) {
      return text == "true" ? accepts : refuses;
   }
   auto const count = behind( "count/", path );
   auto const key = keyOf( rowOf( behind( "error/", path ) ) );
   constexpr std::array others{ "entriesCorrected", "entriesReset" };
   bool const isThere = path == "errorTable/capacity" || ( key && hasRoom( *key ) ) ||
                        std::ranges::find( countNames, count ) != countNames.end() ||
                        std::ranges::find( others, count ) != others.end();
   return isThere && parsed< std::uint64_t >( text ) ? accepts : refuses;
}

Observer::Verdict
ParityObserver::judgeDel( std::string_view path ) const {
   auto const key = keyOf( behind( "error/", path ) );
   return ( key && faults_.contains( *key ) ) ||
                      counts_.contains( String( behind( "count/", path ) ) ) ||
                      slices_.contains( String( behind( "slices/entry/", path ) ) ) ||
                      sliceNames_.contains( String( behind( "sliceName/", path ) ) )
                ? accepts
                : refuses;
}

// ---- The chip

void
ParityObserver::heard( Step const & step, Kiv::Datum const & ) {
   if( step.begins( "sim event parity" ) ) {
      raise( step );
   } else if( auto const path = behind( unitPath, step[ 1 ] ); !path.empty() ) {
      step[ 0 ] == "set" ? hearSet( path, step[ 2 ] ) : hearDel( path );
   }
}

void
ParityObserver::raise( Step const & step ) {
   Key const key{ step[ 3 ], step[ 4 ], Kiv::fromText< std::uint32_t >( step[ 5 ] ) };
   auto const severity = step[ 6 ] == "reset"   ? Hoba::parityNeedsReset
                         : step[ 6 ] == "fatal" ? Hoba::parityFatal
                                                : Hoba::parityCorrectable;
   ++counts_[ countNames[ severity ] ];
   if( hasRoom( key ) ) {
      faultIs( key, { simulated().now(), faultOf( key ).count + 1 } );
   }
   // Nobody hears of it before the machines have begun.
   if( simulated().isRunning() ) {
      ++queued_;
      queue_.push_back( { key, severity } );
   }
}

void
ParityObserver::hearSet( std::string_view path, String const & text ) {
   if( path == "correctionTime" ) {
      correctionTime_ = Kiv::fromText< double >( text );
   } else if( path == "errorTable/capacity" ) {
      capacity_ = Kiv::fromText< std::uint64_t >( text );
   } else if( auto const name = behind( "sliceName/", path ); !name.empty() ) {
      sliceNames_.insert( String( name ) );
   } else if( auto const count = behind( "count/", path ); !count.empty() ) {
      counts_[ String( count ) ] = Kiv::fromText< std::uint64_t >( text );
   } else {
      auto const key = *keyOf( rowOf( behind( "error/", path ) ) );
      faultIs( key, { faultOf( key ).time, Kiv::fromText< std::uint64_t >( text ) } );
   }
}

void
ParityObserver::hearDel( std::string_view path ) {
   if( auto const key = behind( "error/", path ); !key.empty() ) {
      faultDel( *keyOf( key ) );
   }
   counts_.erase( String( behind( "count/", path ) ) );
   slices_.erase( String( behind( "slices/entry/", path ) ) );
   sliceNames_.erase( String( behind( "sliceName/", path ) ) );
}

void
ParityObserver::faultIs( Key const & key, Fault const & fault ) {
   auto const before = faults_.find( key );
   if( before == faults_.end() || before->second != fault ) {
      faults_[ key ] = fault;
      tell( key );
   }
}

void
ParityObserver::faultDel( Key const & key ) {
   if( faults_.erase( key ) ) {
      tell( key );
   }
}

// A slice stands there from its first error on. One that somebody took away is there again with the next.
void
ParityObserver::tell( Key const & key ) {
   auto const fault = faults_.find( key );
   if( fault != faults_.end() ) {
      slices_[ key.slice ][ key ] = { key, fault->second.time,
                                      static_cast< std::uint32_t >( fault->second.count ) };
   } else if( auto const slice = slices_.find( key.slice ); slice != slices_.end() ) {
      slice->second.erase( key );
   }
}

// ---- The machines

void
ParityObserver::chipForgot() {
   for( auto const & [ key, fault ] : std::map( faults_ ) ) {
      faultDel( key );
   }
   counts_.clear();
}

void
ParityObserver::began( HobaAgent::RestartKind ) {
   handled_ = {};
   drains_ = mostWaited_ = 0;
   fatal_.reset();
   due_.clear();
   for( auto const & [ key, fault ] : faults_ ) {
      dueIs( key, simulated().now() + correctionTime_ );
   }
}

void
ParityObserver::timeIs( Kiv::Seconds now ) {
   if( fatal_ ) {
      found( "no restart for the fatal error of " + Kiv::toText( *fatal_ ) );
   }
   if( simulated().isRunning() ) {
      correct( now );
      drain( now );
      correct( now ); // what takes no time
   }
   hearLog();
}

void
ParityObserver::dueIs( Key const & key, Kiv::Seconds time ) {
   auto const found = std::ranges::find( due_, key, &Times::value_type::first );
   if( found == due_.end() ) {
      due_.emplace_back( key, time );
   } else {
      found->second = time;
   }
}

void
ParityObserver::correct( Kiv::Seconds now ) {
   for( auto const & [ key, time ] : due_ ) {
      if( time <= now && faults_.contains( key ) ) {
         faultDel( key );
         ++counts_[ "entriesCorrected" ];
         logs( now, "HARDWARE_PERR_CORRECTED " + Kiv::toText( key ) );
      }
   }
   std::erase_if( due_, [ & ]( auto const & each ) { return each.second <= now; } );
}

void
ParityObserver::drain( Kiv::Seconds now ) {
   if( queue_.empty() ) {
      return;
   }
   ++drains_;
   mostWaited_ = std::max( mostWaited_, queue_.size() );
   for( auto const & event : queue_ ) {
      ++handled_[ event.severity ];
      apply( event, now );
   }
   queue_.clear();
}

void
ParityObserver::apply( Event const & event, Kiv::Seconds now ) {
   switch( event.severity ) {
   case Hoba::parityCorrectable:
      logs( now, "HARDWARE_PERR_CORRECTABLE " + Kiv::toText( event.key ) );
      return dueIs( event.key, now + correctionTime_ );
   case Hoba::parityNeedsReset:
      return reset( event.key, now );
   default:
      logs( now, "HARDWARE_PERR_FATAL " + Kiv::toText( event.key ) );
      fatal_ = fatal_.value_or( event.key );
   }
}

// All errors of the slice go.
void
ParityObserver::reset( Key const & key, Kiv::Seconds now ) {
   std::uint64_t gone = 0;
   for( auto const & [ each, fault ] : std::map( faults_ ) ) {
      if( each.slice == key.slice ) {
         faultDel( each );
         ++gone;
      }
   }
   if( gone ) {
      counts_[ "entriesReset" ] += gone;
   }
   logs( now, "HARDWARE_PARITY_ERROR_CORRECTED_WITH_RESET Parity error entry " +
                    std::to_string( key.index ) + " in memory " + key.memory + " on " + key.slice +
                    " corrected by full chip reset" );
}

bool
ParityObserver::expectsRestart( String const & reason ) {
   return fatal_ && reason == "fatal parity error: " + Kiv::toText( *fatal_ );
}

// ---- What must be

// As it grows, since it does not keep everything.
void
ParityObserver::hearLog() {
   for( auto const & line : simulated().logBehind( lastLogged_ ) ) {
      lastLogged_ = line.number;
      if( line.name.starts_with( "HARDWARE_P" ) ) {
         log_.emplace_back( line.time, line.name + ' ' + line.text );
      }
   }
}

void
ParityObserver::check() {
   checkChip();
   checkMachines();
   checkLog();
}

void
ParityObserver::checkChip() {
   Rows errors, names;
   for( auto const & [ key, fault ] : faults_ ) {
      Kiv::Datum const row = Kiv::Datum::Object{ { "time", fault.time }, { "count", fault.count } };
      errors.emplace( Kiv::toText( key ), Kiv::datumText( row ) );
   }
   for( auto const & name : sliceNames_ ) {
      names.emplace( name, "" );
   }
   expectRows( String( unitPath ) + "error", errors );
   expectRows( String( unitPath ) + "count", rowsOf( counts_ ) );
   expectRows( String( unitPath ) + "sliceName", names );
   expectText( String( unitPath ) + "correctionTime", Kiv::datumText( correctionTime_ ) );
}

void
ParityObserver::checkMachines() {
   Rows all, due, handled;
   for( auto const & [ slice, events ] : slices_ ) {
      Rows own = rowsOf( events ), held;
      for( auto const & [ key, event ] : events ) {
         held.emplace( Kiv::toText( key ), "" );
      }
      expectRows( String( unitPath ) + "slices/entry/" + slice + "/parityEvent", own );
      expectRows( "/hoba/machines/parity/paritySliceSm/" + slice + "/held", held );
      all.merge( own );
   }
   for( auto const * path :
        { "/sim/chip/parity/slices/entry", "/hoba/machines/parity/paritySliceSm" } ) {
      for( auto const & [ slice, text ] : rowsAt( path ) ) {
         if( !slices_.contains( slice ) ) {
            found( String( path ) + ": has " + slice + ", which must not be there" );
         }
      }
   }
   for( auto const & [ key, time ] : due_ ) {
      due.emplace( Kiv::toText( key ), Kiv::datumText( time ) );
   }
   constexpr std::array kinds{ "parityCorrectable", "parityNeedsReset", "parityFatal" };
   for( std::size_t n = 0; n != kinds.size(); ++n ) {
      if( handled_[ n ] ) {
         handled.emplace( kinds[ n ], std::to_string( handled_[ n ] ) );
      }
   }
   expectRows( "/hoba/common/parityEvent", all );
   expectRows( "/hoba/machines/parityHelper/due", due );
   expectRows( "/hoba/parityEvents/queue",
               { { "event", "{}" }, { "nextIndex", std::to_string( queued_ ) } } );
   expectRows( "/hoba/parityEvents/status/handled", handled );
   expectRows( "/hoba/parityEvents/status/dropped", {} );
   expectText( "/hoba/parityEvents/status/drains", std::to_string( drains_ ) );
   expectText( "/hoba/parityEvents/status/highWaterMark", std::to_string( mostWaited_ ) );
   for( auto const * flag : { "initialized", "running", "enabled", "apiRunning" } ) {
      expectText( String( "/hoba/machines/parityEvents/" ) + flag, "true" );
   }
}

void
ParityObserver::checkLog() {
   hearLog();
   auto const [ is, must ] = std::ranges::mismatch( log_, expectedLog_ );
   auto const text = [ & ]( auto const & line, auto const & lines ) {
      return line == lines.end() ? String( "nothing" )
                                 : Kiv::toText( line->first ) + ' ' + line->second;
   };
   if( is != log_.end() || must != expectedLog_.end() ) {
      found( "the log has " + text( is, log_ ) + ", and must have " + text( must, expectedLog_ ) );
   }
   log_.clear();
   expectedLog_.clear();
}

SIMULATION_OBSERVER( ParityObserver );

} // namespace Simulation
