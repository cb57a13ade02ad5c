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
// "directory" says where whoever asks is, for the names of files.
//
// A handler answers data or throws Kiv::Exception, whose text goes to whoever asked. Answers in form
// of a table, {"columns":[...], "rows":[[...], ...], "notes":[...]}, are shown as one.

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
   bool rest = false; // the last one: takes all words that are left, separated by spaces
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
      return has( name )
                   ? Kiv::inPlace( name, [ & ] { return Kiv::fromText< T >( text( name ) ); } )
                   : otherwise;
   }
   // Who asked, for answers that go on coming; null when nobody listens.
   Client * client() const { return client_; }

 private:
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

   std::map< Kiv::String, Command > const & all() const { return commands_; }

 private:
   Command const & find( std::vector< Kiv::String > & words ) const;
   Kiv::Datum help( Request const & request ) const;

   std::map< Kiv::String, Command > commands_;
};

// The words of a text, which spaces separate.
std::vector< Kiv::String > wordsIn( std::string_view text );

// A table as commands answer it.
class TableAnswer {
 public:
   explicit TableAnswer( std::vector< Kiv::String > const & columns );
   void row( Kiv::Datum::Array cells ) { rows_.emplace_back( std::move( cells ) ); }
   void note( Kiv::String text ) { notes_.emplace_back( std::move( text ) ); }
   Kiv::Datum take();

 private:
   Kiv::Datum::Array columns_;
   Kiv::Datum::Array rows_;
   Kiv::Datum::Array notes_;
};

} // namespace HobaAgent
