// SPDX-License-Identifier: Apache-2.0

// Verification: what operators are told, and agents that ask by cookies.

#include "simulation/observers/VlanObserver.h"
#include "types/VerifyAgent.h"

namespace Simulation {

using namespace HobaTypes;
using Kiv::Datum;
using Kiv::String;
using Kiv::toText;

class VerificationObserver : public Observer {
 public:
   VerificationObserver( Switch & simulated, Observers & observers )
         : Observer( simulated, observers, "verification" ) {}

   unsigned weight() const override { return 6; }
   void propose( Draw & draw, Steps & steps ) override;
   Kiv::Seconds settlingTime() const override { return 1.25; } // a pass may be retried
   Verdict judge( Step const & step ) const override;
   void heard( Step const & step, Datum const & answer ) override;
   void timeIs( Kiv::Seconds now ) override;
   void began( HobaAgent::RestartKind kind ) override;
   bool expectsRestart( String const & reason ) override;
   void check() override;

 private:
   static constexpr Kiv::Seconds retryDelay = 1;

   // What the shared context says of verification. Begins anew with the machines.
   struct Data {
      std::uint32_t passes = 0, retries = 0, requests = 0;
      Items items = {};
      bool retry = false, done = false;
      HobaVerifyStatus result = verifyNotRun;

      // Back to how it was before any pass; the counters go on.
      void reset();
   };

   void asked( std::uint32_t cookie );
   void verified( Datum const & answer );
   void pass( Kiv::Seconds now );
   // All machines, then the helper of VLANs: its mismatch ends in a restart.
   bool somebodyCannotConclude() const;
   void runPass();

