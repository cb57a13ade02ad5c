// SPDX-License-Identifier: Apache-2.0
#include "Kiv/Entity.h"

#include "Kiv/DispatchRecorder.h"
#include "Kiv/Reflect.h"

#include <algorithm>

namespace Kiv {

Entity::Entity( String name ) : PtrInterface( Lifetime::eventLoop ), name_( std::move( name ) ) {}

Entity::~Entity() = default;

Type const &
Entity::kivType() {
   static constinit Type type{ "Kiv::Entity" };
   return type;
}

Type const &
Entity::fwkType() const {
   return kivType();
}

void
Entity::recordChange( AttributeId const & attribute, void const * key ) const {
   DispatchRecorder::Scope recorded( DispatchRecorder::Kind::write, [ & ] {
      auto value = describeValue( *this, attribute, key );
      return DispatchRecorder::Text( describeAttribute( *this, attribute, key ),
                                     value.empty() ? String( " deleted" ) : " = " + value );
   } );
   if( notifiees_ ) {
      visit( attribute, key );
   }
}

} // namespace Kiv
