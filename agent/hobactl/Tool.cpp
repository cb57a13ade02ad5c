// SPDX-License-Identifier: Apache-2.0
#include "agent/hobactl/Tool.h"

#include "Kiv/Utf8.h"
#include "Tessera/Suggest.h"
#include "agent/common/File.h"
#include "agent/common/Json.h"
#include "agent/common/Version.h"
#include "agent/hobactl/Connection.h"
#include "agent/hobactl/Render.h"
#include "agent/hobactl/Tables.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <ostream>
#include <thread>

namespace Hobactl {

using Kiv::Datum;

namespace {

// What is wrong before anybody is asked.
class CommandLineError : public Kiv::Exception {
 public:
   using Exception::Exception;
};

struct Options {
   std::string socket = HobaAgent::defaultSocketPath();
   bool json = false;
   double timeout = 30;
   // Of the commands; each uses some.
   std::string path = "/";
   std::string value;
   std::string file;
   bool asText = false;
   bool configuration = false;
   std::vector< std::string > words;
   // Of trace.
   std::string handle, levels, text, enable, tree, exportFile;
   std::uint64_t last = 100;
   bool follow = false;
   bool handles = false;
};

Datum
requestOf( std::string_view command ) {
   Datum request( Datum::Object{} );
   request.add( "command", command );
   return request;
}

class Tool {
 public:
   Tool( Options const & options, std::ostream & out, std::ostream & err )
         : options_( options ), out_( out ), err_( err ), style_( terminalStyle() ) {}

   void get() {
      auto request = atPath( "get" );
      if( options_.configuration ) {
         request.add( "scope", "configuration" );
      }
      show( connection().ask( request ) );
   }

   // What looks like a structure is one: nobody names an interface "{...}".
   void set() {
      auto request = atPath( "set" );
      bool structure = !options_.value.empty() &&
                       ( options_.value.front() == '{' || options_.value.front() == '[' );
      if( structure && !options_.asText ) {
         try {
            request.add( "value", HobaAgent::parseJson( options_.value ) );
         } catch( HobaAgent::JsonError const & error ) {
            throw CommandLineError( std::string( "value: " ) + error.what() );
         }
      } else {
         request.add( "text", options_.value );
      }
      show( connection().ask( request ) );
   }

   void onPath( char const * command ) { show( connection().ask( atPath( command ) ) ); }

   void apply() {
      auto request = requestOf( "apply" );
      request.add( "tree", HobaAgent::parseJsonFile( options_.file ) );
      show( connection().ask( request ) );
   }

   void watch() {
      auto agent = connection();
      agent.ask( atPath( "watch" ) );
      agent.events( [ & ]( Datum const & event ) {
         out_ << ( options_.json ? HobaAgent::jsonText( event ) + "\n" : changeLine( event ) );
         checkOutput();
      } );
   }

   void words( std::string const & command ) {
      if( command == "show" && isAboutTables( options_.words ) ) {
         showTables( options_.words, options_.json, style_, out_ );
      } else if( command == "help" ) {
         help( options_.words );
      } else if( command == "show" && options_.words.empty() ) {
         whatCanBeShown();
      } else {
         auto const answer = answerTo( command, options_.words );
         auto const * mismatches = answer.find( "mismatches" );
         if( mismatches && Kiv::fromDatum< std::uint64_t >( *mismatches ) != 0 ) {
            status_ = statusDoneBut;
         }
         show( answer );
      }
   }

   Status status() const { return status_; }

   // Whoever read us has gone: no reason to go on.
   void checkOutput() const {
      if( !out_.flush() ) {
         throw Kiv::Exception( "the output cannot be written" );
      }
   }

   // For the shell: one candidate a line; of the agent's nothing if it cannot be asked.
   void complete() {
      auto const half = options_.path == "/" ? std::string() : options_.path;
      for( auto const & word : nextWordsForTables( options_.value ) ) {
         out_ << ( word.starts_with( half ) ? word + "\n" : "" );
      }
      try {
         auto request = requestOf( "complete command" );
         request.add( "name", options_.value );
         request.add( "half", half );
         auto answer = connection().ask( options_.asText ? request : atPath( "complete" ) );
         for( auto const & path : *answer.as< Datum::Array >() ) {
            out_ << oneLine( path ) << "\n";
         }
      } catch( Kiv::Exception const & ) {
      }
   }

   void trace() {
      if( options_.handles ) {
         show( connection().ask( requestOf( "trace handles" ) ) );
      } else if( !options_.enable.empty() ) {
         enable();
      } else if( !options_.tree.empty() ) {
         tree();
      } else if( !options_.exportFile.empty() ) {
         HobaAgent::writeFile(
               options_.exportFile,
               HobaAgent::jsonText( connection().ask( requestOf( "trace export" ) ) ) + "\n" );
      } else {
         records();
      }
   }

