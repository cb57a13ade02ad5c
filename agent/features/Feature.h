// SPDX-License-Identifier: Apache-2.0
#pragma once

// A feature of the agent, whole: what it keeps in the state database, its machines and their helper,
// its commands, and what it takes of an imported configuration. It stands in one source file, and in
// one line of Features.cpp, whose order is the order of creation and of start; the end goes the other
// way. docs/adding-a-feature.md tells how to write one.
//
// A feature lives as long as the agent, and so does what it mounts. Its machines do not: the agent may
// let all of them go and make them anew (start(), stop()), with the chip and the state database as
// they are.

#include "Hoba/HobaBaseSm.h"
#include "agent/Commands.h"
#include "agent/features/Board.h"

#include <functional>
#include <memory>

namespace Import {
class Tables;
}

namespace HobaAgent {

class Feature {
 public:
   // `name` is what people call it.
   Feature( Board & board, char const * name ) : board_( board ), name_( name ) {}
   virtual ~Feature();
   Feature( Feature const & ) = delete;
   Feature & operator=( Feature const & ) = delete;

   char const * name() const { return name_; }

   // Said once, in this order, when all features are there.
   virtual void mounts() {}
   virtual void commands( Commands & ) {}
   virtual void importers( Import::Tables & ) {}

   // Makes the machines on board().context(), and has them begin: their first pass is over when it
   // returns, unless it says firstPassGoesOn(). What it throws ends the start of all features.
   virtual void start() {}
   // The machines are about to go, the last first: ends what start() began besides. Also after a start
   // that threw on its way.
   virtual void stop() {}

   // For who owns the features: stop(), then the machines go, and what was mounted for them.
   void end();
   // For who owns the features: takes out what mounts() mounted.
   void unmount();
   bool inFirstPass() const { return inFirstPass_; }

 protected:
   Board & board() const { return board_; }
   Kiv::Ptr< Hoba::HobaCommonSmData > const & context() const { return board_.context(); }

   // Puts an entity into the state database, for as long as the agent runs.
   void mount( char const * path, Kiv::Ptr< Kiv::Entity > const & entity, Tessera::Access access,
               Tessera::MayBeMade mayBeMade = {} );
   // The machines have not asked yet for all that they want the chip to hold, and nothing of it is to
   // be taken away as nobody's. Said in start(); once it is over, from the event loop.
   void firstPassGoesOn() { inFirstPass_ = true; }
   void firstPassIsOver();
   // Until the machines go: an entity for operators to look at, or to tune.
   void mountRunning( Kiv::String const & path, Kiv::Ptr< Kiv::Entity > const & entity,
                      Tessera::Access access = Tessera::Access::status );

 private:
   template< class Sm >
   friend class Machine;
   // What is to be done when the machines go. What was said last is done first.
   void atEnd( std::function< void() > work ) { atEnd_.push_back( std::move( work ) ); }

   Board & board_;
   char const * const name_;
   bool inFirstPass_ = false;
   std::vector< Kiv::String > mounted_;
   std::vector< std::function< void() > > atEnd_;
};

// A machine of a feature, while it runs: shown below /hoba/machines, and found by other features by
// its class.
template< class Sm >
class Machine {
 public:
   // Of what is writable operators may write all that the machine does not keep for itself (KIV_READ_ONLY).
   Machine( Feature & feature, char const * name, Tessera::Access access = Tessera::Access::status )
         : feature_( feature ), name_( name ), access_( access ) {}
   Machine( Machine const & ) = delete;
   Machine & operator=( Machine const & ) = delete;

   // The feature has made it; it goes with the others of the feature.
   void is( Kiv::Ptr< Sm > const & sm ) {
      sm_ = sm;
      feature_.atEnd( [ this ] {
         feature_.board_.template withdraw< Sm >();
         Hoba::letGo( sm_ );
      } );
      feature_.mountRunning( Kiv::String( "/hoba/machines/" ) + name_, sm_, access_ );
      feature_.board_.offer( sm_ );
   }
   explicit operator bool() const { return sm_ != nullptr; }
   // Throw Kiv::Exception while it does not run.
   Sm & operator*() const {
      if( !sm_ ) {
         throw Kiv::Exception( Kiv::String( name_ ) + " does not run: see show restarts" );
      }
      return *sm_;
   }
   Sm * operator->() const { return &**this; }
   Kiv::Ptr< Sm > const & ptr() const { return sm_; }

 private:
   Feature & feature_;
   char const * const name_;
   Tessera::Access const access_;
   Kiv::Ptr< Sm > sm_;
};

// Makes one; defined by the feature's own file.
template< class F >
std::unique_ptr< Feature > makeFeature( Board & board );

} // namespace HobaAgent

// Stands once in the file of a feature, within its namespace.
#define HOBA_FEATURE( Name )                                                                       \
   template< class F >                                                                             \
   std::unique_ptr< Feature > makeFeature( Board & board ) {                                       \
      return std::make_unique< F >( board );                                                       \
   }                                                                                               \
   template std::unique_ptr< Feature > makeFeature< Name >( Board & )
