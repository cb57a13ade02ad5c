// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the features of one agent share, and nothing else: what ports, LAGs and VLANs there are, the
// clock, the chip, and the context of the machines. What one feature needs of another it asks for by
// type.

#include "Hoba/HobaCommon.h"
#include "Interface/EthPhyIntfStatus.h"
#include "Lag/Lag.h"
#include "Mox/TimerWheel.h"
#include "Tessera/Database.h"
#include "agent/feeders/FeederConfig.h"
#include "types/HobaTypes.h"

#include <functional>
#include <string_view>
#include <typeindex>
#include <unordered_map>
#include <vector>

namespace HobaSim {
class Chip;
}

namespace HobaAgent {

class Board {
 public:
   using Restart = std::function< void( Kiv::String const & reason ) >;
   // `restart` is called when a machine finds that only a restart of the agent helps. `database`
   // outlives the board.
   Board( Tessera::Database & database, Kiv::Ptr< HobaSim::Chip > const & chip, Restart restart );
   ~Board();
   Board( Board const & ) = delete;
   Board & operator=( Board const & ) = delete;

   Tessera::Database & database;

   // ---- What outlives the machines
   Kiv::Ptr< HobaSim::Chip > const chip;
   // What the operator says of ports, LAGs and VLANs.
   Kiv::Ptr< Feeders::Config > const feederConfig = Kiv::make< Feeders::Config >();
   Kiv::Ptr< Lag::Input::Config > const lagInputConfig =
         Kiv::make< Lag::Input::Config >( "config" );
   // The ports as they are, and what the chip reported of them.
   Kiv::Ptr< Interface::AllEthPhyIntfStatusDir > const ethPhyIntfStatusDir =
         Kiv::make< Interface::AllEthPhyIntfStatusDir >( "status" );
   Kiv::Ptr< HobaTypes::HobaPortStatusDir > const portStatusDir =
         Kiv::make< HobaTypes::HobaPortStatusDir >( "portStatus" );

   // ---- What begins anew with them
   // The context of the machines that run now, or are being made. Throws Kiv::Exception while there
   // are none.
   Kiv::Ptr< Hoba::HobaCommonSmData > const & context() const;
   Kiv::Ptr< Mox::TimerWheel > const & clock() const { return clock_; }

   // Whether the switch has this interface. Nothing here makes VXLAN interfaces: each is taken to be
   // there, as the CPU port is.
   bool hasIntf( Pelt::IntfId intf ) const;

   // ---- What features have for each other: an entity or a running machine, by its class. One of a
   // class at a time.
   template< class T >
   void offer( Kiv::Ptr< T > const & what ) {
      offers_[ typeid( T ) ] = what;
   }
   template< class T >
   void withdraw() {
      offers_.erase( typeid( T ) );
   }
   // Null if no feature has one now.
   template< class T >
   Kiv::Ptr< T > find() const {
      auto const found = offers_.find( typeid( T ) );
      return found == offers_.end() ? nullptr : static_cast< T * >( found->second.get() );
   }

   // For Feature: one of the first passes that went on is over.
   std::function< void() > firstPassIsOver;
   // What the last import of a configuration had to say of the rows of a table.
   std::function< std::vector< Kiv::String >( std::string_view table ) > importNotes;

 private:
   friend class Features;
   // A new context, and none any more.
   void contextIs();
   void contextDel();

   Restart const restart_;
   Kiv::Ptr< Hoba::HobaCommonSmData > context_;
   Kiv::Ptr< Mox::TimerWheel > clock_;
   std::unordered_map< std::type_index, Kiv::Ptr< Kiv::Entity > > offers_;
};

} // namespace HobaAgent
