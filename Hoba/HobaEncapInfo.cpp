// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaEncapInfo.h"

#include "Hoba/HobaAssert.h"

namespace Hoba {

namespace {

class NoWrapper : public EncapWrapper {
   KIV_TYPE( NoWrapper );

 public:
   NoWrapper() : EncapWrapper( Tunnel::TunnelTable::encapNone, 0 ) {}
   bool isEqual( EncapWrapper const & other ) const override {
      return other.encapType() == encapType();
   }
   std::strong_ordering compare( EncapWrapper const & other ) const override {
      return encapType() <=> other.encapType();
   }
   void print( std::string & out ) const override { out += "none"; }
};

constexpr std::string_view otherKind = "the encapsulation is of another kind, or there is none";

} // namespace

EncapWrapper const &
EncapInfo::WrapperPtr::none() {
   static NoWrapper const wrapper;
   return wrapper;
}

template< class Value, Tunnel::TunnelTable::EncapType kind >
void
EncapWrapperOf< Value, kind >::print( std::string & out ) const {
   value_.print( out );
}

template<>
void
MplsWrapper::print( std::string & out ) const {
   out += "MPLS Label Stack: TOP ( ";
   for( auto const label : value_.stack ) {
      out += label == Pelt::entropyLabelIndicator ? "ELI " : Kiv::toText( label ) + ' ';
   }
   out += ") BOTTOM, " + Kiv::toText( value_.operation );
}

Kiv::Ptr< MplsWrapper >
mplsWrapperFactory( Pelt::MplsLabelOperation const & labels ) {
   return Kiv::make< MplsWrapper >( labels );
}
Kiv::Ptr< GreWrapper >
greWrapperFactory( Tunnel::GreTunnelInfo const & greEncap ) {
   return Kiv::make< GreWrapper >( greEncap );
}
Kiv::Ptr< IpSecWrapper >
ipSecWrapperFactory( IpsecTunnelInfo const & ipsecEncap ) {
   return Kiv::make< IpSecWrapper >( ipsecEncap );
}
Kiv::Ptr< VxlanWrapper >
vxlanWrapperFactory( VxlanEncapInfo const & vxlanEncap ) {
   return Kiv::make< VxlanWrapper >( vxlanEncap );
}

Pelt::MplsLabelOperation const &
EncapInfo::labels() const {
   HOBA_INVARIANT( wrapper_->encapType() == Tunnel::TunnelTable::mplsEncap(), otherKind );
   return carried< MplsWrapper >();
}
Tunnel::GreTunnelInfo const &
EncapInfo::greEncap() const {
   HOBA_INVARIANT( wrapper_->encapType() == Tunnel::TunnelTable::greEncap(), otherKind );
   return carried< GreWrapper >();
}
IpsecTunnelInfo const &
EncapInfo::ipsecEncap() const {
   HOBA_INVARIANT( wrapper_->encapType() == Tunnel::TunnelTable::ipSecEncap(), otherKind );
   return carried< IpSecWrapper >();
}
VxlanEncapInfo const &
EncapInfo::vxlanEncap() const {
   HOBA_INVARIANT( wrapper_->encapType() == Tunnel::TunnelTable::vxlanEncap(), otherKind );
   return carried< VxlanWrapper >();
}

template< class Wrapper >
void
EncapInfo::maybeCopyWrapper( typename Wrapper::Carried value ) {
   if( encapType() == Wrapper::encapKind && wrapper_.get()->kivReferences() == 1 ) {
      static_cast< Wrapper & >( *wrapper_.get() ).valueIs( std::move( value ) );
   } else {
      wrapper_ = WrapperPtr( Kiv::make< Wrapper >( value ) );
   }
}

template< class Wrapper >
void
EncapInfo::set( typename Wrapper::Carried const & value ) {
   if( encapType() != Wrapper::encapKind || !( carried< Wrapper >() == value ) ) {
      maybeCopyWrapper< Wrapper >( value );
   }
}

void
EncapInfo::labelsIs( Pelt::MplsLabelOperation const & labels ) {
   set< MplsWrapper >( labels );
}
void
EncapInfo::greEncapIs( Tunnel::GreTunnelInfo const & greEncap ) {
   set< GreWrapper >( greEncap );
}
void
EncapInfo::ipsecEncapIs( IpsecTunnelInfo const & ipsecEncap ) {
   set< IpSecWrapper >( ipsecEncap );
}
void
EncapInfo::vxlanEncapIs( VxlanEncapInfo const & vxlanEncap ) {
   set< VxlanWrapper >( vxlanEncap );
}

EncapInfo
EncapInfo::parse( std::string_view text ) {
   if( text != "none" && !text.empty() ) {
      Kiv::parseFailed( text, "none: an encapsulation is not written as text" );
   }
   return {};
}

} // namespace Hoba
