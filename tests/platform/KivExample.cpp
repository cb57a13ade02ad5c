// SPDX-License-Identifier: Apache-2.0
#include "KivExample.h"

#include "Kiv/Reflect.h"

namespace Example {

KIV_DEFINE( Example::Leaf );
KIV_DEFINE( Example::Bare );
KIV_DEFINE( Example::Node );
KIV_DEFINE( Example::WideNode );

Listener::Listener( Kiv::Entity const & entity, Heard heard ) : heard_( std::move( heard ) ) {
   watch( &entity );
   isRegisteredNotifieeIs( true );
   hasNotificationActiveIs( true );
}

void
Listener::onAttribute( Kiv::AttributeId const & attribute, void const * key ) {
   auto const * info = watched()->fwkType().reflection()->attribute( attribute );
   std::string text = attribute.name;
   if( key ) {
      text += '[' + info->keyText( key ) + ']';
   }
   heard_( text );
}

} // namespace Example
