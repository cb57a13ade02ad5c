// SPDX-License-Identifier: Apache-2.0
#include "Zipline/Reader.h"

#include "Zipline/Ring.h"

#include <algorithm>
#include <cmath>

namespace Zipline {

namespace Detail {

void
Decoded::recordIs( Ring const & ring, Place const & place ) {
   char const * record = ring.recordAt( place );
   bytes_.assign( record, sizeOf( record ) );
   sequence_ = place.sequence;
   time_ = ring.timeOf( place );
   message_.clear();
   printMessage( message_, bytes_.data() );
}

Record
Decoded::record() const {
   Site const & site = siteOf( bytes_.data() );
   return { sequence_, time_,     site.handle->name(), levelOf( bytes_.data() ),
            site.file, site.line, site.function,       message_ };
}

namespace {

void
printPadded( std::string & out, std::int64_t value, std::size_t width ) {
   std::string const digits = std::to_string( value );
   out.append( width - std::min( width, digits.size() ), '0' );
   out += digits;
}

// The civil date of a day counted from 1970-01-01, in years that begin in March so that the leap
// day is the last.
void
printDate( std::string & out, std::int64_t days ) {
   std::int64_t const shifted = days + 719'468; // from 0000-03-01
   std::int64_t const era = shifted / 146'097;
   std::int64_t const dayOfEra = shifted % 146'097;
   std::int64_t const yearOfEra =
         ( dayOfEra - dayOfEra / 1'460 + dayOfEra / 36'524 - dayOfEra / 146'096 ) / 365;
   std::int64_t const dayOfYear = dayOfEra - ( 365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100 );
   std::int64_t const marchMonth = ( 5 * dayOfYear + 2 ) / 153;
   std::int64_t const month = marchMonth < 10 ? marchMonth + 3 : marchMonth - 9;
   printPadded( out, era * 400 + yearOfEra + ( month <= 2 ? 1 : 0 ), 4 );
   out += '-';
   printPadded( out, month, 2 );
   out += '-';
   printPadded( out, dayOfYear - ( 153 * marchMonth + 2 ) / 5 + 1, 2 );
}

void
printTime( std::string & out, Kiv::Seconds time ) {
   // A time source may count from anywhere; what has no date of four-digit years is shown as the
   // nearest that has.
   constexpr Kiv::Seconds lastTime = 253'402'300'799.0;
   Kiv::Seconds const bounded = time > 0 ? std::min( time, lastTime ) : 0;
   std::int64_t const micros = std::llround( bounded * 1e6 );
   std::int64_t const seconds = micros / 1'000'000;
   printDate( out, seconds / 86'400 );
   out += ' ';
   printPadded( out, seconds / 3'600 % 24, 2 );
   out += ':';
   printPadded( out, seconds / 60 % 60, 2 );
   out += ':';
   printPadded( out, seconds % 60, 2 );
   out += '.';
   printPadded( out, micros % 1'000'000, 6 );
}

// Traced texts come from outside too: they must not break the line, nor steer a terminal.
void
printVisible( std::string & out, std::string_view text ) {
   constexpr char digits[] = "0123456789abcdef";
   for( char c : text ) {
      auto const byte = static_cast< unsigned char >( c );
      if( c == '\n' ) {
         out += "\\n";
      } else if( byte < 0x20 || byte == 0x7f ) {
         out += "\\x";
         out += digits[ byte >> 4 ];
         out += digits[ byte & 0xf ];
      } else {
         out += c;
      }
   }
}

using Visitor = std::function< bool( Record const & ) >;

bool
placeMatches( Ring const & ring, Place const & place, Query const & query ) {
   char const * record = ring.recordAt( place );
   return query.levels.has( levelOf( record ) ) &&
          ( query.handle.empty() || query.handle == siteOf( record ).handle->name() );
}

// Visits from query.since up to but not including `end`, whatever query.last says.
Progress
visitUntil( Query const & query, std::uint64_t end, Visitor const & visitor ) {
   Ring & ring = Detail::ring();
   Progress progress{ std::min( query.since, end ), 0 };
   Place place;
   Decoded decoded;
   while( progress.next < end ) {
      // The ring may have turned since the last visit.
      if( std::uint64_t const begin = std::min( ring.begin(), end ); progress.next < begin ) {
         progress.lost += begin - progress.next;
         progress.next = begin;
         continue;
      }
      if( !ring.isHeld( place ) ) {
         place = ring.placeOf( progress.next );
      }
      Place const next = ring.following( place );
      ++progress.next;
      if( placeMatches( ring, place, query ) ) {
         decoded.recordIs( ring, place );
         Record const record = decoded.record();
         if( record.message.find( query.text ) != std::string_view::npos && !visitor( record ) ) {
            break;
         }
      }
      place = next;
   }
   return progress;
}

} // namespace

} // namespace Detail

void
Record::print( std::string & out ) const {
   Detail::printTime( out, time );
   out += ' ';
   out += handle;
   out += ' ';
   Kiv::print( out, level );
   out += ' ';
   out += function;
   out += ':';
   Kiv::print( out, line );
   out += ' ';
   Detail::printVisible( out, message );
}

Progress
visit( Query const & query, std::function< bool( Record const & ) > const & visitor ) {
   Detail::ring().readingBegins();
   std::uint64_t const end = Detail::ring().end();
   if( query.last == std::numeric_limits< std::size_t >::max() ) {
      return Detail::visitUntil( query, end, visitor );
   }
   std::size_t matches = 0;
   Detail::visitUntil( query, end, [ & ]( Record const & ) { return ++matches > 0; } );
   std::size_t skipped = matches - std::min( matches, query.last );
   return Detail::visitUntil( query, end, [ & ]( Record const & record ) {
      return skipped > 0 ? skipped-- > 0 : visitor( record );
   } );
}

std::string
text( Query const & query ) {
   std::string out;
   visit( query, [ & ]( Record const & record ) {
      record.print( out );
      out += '\n';
      return true;
   } );
   return out;
}

Extent
extent() {
   return { Detail::ring().begin(), Detail::ring().end() };
}

void
recordsDelAll() {
   Detail::ring().recordsDelAll();
}

std::size_t
capacity() {
   return Detail::ring().capacity();
}

void
capacityIs( std::size_t bytes ) {
   Detail::ring().capacityIs( bytes );
}

void
timeSourceIs( TimeSource source, void * context ) {
   Detail::ring().timeSourceIs( source, context );
}

void
sinkIs( Sink sink ) {
   Detail::ring().sinkIs( std::move( sink ) );
}

} // namespace Zipline
