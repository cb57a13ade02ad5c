// SPDX-License-Identifier: Apache-2.0
#pragma once

// The run-time identity of a class: its name, how many objects of it live, and, for entities, its
// reflection. fwkType() of every framework object answers with the Type of its class.

#include <atomic>
#include <cstdint>
#include <string_view>
#include <type_traits>
#include <vector>

// Outside of any namespace, since compilers leave out the one that a function stands in.
template< class T >
consteval std::string_view
kivSignatureOf() {
   return __PRETTY_FUNCTION__;
}

namespace Kiv {

class EntityReflection;

// Reference counts and allocation counts are atomic only while this is set. A process that shares
// framework objects between threads sets it before it starts the second thread.
inline bool threadSafePtrs = false;

inline void
threadSafePtrsIs( bool enabled ) {
   threadSafePtrs = enabled;
}

// Adds, and returns what was there before.
template< class Number >
Number
countBy( std::atomic< Number > & counter, std::type_identity_t< Number > by ) {
   if( threadSafePtrs ) {
      return counter.fetch_add( by, std::memory_order_acq_rel );
   }
   auto const before = counter.load( std::memory_order_relaxed );
   counter.store( before + by, std::memory_order_relaxed );
   return before;
}

class Type {
 public:
   // Not copied: `text` must outlive the type (it is a literal).
   constexpr explicit Type( std::string_view text,
                            EntityReflection const * ( *reflect )() = nullptr )
         : name_( text ), reflection_( reflect ) {}
   Type( Type const & ) = delete;
   Type & operator=( Type const & ) = delete;

   std::string_view name() const { return name_; }
   // Objects that exist now, and objects made since the process started.
   std::uint64_t live() const { return live_.load( std::memory_order_relaxed ); }
   std::uint64_t made() const { return made_.load( std::memory_order_relaxed ); }
   // Null for everything but entities.
   EntityReflection const * reflection() const { return reflection_ ? reflection_() : nullptr; }

   void allocated() const {
      if( made_.load( std::memory_order_relaxed ) == 0 ) {
         enrol();
      }
      countBy( made_, 1 );
      countBy( live_, 1 );
   }
   void released() const { countBy( live_, ~std::uint64_t{ 0 } ); }

   // Every type of which an object was ever made, by name.
   static std::vector< Type const * > all();

 private:
   void enrol() const;

   std::string_view name_;
   EntityReflection const * ( *reflection_ )();
   mutable std::atomic< std::uint64_t > live_{ 0 };
   mutable std::atomic< std::uint64_t > made_{ 0 };
   mutable std::atomic< bool > enrolled_{ false };
};

// The qualified name of T as the compiler spells it.
template< class T >
consteval std::string_view
typeName() {
   std::string_view text = kivSignatureOf< T >();
   auto begin = text.find( "T = " ) + 4;
   auto end = text.find_first_of( ";]", begin );
   return text.substr( begin, end - begin );
}

template< class T >
EntityReflection const *
inheritedReflection() {
   return T::kivType().reflection();
}

// The Type of a class that declares no attributes: that of an entity shows those of its base.
template< class T >
inline constinit Type typeInstance{ typeName< T >(), [] {
                                      if constexpr( requires { T::kivType(); } ) {
                                         return &inheritedReflection< T >;
                                      } else {
                                         return nullptr;
                                      }
                                   }() };

} // namespace Kiv
