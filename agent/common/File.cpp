// SPDX-License-Identifier: Apache-2.0
#include "agent/common/File.h"

#include "agent/common/Json.h"
#include "agent/common/Socket.h"

#include <array>
#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace HobaAgent {

std::string
readFile( std::string const & file, std::size_t maxBytes ) {
   // Asked before it is opened: merely opening a device may do something, and a pipe that nobody
   // writes to blocks whoever opens it. Should it become one meanwhile, O_NONBLOCK helps.
   struct stat status {};
   if( stat( file.c_str(), &status ) != 0 ) {
      throw Kiv::Exception( systemError( file ) );
   }
   if( !S_ISREG( status.st_mode ) ) {
      throw Kiv::Exception( file + ( S_ISDIR( status.st_mode ) ? ": is a directory, expected a file"
                                                               : ": is not a regular file" ) );
   }
   Fd fd( open( file.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC ) );
   if( !fd ) {
      throw Kiv::Exception( systemError( file ) );
   }
   std::string content;
   std::array< char, 64 * 1024 > piece;
   while( true ) {
      auto count = read( fd.get(), piece.data(), piece.size() );
      if( count == 0 ) {
         return content;
      }
      if( count < 0 && errno != EINTR ) {
         throw Kiv::Exception( systemError( file ) );
      }
      if( count > 0 ) {
         content.append( piece.data(), static_cast< std::size_t >( count ) );
      }
      if( content.size() > maxBytes ) {
         throw Kiv::Exception( file + ": longer than " + std::to_string( maxBytes ) + " bytes" );
      }
   }
}

void
writeFile( std::string const & file, std::string_view content ) {
   Fd fd( open( file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666 ) );
   if( !fd ) {
      throw Kiv::Exception( systemError( file ) );
   }
   while( !content.empty() ) {
      auto count = write( fd.get(), content.data(), content.size() );
      if( count < 0 && errno != EINTR ) {
         throw Kiv::Exception( systemError( file ) );
      }
      content.remove_prefix( count > 0 ? static_cast< std::size_t >( count ) : 0 );
   }
}

Kiv::Datum
parseJsonFile( std::string const & file ) {
   auto content = readFile( file );
   try {
      return parseJson( content );
   } catch( JsonError const & error ) {
      throw Kiv::Exception( file + ":" + std::to_string( error.line ) + ":" +
                            std::to_string( error.column ) + ": " + error.reason );
   }
}

} // namespace HobaAgent
