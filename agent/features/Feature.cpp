// SPDX-License-Identifier: Apache-2.0
#include "agent/features/Feature.h"

namespace HobaAgent {

Feature::~Feature() = default;

void
Feature::mount( char const * path, Kiv::Ptr< Kiv::Entity > const & entity, Tessera::Access access,
                Tessera::MayBeMade mayBeMade ) {
   board_.database.mount( path, entity, access, std::move( mayBeMade ) );
   mounted_.push_back( path );
}

void
Feature::mountRunning( Kiv::String const & path, Kiv::Ptr< Kiv::Entity > const & entity,
                       Tessera::Access access ) {
   board_.database.mount( path, entity, access );
   atEnd( [ this, path ] { board_.database.unmount( path ); } );
}

void
Feature::firstPassIsOver() {
   if( std::exchange( inFirstPass_, false ) ) {
      board_.firstPassIsOver();
   }
}

void
Feature::end() {
   inFirstPass_ = false;
   stop();
   while( !atEnd_.empty() ) {
      auto const work = std::move( atEnd_.back() );
      atEnd_.pop_back();
      work();
   }
}

void
Feature::unmount() {
   for( ; !mounted_.empty(); mounted_.pop_back() ) {
      board_.database.unmount( mounted_.back() );
   }
}

} // namespace HobaAgent
