// SPDX-License-Identifier: Apache-2.0
#include "Hoba/HobaAssert.h"

#include <cstdio>
#include <cstdlib>

namespace Hoba {

namespace {

// Messages name files as they stand in the source tree, wherever it was built.
std::string_view
sourcePath( std::string_view file ) {
   auto slash = file.rfind( '/' );
   auto folder = slash == std::string_view::npos ? slash : file.rfind( '/', slash - 1 );
   return folder == std::string_view::npos ? file : file.substr( folder + 1 );
}

// Some compilers put "virtual" before the signature of a virtual function.
std::string_view
signature( std::string_view function ) {
   constexpr std::string_view extra = "virtual ";
   return function.starts_with( extra ) ? function.substr( extra.size() ) : function;
}

} // namespace

bool
isSimulation() {
   return std::getenv( "SIMULATION_VMID" ) != nullptr;
}

bool
isNoopAgent() {
   return std::getenv( "HOBA_NOOP_AGENT" ) != nullptr;
}

void
hobaAssert( Kiv::String const & message ) {
   if( isSimulation() ) {
      return;
   }
   std::fprintf( stderr, "%s\n", message.c_str() );
   std::fflush( stderr );
   programAssertFailed( __FILE__, __LINE__, __PRETTY_FUNCTION__, "0" );
}

void
unimplementedHook( std::string_view operation, HookText const & text ) {
   if( !isNoopAgent() ) {
      Kiv::String message( text.before );
      message += text.name.empty() ? operation : text.name;
      message += text.after;
      hobaAssert( message );
   }
}

void
invariantFailed( char const * file, int line, char const * function, char const * expression,
                 std::string_view explanation ) {
   Kiv::String text( sourcePath( file ) );
   text += ':' + std::to_string( line ) + ' ';
   text += signature( function );
   text += Kiv::String( " -- assertion failed(" ) + expression + "): ";
   text += explanation;
   throw Kiv::Exception( text );
}

void
programAssertFailed( char const * file, int line, char const * function,
                     char const * expression ) {
   Kiv::String path( sourcePath( file ) );
   std::fprintf( stderr, "%s:%d: %s: Assertion `%s' failed.\n", path.c_str(), line, function,
                 expression );
   std::fflush( stderr );
   std::abort();
}

} // namespace Hoba