   Data data_;
   Kiv::Seconds due_ = Kiv::never;
   std::uint32_t cookie_ = 0;
   VerifyStatusData answer_;
   bool restarts_ = false; // the agent is about to, for a mismatch
};

void
VerificationObserver::Data::reset() {
   items.clear();
   retry = done = false;
   result = verifyNotRun;
}

// ---- What happens

void
VerificationObserver::propose( Draw & draw, Steps & steps ) {
   auto const kind = draw.below( 20 );
   auto const cookie = std::to_string( draw.below( 4 ) );
   if( kind < 12 ) {
      steps.push_back( "verify" );
   } else if( kind < 19 ) {
      steps.push_back( "set /verify/config/cookie " + cookie );
   } else {
      steps.push_back( draw.oneOf( { "set /verify/config/cookie crumb", "verify Ethernet1",
                                     "set /verify/status/verifyStatusData/cookie 1" } ) );
   }
}

Observer::Verdict
VerificationObserver::judge( Step const & step ) const {
   if( step[ 0 ] == "verify" ) {
      return simulated().isRunning() && step.size() == 1 ? accepts : refuses;
   }
   if( step.isAt( "/verify" ) ) {
      return step[ 1 ] == "/verify/config/cookie" && step[ 2 ] != "crumb" ? accepts : refuses;
   }
   return notMine;
}

void
VerificationObserver::heard( Step const & step, Datum const & answer ) {
   if( step[ 0 ] == "verify" ) {
      verified( answer );
   } else if( step.isAt( "/verify/config/cookie" ) ) {
      asked( Kiv::fromText< std::uint32_t >( step[ 2 ] ) );
   }
}

// A new cookie is a new request; while no machine runs it is ignored.
void
VerificationObserver::asked( std::uint32_t cookie ) {
   if( std::exchange( cookie_, cookie ) != cookie && simulated().isRunning() ) {
      data_.reset();
      ++data_.requests;
      answer_ = { cookie, verifyRequested };
      due_ = simulated().now();
   }
}

bool
VerificationObserver::somebodyCannotConclude() const {
   return std::ranges::any_of( observers().all(),
                               []( auto const & each ) { return each->cannotVerifyYet(); } );
}

void
VerificationObserver::runPass() {
   ++data_.passes;
   for( auto const & each : observers().all() ) {
      each->verifyItems( data_.items );
   }
   auto const vlans = observers().find< VlanObserver >().verification();
   data_.retry = vlans == VlanObserver::cannotConclude || somebodyCannotConclude();
   restarts_ = restarts_ || vlans == VlanObserver::differs;
}

// Of the command line: at once, and nobody comes back to it.
void
VerificationObserver::verified( Datum const & answer ) {
   data_.reset();
   runPass();
   if( std::exchange( data_.retry, false ) ) {
      data_.items.emplace_back( "verification", "not everybody can conclude yet: ask again" );
   }
   data_.done = true;
   Datum::Array rows;
   std::size_t mismatches = 0;
   for( auto const & [ item, text ] : data_.items ) {
      rows.emplace_back( Datum::Array{ item, text } );
      mismatches += text == "ok" || item == "verification" ? 0 : 1;
   }
   auto const expected = Kiv::datumText( rows );
   auto const cell = [ & ]( char const * name ) {
      auto const * found = answer.find( name );
      return found ? Kiv::datumText( *found ) : String();
   };
   if( cell( "rows" ) != expected ) {
      found( "verify answers " + cell( "rows" ) + ", and must " + expected );
   }
   if( cell( "items" ) != toText( rows.size() ) || cell( "mismatches" ) != toText( mismatches ) ) {
      found( "verify counts " + cell( "mismatches" ) + " mismatches of " + cell( "items" ) +
             " items, and must " + toText( mismatches ) );
   }
}

// ---- Passes on request

void
VerificationObserver::timeIs( Kiv::Seconds now ) {
   if( simulated().isRunning() && due_ <= now ) {
      pass( now );
   }
}

// Who cannot conclude is given a second; what was said then holds.
void
VerificationObserver::pass( Kiv::Seconds now ) {
   due_ = Kiv::never;
   data_.items.clear();
   if( std::exchange( data_.retry, false ) ) {
      ++data_.retries;
      data_.retry = somebodyCannotConclude();
   } else {
      runPass();
      data_.items.clear(); // no connection waits for them
   }
   data_.done = !data_.retry;
   data_.result = data_.retry ? verifyToBeRetried : verifyFinished;
   due_ = data_.retry ? now + retryDelay : Kiv::never;
   if( data_.done && answer_.status == verifyRequested ) {
      answer_.status = data_.result;
   }
}

void
VerificationObserver::began( HobaAgent::RestartKind ) {
   data_ = {};
   due_ = Kiv::never; // a request that the restart overtakes is not answered
}

bool
VerificationObserver::expectsRestart( String const & reason ) {
   return std::exchange( restarts_, false ) &&
          reason == "Verification of forwarding agent failed: File: Hoba/HobaVerifySm "
                    "Function: runVerification Description: " +
                          observers().find< VlanObserver >().mismatch();
}

// ---- What must be

void
VerificationObserver::check() {
   if( std::exchange( restarts_, false ) ) {
      found( "a mismatch was found, and the agent has not restarted" );
   }
   Datum items( Datum::Object{} );
   for( auto const & [ item, text ] : data_.items ) {
      items.add( item, "{ \"" + item + "\" : \"" + text + "\" }," );
   }
   Datum const expected = Datum::Object{
         { "verify", data_.passes },
         { "reverify", data_.retries },
         { "verifyOutput",
           Datum::Object{ { "file", "" }, { "function", "" }, { "description", "" } } },
         { "socket", 0u },
         { "cliVerifyOutput", items },
         { "retryVerify", data_.retry },
         { "verifyResult", toText( data_.result ) },
         { "verifyDone", data_.done },
         { "verifyRequired", Datum::Object{ { "verifyRequired", data_.requests } } },
         { "verifyActive", false },
         { "verifyFailures", 0u } };
   expectText( "/hoba/common/verifyData", Kiv::datumText( expected ) );
   expectText( "/verify/config/cookie", toText( cookie_ ) );
   expectText( "/verify/status/verifyStatusData", Kiv::datumText( Kiv::toDatum( answer_ ) ) );
   expectText( "/hoba/machines/verify/due", due_ == Kiv::never ? "false" : "true" );
   expectText( "/hoba/machines/verifyAgent/cookieWaits", "false" );
}

SIMULATION_OBSERVER( VerificationObserver );

} // namespace Simulation
