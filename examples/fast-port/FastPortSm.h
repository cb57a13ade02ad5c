// SPDX-License-Identifier: Apache-2.0
#pragma once

// Ports that are fast: above a configured speed the chip gives a port a deeper buffer. The machine
// tells it which ports those are.

#include "Hoba/HobaAssert.h"
#include "Hoba/HobaBaseHelper.h"
#include "Hoba/HobaBaseSm.h"
#include "Hoba/HobaCommon.h"
#include "Hoba/HobaHook.h"
#include "Interface/EthPhyIntfStatus.h"

namespace FastPort {

// What the operator asks for.
class Config : public Kiv::Entity {
   KIV_ENTITY( FastPort::Config );
   KIV_ATTRIBUTE( std::uint64_t, thresholdKbps, 10'000'000 );

 public:
   explicit Config( Kiv::String const & configName = {} ) : Entity( configName ) {}
};

// What the chip must be able to do.
class Helper : public Hoba::HobaBaseHelper {
   KIV_ENTITY( FastPort::Helper, Hoba::HobaBaseHelper );

 public:
   using HobaBaseHelper::HobaBaseHelper;

   // Required. Whether the port has a deep buffer; none has one at first.
   HOBA_REQUIRED( void, setFast, ( Pelt::IntfId intf, bool fast ) );
   // How many ports can have one at a time.
   virtual std::size_t deepBuffers() const { return 1; }
};

class FastPortSm : public Hoba::HobaBaseSm {
   HOBA_MACHINE( FastPortSm );
   // Ports that the chip was told to be fast, and fast ports for which there is no buffer left.
   KIV_SET( Pelt::IntfId, fast );
   KIV_SET( Pelt::IntfId, waiting );

 public:
   void handleInitialized() override;

 protected:
   // FastPortSmIs( ... ): watches `config` and `ports`, and calls `helper`. Throws Kiv::Exception when
   // `helper` is null.
   FastPortSm( Kiv::Ptr< Hoba::HobaCommonSmData > const & commonSmData,
               Kiv::Ptr< Config const > const & config,
               Kiv::Ptr< Interface::AllEthPhyIntfStatusDir const > const & ports,
               Kiv::Ptr< Helper > const & helper );

 private:
   void handleThreshold();
   void handlePort( Pelt::IntfId const & intf );
   // The decision, and what comes of it.
   bool wanted( Pelt::IntfId intf ) const;
   void apply( Pelt::IntfId intf, bool isWanted );

   class KivConfig
         : public Kiv::Hears<
                 FastPortSm, Config const,
                 Kiv::WhenReady< Config::thresholdKbpsAttr, &FastPortSm::handleThreshold > > {};
   class KivPort : public Kiv::Hears< FastPortSm, Interface::EthPhyIntfStatus const, Pelt::IntfId,
                                      Kiv::OnceReady< Interface::EthPhyIntfStatus::speedAttr,
                                                      &FastPortSm::handlePort > > {
    public:
      void doCleanUp() { owner().apply( key(), false ); }
   };

   Hoba::Hooks< Helper > const helper_;
   KIV_REACTOR( KivConfig, config );
   KIV_REACTORS( Pelt::IntfId, KivPort, port );

   // Behind the reactors that it keeps in step.
   class KivPorts
         : public Kiv::Hears< FastPortSm, Interface::AllEthPhyIntfStatusDir const,
                              Kiv::Follow< Interface::AllEthPhyIntfStatusDir::ethPhyIntfStatusAttr,
                                           &FastPortSm::port_, &KivPort::doCleanUp > > {};
   KIV_REACTOR( KivPorts, ports );
};

} // namespace FastPort
