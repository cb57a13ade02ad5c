// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a next hop puts around its packets: one of four kinds, or nothing. An EncapInfo is one pointer;
// copies share the wrapper that it points to until one of them is set anew.

#include "Hoba/HobaAdjBasicTypes.h"
#include "Kiv/Ptr.h"

#include <compare>

namespace Hoba {

class EncapWrapper : public Kiv::PtrInterface {
 public:
   using EncapType = Tunnel::TunnelTable::EncapType;

   EncapType encapType() const { return encapType_; }

   // By kind, and then by what is carried.
   virtual bool isEqual( EncapWrapper const & other ) const = 0;
   virtual std::strong_ordering compare( EncapWrapper const & other ) const = 0;
   std::size_t hash() const { return hash_; }
   virtual void print( std::string & out ) const = 0;

 protected:
   EncapWrapper( EncapType encapType, std::size_t hash ) : hash_( hash ), encapType_( encapType ) {}
   void hashIs( std::size_t hash ) { hash_ = hash; }

 private:
   std::size_t hash_; // next hops are hashed far more often than encapsulations are made
   EncapType const encapType_;
};

template< class Value, Tunnel::TunnelTable::EncapType kind >
class EncapWrapperOf : public EncapWrapper {
   KIV_TYPE( EncapWrapperOf );

 public:
   static constexpr auto encapKind = kind;
   using Carried = Value;

   Value const & value() const { return value_; }
   // For who holds it alone.
   void valueIs( Value && value ) {
      value_ = std::move( value );
      hashIs( value_.hash( kind ) );
   }

   bool isEqual( EncapWrapper const & other ) const override {
      return other.encapType() == kind && valueOf( other ) == value_;
   }
   std::strong_ordering compare( EncapWrapper const & other ) const override {
      return other.encapType() == kind ? value_ <=> valueOf( other ) : kind <=> other.encapType();
   }
   void print( std::string & out ) const override;

 private:
   explicit EncapWrapperOf( Value const & value )
         : EncapWrapper( kind, value.hash( kind ) ), value_( value ) {}
   static Value const & valueOf( EncapWrapper const & wrapper ) {
      return static_cast< EncapWrapperOf const & >( wrapper ).value_;
   }

   Value value_;
};

using MplsWrapper = EncapWrapperOf< Pelt::MplsLabelOperation, Tunnel::TunnelTable::encapMpls >;
using GreWrapper = EncapWrapperOf< Tunnel::GreTunnelInfo, Tunnel::TunnelTable::encapGre >;
using IpSecWrapper = EncapWrapperOf< IpsecTunnelInfo, Tunnel::TunnelTable::encapIpSec >;
using VxlanWrapper = EncapWrapperOf< VxlanEncapInfo, Tunnel::TunnelTable::encapVxlan >;

Kiv::Ptr< MplsWrapper > mplsWrapperFactory( Pelt::MplsLabelOperation const & labels );
Kiv::Ptr< GreWrapper > greWrapperFactory( Tunnel::GreTunnelInfo const & greEncap );
Kiv::Ptr< IpSecWrapper > ipSecWrapperFactory( IpsecTunnelInfo const & ipsecEncap );
Kiv::Ptr< VxlanWrapper > vxlanWrapperFactory( VxlanEncapInfo const & vxlanEncap );

class EncapInfo {
 public:
   using EncapType = EncapWrapper::EncapType;

   EncapInfo() = default;
   EncapInfo( Kiv::Ptr< EncapWrapper > const & wrapper ) : wrapper_( wrapper ) {}

   explicit operator bool() const { return wrapper_ != nullptr; }
   // encapNone for none.
   EncapType encapType() const { return wrapper_->encapType(); }

   // What it carries. Throw Kiv::Exception if it is of another kind, or none.
   Pelt::MplsLabelOperation const & labels() const;
   Tunnel::GreTunnelInfo const & greEncap() const;
   IpsecTunnelInfo const & ipsecEncap() const;
   VxlanEncapInfo const & vxlanEncap() const;
   // It is of that kind from now on. Other holders keep what they have.
   void labelsIs( Pelt::MplsLabelOperation const & labels );
   void greEncapIs( Tunnel::GreTunnelInfo const & greEncap );
   void ipsecEncapIs( IpsecTunnelInfo const & ipsecEncap );
   void vxlanEncapIs( VxlanEncapInfo const & vxlanEncap );

   bool operator==( EncapInfo const & other ) const {
      return wrapper_.get() == other.wrapper_.get() || wrapper_->isEqual( *other.wrapper_ );
   }
   std::strong_ordering operator<=>( EncapInfo const & other ) const {
      return wrapper_.get() == other.wrapper_.get() ? std::strong_ordering::equal
                                                    : wrapper_->compare( *other.wrapper_ );
   }
   std::size_t hash() const { return wrapper_ ? wrapper_->hash() : 0; }
   void print( std::string & out ) const { wrapper_->print( out ); }
   // It is not written as text: throws Kiv::ParseError for all but "none".
   static EncapInfo parse( std::string_view text );

 private:
   // Of none, a wrapper that is of no kind answers.
   class WrapperPtr : public Kiv::Ptr< EncapWrapper > {
    public:
      WrapperPtr() = default;
      explicit WrapperPtr( Kiv::Ptr< EncapWrapper > const & ptr ) : Ptr( ptr ) {}
      EncapWrapper const & operator*() const { return get() ? *get() : none(); }
      EncapWrapper const * operator->() const { return &**this; }

    private:
      static EncapWrapper const & none();
   };

   // The wrapper is of that kind, with that value, and nobody else holds it.
   template< class Wrapper >
   void maybeCopyWrapper( typename Wrapper::Carried value );
   template< class Wrapper >
   void set( typename Wrapper::Carried const & value );
   template< class Wrapper >
   typename Wrapper::Carried const & carried() const {
      return static_cast< Wrapper const & >( *wrapper_ ).value();
   }

   WrapperPtr wrapper_;
};

} // namespace Hoba
