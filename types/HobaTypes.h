// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a chip reports of its ports and of the stations behind them, as other agents read it.

#include "Bridging/EntryType.h"
#include "Bridging/MacVlanPair.h"
#include "Interface/Autoneg.h"
#include "Interface/EthPhyIntfStatus.h"
#include "Kiv/Entity.h"
#include "Kiv/Value.h"
#include "Pelt/IntfId.h"

namespace HobaTypes {

// Where the chip sees a link fail: at its own end, or told by the partner's.
KIV_ENUM( FaultType, std::uint8_t, faultNone = 0, faultLocal, faultRemote );

// What the chip last reported of one port.
class HobaPortStatus : public Kiv::Entity {
   KIV_ENTITY( HobaTypes::HobaPortStatus );
   KIV_ATTRIBUTE( Interface::LinkStatus, linkStatus, Interface::linkUnknown );
   KIV_ATTRIBUTE( FaultType, faultType, faultNone );
   KIV_ATTRIBUTE( Interface::AutonegAdvertisement, partnerAutonegAdvertisement );
   KIV_ATTRIBUTE( Interface::AutonegState, autonegResult, Interface::autonegUnknown );

 public:
   explicit HobaPortStatus( Pelt::IntfId intf ) : Entity( Kiv::toText( intf ) ) {}
};

class HobaPortStatusDir : public Kiv::Entity {
   KIV_ENTITY( HobaTypes::HobaPortStatusDir );
   // Made and removed by whoever knows which ports there are.
   KIV_CHILDREN( Pelt::IntfId, HobaPortStatus, portStatus );

 public:
   explicit HobaPortStatusDir( Kiv::String const & dirName = {} ) : Entity( dirName ) {}
};

// Throws Kiv::ParseError: this can be no station (Bridging::MacVlanPair::isStation()).
[[noreturn]] void stationFailed( Bridging::MacVlanPair host );

// A station that the hardware learnt, or that another source claims to be behind `intf`.
struct MacAddressTableEntry {
   KIV_VALUE( HobaTypes::MacAddressTableEntry );
   KIV_FIELD( Bridging::MacVlanPair, macEntry );
   KIV_FIELD( Pelt::IntfId, intf );
   KIV_FIELD( Bridging::EntryType, entryType, Bridging::entryTypeUnknown );
   // The VXLAN tunnel behind which it is; 0 for none.
   KIV_FIELD( std::uint32_t, tunnelId, 0 );
   // Since when it is said to be there, as that type, in seconds of the agent's clock: who reports again
   // what stands changes nothing.
   KIV_FIELD( Kiv::Seconds, learnTime, 0 );
   // The chip learnt it by itself; others were told by somebody.
   KIV_FIELD( bool, learnedInHardware, false );
   KIV_FIELD( bool, agedInHardware, false );

   // What is written from outside is about a station.
   void kivCheck() const {
      if( !macEntry.isStation() ) {
         stationFailed( macEntry );
      }
   }
};

class MacTable : public Kiv::Entity {
   KIV_ENTITY( HobaTypes::MacTable );
   KIV_KEYED( MacAddressTableEntry, Bridging::MacVlanPair, macEntry, macEntry );

 public:
   explicit MacTable( Kiv::String const & tableName = {} ) : Entity( tableName ) {}
};

} // namespace HobaTypes
