// SPDX-License-Identifier: Apache-2.0
#pragma once

// Fast binary tracing: the statements. This header is for every .cpp file; levels are set with
// Zipline/Control.h, and records are read with Zipline/Reader.h.
//
//    ZIPLINE_HANDLE( HobaCommon );       once in a .cpp file, at namespace scope, named after it
//
//    ZTRACE( 9, "Added event to queue with index ", index );
//    ZTRACE_AT( level, "taken from ", name );      the level is only known at run time
//    ZTRACE_ENTRY( 8 );                            the full signature of the enclosing function
//
// Levels are 0 to 9. Of a new handle 0 to 2 are enabled. A level outside that range does not
// compile in ZTRACE and ZTRACE_ENTRY, and counts as the nearest in ZTRACE_AT.
//
// A statement takes 1 to 32 pieces. Unless its level is enabled none of them is evaluated.
//    string literals       cost nothing: they are kept with the statement
//    std::string, std::string_view, char const *
//                          copied; more than 255 bytes are cut and end in "..."; null prints (null)
//    numbers, bool, enumerations, and trivially copyable values of up to 64 bytes that Kiv::print
//    can print             copied as bytes and printed when somebody reads (see printsLater)
//    all else that Kiv::print can print
//                          printed at once and copied as text
// A piece whose print fails shows as "<not printable: ...>": tracing throws only what evaluating
// the pieces, or a sink, throws.
//
// Statements are for one thread, that of the event loop. They belong in .cpp files: in a header
// each file that includes it would trace with its own handle.

#include "Zipline/Statement.h"

#define ZIPLINE_HANDLE( name )                                                                     \
   static constinit ::Zipline::Handle ziplineHandle( #name );                                      \
   static ::Zipline::Enrolment const ziplineEnrolment( ziplineHandle )

#define ZTRACE( level, ... )                                                                       \
   do {                                                                                            \
      static_assert( ::Zipline::Detail::isLevel( level ),                                          \
                     "a trace level is a constant from 0 to 9" );                                  \
      if( ziplineHandle.enabled( level ) ) [[unlikely]] {                                          \
         ZIPLINE_SITE( level, __VA_ARGS__ );                                                       \
         ::Zipline::Detail::send< ZIPLINE_COUNT( __VA_ARGS__ ) >(                                  \
               ziplineSite, ZIPLINE_MAP( ZIPLINE_PASS, __VA_ARGS__ ) );                            \
      }                                                                                            \
   } while( false )

#define ZTRACE_AT( level, ... )                                                                    \
   do {                                                                                            \
      int const ziplineLevel = ::Zipline::Detail::nearestLevel( level );                           \
      if( ziplineHandle.enabled( ziplineLevel ) ) [[unlikely]] {                                   \
         ZIPLINE_SITE( ::Zipline::Detail::runTimeLevel, __VA_ARGS__ );                             \
         ::Zipline::Detail::send< ZIPLINE_COUNT( __VA_ARGS__ ) + 1 >(                              \
               ziplineSite, static_cast< std::uint8_t >( ziplineLevel ),                           \
               ZIPLINE_MAP( ZIPLINE_PASS, __VA_ARGS__ ) );                                         \
      }                                                                                            \
   } while( false )

#define ZTRACE_ENTRY( level )                                                                      \
   do {                                                                                            \
      static_assert( ::Zipline::Detail::isLevel( level ),                                          \
                     "a trace level is a constant from 0 to 9" );                                  \
      if( ziplineHandle.enabled( level ) ) [[unlikely]] {                                          \
         static constexpr ::Zipline::Detail::Piece ziplinePieces[] = {                             \
               ::Zipline::Detail::piece< true, char const * >(                                     \
                     ::Zipline::Detail::signatureOf( __PRETTY_FUNCTION__ ) ) };                    \
         ZIPLINE_SITE_OF( level );                                                                 \
         ::Zipline::Detail::emit( ziplineSite );                                                   \
      }                                                                                            \
   } while( false )

// The constant half of a statement.
#define ZIPLINE_SITE( level, ... )                                                                 \
   static constexpr ::Zipline::Detail::Piece ziplinePieces[] = {                                   \
         ZIPLINE_MAP( ZIPLINE_PIECE, __VA_ARGS__ ) };                                              \
   ZIPLINE_SITE_OF( level )

#define ZIPLINE_SITE_OF( level )                                                                   \
   static constexpr ::Zipline::Detail::Site ziplineSite =                                          \
         ::Zipline::Detail::makeSite( ziplineHandle, ::Zipline::Detail::baseName( __FILE__ ),      \
                                      __LINE__, __func__, level, ziplinePieces )

#define ZIPLINE_IS_LITERAL( x ) ::Zipline::Detail::isLiteral< decltype( ( x ) ) >( #x )

// Only a literal is evaluated here; any other piece is merely named in a branch not taken.
#define ZIPLINE_PIECE( x )                                                                         \
   ::Zipline::Detail::piece< ZIPLINE_IS_LITERAL( x ), decltype( ( x ) ) >(                         \
         ZIPLINE_IS_LITERAL( x ) ? ::Zipline::Detail::literalOf( x )                               \
                                 : ::Zipline::Detail::Literal{} )

#define ZIPLINE_PASS( x ) ::Zipline::Detail::pass< ZIPLINE_IS_LITERAL( x ) >( x )

// ZIPLINE_MAP( m, a, b ) is m( a ), m( b ). Counted rather than recursive: it is expanded for every
// statement of the program.
// clang-format off
#define ZIPLINE_COUNT( ... ) ZIPLINE_PICK( __VA_ARGS__, \
   32, 31, 30, 29, 28, 27, 26, 25, 24, 23, 22, 21, 20, 19, 18, 17, 16, \
   15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0 )
