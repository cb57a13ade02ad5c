// SPDX-License-Identifier: Apache-2.0
#pragma once

// What tests of several folders have in common: a folder for files, and questions to texts.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace HobaTests {

// A folder for one test, gone after it.
class Folder {
 public:
   Folder() {
      if( !::mkdtemp( path.data() ) ) {
         throw std::runtime_error( "no folder " + path );
      }
   }
   ~Folder() { std::filesystem::remove_all( path ); }
   Folder( Folder const & ) = delete;
   Folder & operator=( Folder const & ) = delete;

   // Makes a file, or makes it anew. Returns its path.
   std::string file( std::string const & name, std::string_view content ) const {
      auto at = path + '/' + name;
      std::ofstream( at, std::ios::binary ) << content;
      return at;
   }

   std::string path = std::filesystem::temp_directory_path() / "hoba-test-XXXXXX";
};

// The parts stand in the text, one behind the other.
inline void
expectIn( std::string_view text, std::initializer_list< std::string_view > parts ) {
   std::size_t at = 0;
   for( auto const part : parts ) {
      auto const found = text.find( part, at );
      EXPECT_NE( found, text.npos ) << "expected: " << part << "\nin: " << text;
      at = found == text.npos ? at : found + part.size();
   }
}
inline void
expectIn( std::string_view text, std::string_view part ) {
   expectIn( text, { part } );
}

// The words of a line, with single spaces.
inline std::string
squeezed( std::string const & line ) {
   std::istringstream in( line );
   std::string text;
   for( std::string word; in >> word; ) {
      text += ( text.empty() ? "" : " " ) + word;
   }
   return text;
}

// Calls `use`, and returns the text of what it threw; empty if it threw nothing.
template< class Error, class Use >
std::string
errorOf( Use && use ) {
   try {
      use();
   } catch( Error const & error ) {
      return error.what();
   }
   return {};
}

} // namespace HobaTests
