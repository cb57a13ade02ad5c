// SPDX-License-Identifier: Apache-2.0
#include "Zipline/Ring.h"

#include "Zipline/Reader.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <ctime>

namespace Zipline::Detail {

constinit RingHead ringHead;

namespace {

std::int64_t
clockNanoseconds( clockid_t clock ) {
   timespec now{};
   clock_gettime( clock, &now );
   return std::int64_t{ now.tv_sec } * 1'000'000'000 + now.tv_nsec;
}

Anchor
anchorNow() {
   return { ticks(), clockNanoseconds( CLOCK_MONOTONIC ) };
}

std::uint64_t
stampOf( char const * record ) {
   RecordHead head;
   std::memcpy( &head, record, sizeof( head ) );
   return head.stamp;
}

// Where the slots that belong to pieces begin.
char const *
slotsOf( char const * record, Site const & site ) {
   return record + sizeof( RecordHead ) + ( site.level == runTimeLevel ? 1 : 0 );
}

std::size_t
byteAt( char const * slot ) {
   return static_cast< unsigned char >( *slot );
}

} // namespace

std::uint64_t
clockTicks() {
   return static_cast< std::uint64_t >( clockNanoseconds( CLOCK_MONOTONIC ) );
}

char *
makeRoom( std::size_t bytes, std::uint64_t & stamp ) {
   return ring().makeRoom( bytes, stamp );
}

void
recordWritten( char const * record ) {
   ring().recordWritten( record );
}

Text
cutText( std::string_view text ) {
   std::size_t kept = maxTextBytes - 3;
   // Not in the middle of a character: UTF-8 continues one with bytes 10xxxxxx, three at most.
   for( int back = 0; back < 3 && ( text[ kept ] & 0xc0 ) == 0x80; ++back ) {
      --kept;
   }
   return { text.data(), static_cast< std::uint8_t >( kept ),
            static_cast< std::uint8_t >( kept + 3 ) };
}

void
copyText( char * to, char const * from, std::size_t bytes ) {
   if( bytes > 0 ) { // an empty view may point nowhere
      std::memcpy( to, from, bytes );
   }
}

Ring &
ring() {
   static Ring & instance = *new Ring;
   return instance;
}

Site const &
siteOf( char const * record ) {
   RecordHead head;
   std::memcpy( &head, record, sizeof( head ) );
   return *head.site;
}

std::size_t
sizeOf( char const * record ) {
   Site const & site = siteOf( record );
   std::size_t payload = site.slotBytes;
   if( site.textCount > 0 ) {
      char const * slot = slotsOf( record, site );
      for( std::size_t i = 0; i < site.pieceCount; ++i ) {
         Piece const & piece = site.pieces[ i ];
         payload += piece.isText() ? byteAt( slot ) : 0;
         slot += piece.isLiteral() ? 0 : piece.bytes;
      }
   }
   return recordBytes( payload );
}

int
levelOf( char const * record ) {
   Site const & site = siteOf( record );
   return site.level == runTimeLevel ? static_cast< int >( byteAt( record + sizeof( RecordHead ) ) )
                                     : site.level;
}

void
printMessage( std::string & out, char const * record ) {
   Site const & site = siteOf( record );
   char const * slot = slotsOf( record, site );
   char const * tail = record + sizeof( RecordHead ) + site.slotBytes;
   for( std::size_t i = 0; i < site.pieceCount; ++i ) {
      Piece const & piece = site.pieces[ i ];
      if( piece.isLiteral() ) {
         out.append( piece.literal, piece.bytes );
         continue;
      }
      if( piece.isText() ) {
         out.append( tail, byteAt( slot ) );
         tail += byteAt( slot );
      } else {
         printGuarded( out, [ & ] { piece.print( out, slot ); } );
      }
      slot += piece.bytes;
   }
}

char *
Ring::makeRoom( std::size_t bytes, std::uint64_t & stamp ) {
   if( !bytes_ ) {
      blocks_.resize( std::min( maxBlockCount, capacity_ / minBlockBytes ) );
      blockBytes_ = capacity_ / blocks_.size();
      bytes_ = std::make_unique< char[] >( capacity_ );
   }
   bool const sourced = timeSource_;
   if( sourced ) {
      stamp = std::bit_cast< std::uint64_t >( timeSource_( timeContext_ ) );
   }
   bool const fits = live_ > 0 && blockBegin( newest() ) + blockBytes_ - ringHead.cursor >=
                                        static_cast< std::ptrdiff_t >( bytes );
   if( !fits || blocks_[ newest() ].sourced != sourced ) {
      openBlock();
   }
   limitIs();
   return ringHead.cursor;
}

void
Ring::openBlock() {
   if( live_ == blocks_.size() ) {
      oldest_ = ( oldest_ + 1 ) % blocks_.size();
      --live_;
   }
   ++live_;
   Block & block = blocks_[ newest() ];
   block.firstSequence = ringHead.sequence;
   block.generation = ++generation_;
   block.sourced = timeSource_;
   block.anchor = block.sourced ? Anchor{} : anchorNow();
   ringHead.cursor = blockBegin( newest() );
}

// With a sink or a time source every record must come by makeRoom, so there is never room; nor is
// there in a block whose stamps are of the other kind.
void
Ring::limitIs() {
   bool const fast = live_ > 0 && !timeSource_ && !sink_ && !blocks_[ newest() ].sourced;
   ringHead.limit = fast ? blockBegin( newest() ) + blockBytes_ : bytes_.get();
}

void
Ring::recordWritten( char const * record ) {
   if( !sink_ || inSink_ ) {
      return;
   }
   // The sink may set another one, and its record may be overwritten while it runs.
   auto const sink = sink_;
   struct Inside {
      bool & flag;
      ~Inside() { flag = false; }
   } inside{ inSink_ };
   inSink_ = true;
   std::size_t const block = newest();
   Place const place{ block, blocks_[ block ].generation,
                      static_cast< std::size_t >( record - blockBegin( block ) ), end() - 1 };
   readingBegins();
   Decoded decoded;
   decoded.recordIs( *this, place );
   ( *sink )( decoded.record() );
}

std::uint64_t
Ring::begin() const {
   return live_ > 0 ? blocks_[ oldest_ ].firstSequence : end();
}

void
Ring::readingBegins() {
   readAnchor_ = anchorNow();
   std::int64_t const offset = clockNanoseconds( CLOCK_REALTIME ) - readAnchor_.nanoseconds;
   // The two clocks advance alike unless somebody sets the time of day. Keeping the offset
   // otherwise lets a record have the same time in every reading.
   constexpr std::int64_t step = 1'000'000;
   if( std::abs( offset - wallOffset_ ) > step ) {
      wallOffset_ = offset;
   }
}

Place
Ring::placeOf( std::uint64_t sequence ) const {
   std::size_t i = live_ - 1;
   while( blocks_[ ( oldest_ + i ) % blocks_.size() ].firstSequence > sequence ) {
      --i;
   }
   std::size_t const index = ( oldest_ + i ) % blocks_.size();
   Place place{ index, blocks_[ index ].generation, 0, blocks_[ index ].firstSequence };
   while( place.sequence < sequence ) {
      place.offset += sizeOf( recordAt( place ) );
      ++place.sequence;
   }
   return place;
}

Place
Ring::following( Place const & place ) const {
   bool const newestBlock = place.block == newest();
   std::uint64_t const after =
         newestBlock ? end() : blocks_[ ( place.block + 1 ) % blocks_.size() ].firstSequence;
   if( place.sequence + 1 >= after ) {
      return {};
   }
   return { place.block, place.generation, place.offset + sizeOf( recordAt( place ) ),
            place.sequence + 1 };
}

bool
Ring::isHeld( Place const & place ) const {
   return place.generation != 0 && place.block < blocks_.size() &&
          blocks_[ place.block ].generation == place.generation;
}

char const *
Ring::recordAt( Place const & place ) const {
   return blockBegin( place.block ) + place.offset;
}

Kiv::Seconds
Ring::timeOf( Place const & place ) const {
   std::uint64_t const stamp = stampOf( recordAt( place ) );
   Block const & block = blocks_[ place.block ];
   if( block.sourced ) {
      return std::bit_cast< Kiv::Seconds >( stamp );
   }
   Anchor to = readAnchor_;
   if( place.block != newest() ) {
      Block const & next = blocks_[ ( place.block + 1 ) % blocks_.size() ];
      to = next.sourced ? readAnchor_ : next.anchor;
   }
   auto const ticksBetween = []( std::uint64_t from, std::uint64_t until ) {
      return static_cast< double >( static_cast< std::int64_t >( until - from ) );
   };
   double const span = ticksBetween( block.anchor.ticks, to.ticks );
   double const rate =
         span > 0 ? static_cast< double >( to.nanoseconds - block.anchor.nanoseconds ) / span : 0;
   double const sinceAnchor = ticksBetween( block.anchor.ticks, stamp ) * rate;
   std::int64_t const at =
         block.anchor.nanoseconds + wallOffset_ + static_cast< std::int64_t >( sinceAnchor );
   return static_cast< Kiv::Seconds >( at ) / 1e9;
}

void
Ring::capacityIs( std::size_t bytes ) {
   if( bytes < minCapacity || bytes > maxCapacity ) {
      throw Kiv::RangeException( "a trace ring of " + std::to_string( bytes ) + " bytes is not " +
                                 std::to_string( minCapacity ) + " to " +
                                 std::to_string( maxCapacity ) );
   }
   recordsDelAll();
   capacity_ = std::bit_ceil( bytes );
   bytes_.reset();
   blocks_.clear();
   ringHead.cursor = nullptr;
   ringHead.limit = nullptr;
}

void
Ring::recordsDelAll() {
   for( Block & block : blocks_ ) {
      block.generation = 0;
   }
   oldest_ = 0;
   live_ = 0;
   ringHead.cursor = bytes_.get();
   ringHead.limit = bytes_.get();
}

void
Ring::timeSourceIs( TimeSource source, void * context ) {
   timeSource_ = source;
   timeContext_ = context;
   limitIs();
}

void
Ring::sinkIs( Sink sink ) {
   sink_ = sink ? std::make_shared< Sink >( std::move( sink ) ) : nullptr;
   limitIs();
}

} // namespace Zipline::Detail
