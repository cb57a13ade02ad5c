// SPDX-License-Identifier: Apache-2.0
#include "chips/sim/SimTable.h"

#include "Kiv/ClockDriver.h"
#include "Kiv/DispatchRecorder.h"
#include "Kiv/Reflect.h"

#include <filesystem>

KIV_DEFINE( HobaSim::SimTable );
KIV_DEFINE( HobaSim::Unit );

namespace HobaSim {

namespace {

// One step of a generator whose whole state is a number (splitmix).
std::uint64_t
nextRandom( std::uint64_t & state ) {
   auto value = state += 0x9e3779b97f4a7c15;
   value = ( value ^ value >> 30 ) * 0xbf58476d1ce4e5b9;
   value = ( value ^ value >> 27 ) * 0x94d049bb133111eb;
   return value ^ value >> 31;
}

// Of a unit whose tables are the process's own: its name is nobody else's.
Memory
memoryOf( Memory const & memory ) {
   static std::uint64_t units = 0;
   auto own = memory;
   if( own.name.empty() ) {
      own = { "private" + std::to_string( ++units ), false, false };
   }
   return own;
}

} // namespace

void
checkText( std::string_view text, std::size_t maxLength ) {
   if( text.size() > maxLength || text.find( '\0' ) != text.npos ) {
      Kiv::parseFailed( text, "a text of at most " + Kiv::toText( maxLength ) +
                                    " characters, none of them a zero" );
   }
}

void
TableFault::check() const {
   if( !( chance >= 0 && chance <= 1 ) ) {
      throw Kiv::RangeException( "chance " + Kiv::toText( chance ) + " is not within 0 to 1" );
   }
}

void
SimTable::rowsIs( std::uint64_t rows ) {
   if( rows_ != rows ) {
      rows_ = rows;
      kivChanged( rowsAttr );
   }
}

void
SimTable::landingIs( std::uint64_t landing ) {
   if( landing_ != landing ) {
      landing_ = landing;
      kivChanged( landingAttr );
   }
}

double
FaultDice::draw( std::uint64_t seed ) {
   if( begunSeed_ != seed ) {
      begunSeed_ = random_ = seed;
   }
   return static_cast< double >( nextRandom( random_ ) >> 11 ) * 0x1p-53;
}

bool
SimTable::strikes( TableResult kind ) {
   return dice_.strikes( fault( kind ), seed(),
                         [ & ]( TableFault const & left ) { faultIs( kind, left ); } );
}

// ---- Rows

// The next change that is due.
class RowsBase::Landing final : public Kiv::Timer {
 public:
   Landing( RowsBase & rows, Kiv::Ptr< Kiv::Clock > const & clockOf )
         : Timer( *clockOf ), rows_( rows ), keptClock_( clockOf ) {}

 private:
   void onTimeout() override {
      // Handlers may drop the whole chip: it lives until this has returned.
      Kiv::Dispatch::Frame frame;
      Kiv::DispatchRecorder::Scope recorded( Kiv::DispatchRecorder::Kind::timeout, "timeout" );
      rows_.land();
   }

