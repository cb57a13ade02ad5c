// SPDX-License-Identifier: Apache-2.0
#pragma once

// The commands that the agent understands. Features bring theirs from files of their own:
//
//    commands.add( { .name = "show storm-control",
//                    .help = "levels and rates of every interface",
//                    .arguments = { { "intf", "only this interface" } },
//                    .handler = [ & ]( Request const & request ) { ... return answer; } } );
//
// A name may be several words. A request names a command and gives its arguments by name, or it
// brings the words that somebody typed, in which the longest name that fits is found and the rest
// are the arguments, in order or as name=value:
//
//    {"id":1, "command":"show storm-control", "intf":"Ethernet1"}
//    {"id":1, "command":"show", "words":["storm-control", "Ethernet1"]}
//
// "directory" says where whoever asks is, for the names of files; with "orHelp" the beginning of
// commands' names is answered with what help says of these.
//
// A handler answers data or throws Kiv::Exception, whose text goes to whoever asked. Answers in form
// of a table, {"columns":[...], "rows":[[...], ...], "notes":[...]}, are shown as one. Cells are for
// programs: enumerators have their names there, and "words" has what people read in their place,
//
//    "words":{"Type":{"learnedDynamicMac":"learned dynamic"}}

#include "Kiv/Datum.h"

#include <functional>
#include <map>
#include <vector>

namespace HobaAgent {

class Client;

struct Argument {
   Kiv::String name;
   Kiv::String help;
   bool required = false;
   bool rest = false;   // the last one: takes all words that are left, separated by spaces
   bool isFile = false; // a path: what is not absolute begins in the request's "directory"
};

// What a handler gets: the arguments, checked against the declaration, and who asks.
class Request {
 public:
   Request( Kiv::Datum const & id, Kiv::Datum const & arguments, Client * client )
         : id_( id ), arguments_( arguments ), client_( client ) {}

   Kiv::Datum const & id() const { return id_; }
   // Null when the argument is not given.
   Kiv::Datum const * find( std::string_view name ) const { return arguments_.find( name ); }
   bool has( std::string_view name ) const { return find( name ) != nullptr; }
   // The argument as text; `otherwise` when it is not given. Throws Kiv::ParseError if it is a list
   // or an object.
   Kiv::String text( std::string_view name, std::string_view otherwise = {} ) const;
   // The argument as a value of type T, from its printed form; `otherwise` when it is not given.
   // Throws Kiv::ParseError or Kiv::RangeException that names the argument.
   template< class T >
   T value( std::string_view name, T const & otherwise = {} ) const {
      if( !has( name ) ) {
         return otherwise;
      }
      auto const given = text( name );
      return Kiv::inPlace( name, [ & ] { return Kiv::fromText< T >( given ); } );
   }
   // What the argument, one of these words, stands for; what the first does when it is not given.
   // Throws Kiv::ParseError that names the argument.
   template< class T >
   T oneOf( std::string_view name,
            std::initializer_list< std::pair< std::string_view, T > > choices ) const {
      auto const given = text( name, choices.begin()->first );
      std::vector< std::string_view > words;
      for( auto const & [ word, value ] : choices ) {
         if( word == given ) {
            return value;
         }
         words.push_back( word );
      }
      isNoneOf( words, name, given );
   }
   // Who asked, for answers that go on coming; null when nobody listens.
   Client * client() const { return client_; }

 private:
   [[noreturn]] static void isNoneOf( std::vector< std::string_view > const & words,
                                      std::string_view name, std::string_view given );

   Kiv::Datum const & id_;
   Kiv::Datum const & arguments_;
   Client * client_;
};

struct Command {
   Kiv::String name;
   Kiv::String help;
   std::vector< Argument > arguments = {};
   std::function< Kiv::Datum( Request const & ) > handler;
   // It changes something, or brings an event: recorded as the cause of what happens then.
   bool isInput = false;

   // "show storm-control [INTF]"
   Kiv::String usage() const;
};

class Commands {
 public:
   Commands(); // knows "help"
   Commands( Commands const & ) = delete;
   Commands & operator=( Commands const & ) = delete;

   // Throws Kiv::Exception if there is a command of that name already.
   void add( Command command );

   // Runs what a request asks for. Throws Kiv::Exception: unknown command or argument, missing
   // argument, whatever the handler throws.
   Kiv::Datum run( Kiv::Datum const & request, Client * client = nullptr ) const;

   // The words that may follow `words` in the name of a command.
   std::vector< Kiv::String > nextWords( std::vector< Kiv::String > const & words ) const;

   // For the shell: what arguments of that name may be, of whichever command.
   using Values = std::function< std::vector< Kiv::String >() >;
   void valuesAre( Kiv::String const & argument, Values values );
   // What the word that begins with `half` may become behind `words`: a further word of a command's
   // name, a value of the next argument, or NAME= and, behind it, a value.
   std::vector< Kiv::String > candidates( std::vector< Kiv::String > const & words,
                                          std::string_view half ) const;

   std::map< Kiv::String, Command > const & all() const { return commands_; }

 private:
   // The command with the longest name that the words begin with, null if there is none; takes its
   // words away.
   Command const * longest( std::vector< Kiv::String > & words ) const;
   // The same; throws Kiv::ParseError if there is none.
   Command const & find( std::vector< Kiv::String > & words ) const;
   // The words with slips mended, as far as they name commands: the first that is wrong stands at
   // `wrong`. Empty if it is like nothing.
   Kiv::String meant( std::vector< Kiv::String > const & words, std::size_t wrong ) const;
   std::vector< Kiv::String > valuesOf( Kiv::String const & argument ) const;
   Kiv::Datum help( Kiv::String const & about ) const;

   std::map< Kiv::String, Command > commands_;
   std::map< Kiv::String, Values > values_;
};

// The words of a text, which spaces separate.
std::vector< Kiv::String > wordsIn( std::string_view text );

// "1 port", "2 ports".
Kiv::String counted( std::size_t count, std::string_view what );

// A table as commands answer it.
class TableAnswer {
 public:
   explicit TableAnswer( std::vector< Kiv::String > const & columns );
   void row( Kiv::Datum::Array cells ) { rows_.emplace_back( std::move( cells ) ); }
   void note( Kiv::String text ) { notes_.emplace_back( std::move( text ) ); }
   // A note "1 port", "2 ports, 1 up": how many rows there are, of what.
   void count( Kiv::String const & what, Kiv::String const & more = {} );
   // People read `text` where a cell of the column is `value`.
   void words( Kiv::String const & column, Kiv::String const & value, Kiv::String const & text );
   // For programs: a member of the answer beside the table.
   void member( Kiv::String const & name, Kiv::Datum value );
   Kiv::Datum take();

 private:
   Kiv::Datum::Array columns_;
   Kiv::Datum::Array rows_;
   Kiv::Datum::Array notes_;
   std::map< Kiv::String, std::map< Kiv::String, Kiv::String > > words_;
   Kiv::Datum::Object members_;
};

} // namespace HobaAgent
