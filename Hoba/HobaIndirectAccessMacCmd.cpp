// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaIndirectAccessMacCmd.h"

#include "Kiv/Text.h"

namespace Hoba {

MacEntryKey
MacEntryKey::parse( std::string_view text ) {
   constexpr std::string_view before = "Value('Hoba::MacEntryKey', ** {'key': ",
                              between = ", 'macHwType': ", behind = "})";
   if( !text.starts_with( before ) ) {
      return { Kiv::fromText< Bridging::MacVlanPair >( text ), macHwKeyBridge };
   }
   auto const at = text.find( between );
   if( at == text.npos || !text.ends_with( behind ) ) {
      Kiv::parseFailed( text, "a key of a MAC entry" );
   }
   auto const pair = text.substr( before.size(), at - before.size() );
   text.remove_prefix( at + between.size() );
   text.remove_suffix( std::min( text.size(), behind.size() ) );
   return { Kiv::fromText< Bridging::MacVlanPair >( pair ), Kiv::fromText< MacHwType >( text ) };
}

void
IndirectAccessMacCmd::print( Kiv::String & out ) const {
   Kiv::print( out, op_ );
   if( addrOp() || key_.key.vlanId().value() ) {
      out += ' ';
      Kiv::print( out, key_.key );
   }
   if( intf_ ) {
      out += ' ' + Kiv::toText( intf_ );
   }
   out += ", transaction " + Kiv::toText( transactionId_ ) + ", ";
   out += valid_ ? "" : "superseded, ";
   Kiv::print( out, place_ );
}

Kiv::Ptr< IndirectAccessMacCmd >
indirectAccessMacCmdFactory( IndirectAccessMacCmdType addrOp, MacEntryKey const & key,
                             Pelt::IntfId intf, Bridging::EntryType entryType,
                             std::int64_t groupIndex, std::uint64_t hwId, std::int64_t tblIndex ) {
   return Kiv::make< IndirectAccessMacCmd >( addrOp, key, intf, entryType, groupIndex, hwId,
                                             tblIndex );
}

} // namespace Hoba
