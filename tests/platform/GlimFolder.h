// SPDX-License-Identifier: Apache-2.0
#pragma once

// A folder for the tables of one test, gone after it, and the cells that the tests keep in tables.

#include "Helpers.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <unistd.h>
#include <vector>

namespace GlimTests {

class Folder {
 public:
   Folder() {
      std::error_code none;
      bool const memory =
            std::filesystem::is_directory( "/dev/shm", none ) && ::access( "/dev/shm", W_OK ) == 0;
      path = memory ? "/dev/shm" : std::filesystem::temp_directory_path().string();
      path += "/glim-test.XXXXXX";
      if( !::mkdtemp( path.data() ) ) {
         throw std::runtime_error( "no folder " + path );
      }
      ::setenv( "HOBA_GLIM_DIR", path.c_str(), 1 );
   }
   ~Folder() {
      ::unsetenv( "HOBA_GLIM_DIR" );
      std::error_code none;
      std::filesystem::remove_all( path, none );
   }
   Folder( Folder const & ) = delete;
   Folder & operator=( Folder const & ) = delete;

   std::vector< std::string > files() const {
      std::vector< std::string > names;
      for( auto const & entry : std::filesystem::directory_iterator( path ) ) {
         names.push_back( entry.path().filename().string() );
      }
      return names;
   }

   std::string path;
};

inline std::uint64_t
mix( std::uint64_t value ) {
   value = ( value ^ value >> 31 ) * 0x7fb5d329728ea185;
   value = ( value ^ value >> 27 ) * 0x81dadef4bc2dd44d;
   return value ^ value >> 33;
}

// A record that tells whether it is whole: every word follows from the key and the counter.
template< std::size_t words >
struct Cell {
   static_assert( words >= 2 );
   std::array< std::uint64_t, words > word{};

   static Cell of( std::uint64_t key, std::uint64_t counter ) {
      Cell cell;
      cell.word[ 0 ] = counter;
      for( std::size_t i = 1; i != words; ++i ) {
         cell.word[ i ] = mix( ( key << 40 ) + counter + i * 0x9e3779b97f4a7c15 );
      }
      return cell;
   }
   std::uint64_t counter() const { return word[ 0 ]; }
   bool whole( std::uint64_t key ) const { return word == of( key, counter() ).word; }
};

// The rows of a table whose keys and records are numbers, each of them once.
template< class Table >
std::map< std::uint64_t, std::uint64_t >
mapOf( Table & table ) {
   std::map< std::uint64_t, std::uint64_t > map;
   table.forEach( [ & ]( std::uint64_t key, std::uint64_t record ) {
      EXPECT_TRUE( map.emplace( key, record ).second ) << "twice: " << key;
   } );
   return map;
}

using HobaTests::errorOf;

} // namespace GlimTests