   RowsBase & rows_;
   Kiv::Ptr< Kiv::Clock > const keptClock_;
};

RowsBase::RowsBase( Unit & unit, TableKind kind, char const * attribute, Heard * heard )
      : kind_( kind ), isCold_( unit.memory().cold ), unit_( unit ), heard_( heard ),
        attribute_( attribute ),
        control_( Kiv::make< SimTable >( unit.name() + '.' + attribute ) ) {
   unit.tables_.push_back( this );
}

RowsBase::~RowsBase() = default;

bool
RowsBase::isShared() const {
   return unit_.isShared_;
}

Kiv::String
RowsBase::glimName() const {
   return unit_.memory().name + '.' + ( unit_.name().empty() ? "" : unit_.name() + '.' ) +
          attribute_;
}

// One that is described as very large has all its room from the start, as a chip's memory has: otherwise the
// write that finds it full waits until all rows have moved.
Glim::WriterOptions
RowsBase::options() const {
   constexpr std::uint64_t large = 200'000;
   auto const capacity = control_->capacity();
   return { .lifetime = isShared() ? Glim::Lifetime::stays : Glim::Lifetime::goes,
            .rows = capacity >= large ? capacity : 16,
            .changes = 64,
            .privateMemory = !isShared(),
            .replace = isCold_ };
}

void
RowsBase::checkThere() const {
   // What a link leads to is for who opens it to say.
   std::error_code unknown;
   auto const status = std::filesystem::symlink_status( Glim::pathOf( glimName() ), unknown );
   if( unit_.memory().whole && status.type() == std::filesystem::file_type::not_found ) {
      throw Glim::Error( "table \"" + glimName() + "\": it is not there" );
   }
}

// The same for a key in every run and process.
std::uint64_t
RowsBase::hashOf( std::uint64_t const * words, std::size_t count ) {
   auto hash = Glim::Layout::hashOf( { 0x9e3779b97f4a7c15, 0xd6e8feb86659fd93 }, words, count );
   return nextRandom( hash );
}

std::uint64_t
RowsBase::buckets() const {
   auto const size = control_->bucketSize();
   return control_->capacity() && size ? std::max< std::uint64_t >( control_->capacity() / size, 1 )
                                       : 0;
}

std::uint64_t
RowsBase::countedBuckets() {
   if( auto const count = buckets(); countedBuckets_ != count ) {
      countedBuckets_ = count;
      recount();
   }
   return countedBuckets_;
}

std::uint64_t
RowsBase::room() const {
   auto const capacity = control_->capacity();
   return !capacity ? ~std::uint64_t{ 0 } : capacity - std::min( capacity, accepted_ );
}

bool
RowsBase::hasRoomForAll( std::vector< std::uint64_t > const & hashes ) {
   if( hashes.size() > room() ) {
      return false;
   }
   auto const count = countedBuckets();
   Kiv::HashMap< std::uint64_t, std::uint64_t > wanted;
   return !count || std::all_of( hashes.begin(), hashes.end(), [ & ]( std::uint64_t hash ) {
      auto const bucket = hash % count;
      return Kiv::valueOrDefault( inBucket_, bucket ) + ++*wanted.tryEmplace( bucket ).value <=
             control_->bucketSize();
   } );
}

bool
RowsBase::hasRoom( std::uint64_t hash ) {
   auto const capacity = control_->capacity();
   if( capacity && accepted_ >= capacity ) {
      return false;
   }
   auto const count = countedBuckets();
   if( count && Kiv::valueOrDefault( inBucket_, hash % count ) >= control_->bucketSize() ) {
      control_->bucketFullInc( 1 );
      return false;
   }
   return true;
}

TableResult
RowsBase::judge( bool isNewRow, std::uint64_t hash ) {
   for( auto const kind : { tableBusy, tableFailed } ) {
      if( control_->strikes( kind ) ) {
         return kind;
      }
   }
   if( isNewRow && ( control_->strikes( tableFull ) || !hasRoom( hash ) ) ) {
      return tableFull;
   }
   return tableWritten;
}

TableResult
RowsBase::counted( TableResult result ) {
   switch( result ) {
   case tableUnchanged:
      control_->unchangedInc( 1 );
      break;
   case tableParity:
      control_->refusedInc( result, 1 );
      [[fallthrough]];
   case tableWritten:
      control_->writesInc( 1 );
      break;
   default:
      control_->refusedInc( result, 1 );
   }
   return result;
}

void
RowsBase::accepted( std::uint64_t hash, bool was, bool is ) {
   if( was == is ) {
      return;
   }
   accepted_ += is ? 1 : -1;
   if( countedBuckets_ ) {
      auto const bucket = hash % countedBuckets_;
      auto const now = Kiv::valueOrDefault( inBucket_, bucket ) + ( is ? 1 : -1 );
      now ? void( inBucket_.insertOrAssign( bucket, now ) ) : void( inBucket_.erase( bucket ) );
   }
}

void
RowsBase::recount() {
   accepted_ = 0;
   inBucket_.clear();
   eachHash( [ this ]( std::uint64_t hash ) { accepted( hash, false, true ); } );
}

void
RowsBase::foundWrong( std::uint64_t hash ) {
   if( unit_.parityError_ ) {
      // The write has landed, whatever becomes of the news.
      Kiv::guarded( "RowsBase::foundWrong", name(),
                    [ & ] { unit_.parityError_( name(), indexOf( hash ) ); } );
   }
}

void
RowsBase::waits() {
   if( !landing_ ) {
      landing_ = std::make_unique< Landing >( *this, Kiv::make< Kiv::Clock >() );
   }
   // In order, also when the latency went down meanwhile.
   auto const time = landing_->clock().now() + control_->latency();
   due_.push_back( due_.empty() ? time : std::max( time, due_.back() ) );
   landing_->timeMinIs( due_.front() );
   control_->landingIs( due_.size() );
}

void
RowsBase::waitsNot() {
   due_.pop_front();
   landing_->timeMinIs( due_.empty() ? Kiv::never : due_.front() );
   control_->landingIs( due_.size() );
}

void
RowsBase::land() {
   bool lost = false;
   while( !due_.empty() && due_.front() <= landing_->clock().now() ) {
      waitsNot();
      // There may be no memory for one more row: the change is lost then, which is told.
      lost |= !Kiv::guarded( "RowsBase::landNext", name(), [ this ] { landNext(); } );
   }
   if( lost ) {
      recount(); // it takes no room
   }
}

void
RowsBase::tell( void const * key ) {
   heard_( unit_, key );
}

void
RowsBase::refused( TableResult result, Kiv::String const & key ) const {
   throw TableRefused( "table " + name() + ", row " + key + ": " + Kiv::toText( result ) );
}

// ---- Units

Unit::Unit( Kiv::String const & unitName, Memory const & memory )
      : Entity( unitName ), isShared_( !memory.name.empty() ), memory_( memoryOf( memory ) ) {}

bool
Unit::isSettled() const {
   return std::all_of( tables_.begin(), tables_.end(),
                       []( RowsBase const * rows ) { return rows->isSettled(); } );
}

std::uint64_t
Unit::writes() const {
   std::uint64_t sum = 0;
   for( auto const * rows : tables_ ) {
      sum += rows->control()->writes();
   }
   return sum;
}

std::uint64_t
Unit::swept() const {
   std::uint64_t sum = 0;
   for( auto const * rows : tables_ ) {
      sum += rows->control()->swept();
   }
   return sum;
}

void
Unit::beginPass() {
   for( auto * rows : tables_ ) {
      rows->beginPass();
   }
}

void
Unit::sweep() {
   Kiv::Dispatch::Frame frame;
   for( auto * rows : tables_ ) {
      rows->sweep();
   }
}

void
Unit::reset() {
   Kiv::Dispatch::Frame frame;
   for( auto * rows : tables_ ) {
      rows->reset();
   }
}

} // namespace HobaSim