 private:
   Connection connection() {
      return Connection( options_.socket, options_.timeout, [ this ]( Datum const & warning ) {
         err_ << "hobactl: warning: " << oneLine( warning ) << "\n";
         status_ = statusDoneBut;
      } );
   }

   Datum answerTo( std::string const & command, std::vector< std::string > const & words ) {
      auto request = requestOf( command );
      request.add( "words", Datum::Array( words.begin(), words.end() ) );
      request.add( "orHelp", true );
      std::error_code unknown;
      if( auto const directory = std::filesystem::current_path( unknown ); !unknown ) {
         request.add( "directory", directory.string() );
      }
      return connection().ask( request );
   }

   void whatCanBeShown() {
      try {
         help( { "show" } );
      } catch( Kiv::Exception const & error ) {
         throw Kiv::Exception( std::string( error.what() ) + "; show tables needs no agent" );
      }
   }

   // What needs no agent is explained without one, too.
   void help( std::vector< std::string > const & about ) {
      bool const ours = about.empty() || ( about.front() == "show" &&
                                           ( about.size() == 1 || about[ 1 ] == "tables" ) );
      auto const answer = ours && about.size() > 1 ? Datum() : answerTo( "help", about );
      show( ours ? withHelpForTables( answer ) : answer );
   }

   Datum atPath( std::string_view command ) const {
      auto request = requestOf( command );
      request.add( "path", options_.path );
      return request;
   }

   void show( Datum const & answer ) {
      out_ << ( options_.json ? HobaAgent::jsonText( answer, 2 ) + "\n"
                              : render( answer, style_ ) );
   }

   void enable() {
      auto equals = options_.enable.find( '=' );
      if( equals == std::string::npos ) {
         throw CommandLineError( "--enable: expected HANDLE=LEVELS, such as HobaCommon=0-5" );
      }
      auto request = requestOf( "trace levels" );
      request.add( "handle", options_.enable.substr( 0, equals ) );
      request.add( "levels", options_.enable.substr( equals + 1 ) );
      show( connection().ask( request ) );
   }

   void tree() {
      bool state = options_.tree == "on" || options_.tree == "off";
      auto request = requestOf( state ? "trace record" : "trace tree" );
      request.add( state ? "state" : "count", options_.tree );
      show( connection().ask( request ) );
   }

   void records() {
      auto agent = connection();
      auto request = requestOf( "trace" );
      for( auto const & [ name, value ] :
           { std::pair( "handle", options_.handle ), std::pair( "levels", options_.levels ),
             std::pair( "text", options_.text ) } ) {
         if( !value.empty() ) {
            request.add( name, value );
         }
      }
      auto first = request;
      first.add( "last", options_.last );
      auto answer = agent.ask( first );
      showRecords( answer );
      while( options_.follow ) {
         std::this_thread::sleep_for( std::chrono::milliseconds( 200 ) );
         auto next = request;
         next.add( "since", *answer.find( "next" ) );
         answer = agent.ask( next );
         showRecords( answer );
      }
   }

   void showRecords( Datum const & answer ) {
      if( options_.json && !options_.follow ) {
         show( answer );
         return;
      }
      for( auto const & record : *answer.find( "records" )->as< Datum::Array >() ) {
         out_ << ( options_.json ? HobaAgent::jsonText( record ) + "\n" : recordLine( record ) );
      }
      checkOutput();
   }

   Options const & options_;
   std::ostream & out_;
   std::ostream & err_;
   Style const style_;
   Status status_ = statusDone;
};

// The command line, and what each command does.
class CommandLine {
 public:
   explicit CommandLine( std::function< Tool() > tool ) : tool_( std::move( tool ) ) {
      app.require_subcommand( 1 );
      app.set_version_flag( "--version", "hobactl " + HobaAgent::versionText() );
      app.footer(
            "Every other word begins a command of the running agent: hobactl help lists them.\n"
            "Exit status: 0 done; 1 refused by the agent, or it cannot be asked; 2 wrong command "
            "line;\n3 done, but verify found a mismatch, or steps failed upon it." );
      app.add_option( "--socket", options.socket, "Where the agent listens" )
            ->type_name( "PATH" )
            ->check( []( std::string const & path ) {
               return std::string( path.empty() ? "a path is expected, and this one is empty"
                                                : "" );
            } )
            ->capture_default_str();
      app.add_flag( "--json", options.json, "Answers as JSON" );
      app.add_option( "--timeout", options.timeout, "How long an answer may take" )
            ->type_name( "SECONDS" )
            ->check( CLI::Range( 0.001, 86400.0 ) )
            ->capture_default_str();
      addDatabase();
      addWords( "show",
                "What the features have to tell, and the shared tables; without words: what "
                "can be shown" );
      addWords( "help", "All commands that the agent understands, or about one of them" );
      addTrace();
   }