#define ZIPLINE_PICK( p1, p2, p3, p4, p5, p6, p7, p8, p9, p10, p11, p12, p13, p14, p15, p16, \
   p17, p18, p19, p20, p21, p22, p23, p24, p25, p26, p27, p28, p29, p30, p31, p32, n, ... ) n
#define ZIPLINE_MAP( m, ... ) ZIPLINE_MAP_N( ZIPLINE_COUNT( __VA_ARGS__ ), m, __VA_ARGS__ )
#define ZIPLINE_MAP_N( n, m, ... ) ZIPLINE_MAP_JOIN( n, m, __VA_ARGS__ )
#define ZIPLINE_MAP_JOIN( n, m, ... ) ZIPLINE_MAP_##n( m, __VA_ARGS__ )
#define ZIPLINE_MAP_1( m, x ) m( x )
#define ZIPLINE_MAP_2( m, x, ... ) m( x ), ZIPLINE_MAP_1( m, __VA_ARGS__ )
#define ZIPLINE_MAP_3( m, x, ... ) m( x ), ZIPLINE_MAP_2( m, __VA_ARGS__ )
#define ZIPLINE_MAP_4( m, x, ... ) m( x ), ZIPLINE_MAP_3( m, __VA_ARGS__ )
#define ZIPLINE_MAP_5( m, x, ... ) m( x ), ZIPLINE_MAP_4( m, __VA_ARGS__ )
#define ZIPLINE_MAP_6( m, x, ... ) m( x ), ZIPLINE_MAP_5( m, __VA_ARGS__ )
#define ZIPLINE_MAP_7( m, x, ... ) m( x ), ZIPLINE_MAP_6( m, __VA_ARGS__ )
#define ZIPLINE_MAP_8( m, x, ... ) m( x ), ZIPLINE_MAP_7( m, __VA_ARGS__ )
#define ZIPLINE_MAP_9( m, x, ... ) m( x ), ZIPLINE_MAP_8( m, __VA_ARGS__ )
#define ZIPLINE_MAP_10( m, x, ... ) m( x ), ZIPLINE_MAP_9( m, __VA_ARGS__ )
#define ZIPLINE_MAP_11( m, x, ... ) m( x ), ZIPLINE_MAP_10( m, __VA_ARGS__ )
#define ZIPLINE_MAP_12( m, x, ... ) m( x ), ZIPLINE_MAP_11( m, __VA_ARGS__ )
#define ZIPLINE_MAP_13( m, x, ... ) m( x ), ZIPLINE_MAP_12( m, __VA_ARGS__ )
#define ZIPLINE_MAP_14( m, x, ... ) m( x ), ZIPLINE_MAP_13( m, __VA_ARGS__ )
#define ZIPLINE_MAP_15( m, x, ... ) m( x ), ZIPLINE_MAP_14( m, __VA_ARGS__ )
#define ZIPLINE_MAP_16( m, x, ... ) m( x ), ZIPLINE_MAP_15( m, __VA_ARGS__ )
#define ZIPLINE_MAP_17( m, x, ... ) m( x ), ZIPLINE_MAP_16( m, __VA_ARGS__ )
#define ZIPLINE_MAP_18( m, x, ... ) m( x ), ZIPLINE_MAP_17( m, __VA_ARGS__ )
#define ZIPLINE_MAP_19( m, x, ... ) m( x ), ZIPLINE_MAP_18( m, __VA_ARGS__ )
#define ZIPLINE_MAP_20( m, x, ... ) m( x ), ZIPLINE_MAP_19( m, __VA_ARGS__ )
#define ZIPLINE_MAP_21( m, x, ... ) m( x ), ZIPLINE_MAP_20( m, __VA_ARGS__ )
#define ZIPLINE_MAP_22( m, x, ... ) m( x ), ZIPLINE_MAP_21( m, __VA_ARGS__ )
#define ZIPLINE_MAP_23( m, x, ... ) m( x ), ZIPLINE_MAP_22( m, __VA_ARGS__ )
#define ZIPLINE_MAP_24( m, x, ... ) m( x ), ZIPLINE_MAP_23( m, __VA_ARGS__ )
#define ZIPLINE_MAP_25( m, x, ... ) m( x ), ZIPLINE_MAP_24( m, __VA_ARGS__ )
#define ZIPLINE_MAP_26( m, x, ... ) m( x ), ZIPLINE_MAP_25( m, __VA_ARGS__ )
#define ZIPLINE_MAP_27( m, x, ... ) m( x ), ZIPLINE_MAP_26( m, __VA_ARGS__ )
#define ZIPLINE_MAP_28( m, x, ... ) m( x ), ZIPLINE_MAP_27( m, __VA_ARGS__ )
#define ZIPLINE_MAP_29( m, x, ... ) m( x ), ZIPLINE_MAP_28( m, __VA_ARGS__ )
#define ZIPLINE_MAP_30( m, x, ... ) m( x ), ZIPLINE_MAP_29( m, __VA_ARGS__ )
#define ZIPLINE_MAP_31( m, x, ... ) m( x ), ZIPLINE_MAP_30( m, __VA_ARGS__ )
#define ZIPLINE_MAP_32( m, x, ... ) m( x ), ZIPLINE_MAP_31( m, __VA_ARGS__ )
// clang-format on
