// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a trace statement expands to. Statements are written with the macros of Zipline/Zipline.h;
// nothing here is for direct use.
//
// A statement splits into what is known when it is compiled and what is not. The first half is its
// Site: constant data, made once by the compiler, that holds the place, the level, the literal
// pieces of the message and for every argument the way to print it. The second half is the record:
//
//    site (8 bytes) | stamp (8) | fixed slots, one an argument | bytes of the text arguments
//
// padded to a multiple of 8. The slot of a text argument is the one byte of its length, so every
// slot has an offset that the compiler knows, and a statement without text arguments is a few
// stores.

#include "Kiv/Text.h"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <string>
#include <string_view>
#include <type_traits>

namespace Zipline {

inline constexpr int levelCount = 10;
inline constexpr std::uint16_t allLevelBits = ( 1u << levelCount ) - 1;
inline constexpr std::uint16_t initialLevelBits = 0b111; // levels 0 to 2

// Values up to this size are copied into the record as they are and printed when it is read.
inline constexpr std::size_t maxRawBytes = 64;

// Longer texts are cut; the last three of the bytes that remain are then "...".
inline constexpr std::size_t maxTextBytes = 255;

// Whether values of T are copied as bytes and printed when the record is read. The print of such a
// type must not follow pointers into things that may be gone by then: specialise this to false for
// a trivially copyable type that does, and its values are printed when they are traced.
template< class T >
inline constexpr bool printsLater = std::is_trivially_copyable_v< T > && sizeof( T ) <= maxRawBytes;

// The trace handle of one source file. Constant-initialised, so that statements work before any
// constructor has run and a disabled statement is one load and one branch.
class Handle {
 public:
   constexpr explicit Handle( char const * name ) : name_( name ) {}
   Handle( Handle const & ) = delete;
   Handle & operator=( Handle const & ) = delete;

   char const * name() const { return name_; }
   // level: 0 to 9.
   bool enabled( int level ) const { return levelBits_ >> level & 1u; }
   std::uint16_t levelBits() const { return levelBits_; }
   // bits: bit n enables level n. Meant for the registry: see Zipline/Control.h.
   void levelBitsIs( std::uint16_t bits ) { levelBits_ = bits & allLevelBits; }

 private:
   char const * name_;
   std::uint16_t levelBits_ = initialLevelBits;
};

// Keeps a handle in the registry for as long as its library is loaded. When the library goes, the
// ring is emptied: its records point at sites that go with it.
class Enrolment {
 public:
   explicit Enrolment( Handle & handle );
   ~Enrolment();
   Enrolment( Enrolment const & ) = delete;
   Enrolment & operator=( Enrolment const & ) = delete;

 private:
   Handle & handle_;
};

namespace Detail {

struct Literal {
   char const * data = nullptr;
   std::uint16_t bytes = 0;
};

using PrintRaw = void ( * )( std::string & out, char const * bytes );

// One piece of a message: a literal, a value of slotBytes bytes, or (neither) a text.
struct Piece {
   char const * literal;
   PrintRaw print;
   std::uint16_t bytes; // of the literal, or of the slot

