// SPDX-License-Identifier: Apache-2.0
#pragma once

// The verification entity of the shared context: how a pass is asked for, what the machines find,
// and how it ended. Hoba/HobaVerifySm.h has the machines that run the pass.

#include "Kiv/Entity.h"
#include "Kiv/Value.h"
#include "types/VerifyAgent.h"

namespace Hoba {

// `text` as a JSON string, quotes included.
Kiv::String jsonQuoted( std::string_view text );

// Where a mismatch was found. Empty when there is none.
struct VerifyOutput {
   KIV_PLAIN_VALUE( Hoba::VerifyOutput );
   KIV_FIELD( Kiv::String, file );
   KIV_FIELD( Kiv::String, function );
   KIV_FIELD( Kiv::String, description );

   void print( std::string & out ) const;
};

class VerifyRequired : public Kiv::Entity {
   KIV_ENTITY( Hoba::VerifyRequired );
   // Each increment asks for a pass.
   KIV_COUNTER( std::uint32_t, verifyRequired );

 public:
   explicit VerifyRequired( Kiv::String const & requiredName ) : Entity( requiredName ) {}
};

class VerifyData : public Kiv::Entity {
   KIV_ENTITY( Hoba::VerifyData );
   // Each increment makes every machine run its handleVerify(), inside the write.
   KIV_COUNTER( std::uint32_t, verify );
   KIV_COUNTER( std::uint32_t, reverify );
   KIV_ATTRIBUTE( VerifyOutput, verifyOutput );
   // The command-line connection that asked for the pass; 0 for none.
   KIV_ATTRIBUTE( std::uint32_t, socket, 0 );
   // What each item reported, as the text that goes into the reply.
   KIV_COLLECTION( Kiv::String, Kiv::String, cliVerifyOutput );
   // Set by a machine that cannot conclude yet.
   KIV_ATTRIBUTE( bool, retryVerify );
   KIV_ATTRIBUTE( HobaTypes::HobaVerifyStatus, verifyResult, HobaTypes::verifyNotRun );
   KIV_ATTRIBUTE( bool, verifyDone );
   KIV_CHILD( VerifyRequired, verifyRequired );
   // A pass is under way: what is asked for now is for the next one.
   KIV_ATTRIBUTE( bool, verifyActive );
   // What failed in the last pass instead of finding out: machines, and whoever else heard of it.
   KIV_ATTRIBUTE( std::uint32_t, verifyFailures, 0 );

 public:
   explicit VerifyData( Kiv::String const & dataName ) : Entity( dataName ) {}

   // Asks for a pass, if `verifyRequired` is there to ask through.
   void doRequestVerify();
   // Back to how it was before any pass. The counters go on.
   void resetVerifyData();
   // The same, for a pass that the command-line connection `socket` waits for.
   void initVerifyData( std::uint32_t socket );
   // Adds one item to the reply, `{ "key" : "value" },`, if a command-line connection waits for
   // it. An item may report more than once. Key and value are escaped as in JSON.
   void updateCliVerifyOutput( Kiv::String const & key, Kiv::String const & value );
   // All items in the order in which they first reported, without the last comma.
   Kiv::String cliReplyItems() const;

   // One part of a pass: what it throws is reported for `item`, told (Kiv::Dispatch::failed()), and
   // ends here.
   template< class Step >
   void verifyStep( Kiv::String const & item, Step && step ) {
      try {
         step();
      } catch( ... ) {
         verifyStepFailed( item );
      }
   }

 private:
   void verifyStepFailed( Kiv::String const & item );
};

} // namespace Hoba
