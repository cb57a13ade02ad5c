// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaCliCallback.h"
#include "Hoba/HobaVerifySm.h"
#include "agent/common/Json.h"
#include "agent/features/Feature.h"
#include "types/VerifyAgent.h"

// Verification on request, of another agent or of an operator. The last feature: it answers when all
// machines are there.

namespace HobaAgent {

using Kiv::Datum;
using Kiv::String;

class VerifyFeature : public Feature {
 public:
   explicit VerifyFeature( Board & board ) : Feature( board, "verification" ) {}

   void mounts() override {
      // A cookie asks for one pass: nothing to keep.
      mount( "/verify/config", config_, Tessera::Access::writable );
      mount( "/verify/status", status_, Tessera::Access::status );
   }
   void commands( Commands & commands ) override;
   void start() override {
      sm_.is( Hoba::VerifyAgentSm::VerifyAgentSmIs( context(), config_, status_ ) );
      sm_->initializedIs( true );
   }

 private:
   Kiv::Ptr< HobaTypes::VerifyAgentConfig > const config_ =
         Kiv::make< HobaTypes::VerifyAgentConfig >( "config" );
   Kiv::Ptr< HobaTypes::VerifyAgentStatus > const status_ =
         Kiv::make< HobaTypes::VerifyAgentStatus >( "status" );
   Machine< Hoba::VerifyAgentSm > sm_{ *this, "verifyAgent" };
};

namespace {

// {"command": [{"item": "text"}, ...]}, as a table.
Datum
tableOf( Datum const & reply ) {
   TableAnswer table( { "Item", "Result" } );
   std::size_t mismatches = 0, items = 0;
   bool isOver = true;
   for( auto const & [ command, list ] : *reply.as< Datum::Object >() ) {
      for( auto const & element : *list.as< Datum::Array >() ) {
         for( auto const & [ item, text ] : *element.as< Datum::Object >() ) {
            ++items;
            // Not an item like others: who cannot conclude yet has not found anything.
            bool const isUndecided = item == "verification";
            isOver = isOver && !isUndecided;
            mismatches += isUndecided || *text.as< String >() == "ok" ? 0 : 1;
            table.row( { item, text } );
         }
      }
   }
   table.note( mismatches == 0
                     ? "verified: " + std::to_string( items ) + " items, all " +
                             ( isOver ? "" : "that was compared " ) + "as they should be"
                     : "MISMATCH: " + std::to_string( mismatches ) + " of " +
                             std::to_string( items ) + " items differ from the hardware" );
   table.member( "items", items );
   table.member( "mismatches", mismatches );
   return table.take();
}

Datum
verify( std::uint32_t socket ) {
   auto * callback = Hoba::CliCallback::find( "VerifyAgentCli" );
   if( !callback ) {
      throw Kiv::ParseError( "verification is not possible before the agent is initialized" );
   }
   return tableOf( parseJson( callback->handleCommand( socket, "VTS#verify" ) ) );
}

} // namespace

void
VerifyFeature::commands( Commands & commands ) {
   commands.add( { .name = "verify",
                   .help = "Compares what the machines believe with what the hardware holds",
                   // One connection is like another to the machines, as long as it is not 0.
                   .handler = []( Request const & ) { return verify( 1 ); },
                   .isInput = true } );
}

HOBA_FEATURE( VerifyFeature );

} // namespace HobaAgent
