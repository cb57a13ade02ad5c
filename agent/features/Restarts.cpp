// SPDX-License-Identifier: Apache-2.0
#include "agent/features/Restarts.h"

#include "Hoba/HobaHelper.h"
#include "Kiv/ClockDriver.h"
#include "agent/Commands.h"

#include <algorithm>
#include <cstdio>

namespace HobaAgent {

using Kiv::String;

namespace {

// "none", or "7: storm control 4, vlans 3".
String
writesText( RestartRecord const & record ) {
   std::uint64_t sum = 0;
   String text;
   for( auto const & [ feature, writes ] : record.writes ) {
      if( writes ) {
         sum += writes;
         text += ( text.empty() ? "" : ", " ) + feature + ' ' + Kiv::toText( writes );
      }
   }
   return sum ? Kiv::toText( sum ) + ": " + text : "none";
}

String
stateText( RestartRecord const & record ) {
   switch( record.state ) {
   case inFirstPass:
      return "in its first pass";
   case running:
      return record.failedSteps == 0
                   ? "running"
                   : "running; not swept, since " + counted( record.failedSteps, "step" ) +
                           " failed: see logs";
   case ended:
      return "ended in its first pass";
   default:
      return "failed: " + record.failure;
   }
}

} // namespace

void
Restarts::add( RestartRecord record ) {
   records_.push_back( std::move( record ) );
   ++count_;
   if( records_.size() > most ) {
      records_.pop_front();
   }
}

Kiv::Datum
Restarts::show( std::size_t last ) const {
   TableAnswer table( { "Time", "What", "Kind", "Took (ms)", "Writes", "Swept", "State" } );
   auto const skipped = records_.size() - std::min( last, records_.size() );
   for( std::size_t i = skipped; i != records_.size(); ++i ) {
      auto const & record = records_[ i ];
      char took[ 32 ];
      std::snprintf( took, sizeof took, "%.1f", record.duration * 1000 );
      table.row( { Hoba::doubleToDateTimeStr( Kiv::ClockDriver::ambient().wallTime( record.time ) ),
                   record.isProcess ? "agent" : "machines", Kiv::toText( record.kind ), took,
                   writesText( record ), record.swept, stateText( record ) } );
   }
   if( last == most ) {
      table.count( "start",
                   count_ > records_.size() ? ", the last of " + Kiv::toText( count_ ) : "" );
   }
   return table.take();
}

} // namespace HobaAgent
