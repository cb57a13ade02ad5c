// SPDX-License-Identifier: Apache-2.0
#include "Mlag/Mlag.h"
#include "agent/features/Feature.h"
#include "agent/feeders/MlagFeeder.h"
#include "agent/import/Tables.h"

// LAGs that two switches share. What the agent of MLAG knows an operator says here.

namespace HobaAgent {

using Kiv::String;

class MlagFeature : public Feature {
 public:
   explicit MlagFeature( Board & board ) : Feature( board, "MLAG" ) {
      board.offer( status_ );
      board.offer( hostTable_ );
   }

   void mounts() override {
      mount( "/mlag/status", status_, Tessera::Access::configuration );
      mount( "/mlag/hostTable", hostTable_, Tessera::Access::configuration );
   }
   void importers( Import::Tables & tables ) override;
   void start() override {
      feeder_.is( Feeders::MlagFeeder::MlagFeederIs( context(), status_ ) );
      feeder_->initializedIs( true );
   }

 private:
   Kiv::Ptr< Mlag::Status > const status_ = Kiv::make< Mlag::Status >( "status" );
   Kiv::Ptr< Mlag::HostTable > const hostTable_ = Kiv::make< Mlag::HostTable >( "hostTable" );
   Machine< Feeders::MlagFeeder > feeder_{ *this, "mlagFeeder" };
};

// ---- Imported configurations

namespace {

using StatusPtr = Kiv::Ptr< Mlag::Status >;

constexpr std::uint64_t maxDomain = 4095;
constexpr std::string_view interfaceForm = "<domain>|PortChannel<n>";

std::uint16_t
domainNamed( std::string_view text ) {
   return static_cast< std::uint16_t >( Kiv::parseInteger( text, std::uint64_t( 1 ), maxDomain ) );
}

String
interfaceText( Mlag::Status const & mlag, Pelt::IntfId lag ) {
   return Kiv::toText( mlag.domain() ) + '|' + Kiv::toText( lag );
}

void
mapDomain( Import::Row & row, StatusPtr const & mlag ) {
   auto const domain = domainNamed( row.key().text() );
   row.identityIs( Kiv::toText( domain ) );
   if( mlag->domain() && mlag->domain() != domain ) {
      throw Kiv::ParseError( "domain " + Kiv::toText( mlag->domain() ) +
                             " is there, and a switch is in one" );
   }
   auto peerLink = mlag->peerLinkIntf();
   if( auto const name = row.text( "peer_link" ) ) {
      peerLink = Kiv::inPlace( "peer_link", [ & ] {
         return row.existing< Pelt::IntfId >( *name, { "PORT", "PORTCHANNEL" } );
      } );
      if( mlag->mlagIntfHas( peerLink ) ) {
         throw Kiv::ParseError( "peer_link: " + Kiv::toText( peerLink ) + " is a shared LAG" );
      }
   }
   if( !peerLink ) {
      row.remark( "no peer_link; there is none" );
   }
   row.operationIs( "MLAG, peer link " + ( peerLink ? Kiv::toText( peerLink ) : "none" ),
                    [ mlag, domain, peerLink ] {
                       mlag->domainIs( domain );
                       mlag->peerLinkIntfIs( peerLink );
                       mlag->stateIs( Mlag::mlagActive );
                    } );
}

void
mapInterface( Import::Row & row, StatusPtr const & mlag ) {
   auto const [ domainName, lagName ] = row.key().parts( interfaceForm );
   row.existing< std::uint16_t >( domainName, { "MCLAG_DOMAIN" } );
   Pelt::IntfId const lag = row.existing< Pelt::PortChannelIntfId >( lagName, { "PORTCHANNEL" } );
   row.identityIs( Kiv::toText( lag ) );
   row.oneOf< bool >( "if_type", { { "PortChannel", true } } );
   if( lag == mlag->peerLinkIntf() ) {
      throw Kiv::ParseError( Kiv::toText( lag ) + " is the link to the peer" );
   }
   row.operationIs( "shared LAG " + Kiv::toText( lag ), [ mlag, lag ] {
      if( !mlag->mlagIntfHas( lag ) ) {
         mlag->mlagIntfIs( lag, Mlag::mlagIntfActiveFull );
      }
   } );
}

void
delDomain( Import::Row & row, StatusPtr const & mlag ) {
   row.operationIs( "MLAG", [ mlag ] {
      mlag->stateIs( Mlag::mlagDisabled );
      mlag->peerLinkIntfIs( Pelt::IntfId() );
      mlag->domainIs( 0 );
   } );
}

void
delInterface( Import::Row & row, StatusPtr const & mlag ) {
   auto const lag = Pelt::PortChannelIntfId::parse( row.key().parts( interfaceForm )[ 1 ] );
   row.operationIs( "shared LAG " + Kiv::toText( lag ),
                    [ mlag, lag ] { mlag->mlagIntfDel( lag ); } );
}

} // namespace

void
MlagFeature::importers( Import::Tables & tables ) {
   auto const mlag = status_;
   auto const ofPeerLink = [ mlag ]( Import::Key const & key ) -> String {
      return key.id< Pelt::IntfId >() == mlag->peerLinkIntf() ? Kiv::toText( mlag->domain() ) : "";
   };
   tables.add( { .name = "MCLAG_DOMAIN",
                 .refersTo = { { "PORT", ofPeerLink }, { "PORTCHANNEL", ofPeerLink } },
                 .has =
                       [ mlag ]( Import::Key const & key ) {
                          return domainNamed( key.text() ) == mlag->domain();
                       },
                 .map = [ mlag ]( Import::Row & row ) { mapDomain( row, mlag ); },
                 .del = [ mlag ]( Import::Row & row ) { delDomain( row, mlag ); } } );
   auto const ofDomain = [ mlag ]( Import::Key const & ) -> String {
      return mlag->mlagIntf().empty() ? ""
                                      : interfaceText( *mlag, ( *mlag->mlagIntf().begin() ).key );
   };
   auto const ofLag = [ mlag ]( Import::Key const & key ) -> String {
      auto const lag = key.id< Pelt::IntfId >();
      return mlag->mlagIntfHas( lag ) ? interfaceText( *mlag, lag ) : "";
   };
   tables.add( { .name = "MCLAG_INTERFACE",
                 .refersTo = { { "MCLAG_DOMAIN", ofDomain }, { "PORTCHANNEL", ofLag } },
                 .has =
                       [ mlag ]( Import::Key const & key ) {
                          auto const [ domain, lag ] = key.parts( interfaceForm );
                          return domainNamed( domain ) == mlag->domain() &&
                                 mlag->mlagIntfHas( Pelt::PortChannelIntfId::parse( lag ) );
                       },
                 .map = [ mlag ]( Import::Row & row ) { mapInterface( row, mlag ); },
                 .del = [ mlag ]( Import::Row & row ) { delInterface( row, mlag ); } } );
}

HOBA_FEATURE( MlagFeature );

} // namespace HobaAgent