   // Whether the agent is to understand it; what this tool does not know by itself is passed on.
   bool isOfAgent( std::string const & command ) {
      auto const known = !app.get_subcommands( [ & ]( CLI::App const * own ) {
                                return own->get_name() == command;
                             } ).empty();
      if( !known ) {
         if( command.empty() ||
             command.find_first_not_of( "abcdefghijklmnopqrstuvwxyz-" ) != command.npos ) {
            throw CommandLineError( '"' + Kiv::excerpt( command ) +
                                    "\" is no command: hobactl help lists them" );
         }
         addWords( command, "" );
      }
      return !known || command == "show" || command == "help";
   }

   std::string whatIsMissing() const {
      std::vector< std::string > known;
      for( auto const * command : app.get_subcommands( nullptr ) ) {
         if( !command->get_group().empty() ) {
            known.push_back( command->get_name() );
         }
      }
      return "a command is needed; " + Tessera::suggestion( {}, known ) +
             ", and what the agent understands: hobactl help";
   }

   CLI::App app{ "Talks to the forwarding agent.", "hobactl" };
   Options options;
   Status status = statusDone;

 private:
   CLI::App * add( char const * name, char const * help, std::function< void( Tool & ) > run ) {
      auto * command = app.add_subcommand( name, help );
      command->fallthrough();
      command->callback( [ this, run = std::move( run ) ] {
         auto tool = tool_();
         run( tool );
         tool.checkOutput();
         status = tool.status();
      } );
      return command;
   }

   void addPath( CLI::App * command, bool required ) {
      command
            ->add_option( "path", options.path,
                          "Path in the state database, as in /a/b[Ethernet1/2]/c" )
            ->type_name( "PATH" )
            ->required( required );
   }

   void addDatabase() {
      auto * get = add( "get", "Show everything at and below a path", []( Tool & t ) { t.get(); } );
      addPath( get, false );
      get->add_flag( "--configuration", options.configuration,
                     "Only what is configuration, in the form that apply takes" );
      auto * set = add( "set", "Write an attribute, a field of one, or whole entities",
                        []( Tool & t ) { t.set(); } );
      addPath( set, true );
      set->add_option( "value", options.value, "The value; JSON if it begins with { or [" )
            ->type_name( "VALUE" )
            ->required();
      set->add_flag( "--text", options.asText, "The value is text, whatever it begins with" );
      addPath(
            add( "del", "Delete a member of a collection", []( Tool & t ) { t.onPath( "del" ); } ),
            true );
      addPath( add( "list", "The names that may follow a path",
                    []( Tool & t ) { t.onPath( "list" ); } ),
               false );
      addPath(
            add( "watch", "Show every change at and below a path", []( Tool & t ) { t.watch(); } ),
            false );
      auto * apply = add( "apply", "Write a configuration file, all of it or nothing",
                          []( Tool & t ) { t.apply(); } );
      apply->add_option( "file", options.file, "JSON: paths or directories, as get answers them" )
            ->type_name( "FILE" )
            ->required();
      auto * complete = add( "complete", "Paths for the shell", []( Tool & t ) { t.complete(); } );
      complete->group( "" );
      complete->add_option( "path", options.path );
      complete->add_option_function< std::string >( "--command",
                                                    [ this ]( std::string const & words ) {
                                                       options.value = words;
                                                       options.asText = true;
                                                    } );
   }

   void addWords( std::string const & command, char const * help ) {
      auto * words = add( command.c_str(), help, [ command ]( Tool & t ) { t.words( command ); } );
      words->add_option( "words", options.words,
                         "What exactly; arguments in order or as NAME=VALUE" )
            ->type_name( "WORDS" );
   }

   void addTrace() {
      auto * trace =
            add( "trace", "Trace records; what caused what", []( Tool & t ) { t.trace(); } );
      trace->add_option( "--handle", options.handle, "Only records of this source file" );
      trace->add_option( "--levels", options.levels, "Only these levels, as in 0-5,9" );
      trace->add_option( "--text", options.text, "Only messages with this text" );
      trace->add_option( "--last", options.last, "Only so many, the newest" )
            ->check( []( std::string const & text ) {
               bool const isNumber = text.find_first_not_of( "0123456789" ) == std::string::npos;
               return std::string( isNumber ? "" : "a whole number is expected" );
            } )
            ->capture_default_str();
      trace->add_flag( "-f,--follow", options.follow, "Go on with what comes" );
      trace->add_flag( "--handles", options.handles, "List the source files and their levels" );
      trace->add_option( "--enable", options.enable,
                         "Set what a source file traces: HANDLE=0-9, or all, none, default; "
                         "HANDLE may be *" );
      trace->add_option( "--tree", options.tree,
                         "Record what causes what: on, off; or show the last causes: how many" )
            ->expected( 0, 1 )
            ->default_str( "1" );
      trace->add_option( "--export", options.exportFile,
                         "Write what was recorded to a file for trace viewers" );
   }

