// SPDX-License-Identifier: Apache-2.0
#include "simulation/MacPipeline.h"
#include "simulation/Observer.h"

#include <algorithm>

// The pipeline of a chip whose MAC table answers later, if the chip is one: that everything in it is where it must
// be, and comes to its end.

namespace Simulation {

using Kiv::String;
using Kiv::toText;

namespace {

String const unitPath = "/sim/chip/mac/";
String const machinePath = MacPipeline::path();

// What describes the interface, and what may be said of each.
struct Setting {
   char const * name;
   std::initializer_list< char const * > values;
};
Setting const settings[] = { { "indirectAccess", { "true", "true", "false" } },
                             { "answersReordered", { "true", "false" } },
                             { "commandDepth", { "1", "2", "1024" } },
                             { "silence/next", { "1", "2" } },
                             { "silence/chance", { "0.2" } } };
Setting const tuning[] = { { "suspendPending", { "true", "false" } },
                           { "suspendInProgress", { "true", "false" } },
                           { "updateQuantumofTimes", { "1", "3", "128" } },
                           { "updateDelay", { "0.01", "0.2", "1.5" } },
                           { "pollReqQuantumofTimes", { "1", "2", "128" } },
                           { "pollReqFreq", { "0.01", "0.1", "1.5" } },
                           { "maxExecTime", { "0.01", "1" } },
                           { "updateOverflowAddressMaxDelay", { "5", "30" } } };

Step const wrong[] = { "sim mac-table mode=late",
                       "sim mac-table latency=-1",
                       "sim mac-table latency=soon",
                       "sim mac-table busy=often",
                       "sim mac-table full=1.5",
                       "sim mac-table order=none",
                       "sim mac-table mode=indirect capacity=-1",
                       "set /hoba/machines/macProgrammer/updateDelay 0",
                       "set /hoba/machines/macProgrammer/updateQuantum -1",
                       "set /hoba/machines/macProgrammer/updateQuantumofTimes 0",
                       "set /hoba/machines/macProgrammer/inProgMacOpBookmark 7",
                       "set /hoba/machines/macProgrammer/lastTransactionId 7",
                       "del /hoba/machines/macProgrammer/failedAddrOp/00:00:5e:00:53:01@1" };

Setting const *
settingOf( Step const & step, String const & path, std::span< Setting const > all ) {
   if( step[ 0 ] != "set" || !step[ 1 ].starts_with( path ) ) {
      return nullptr;
   }
   auto const name = step[ 1 ].substr( path.size() );
   auto const found = std::ranges::find( all, name, &Setting::name );
   return found == all.end() ? nullptr : &*found;
}

} // namespace

class MacProgrammerObserver : public Observer {
 public:
   MacProgrammerObserver( Switch & simulated, Observers & observers )
         : Observer( simulated, observers, "MAC programmer" ), pipeline_( simulated ) {}

   unsigned weight() const override { return 8; }
   void prepare( Draw & draw, Steps & steps ) override;
   void propose( Draw & draw, Steps & steps ) override;
   static void proposeMeeting( Draw & draw, Steps & steps );
   Steps heal() override;
   bool hasFaults() const override;
   bool mayFail( std::string_view ) const override { return false; }
   // A table that was full is tried again within half a minute.
   bool isWaiting() const override { return pipeline_.anyUnderWay() || pipeline_.anyInOverflow(); }
   Verdict judge( Step const & step ) const override;
   void heard( Step const & step, Kiv::Datum const & answer ) override;
   void timeIs( Kiv::Seconds ) override;
   void began( HobaAgent::RestartKind kind ) override;
   void settled() override;
   void check() override;

