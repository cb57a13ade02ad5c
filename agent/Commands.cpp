// SPDX-License-Identifier: Apache-2.0
#include "agent/Commands.h"

#include "Kiv/DispatchRecorder.h"
#include "Kiv/Reflect.h"
#include "Kiv/Utf8.h"
#include "Tessera/Suggest.h"

#include <algorithm>
#include <cctype>

namespace HobaAgent {

using Kiv::Datum;
using Kiv::String;

namespace {

// A request has no use for more.
constexpr std::size_t maxWords = 64;

String
joined( std::vector< String > const & words, std::size_t begin, std::size_t end ) {
   String text;
   for( std::size_t i = begin; i < end; ++i ) {
      text += ( i == begin ? "" : " " ) + words[ i ];
   }
   return text;
}

std::vector< String >
wordsOf( Datum const & request ) {
   auto const * command = request.find( "command" );
   if( !request.as< Datum::Object >() ) {
      throw Kiv::ParseError( "a request is an object with a command" );
   }
   if( !command || !command->as< String >() ) {
      throw Kiv::ParseError( "a request needs a command, a string" );
   }
   auto words = wordsIn( *command->as< String >() );
   if( auto const * given = request.find( "words" ) ) {
      auto const * list = given->as< Datum::Array >();
      if( !list ) {
         throw Kiv::ParseError( "words: expected a list of strings" );
      }
      for( auto const & word : *list ) {
         if( !word.as< String >() ) {
            throw Kiv::ParseError( "words: expected a list of strings" );
         }
         words.push_back( *word.as< String >() );
      }
   }
   if( words.size() > maxWords ) {
      throw Kiv::ParseError( "a command has at most " + std::to_string( maxWords ) + " words" );
   }
   return words;
}

Argument const *
findArgument( Command const & command, std::string_view name ) {
   for( auto const & argument : command.arguments ) {
      if( argument.name == name ) {
         return &argument;
      }
   }
   return nullptr;
}

// Words that are left after the command's name become its arguments.
void
addWords( Command const & command, std::vector< String > const & words, Datum & arguments ) {
   for( std::size_t i = 0; i != words.size(); ++i ) {
      auto equals = words[ i ].find( '=' );
      if( equals != String::npos && findArgument( command, words[ i ].substr( 0, equals ) ) ) {
         auto name = words[ i ].substr( 0, equals );
         if( arguments.find( name ) ) {
            throw Kiv::ParseError( "argument " + name +
                                   " is given twice; usage: " + command.usage() );
         }
         arguments.add( name, words[ i ].substr( equals + 1 ) );
         continue;
      }
      auto next = std::find_if(
            command.arguments.begin(), command.arguments.end(),
            [ & ]( Argument const & argument ) { return !arguments.find( argument.name ); } );
      if( next == command.arguments.end() ) {
         throw Kiv::ParseError( "there is no use for \"" + Kiv::excerpt( words[ i ] ) +
                                "\"; usage: " + command.usage() );
      }
      if( next->rest ) {
         arguments.add( next->name, joined( words, i, words.size() ) );
         return;
      }
      arguments.add( next->name, words[ i ] );
   }
}

// Files are where whoever asks sees them, not where the agent was started.
void
resolveFiles( Command const & command, Datum const & request, Datum & arguments ) {
   auto const * directory = request.find( "directory" );
   if( !directory || !directory->as< String >() ) {
      return;
   }
   Datum resolved( Datum::Object{} );
   for( auto const & [ name, value ] : *arguments.as< Datum::Object >() ) {
      auto const * file = value.as< String >();
      bool const relative =
            findArgument( command, name )->isFile && file && !file->starts_with( '/' );
      resolved.add( name, relative ? Datum( *directory->as< String >() + '/' + *file ) : value );
   }
   arguments = std::move( resolved );
}

Datum
argumentsOf( Command const & command, Datum const & request, std::vector< String > const & words ) {
   Datum arguments( Datum::Object{} );
   for( auto const & [ name, value ] : *request.as< Datum::Object >() ) {
      if( name == "id" || name == "command" || name == "words" || name == "directory" ||
          name == "orHelp" ) {
         continue;
      }
      if( !findArgument( command, name ) ) {
         throw Kiv::ParseError( "unknown argument \"" + Kiv::excerpt( name ) +
                                "\"; usage: " + command.usage() );
      }
      arguments.add( name, value );
   }
   addWords( command, words, arguments );
   for( auto const & argument : command.arguments ) {
      if( argument.required && !arguments.find( argument.name ) ) {
         throw Kiv::ParseError( "argument " + argument.name +
                                " is missing; usage: " + command.usage() );
      }
   }
   resolveFiles( command, request, arguments );
   return arguments;
}

} // namespace

std::vector< String >
wordsIn( std::string_view text ) {
   std::vector< String > words;
   while( true ) {
      auto begin = text.find_first_not_of( ' ' );
      if( begin == std::string_view::npos ) {
         return words;
      }
      text.remove_prefix( begin );
      auto end = std::min( text.find( ' ' ), text.size() );
      words.emplace_back( text.substr( 0, end ) );
      text.remove_prefix( end );
   }
}

String
Request::text( std::string_view name, std::string_view otherwise ) const {
   auto const * argument = find( name );
   if( !argument ) {
      return String( otherwise );
   }
   if( argument->as< Datum::Array >() || argument->as< Datum::Object >() ) {
      throw Kiv::ParseError( String( name ) + ": expected a text" );
   }
   return Kiv::datumText( *argument );
}

void
Request::isNoneOf( std::vector< std::string_view > const & words, std::string_view name,
                   std::string_view given ) {
   String expected;
   for( std::size_t i = 0; i != words.size(); ++i ) {
      expected += i == 0 ? "" : i + 1 == words.size() ? " or " : ", ";
      expected += words[ i ];
   }
   throw Kiv::ParseError( String( name ) + ": \"" + Kiv::excerpt( given ) + "\" is not " +
                          expected );
}

String
Command::usage() const {
   String text = name;
   for( auto const & argument : arguments ) {
      String upper = argument.name;
      std::transform( upper.begin(), upper.end(), upper.begin(),
                      []( unsigned char c ) { return static_cast< char >( std::toupper( c ) ); } );
      upper += argument.rest ? "..." : "";
      text += argument.required ? " " + upper : " [" + upper + "]";
   }
   return text;
}

Commands::Commands() {
   add( { .name = "help",
          .help = "What commands there are, or what one of them takes",
          .arguments = { { "about", "A command", false, true } },
          .handler = [ this ]( Request const & request ) {
             return help( request.text( "about" ) );
          } } );
}

void
Commands::add( Command command ) {
   auto name = command.name;
   if( !commands_.emplace( name, std::move( command ) ).second ) {
      throw Kiv::Exception( "there are two commands \"" + name + "\"" );
   }
}

Command const *
Commands::longest( std::vector< String > & words ) const {
   for( auto length = words.size(); length != 0; --length ) {
      auto found = commands_.find( joined( words, 0, length ) );
      if( found != commands_.end() ) {
         words.erase( words.begin(), words.begin() + static_cast< std::ptrdiff_t >( length ) );
         return &found->second;
      }
   }
   return nullptr;
}

Command const &
Commands::find( std::vector< String > & words ) const {
   if( auto const * command = longest( words ) ) {
      return *command;
   }
   if( auto next = nextWords( words ); !next.empty() && !words.empty() ) {
      throw Kiv::ParseError( "command \"" + joined( words, 0, words.size() ) +
                             "\" is not complete; " + Tessera::suggestion( {}, next ) );
   }
   for( std::size_t known = words.size(); known-- > 0; ) {
      auto begin = std::vector< String >( words.begin(),
                                          words.begin() + static_cast< std::ptrdiff_t >( known ) );
      if( auto next = nextWords( begin ); !next.empty() ) {
         auto const whole = meant( words, known );
         throw Kiv::ParseError( "unknown command \"" +
                                Kiv::excerpt( joined( words, 0, known + 1 ) ) + "\"; " +
                                ( whole.empty() ? Tessera::suggestion( words[ known ], next )
                                                : "did you mean \"" + whole + "\"?" ) );
      }
   }
   throw Kiv::ParseError( "a request needs a command" );
}

String
Commands::meant( std::vector< String > const & words, std::size_t wrong ) const {
   auto mended = std::vector< String >( words.begin(),
                                        words.begin() + static_cast< std::ptrdiff_t >( wrong ) );
   for( auto i = wrong; i != words.size(); ++i ) {
      auto const next = nextWords( mended );
      bool const known = std::find( next.begin(), next.end(), words[ i ] ) != next.end();
      auto const * word = known ? &words[ i ] : Tessera::nearest( words[ i ], next );
      if( !word ) {
         return i == wrong ? String() : joined( mended, 0, mended.size() );
      }
      mended.push_back( *word );
   }
   return joined( mended, 0, mended.size() );
}

std::vector< String >
Commands::nextWords( std::vector< String > const & words ) const {
   auto prefix = joined( words, 0, words.size() );
   prefix += prefix.empty() ? "" : " ";
   std::vector< String > next;
   for( auto const & [ name, command ] : commands_ ) {
      if( name.starts_with( prefix ) ) {
         auto rest = name.substr( prefix.size() );
         auto word = rest.substr( 0, rest.find( ' ' ) );
         if( !word.empty() && ( next.empty() || next.back() != word ) ) {
            next.push_back( word );
         }
      }
   }
   return next;
}

void
Commands::valuesAre( String const & argument, Values values ) {
   values_[ argument ] = std::move( values );
}

std::vector< String >
Commands::valuesOf( String const & argument ) const {
   auto const found = values_.find( argument );
   return found == values_.end() ? std::vector< String >() : found->second();
}

std::vector< String >
Commands::candidates( std::vector< String > const & words, std::string_view half ) const {
   auto all = nextWords( words );
   auto rest = words;
   if( auto const * command = longest( rest ) ) {
      Datum given( Datum::Object{} );
      std::vector< Argument const * > left;
      try {
         addWords( *command, rest, given );
      } catch( Kiv::ParseError const & ) {
         return {};
      }
      for( auto const & argument : command->arguments ) {
         if( !given.find( argument.name ) ) {
            left.push_back( &argument );
         }
      }
      auto const equals = half.find( '=' );
      for( auto const * argument : left ) {
         bool const byName =
               equals != std::string_view::npos && half.substr( 0, equals ) == argument->name;
         // Of several that may be left out, which one it is must be said first.
         bool const inOrder =
               argument == left.front() && ( argument->required || left.size() == 1 );
         if( byName || inOrder ) {
            for( auto const & value : valuesOf( argument->name ) ) {
               all.push_back( byName ? argument->name + '=' + value : value );
            }
         } else if( !argument->required && equals == std::string_view::npos ) {
            all.push_back( argument->name + '=' );
         }
      }
   }
   std::erase_if( all, [ & ]( String const & word ) { return !word.starts_with( half ); } );
   return all;
}

Datum
Commands::run( Datum const & request, Client * client ) const {
   auto words = wordsOf( request );
   if( auto rest = words;
       request.find( "orHelp" ) && !longest( rest ) && !nextWords( words ).empty() ) {
      return help( joined( words, 0, words.size() ) );
   }
   auto const & command = find( words );
   auto arguments = argumentsOf( command, request, words );
   static Datum const none;
   auto const * id = request.find( "id" );
   Request const parsed( id ? *id : none, arguments, client );
   if( !command.isInput ) {
      return command.handler( parsed );
   }
   Kiv::DispatchRecorder::Scope recorded( Kiv::DispatchRecorder::Kind::input, [ & ] {
      return Kiv::DispatchRecorder::Text( command.name,
                                          " " + Kiv::datumText( arguments ).substr( 0, 500 ) );
   } );
   return command.handler( parsed );
}

Datum
Commands::help( String const & about ) const {
   TableAnswer table( { "COMMAND", "DOES" } );
   for( auto const & [ name, command ] : commands_ ) {
      if( about.empty() || name == about || name.starts_with( about + " " ) ) {
         table.row( { command.usage(), command.help } );
         for( auto const & argument : command.arguments ) {
            if( name == about ) {
               table.row( { "   " + argument.name, argument.help } );
            }
         }
      }
   }
   auto answer = table.take();
   if( answer.find( "rows" )->as< Datum::Array >()->empty() ) {
      auto words = wordsIn( about );
      find( words ); // says what there is instead
   }
   return answer;
}

TableAnswer::TableAnswer( std::vector< String > const & columns )
      : columns_( columns.begin(), columns.end() ) {}

String
counted( std::size_t count, std::string_view what ) {
   return std::to_string( count ) + ' ' + String( what ) + ( count == 1 ? "" : "s" );
}

void
TableAnswer::count( String const & what, String const & more ) {
   note( counted( rows_.size(), what ) + more );
}

void
TableAnswer::words( String const & column, String const & value, String const & text ) {
   words_[ column ][ value ] = text;
}

void
TableAnswer::member( String const & name, Datum value ) {
   members_.emplace_back( name, std::move( value ) );
}

Datum
TableAnswer::take() {
   Datum table( Datum::Object{} );
   table.add( "columns", std::move( columns_ ) );
   table.add( "rows", std::move( rows_ ) );
   if( !notes_.empty() ) {
      table.add( "notes", std::move( notes_ ) );
   }
   if( !words_.empty() ) {
      Datum columns( Datum::Object{} );
      for( auto const & [ column, words ] : words_ ) {
         columns.add( column, Datum::Object( words.begin(), words.end() ) );
      }
      table.add( "words", std::move( columns ) );
   }
   for( auto & [ name, value ] : members_ ) {
      table.add( name, std::move( value ) );
   }
   return table;
}

} // namespace HobaAgent
