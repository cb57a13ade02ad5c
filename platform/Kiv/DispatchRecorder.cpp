// SPDX-License-Identifier: Apache-2.0
#include "Kiv/DispatchRecorder.h"

#include <algorithm>
#include <chrono>

namespace Kiv {

DispatchRecorder::DispatchRecorder( std::size_t capacity, Seconds ( *now )() )
      : capacity_( std::max< std::size_t >( capacity, 1 ) ), now_( now ) {}

DispatchRecorder::~DispatchRecorder() {
   activeIs( false );
}

void
DispatchRecorder::activeIs( bool active ) {
   if( active ) {
      current_ = 0;
      Dispatch::recorder = this;
   } else if( Dispatch::recorder == this ) {
      Dispatch::recorder = nullptr;
   }
}

DispatchRecorder::Event *
DispatchRecorder::find( std::uint64_t id ) {
   if( events_.empty() || id < events_.front().id || id > events_.back().id ) {
      return nullptr;
   }
   return &events_[ id - events_.front().id ];
}

DispatchRecorder::Event const *
DispatchRecorder::event( std::uint64_t id ) const {
   return const_cast< DispatchRecorder * >( this )->find( id );
}

void
DispatchRecorder::clear() {
   events_.clear();
   current_ = 0;
   dropped_ = 0;
}

std::uint64_t
DispatchRecorder::begin( Kind kind, Text text ) {
   if( events_.size() == capacity_ ) {
      events_.pop_front();
      ++dropped_;
   }
   events_.push_back( { ++lastId_, current_, kind, now_(), 0, std::move( text ) } );
   current_ = lastId_;
   return lastId_;
}

void
DispatchRecorder::end( std::uint64_t id ) {
   // The event may have made room for its own consequences; then nothing is left to close, and
   // what follows hangs under the root.
   current_ = 0;
   if( auto * ended = find( id ) ) {
      ended->end = now_();
      current_ = ended->parent;
   }
}

void
DispatchRecorder::Scope::begin( Kind kind, Text text ) {
   recorder_ = Dispatch::recorder;
   id_ = recorder_->begin( kind, std::move( text ) );
}

void
DispatchRecorder::Scope::end() {
   // An event whose recorder was switched off meanwhile stays without an end.
   if( Dispatch::recorder == recorder_ ) {
      recorder_->end( id_ );
   }
}

Seconds
DispatchRecorder::monotonicNow() {
   using namespace std::chrono;
   return duration< double >( steady_clock::now().time_since_epoch() ).count();
}

} // namespace Kiv
