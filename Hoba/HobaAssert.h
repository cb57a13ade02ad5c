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
//    unimplementedHook( "SwitchIntfSm::handleVerify" ), mustBeImplemented( "setHwRate", ... )
//       the base of a hook that a platform had to override: nothing without hardware, else hobaAssert
//
// SIMULATION_VMID set in the environment makes it a simulation; HOBA_NOOP_AGENT says that there is
// no hardware. Both are looked up at each failure.

#include "Kiv/Exception.h"
#include "Kiv/Text.h"

namespace Hoba {

bool isSimulation();
bool isNoopAgent();

void hobaAssert( Kiv::String const & message );

// "Call to unimplemented function <function>"; `function` is class and operation joined by "::".
void unimplementedHook( std::string_view function );

// "Function <operation>() must be implemented<whom>".
void mustBeImplemented( std::string_view operation,
                        std::string_view whom = " by derived class" );

[[noreturn]] void invariantFailed( char const * file, int line, char const * function,
                                   char const * expression, std::string_view explanation );
[[noreturn]] void programAssertFailed( char const * file, int line, char const * function,
                                       char const * expression );

} // namespace Hoba

#define HOBA_INVARIANT( expression, explanation )                                                  \
   ( ( expression ) ? static_cast< void >( 0 )                                                     \
                    : ::Hoba::invariantFailed( __FILE__, __LINE__, __PRETTY_FUNCTION__,            \
                                               #expression, explanation ) )

#define HOBA_PROGRAM_ASSERT( expression )                                                          \
   ( ( expression ) ? static_cast< void >( 0 )                                                     \
                    : ::Hoba::programAssertFailed( __FILE__, __LINE__, __PRETTY_FUNCTION__,        \
                                                   #expression ) )
