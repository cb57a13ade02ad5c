// SPDX-License-Identifier: Apache-2.0
#include "Glim/OtherProcess.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <iterator>
#include <map>
#include <random>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>

namespace GlimBench {

void
pinTo( unsigned core ) {
   cpu_set_t cores;
   CPU_ZERO( &cores );
   CPU_SET( core, &cores );
   ::sched_setaffinity( 0, sizeof( cores ), &cores );
}

std::string
pathOf( std::string const & name ) {
   return std::string( std::getenv( "HOBA_GLIM_DIR" ) ) + '/' + name;
}

Keys const &
keys( std::size_t rows ) {
   static std::map< std::size_t, Keys > made;
   auto & some = made[ rows ];
   if( some.made.empty() ) {
      std::mt19937_64 random( rows );
      std::generate_n( std::back_inserter( some.made ), rows, std::ref( random ) );
      some.shuffled = some.made;
      std::shuffle( some.shuffled.begin(), some.shuffled.end(), random );
      some.wanted = some.made;
      std::shuffle( some.wanted.begin(), some.wanted.end(), random );
   }
   return some;
}

OtherProcess::OtherProcess() {
   void * const memory = ::mmap( nullptr, sizeof( Control ), PROT_READ | PROT_WRITE,
                                 MAP_SHARED | MAP_ANONYMOUS, -1, 0 );
   if( memory == MAP_FAILED ) {
      throw std::bad_alloc();
   }
   control_ = new( memory ) Control{};
   child_ = ::fork();
   if( child_ == 0 ) {
      ::prctl( PR_SET_PDEATHSIG, SIGKILL );
      pinTo( 1 );
      try {
         run();
      } catch( std::exception const & e ) {
         std::fprintf( stderr, "GlimBench: the other process: %s\n", e.what() );
         ::kill( ::getppid(), SIGTERM );
         ::_exit( 1 );
      }
      ::_exit( 0 );
   }
   pinTo( 0 );
}

OtherProcess::~OtherProcess() {
   tell( Task::end );
   ::waitpid( child_, nullptr, 0 );
}

void
OtherProcess::begin( Task task, std::uint64_t first, std::uint64_t second ) {
   control_->task = task;
   control_->first = first;
   control_->second = second;
   control_->serial.fetch_add( 1 );
   futexWake( control_->serial );
}

void
OtherProcess::await() {
   auto const serial = control_->serial.load();
   for( auto ready = control_->ready.load(); ready != serial; ready = control_->ready.load() ) {
      futexWait( control_->ready, ready );
   }
}

void
OtherProcess::make( std::uint64_t rows, std::uint64_t changes ) {
   if( rows != rows_ || changes != changes_ ) {
      tell( Task::make, rows, changes );
      rows_ = rows;
      changes_ = changes;
   }
}

void
OtherProcess::readyIs() {
   control_->ready.store( seen_ );
   futexWake( control_->ready );
}

void
OtherProcess::run() {
   while( control_->task != Task::end ) {
      while( told() ) {
         futexWait( control_->serial, seen_ );
      }
      seen_ = control_->serial.load();
      perform();
      if( control_->ready.load() != seen_ ) {
         readyIs();
      }
   }
   writer_.reset();
}

void
OtherProcess::perform() {
   switch( control_->task ) {
   case Task::make:
      fill();
      break;
   case Task::changeTable:
      change( control_->first, true );
      break;
   case Task::changeRaw:
      change( control_->first, false );
      break;
   case Task::updateTable:
      update( true );
      break;
   case Task::updateRaw:
      update( false );
      break;
   case Task::sleepOnTable:
      sleepOnTable();
      break;
   case Task::sleepOnWord:
      sleepOnWord();
      break;
   default:
      break;
   }
}

void
OtherProcess::fill() {
   auto const rows = control_->first;
   writer_.reset();
   writer_ = std::make_unique< Writer >(
         "in", Glim::WriterOptions{ .rows = rows, .changes = control_->second } );
   rawTable_ = std::make_unique< RawTable >( pathOf( "rawTable" ), rows, true );
   rawRing_ = std::make_unique< RawRing >( pathOf( "rawRing" ), control_->second, true );
   keys_ = &keys( rows );
   for( auto const key : keys_->made ) {
      writer_->is( key, { { key } } );
      rawTable_->put( key, { { key } } );
   }
   writer_->commit();
   next_ = 0;
}

void
OtherProcess::change( std::uint64_t count, bool table ) {
   for( ; count; --count, ++next_ ) {
      auto const key = keys_->shuffled[ next_ % keys_->shuffled.size() ];
      Row const row{ { ++value_, value_, value_, value_, value_ } };
      if( table ) {
         writer_->is( key, row );
      } else {
         rawTable_->put( key, row );
         rawRing_->put( key );
      }
   }
   if( table ) {
      writer_->commit();
   }
}

void
OtherProcess::update( bool table ) {
   readyIs();
   std::mt19937_64 random( 1 );
   while( told() ) {
      // A thousand of them at a place in the shuffled keys, elsewhere each time.
      next_ = random() % keys_->shuffled.size();
      for( unsigned i = 0; i != 1000; ++i, ++next_ ) {
         auto const key = keys_->shuffled[ next_ % keys_->shuffled.size() ];
         Row const row{ { ++value_, value_, value_, value_, value_ } };
         if( table ) {
            writer_->is( key, row );
         } else {
            rawTable_->put( key, row );
         }
      }
      if( table ) {
         writer_->commit();
      }
      control_->updates.fetch_add( 1000, std::memory_order_relaxed );
   }
}

void
OtherProcess::sleepOnTable() {
   Reader reader( "out" );
   if( !reader.attach() ) {
      throw std::runtime_error( "there is no table to sleep on" );
   }
   reader.poll( []( Key ) {} );
   readyIs();
   while( told() ) {
      if( reader.wait( 0.1 ) ) {
         reader.poll( [ & ]( Key key ) {
            Row row;
            if( reader.get( key, row ) ) {
               control_->answer.store( row.word[ 0 ] );
            }
         } );
      }
   }
}

void
OtherProcess::sleepOnWord() {
   auto value = control_->word.load();
   readyIs();
   while( told() ) {
      futexWait( control_->word, value );
      value = control_->word.load();
      control_->answer.store( value );
   }
}

} // namespace GlimBench
