// SPDX-License-Identifier: Apache-2.0
#include "agent/VersionCommand.h"

#include "Hoba/HobaHelper.h"
#include "agent/common/Version.h"

#include <array>

#include <unistd.h>

namespace HobaAgent {

using Kiv::Datum;
using Kiv::String;

namespace {

// "3 d 4 h 5 min", "42 s".
String
durationText( Kiv::Seconds seconds ) {
   struct Unit {
      std::uint64_t length;
      char const * name;
   };
   constexpr std::array units{ Unit{ 86400, " d" }, Unit{ 3600, " h" }, Unit{ 60, " min" } };
   auto left = static_cast< std::uint64_t >( seconds );
   if( left < 60 ) {
      return std::to_string( left ) + " s";
   }
   String text;
   for( auto const & unit : units ) {
      if( left >= unit.length || !text.empty() ) {
         text += ( text.empty() ? "" : " " ) + std::to_string( left / unit.length ) + unit.name;
         left %= unit.length;
      }
   }
   return text;
}

} // namespace

void
addVersionCommand( Commands & commands, EventLoop & loop ) {
   commands.add( { .name = "show version",
                   .help = "What runs here, and for how long",
                   .handler = [ &driver = loop.driver(),
                                started = loop.driver().now() ]( Request const & ) {
                      auto const uptime = driver.now() - started;
                      Datum answer( Datum::Object{} );
                      answer.add( "version", versionText() );
                      answer.add( "process", getpid() );
                      answer.add( "started",
                                  Hoba::doubleToDateTimeStr( driver.wallTime( started ) ) );
                      answer.add( "uptime", durationText( uptime ) );
                      answer.add( "uptimeSeconds", uptime );
                      return answer;
                   } } );
}

} // namespace HobaAgent
