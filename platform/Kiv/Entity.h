// SPDX-License-Identifier: Apache-2.0
#pragma once

// Entities: named objects of the state database whose attributes others watch.
//
//    class IntfConfig : public Kiv::Entity {
//       KIV_ENTITY( Bridging::StormControl::IntfConfig );
//       KIV_ATTRIBUTE( Threshold, broadcast );
//       KIV_COLLECTION( Pelt::IntfId, bool, member );
//     public:
//       explicit IntfConfig( Kiv::String const & name ) : Entity( name ) {}
//    };
//
// and, in one source file, KIV_DEFINE( Bridging::StormControl::IntfConfig );
//
// Kiv/Attribute.h lists the kinds of attributes and their accessors. A setter compares, stores,
// and notifies only on change, synchronously: handlers run before it returns, and may nest. What a
// handler throws does not come back through the setter: once it has stored, the write is done.

#include "Kiv/Attribute.h"
#include "Kiv/Notifiee.h"
#include "Kiv/Text.h"

namespace Kiv {

class Entity : public PtrInterface {
 public:
   static Type const & kivType();
   Type const & fwkType() const override;
   static Count< 0 > kivCount( Rank< 0 > );
   ~Entity() override;

   String const & name() const { return name_; }
   // Whether anybody watches this entity.
   bool kivWatched() const { return notifiees_ != nullptr; }

 protected:
   explicit Entity( String name = {} );

   // Tells every reactor on this entity, in the order in which they joined. Attribute setters
   // call it after they stored. `key` must stay valid whatever the handlers do.
   void kivChanged( AttributeId const & attribute, void const * key = nullptr ) const {
      if( Dispatch::recorder ) [[unlikely]] {
         recordChange( attribute, key );
      } else if( notifiees_ ) {
         visit( attribute, key );
      }
   }

 private:
   friend class PtrInterface::NotifieeConst;

   // While nobody leaves, the ring itself says who is next.
   void visit( AttributeId const & attribute, void const * key ) const {
      auto * notifiee = notifiees_;
      auto * last = notifiee->previous_;
      Dispatch::Frame frame( last );
      for( ;; ) {
         frame.next = notifiee->next_;
         notifiee->onAttribute( attribute, key );
         if( notifiee == last ) [[likely]] {
            return;
         }
         if( !frame.moved ) [[likely]] {
            notifiee = notifiee->next_;
         } else {
            frame.moved = false;
            notifiee = frame.next;
            last = frame.last;
            if( !notifiee ) {
               return;
            }
         }
      }
   }
   void recordChange( AttributeId const & attribute, void const * key ) const;

   String name_;
   mutable NotifieeConst * notifiees_ = nullptr;
};

} // namespace Kiv
