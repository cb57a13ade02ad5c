// SPDX-License-Identifier: Apache-2.0
#include "Refusal.h"
#include "Tessera/Error.h"
#include "Tessera/Path.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace {

using Kiv::String;
using Tessera::Path;

String
parseError( String const & text ) {
   return Refusals::refusal< Tessera::Error >( [ & ] { Path::parse( text ); } );
}

TEST( TesseraPath, printsWhatItParses ) {
   struct Row {
      char const * text;
      std::vector< String > components;
      char const * printed = nullptr; // null: as `text`
   };
   Row const rows[] = {
         { "/", {} },
         { "/a/b", { "a", "b" } },
         { "/a/b/", { "a", "b" }, "/a/b" },
         { "/a[Ethernet1/2/3]/b", { "a", "Ethernet1/2/3", "b" } },
         { "/a/Ethernet1%2F2/b", { "a", "Ethernet1/2", "b" }, "/a[Ethernet1/2]/b" },
         { "/a[192.0.2.0/24][x]", { "a", "192.0.2.0/24", "x" }, "/a[192.0.2.0/24]/x" },
         { "/a/[b/c]", { "a", "b/c" }, "/a[b/c]" },
         { "/[b/c]/d", { "b/c", "d" } },
         { "/a[]", { "a", "" } },
         { "/a[[x%5D]", { "a", "[x]" } },
         { "/a/00:00:5e:00:53:01", { "a", "00:00:5e:00:53:01" } },
         { "/100%25/a b%0A", { "100%", "a b\n" } },
         // What is no UTF-8, a byte by itself, longer than need be, a half or beyond the last.
         { "/\xff/%e4%C3%A4", { "\xff", "\xe4\xc3\xa4" }, "/%FF/%E4\xc3\xa4" },
         { "/%C0%AF%ED%A0%80", { "\xc0\xaf\xed\xa0\x80" } },
         { "/%F4%90%80%80%E2%82", { "\xf4\x90\x80\x80\xe2\x82" } },
         { "/\xe2\x82\xac\xf0\x9f\x99\x82", { "\xe2\x82\xac\xf0\x9f\x99\x82" } },
   };
   for( auto const & [ text, components, printed ] : rows ) {
      auto path = Path::parse( text );
      ASSERT_EQ( path.size(), components.size() ) << text;
      for( std::size_t i = 0; i != path.size(); ++i ) {
         EXPECT_EQ( path[ i ], components[ i ] ) << text;
      }
      EXPECT_EQ( path.text(), printed ? printed : text );
      EXPECT_EQ( Path::parse( path.text() ), path ) << text;
   }
}

TEST( TesseraPath, refusesWhatIsNone ) {
   String deep;
   for( int i = 0; i != 65; ++i ) {
      deep += "/x";
   }
   std::pair< String, char const * > const rows[] = {
         { "", "path \"\": a path begins with \"/\"" },
         { "a/b", "path \"a/b\": a path begins with \"/\", at character 1" },
         { "/a//b", "path \"/a//b\": a component is empty, at character 4" },
         { "/a[b", "path \"/a[b\": a bracket is not closed, at character 5" },
         { "/a[b]c",
           "path \"/a[b]c\": a slash, a bracket or the end belongs here, at character 6" },
         { "\n\xff", "path \"%0A%FF\": a path begins with \"/\", at character 1" },
         { "/%", "two hexadecimal digits" },
         { "/%4", "two hexadecimal digits" },
         { "/%zz", "two hexadecimal digits" },
         { "/a%+1", "two hexadecimal digits" },
         { "/" + String( 5000, 'x' ), "longer than 4096" },
         { deep, "deeper than 64" },
   };
   for( auto const & [ text, error ] : rows ) {
      auto const told = parseError( text );
      EXPECT_TRUE( told == error || ( *error != 'p' && told.find( error ) != told.npos ) ) << told;
   }
}

} // namespace
