// SPDX-License-Identifier: Apache-2.0
#pragma once

// Tables of numbers, which are shared or of this process alone: every rule holds for both.

#include "Glim/Table.h"
#include "platform/GlimFolder.h"

#include <memory>

namespace GlimTests {

using Writer = Glim::TableWriter< std::uint64_t, std::uint64_t >;
using Reader = Glim::TableReader< std::uint64_t, std::uint64_t >;
using Map = std::map< std::uint64_t, std::uint64_t >;
using Keys = std::vector< std::uint64_t >;

class TableTest : public testing::TestWithParam< bool > {
 protected:
   // Private tables that stay do so as long as the process.
   ~TableTest() override { Glim::PrivateTables::writerDel( "t", true ); }

   Glim::WriterOptions as( Glim::WriterOptions options = {} ) const {
      options.privateMemory = GetParam();
      return options;
   }
   Glim::ReaderOptions reading() const { return { .reader = "test", .privateMemory = GetParam() }; }
   // Of "t", attached, and told that it begins.
   std::unique_ptr< Reader > reader() const {
      auto made = std::make_unique< Reader >( "t", reading() );
      EXPECT_TRUE( made->attach() );
      EXPECT_EQ( made->poll( []( std::uint64_t ) {} ), Glim::Poll::resynchronise );
      return made;
   }

   Folder folder;
};

inline std::string
memoryName( testing::TestParamInfo< bool > const & with ) {
   return with.param ? "private" : "shared";
}

} // namespace GlimTests