 private:
   MacPipeline const pipeline_;
   bool isIndirect_ = false; // as it was when the machines began
   bool wasSilent_ = false;  // since then
};

// ---- What happens

void
MacProgrammerObserver::prepare( Draw & draw, Steps & steps ) {
   if( draw.chance( 50 ) ) {
      steps.push_back( "set " + unitPath + "indirectAccess true" );
   }
   if( draw.chance( 30 ) ) {
      steps.push_back( "set " + unitPath + "answersReordered true" );
   }
}

// A station comes, goes, or comes elsewhere while nothing is written, and is forgotten with others in between.
void
MacProgrammerObserver::proposeMeeting( Draw & draw, Steps & steps ) {
   auto const flag = "set " + machinePath + "/suspendPending ";
   auto const vlan = draw.vlan(), station = draw.station();
   auto const host = "/bridging/config/fdbConfig/" + vlan + "/configuredHost/" + station;
   auto const intf = "set " + host + "/intf ";
   bool const isThereBefore = draw.chance( 50 );
   auto const before = draw.port(), after = draw.port();
   if( isThereBefore ) {
      steps.push_back( intf + before );
      steps.push_back( "wait 0.5" );
   }
   steps.push_back( flag + "true" );
   for( auto turn = 1 + draw.below( 3 ); turn > 0; --turn ) {
      auto const what = draw.below( 3 );
      if( what == 0 ) {
         steps.push_back( intf + after );
         steps.push_back( "wait 0.1" );
         steps.push_back( "del " + host );
      } else {
         steps.push_back( what == 1 ? intf + before : "clear mac" );
      }
      steps.push_back( "wait 0.1" );
   }
   steps.push_back( flag + "false" );
   steps.push_back( "wait 1" );
}

// What is on its way for a while others meet.
void
MacProgrammerObserver::propose( Draw & draw, Steps & steps ) {
   auto const kind = draw.below( 20 );
   auto const flag = draw.oneOf( { "suspendPending", "suspendInProgress" } );
   auto const value = draw.chance( 60 ) ? " true" : " false";
   if( kind == 0 ) {
      return steps.push_back( wrong[ draw.below( std::size( wrong ) ) ] );
   }
   if( kind < 5 ) {
      return steps.push_back( "set " + machinePath + '/' + flag + value );
   }
   if( kind < 9 ) {
      return proposeMeeting( draw, steps );
   }
   bool const isMachine = kind < 13;
   auto const & setting = isMachine ? tuning[ draw.below( std::size( tuning ) ) ]
                                    : settings[ draw.below( std::size( settings ) ) ];
   auto const to = draw.oneOf( setting.values );
   steps.push_back( "set " + ( isMachine ? machinePath + '/' : unitPath ) + setting.name + ' ' +
                    to );
}

Observer::Verdict
MacProgrammerObserver::judge( Step const & step ) const {
   if( std::ranges::find( wrong, step ) != std::end( wrong ) ) {
      return refuses;
   }
   if( settingOf( step, machinePath + '/', tuning ) ) {
      return verdict( pipeline_.isThere() );
   }
   return settingOf( step, unitPath, settings ) ? accepts : notMine;
}

void
MacProgrammerObserver::heard( Step const & step, Kiv::Datum const & ) {
   if( auto const * setting = settingOf( step, unitPath, settings );
       setting && String( setting->name ).starts_with( "silence" ) ) {
      wasSilent_ = true;
   }
}

bool
MacProgrammerObserver::hasFaults() const {
   return textAt( unitPath + "silence/next" ) != "0" ||
          textAt( unitPath + "silence/chance" ) != "0" || pipeline_.isSuspended();
}

// What was not answered, or has failed, somebody has to ask for anew: a machine that begins does.
Steps
MacProgrammerObserver::heal() {
   Steps steps = { "set " + unitPath + "silence/next 0", "set " + unitPath + "silence/chance 0" };
   if( !pipeline_.isThere() ) {
      return steps;
   }
   for( auto const * flag : { "suspendPending", "suspendInProgress" } ) {
      steps.push_back( "set " + machinePath + '/' + flag + " false" );
   }
   // What is not answered is polled for ever: the machines go at once. All else they do again later.
   if( wasSilent_ && pipeline_.anyInProgress() ) {
      steps.insert( steps.end(), { "stop", "start" } );
   }
   if( wasSilent_ || pipeline_.anyInProgress() || pipeline_.anyFailed() ) {
      steps.push_back( "sim restart hitless" );
   }
   return steps;
}

void
MacProgrammerObserver::began( HobaAgent::RestartKind ) {
   isIndirect_ = textAt( unitPath + "indirectAccess" ) == "true";
   wasSilent_ = hasFaults();
}

// ---- What must be

void
MacProgrammerObserver::timeIs( Kiv::Seconds ) {
   if( simulated().isRunning() && isIndirect_ != pipeline_.isThere() ) {
      found( "there is a pipeline, or none, against what was said when the machines began" );
   }
   for( auto const & fault : pipeline_.faults() ) {
      found( fault );
   }
}

// Nothing is left but what was never answered.
void
MacProgrammerObserver::settled() {
   if( isWaiting() ) {
      found( "commands are left that nothing stands before" );
   }
   if( pipeline_.anyInProgress() && !wasSilent_ ) {
      found( "a command is not answered, though the chip was never silent" );
   }
}

void
MacProgrammerObserver::check() {
   timeIs( simulated().now() );
   settled();
   if( pipeline_.anyLeft() || pipeline_.anyFailed() ) {
      found( "commands are not answered, or have failed, and were not asked for anew" );
   }
}

SIMULATION_OBSERVER( MacProgrammerObserver );

} // namespace Simulation
