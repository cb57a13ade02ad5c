// SPDX-License-Identifier: Apache-2.0
#include "KivCore/Subjects.h"

#include "Kiv/Reactor.h"
#include "Kiv/Reflect.h"

#include <deque>
#include <numeric>

namespace Bench {

KIV_DEFINE( Bench::Port );
KIV_DEFINE( Bench::Five );

Port::Port() = default;

namespace {

std::deque< std::uint64_t > counts;

class Machine : public Kiv::PtrInterface, public Kiv::ReactorOwner {
 public:
   class KivPort : public Kiv::Reactor< KivPort, Port const, Machine, int > {
      void handleLevel() { ++count_; }
      void handleMember() { ++count_; }
      std::uint64_t & count_ = newCount();

    public:
      static constexpr auto handlers =
            Kiv::handlers( Kiv::OnChange< Port::levelAttr, &KivPort::handleLevel >(),
                           Kiv::OnChange< Port::memberAttr, &KivPort::handleMember >() );
   };
   Machine() : PtrInterface( Lifetime::eventLoop ) {}
   Kiv::Type const & fwkType() const override { return Kiv::typeInstance< Machine >; }
   bool initialized() const { return true; }

   KIV_REACTORS( int, KivPort, port );
};

class Counting final : public Handler {
   void handle() override { ++count_; }
   void handle( std::uint64_t ) override { ++count_; }
   std::uint64_t & count_ = newCount();
};

} // namespace

class Switched : public Machine::KivPort {
 public:
   Kiv::Type const & fwkType() const override { return Kiv::typeInstance< Switched >; }
};

std::uint64_t &
newCount() {
   return counts.emplace_back( 0 );
}

std::uint64_t
allCounts() {
   return std::accumulate( counts.begin(), counts.end(), std::uint64_t{ 0 } );
}

// Machines live as long as the benchmark.
Kiv::Ptr< Port >
portWithReactors( int count ) {
   auto port = Kiv::make< Port >();
   auto * machine = Kiv::make< Machine >().detach();
   machine->hasNotificationActiveIs( true );
   for( int i = 0; i < count; ++i ) {
      machine->portIs( i, port );
   }
   return port;
}

Switched *
switched() {
   auto * machine = Kiv::make< Machine >().detach();
   auto * reactor = Kiv::make< Switched >().detach();
   reactor->kivOwnerIs( *machine );
   reactor->hasNotificationActiveIs( true );
   return reactor;
}

void
attach( Switched & reactor, Kiv::Ptr< Port > const & port ) {
   reactor.notifierIs( port );
}

Handler *
handler() {
   return new Counting;
}

} // namespace Bench
