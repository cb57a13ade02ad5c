// SPDX-License-Identifier: Apache-2.0
#include "agent/DatabaseCommands.h"

#include "agent/Client.h"

namespace HobaAgent {

using Kiv::Datum;
using Kiv::String;

namespace {

Argument
pathArgument( char const * help ) {
   return { "path", help, true };
}

// Nothing to tell but that it is done.
Datum
done() {
   return Datum();
}

Datum
get( Tessera::Database const & database, Request const & request ) {
   auto const scope = request.oneOf< Tessera::Scope >(
         "scope", { { "everything", Tessera::Scope::everything },
                    { "configuration", Tessera::Scope::configuration } } );
   return database.get( request.text( "path", "/" ), scope );
}

// `text` is what somebody typed, `value` is data. In a line of words the value is a text.
Datum
set( Tessera::Database & database, Request const & request ) {
   auto path = request.text( "path" );
   if( request.has( "text" ) == request.has( "value" ) ) {
      throw Kiv::ParseError( "expected either text or value" );
   }
   if( request.has( "text" ) ) {
      database.setText( path, request.text( "text" ) );
   } else {
      database.set( path, *request.find( "value" ) );
   }
   return done();
}

Datum
list( Tessera::Database const & database, Request const & request ) {
   TableAnswer table( { "NAME", "MORE" } );
   for( auto const & entry : database.entries( request.text( "path", "/" ) ) ) {
      table.row( { entry.name, entry.more } );
   }
   return table.take();
}

Datum
watch( Tessera::Database & database, EventLoop & loop, Request const & request ) {
   auto * client = request.client();
   if( !client ) {
      throw Kiv::Exception( "nobody listens to this watch" );
   }
   auto tell = [ client, &loop, id = request.id() ]( Tessera::Path const & path,
                                                     std::optional< Datum > const & value ) {
      Datum event( Datum::Object{} );
      event.add( "time", loop.driver().wallTime( loop.driver().now() ) );
      event.add( "path", path.text() );
      if( value ) {
         event.add( "value", *value );
      } else {
         event.add( "deleted", true );
      }
      client->sendEvent( id, std::move( event ) );
   };
   auto const path = request.text( "path" );
   database.requirePossible( path );
   auto id = database.watch( path, tell );
   client->atEnd( [ &database, id ] { database.unwatch( id ); } );
   Datum answer( Datum::Object{} );
   answer.add( "watch", id );
   return answer;
}

} // namespace

std::vector< String >
completions( Tessera::Database const & database, std::string_view text, std::size_t limit ) {
   // The last component may be half a name; what is before it must lead somewhere.
   std::size_t begin = 0;
   bool inBrackets = false;
   for( std::size_t i = 0; i != text.size(); ++i ) {
      if( !inBrackets && ( text[ i ] == '/' || text[ i ] == '[' ) ) {
         begin = i;
      }
      inBrackets = text[ i ] == '[' || ( inBrackets && text[ i ] != ']' );
   }
   std::vector< String > paths;
   try {
      auto parent = text.substr( 0, begin );
      auto half = text.substr( std::min( begin + 1, text.size() ) );
      auto above = Tessera::Path::parse( parent.empty() ? "/" : parent );
      for( auto const & entry : database.entries( above.text() ) ) {
         if( entry.name.starts_with( half ) && paths.size() != limit ) {
            paths.push_back( ( above / entry.name ).text() + ( entry.more ? "/" : "" ) );
         }
      }
   } catch( Tessera::Error const & ) {
   }
   return paths;
}

void
addDatabaseCommands( Commands & commands, Tessera::Database & database, EventLoop & loop ) {
   commands.add(
         { .name = "get",
           .help = "Everything at and below a path of the state database",
           .arguments = { pathArgument( "Where; / is everything" ),
                          { "scope",
                            "everything, or configuration: what an operator saves and applies" } },
           .handler = [ & ]( Request const & request ) { return get( database, request ); } } );
   commands.add(
         { .name = "set",
           .help = "Write an attribute, a member, a field, or whole entities",
           .arguments = { pathArgument( "Where" ),
                          { "text", "The printed form of a number, a name, an address, ..." },
                          { "value", "Data, in place of text" } },
           .handler = [ & ]( Request const & request ) { return set( database, request ); },
           .isInput = true } );
   commands.add( { .name = "del",
                   .help = "Delete a member of a collection",
                   .arguments = { pathArgument( "Of the member" ) },
                   .handler =
                         [ & ]( Request const & request ) {
                            database.del( request.text( "path" ) );
                            return done();
                         },
                   .isInput = true } );
   commands.add( { .name = "apply",
                   .help = "Write a configuration, all of it or nothing",
                   .arguments = { { "tree", "Paths or directories, as get answers them", true } },
                   .handler =
                         [ & ]( Request const & request ) {
                            database.apply( *request.find( "tree" ) );
                            return done();
                         },
                   .isInput = true } );
   commands.add(
         { .name = "list",
           .help = "The names that may follow a path",
           .arguments = { { "path", "Where; / if it is left out" } },
           .handler = [ & ]( Request const & request ) { return list( database, request ); } } );
   commands.add( { .name = "complete",
                   .help = "The paths that the beginning of a path may become",
                   .arguments = { pathArgument( "Its beginning" ) },
                   .handler = [ & ]( Request const & request ) {
                      auto paths = completions( database, request.text( "path" ) );
                      return Datum( Datum::Array( paths.begin(), paths.end() ) );
                   } } );
   commands.add( { .name = "complete command",
                   .help = "The words that may follow in a command, its arguments too",
                   .arguments = { { "half", "The beginning of the word" },
                                  { "name", "Its first words", false, true } },
                   .handler = [ & ]( Request const & request ) {
                      auto next = commands.candidates( wordsIn( request.text( "name" ) ),
                                                       request.text( "half" ) );
                      return Datum( Datum::Array( next.begin(), next.end() ) );
                   } } );
   commands.add( { .name = "watch",
                   .help = "Every change at and below a path, until the connection ends",
                   .arguments = { pathArgument( "What to follow; it may come later" ) },
                   .handler = [ & ]( Request const & request ) {
                      return watch( database, loop, request );
                   } } );
}

} // namespace HobaAgent
