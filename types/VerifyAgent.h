// SPDX-License-Identifier: Apache-2.0
#pragma once

// How other agents ask a forwarding agent to verify itself, and read the answer.

#include "Kiv/Entity.h"
#include "Kiv/Value.h"

namespace HobaTypes {

KIV_ENUM( HobaVerifyStatus, std::uint8_t, verifyNotRun = 0, verifyRequested = 1, verifyFinished = 2,
          verifyFailed = 3, verifyToBeRetried = 4 );

class VerifyAgentConfig : public Kiv::Entity {
   KIV_ENTITY( HobaTypes::VerifyAgentConfig );
   // Chosen by whoever asks: a new cookie is a new request, and comes back with the answer.
   KIV_ATTRIBUTE( std::uint32_t, cookie, 0 );

 public:
   explicit VerifyAgentConfig( Kiv::String const & configName = {} ) : Entity( configName ) {}
};

struct VerifyStatusData {
   KIV_VALUE( HobaTypes::VerifyStatusData );
   KIV_FIELD( std::uint32_t, cookie, 0 );
   KIV_FIELD( HobaVerifyStatus, status, verifyNotRun );
};

class VerifyAgentStatus : public Kiv::Entity {
   KIV_ENTITY( HobaTypes::VerifyAgentStatus );
   KIV_ATTRIBUTE( VerifyStatusData, verifyStatusData );

 public:
   explicit VerifyAgentStatus( Kiv::String const & statusName = {} ) : Entity( statusName ) {}
};

} // namespace HobaTypes
