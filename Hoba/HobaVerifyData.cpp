// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaVerifyData.h"

#include "Kiv/Reflect.h"

KIV_DEFINE( Hoba::VerifyRequired );
KIV_DEFINE( Hoba::VerifyData );

namespace Hoba {

Kiv::String
jsonQuoted( std::string_view text ) {
   constexpr std::string_view hex = "0123456789abcdef";
   Kiv::String out = "\"";
   for( unsigned char c : text ) {
      if( c == '"' || c == '\\' ) {
         out += { '\\', static_cast< char >( c ) };
      } else if( c < 0x20 ) {
         out += { '\\', 'u', '0', '0', hex[ c >> 4 ], hex[ c & 15 ] };
      } else {
         out += static_cast< char >( c );
      }
   }
   return out + '"';
}

void
VerifyOutput::print( std::string & out ) const {
   out += " File: " + file + " Function: " + function + " Description: " + description;
}

void
VerifyData::doRequestVerify() {
   if( auto const & required = verifyRequired() ) {
      required->verifyRequiredInc( 1 );
   }
}

void
VerifyData::resetVerifyData() {
   verifyOutputIs( {} );
   cliVerifyOutputDelAll();
   retryVerifyIs( false );
   verifyResultIs( HobaTypes::verifyNotRun );
   verifyDoneIs( false );
   verifyFailuresIs( 0 );
   socketIs( 0 );
}

void
VerifyData::initVerifyData( std::uint32_t socket ) {
   resetVerifyData();
   socketIs( socket );
}

void
VerifyData::updateCliVerifyOutput( Kiv::String const & key, Kiv::String const & value ) {
   if( socket() != 0 ) {
      cliVerifyOutputIs( key, cliVerifyOutput( key ) + "{ " + jsonQuoted( key ) + " : " +
                                    jsonQuoted( value ) + " }," );
   }
}

void
VerifyData::verifyStepFailed( Kiv::String const & item ) {
   Kiv::Dispatch::failed( "verification of " + item );
   updateCliVerifyOutput( item, "could not be verified: " + Kiv::exceptionText() );
}

Kiv::String
VerifyData::cliReplyItems() const {
   Kiv::String items;
   for( auto const & [ key, text ] : cliVerifyOutput() ) {
      items += text;
   }
   if( !items.empty() ) {
      items.pop_back();
   }
   return items;
}

} // namespace Hoba