   constexpr bool isLiteral() const { return literal; }
   constexpr bool isText() const { return !literal && !print; }
};

// The level of a site whose level is only known when it runs; it is then the first slot.
inline constexpr std::uint8_t runTimeLevel = 0xff;

struct Site {
   Handle const * handle;
   char const * file;
   char const * function;
   Piece const * pieces;
   std::uint32_t line;
   std::uint16_t slotBytes; // of all slots together
   std::uint8_t pieceCount;
   std::uint8_t textCount;
   std::uint8_t level;
};

struct RecordHead {
   Site const * site;
   std::uint64_t stamp;
};

// Where the next record goes. A record that ends beyond `limit` takes the way through makeRoom and
// recordWritten; while a sink or a time source is set, limit is such that all do.
struct RingHead {
   char * cursor = nullptr;
   char * limit = nullptr;
   std::uint64_t sequence = 0; // of the next record
};

extern constinit RingHead ringHead;

// Finds room for a record, overwriting old ones if need be, and puts the stamp right if a time
// source is set.
char * makeRoom( std::size_t bytes, std::uint64_t & stamp );
// After the ring head has moved past a record for which makeRoom was called.
void recordWritten( char const * record );

// Monotonic nanoseconds, where the processor has no cheaper counter.
std::uint64_t clockTicks();

inline std::uint64_t
ticks() {
#if defined( __x86_64__ ) || defined( __i386__ )
   return __builtin_ia32_rdtsc();
#else
   return clockTicks();
#endif
}

consteval bool
isLevel( int level ) {
   return level >= 0 && level < levelCount;
}

// A computed level out of range must not lose the trace: it counts as the nearest.
constexpr int
nearestLevel( int level ) {
   return level < 0 ? 0 : level >= levelCount ? levelCount - 1 : level;
}

// The part of a path after its last slash: where the tree was built is nobody's business.
consteval char const *
baseName( char const * path ) {
   char const * base = path;
   for( ; *path; ++path ) {
      if( *path == '/' ) {
         base = path + 1;
      }
   }
   return base;
}

template< class T >
inline constexpr bool isConstCharArray = false;
template< std::size_t n >
inline constexpr bool isConstCharArray< char const ( & )[ n ] > = true;

// Whether an argument is a string literal: only those begin with a quote and are constant arrays.
// Local constant arrays are arrays too, but do not live as long as the record.
template< class T >
consteval bool
isLiteral( char const * spelling ) {
   return isConstCharArray< T > && spelling[ 0 ] == '"';
}

template< class T >
constexpr Literal
literalOf( T const & ) {
   return {};
}

template< std::size_t n >
constexpr Literal
literalOf( char const ( &text )[ n ] ) {
   return { text, n - 1 };
}

// A function's signature without the "virtual" that some compilers put before it.
template< std::size_t n >
constexpr Literal
signatureOf( char const ( &text )[ n ] ) {
   constexpr std::string_view extra = "virtual ";
   bool const has = std::string_view( text, n - 1 ).starts_with( extra );
   return has ? Literal{ text + extra.size(), n - 1 - extra.size() } : literalOf( text );
}

template< class T >
inline constexpr bool isText =
      std::is_convertible_v< T const &, std::string_view > && !Kiv::PrintMember< T >;

template< class T >
void
printRaw( std::string & out, char const * bytes ) {
   struct Bytes {
      unsigned char byte[ sizeof( T ) ];
   } raw;
   std::memcpy( &raw, bytes, sizeof( T ) );
   Kiv::print( out, std::bit_cast< T >( raw ) );
}

template< bool literal, class Ref >
consteval Piece
piece( Literal text ) {
   using T = std::remove_cvref_t< Ref >;
   if constexpr( literal ) {
      return { text.data, nullptr, text.bytes };
   } else if constexpr( isText< T > || !printsLater< T > ) {
      return { nullptr, nullptr, 1 };
   } else {
      return { nullptr, &printRaw< T >, sizeof( T ) };
   }
}

template< std::size_t n >
consteval Site
makeSite( Handle const & handle, char const * file, std::uint32_t line, char const * function,
          std::uint8_t level, Piece const ( &pieces )[ n ] ) {
   Site site{ &handle, file, function, pieces, line, 0, n, 0, level };
   site.slotBytes = level == runTimeLevel ? 1 : 0;
   for( Piece const & each : pieces ) {
      site.slotBytes += each.isLiteral() ? 0 : each.bytes;
      site.textCount += each.isText();
   }
   return site;
}

// The forms in which arguments travel to emit: small values by value, so that statements with
// arguments of the same types share one emit whatever stands between the arguments.
struct Nothing {};

template< class T >
struct RawRef {
   T const * value;
};

template< class T >
struct Eager {
   T const * value;
};

template< bool literal, class T >
[[gnu::always_inline]] inline auto
pass( T const & value ) {
   if constexpr( literal ) {
      return Nothing{};
   } else if constexpr( std::is_pointer_v< T > && isText< T > ) {
      return value ? std::string_view( value ) : std::string_view( "(null)" );
   } else if constexpr( isText< T > ) {
      return std::string_view( value );
   } else if constexpr( !printsLater< T > ) {
      return Eager< T >{ &value };
   } else if constexpr( sizeof( T ) <= 16 && std::is_copy_constructible_v< T > ) {
      return value;
   } else {
      return RawRef< T >{ &value };
   }
}

// Whether a text was cut travels in its length: a cut text ends in the mark.
struct Text {
   char const * data;
   std::uint8_t copied; // bytes of data that are kept
   std::uint8_t bytes;  // length in the record, mark included
};

Text cutText( std::string_view text );

// memcpy, called: knowing that a text is short, g++ would copy it with a `rep movs` in place, whose
// start alone takes longer than all the rest of a statement.
void copyText( char * to, char const * from, std::size_t bytes );

inline Text
textOf( std::string_view text ) {
   if( text.size() > maxTextBytes ) [[unlikely]] {
      return cutText( text );
   }
   auto bytes = static_cast< std::uint8_t >( text.size() );
   return { text.data(), bytes, bytes };
}

// Runs `print`, which appends to out; a failure shows in the text and goes no further.
template< class Print >
void
printGuarded( std::string & out, Print const & print ) {
   try {
      print();
   } catch( std::exception const & failure ) {
      out += "<not printable: ";
      out += failure.what();
      out += '>';
   }
}

template< class T >
T const &
stored( T const & value ) {
   return value;
}

inline Text
stored( std::string_view text ) {
   return textOf( text );
}

template< class T >
std::string
stored( Eager< T > eager ) {
   std::string out;
   printGuarded( out, [ & ] { Kiv::print( out, *eager.value ); } );
   return out;
}

inline Text
asText( Text text ) {
   return text;
}
inline Text
asText( std::string const & text ) {
   return textOf( text );
}

template< class T >
inline constexpr bool isStoredText = std::is_same_v< T, Text > || std::is_same_v< T, std::string >;

template< class T >
inline constexpr std::size_t slotBytes = isStoredText< T > ? 1 : sizeof( T );
template< class T >
inline constexpr std::size_t slotBytes< RawRef< T > > = sizeof( T );

template< class T >
[[gnu::always_inline]] inline void
putSlot( char *& slot, T const & value ) {
   if constexpr( isStoredText< T > ) {
      *slot = static_cast< char >( asText( value ).bytes );
   } else {
      std::memcpy( slot, &value, sizeof( T ) );
   }
   slot += slotBytes< T >;
}

template< class T >
[[gnu::always_inline]] inline void
putSlot( char *& slot, RawRef< T > const & ref ) {
   std::memcpy( slot, ref.value, sizeof( T ) );
   slot += sizeof( T );
}

template< class T >
[[gnu::always_inline]] inline void
putText( char *& tail, T const & value ) {
   if constexpr( isStoredText< T > ) {
      Text text = asText( value );
      copyText( tail, text.data, text.copied );
      if( text.copied != text.bytes ) [[unlikely]] {
         std::memcpy( tail + text.copied, "...", 3 );
      }
      tail += text.bytes;
   }
}

template< class T >
[[gnu::always_inline]] inline std::size_t
textBytes( T const & value ) {
   if constexpr( isStoredText< T > ) {
      return asText( value ).bytes;
   } else {
      return 0;
   }
}

constexpr std::size_t
recordBytes( std::size_t payload ) {
   return ( sizeof( RecordHead ) + payload + 7 ) & ~std::size_t{ 7 };
}

// The arguments must be in their final form here: printing one may itself trace.
template< class... Stored >
[[gnu::always_inline]] inline void
emitStored( Site const & site, Stored const &... values ) {
   constexpr std::size_t slots = ( slotBytes< Stored > + ... + 0 );
   std::size_t const bytes = recordBytes( slots + ( textBytes( values ) + ... + 0 ) );
   std::uint64_t stamp = ticks();
   char * record = ringHead.cursor;
   bool const slow = ringHead.limit - record < static_cast< std::ptrdiff_t >( bytes );
   if( slow ) [[unlikely]] {
      record = makeRoom( bytes, stamp );
   }
   RecordHead const head{ &site, stamp };
   std::memcpy( record, &head, sizeof( head ) );
   [[maybe_unused]] char * slot = record + sizeof( head );
   [[maybe_unused]] char * tail = slot + slots;
   ( putSlot( slot, values ), ... );
   ( putText( tail, values ), ... );
   ringHead.cursor = record + bytes;
   ++ringHead.sequence;
   if( slow ) [[unlikely]] {
      recordWritten( record );
   }
}

// Out of line: a statement costs its file little code, and all with the same types share it.
template< class... Passed >
[[gnu::noinline]] void
emit( Site const & site, Passed... values ) {
   emitStored( site, stored( values )... );
}

// Drops the literals from the arguments: `left` of them have not been looked at yet.
template< int left, class First, class... Rest >
[[gnu::always_inline]] inline void
send( Site const & site, First first, Rest... rest ) {
   if constexpr( left == 0 ) {
      emit( site, first, rest... );
   } else if constexpr( !std::is_same_v< First, Nothing > ) {
      send< left - 1 >( site, rest..., first );
   } else if constexpr( sizeof...( rest ) == 0 ) {
      emit( site );
   } else {
      send< left - 1 >( site, rest... );
   }
}

} // namespace Detail

} // namespace Zipline
