// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the library does when something must not be.
//
//    HOBA_INVARIANT( ready(), "We do not expect ready flag to revert to false." )
//       throws Kiv::Exception with the place, the function, the expression and the explanation
//    HOBA_PROGRAM_ASSERT( isVlan( intfId ) )
//       stops the process: the caller broke the contract of the function
//    hobaAssert( message )
//       stops the process with `message` on standard error, but not in a simulation
//    HOBA_REQUIRED( void, setHwRate, ( Pelt::IntfId intf, std::uint32_t kbps ), mustBeImplemented );
//       declares a hook that a platform must override; the base, if called, does nothing without
//       hardware, and else hobaAssert with a text that may be given, as a HookText
//
// SIMULATION_VMID set in the environment makes it a simulation; HOBA_NOOP_AGENT says that there is
// no hardware. Both are looked up at each failure.

#include "Kiv/Exception.h"
#include "Kiv/Text.h"

namespace Hoba {

bool isSimulation();
bool isNoopAgent();

void hobaAssert( Kiv::String const & message );

// What is said of a call to a hook that nobody implements.
struct HookText {
   std::string_view before = "Call to unimplemented function ";
   std::string_view name = {}; // where it is not the operation's own, as "EventQueueSm::hwInit"
   std::string_view after = {};
};
inline constexpr HookText mustBeImplemented{ .before = "Function ",
                                             .after = "() must be implemented by derived class" };

// What such a call does.
void unimplementedHook( std::string_view operation, HookText const & text = {} );

[[noreturn]] void invariantFailed( char const * file, int line, char const * function,
                                   char const * expression, std::string_view explanation );
[[noreturn]] void programAssertFailed( char const * file, int line, char const * function,
                                       char const * expression );

} // namespace Hoba

#define HOBA_INVARIANT( expression, explanation )                                                  \
   ( ( expression ) ? static_cast< void >( 0 )                                                     \
                    : ::Hoba::invariantFailed( __FILE__, __LINE__, __PRETTY_FUNCTION__,            \
                                               #expression, explanation ) )

// The parameters have names, for who overrides it, which the base has no use for.
#define HOBA_REQUIRED( Result, operation, parameters, ... )                                        \
   _Pragma( "GCC diagnostic push" ) _Pragma(                                                       \
         "GCC diagnostic ignored \"-Wunused-parameter\"" ) virtual Result operation parameters {   \
      ::Hoba::unimplementedHook( #operation, ::Hoba::HookText{ __VA_ARGS__ } );                    \
      return Result();                                                                             \
   }                                                                                               \
   _Pragma( "GCC diagnostic pop" ) static_assert( true )

#define HOBA_PROGRAM_ASSERT( expression )                                                          \
   ( ( expression )                                                                                \
           ? static_cast< void >( 0 )                                                              \
           : ::Hoba::programAssertFailed( __FILE__, __LINE__, __PRETTY_FUNCTION__, #expression ) )