   std::function< Tool() > tool_;
};

// Command line errors come in several lines; the first says it.
std::string
firstLine( std::string_view text ) {
   return std::string( text.substr( 0, text.find( '\n' ) ) );
}

} // namespace

namespace {

bool
isOneOf( std::string const & text, std::initializer_list< char const * > names ) {
   return std::find( names.begin(), names.end(), text ) != names.end();
}

// The first word that is no option, or the value of one.
std::vector< std::string >::iterator
commandIn( std::vector< std::string > & all ) {
   auto word = all.begin();
   while( word != all.end() && word->starts_with( '-' ) ) {
      bool const hasValue = isOneOf( *word, { "--socket", "--timeout" } );
      word += std::min< std::ptrdiff_t >( hasValue ? 2 : 1, all.end() - word );
   }
   return word;
}

// What the agent's own commands take may be given as options, too: --port Ethernet1 is
// port=Ethernet1 then.
void
nameArguments( std::vector< std::string > & all, std::vector< std::string >::iterator word ) {
   for( ; word != all.end() && *word != "--"; ++word ) {
      if( !word->starts_with( "--" ) ||
          isOneOf( word->substr( 0, word->find( '=' ) ),
                   { "--json", "--socket", "--timeout", "--help" } ) ) {
         continue;
      }
      word->erase( 0, 2 );
      if( auto const value = std::next( word );
          word->find( '=' ) == std::string::npos && value != all.end() ) {
         *word += '=' + *value;
         all.erase( value );
      }
   }
}

// In `set PATH -5` the number is no option. It goes to the end, behind what ends the options.
std::vector< std::string >
argumentsOf( int argc, char const * const * argv, CommandLine & commandLine ) {
   std::vector< std::string > all( argv + 1, argv + argc );
   for( auto const & word : all ) {
      // It would come to the agent as another one.
      if( !Kiv::isUtf8( word ) ) {
         throw CommandLineError( '"' + Kiv::excerpt( word ) + "\" is not UTF-8" );
      }
   }
   auto const command = commandIn( all );
   if( command != all.end() && commandLine.isOfAgent( *command ) ) {
      nameArguments( all, command );
   }
   auto isNegative = []( std::string const & text ) {
      return text.size() > 1 && text[ 0 ] == '-' &&
             text.find_first_not_of( "0123456789.eE+-", 1 ) == std::string::npos && text != "--";
   };
   bool sets = std::find( all.begin(), all.end(), "set" ) != all.end();
   bool ended = std::find( all.begin(), all.end(), "--" ) != all.end();
   auto number = std::find_if( all.begin(), all.end(), isNegative );
   if( sets && !ended && number != all.end() ) {
      auto value = *number;
      all.erase( number );
      all.insert( all.end(), { "--", value } );
   }
   std::reverse( all.begin(), all.end() ); // as the parser takes them
   return all;
}

} // namespace

int
runTool( int argc, char const * const * argv, std::ostream & out, std::ostream & err ) {
   CommandLine * line = nullptr;
   CommandLine commandLine( [ & ] { return Tool( line->options, out, err ); } );
   line = &commandLine;
   try {
      commandLine.app.parse( argumentsOf( argc, argv, commandLine ) );
      return commandLine.status;
   } catch( CLI::ParseError const & error ) {
      if( error.get_exit_code() == 0 ) {
         return commandLine.app.exit( error, out, err );
      }
      if( dynamic_cast< CLI::RequiredError const * >( &error ) &&
          commandLine.app.get_subcommands().empty() ) {
         err << "hobactl: " << commandLine.whatIsMissing() << "\n";
         return statusCommandLine;
      }
      err << "hobactl: " << firstLine( error.what() ) << "\n";
      return statusCommandLine;
   } catch( CommandLineError const & error ) {
      err << "hobactl: " << oneLine( Datum( std::string( error.what() ) ) ) << "\n";
      return statusCommandLine;
   } catch( std::exception const & error ) {
      err << "hobactl: " << oneLine( Datum( std::string( error.what() ) ) ) << "\n";
      return statusFailed;
   }
}

} // namespace Hobactl
