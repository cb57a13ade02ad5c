// SPDX-License-Identifier: Apache-2.0
#pragma once

// The tables of imported configurations that have a place in this system. Each feature adds its own:
//
//    tables.add( { .name = "PORTCHANNEL_MEMBER",
//                  .refersTo = { { "PORTCHANNEL", [ config ]( Key const & lag ) { ... } },
//                                { "PORT", [ config ]( Key const & port ) { ... } } },
//                  .has = [ config ]( Key const & key ) { ... },
//                  .map = [ config ]( Row & row ) {
//                     auto const [ lagName, portName ] = row.key().parts( "PortChannel<n>|Ethernet<n>" );
//                     auto const lag = row.existing< Pelt::PortChannelIntfId >( lagName, { "PORTCHANNEL" } );
//                     ...
//                     row.operationIs( "Ethernet1 in Port-Channel3", [ config, port, lag ] { ... } );
//                  },
//                  .del = [ config ]( Row & row ) { ... } } );
//
// A row is checked and then applied before the next one is looked at. So a mapper asks its entities
// what there is, and nothing else; and a row is taken whole or not at all, because what refuses it
// is thrown before anything is applied.

#include "Kiv/Datum.h"
#include "Kiv/HashMap.h"

#include <array>
#include <functional>
#include <optional>
#include <string_view>
#include <vector>

namespace Import {

class Tables;

// What names a row, as it stands in the file: "Ethernet1", "PortChannel3|Ethernet1"; in files of
// operations "PortChannel3:Ethernet1".
class Key {
 public:
   explicit Key( Kiv::String text, char separator = '|' )
         : text_( std::move( text ) ), separator_( separator ) {}

   Kiv::String const & text() const { return text_; }
   char separator() const { return separator_; }

   // The key as an Id, or any other type with a printed form. Throws Kiv::ParseError for a text that
   // is none, Kiv::RangeException for a number out of bounds.
   template< class Id >
   Id id() const {
      return Kiv::fromText< Id >( text_ );
   }
   // The parts of a key, as many as `form`, "PortChannel<n>|Ethernet<n>", has. Colons may stand in
   // the last one, as in an IPv6 address. They live as long as the key. Throws Kiv::ParseError that
   // says what was expected.
   template< std::size_t count = 2 >
   std::array< std::string_view, count > parts( std::string_view form ) const {
      std::array< std::string_view, count > found;
      split( form, found.data(), count );
      return found;
   }

 private:
   void split( std::string_view form, std::string_view * parts, std::size_t count ) const;

   Kiv::String text_;
   char separator_;
};

// One row, in the hands of a mapper. What its readers throw is Kiv::ParseError that names the field;
// a mapper lets it through, and the row is refused. Fields that no reader asked for have no place in
// this system: the report says so, and a strict table refuses the row.
class Row {
 public:
   // `tables` and `fields` must outlive the row. Throws Kiv::ParseError if `fields` is no object.
   Row( Tables const & tables, std::string_view table, Key key, Kiv::Datum const & fields );

   Key const & key() const { return key_; }

   // Readers of a field: nothing when the row does not have it. A number or a truth value may stand
   // without quotes.
   std::optional< Kiv::String > text( std::string_view field );
   std::optional< std::uint64_t > number( std::string_view field, std::uint64_t max );
   // A value of any type with a printed form.
   template< class T >
   std::optional< T > value( std::string_view field ) {
      return read( field, []( Kiv::String const & text ) { return Kiv::fromText< T >( text ); } );
   }
   // What the word in the field stands for; in small letters or capitals: Python says "True".
   template< class T >
   std::optional< T > oneOf( std::string_view field,
                             std::initializer_list< std::pair< std::string_view, T > > choices ) {
      return read( field, [ & ]( Kiv::String const & text ) {
         std::vector< std::string_view > words;
         for( auto const & [ word, meaning ] : choices ) {
            if( sameWord( word, text ) ) {
               return meaning;
            }
            words.push_back( word );
         }
         isNoneOf( words, text );
      } );
   }
   std::optional< bool > either( std::string_view field, std::string_view yes,
                                 std::string_view no ) {
      return oneOf< bool >( field, { { yes, true }, { no, false } } );
   }
   // What `element`, called with the text of each element, returns. The field is a list, or, in
   // files whose fields are strings, a text with commas between; an empty text is no element. What
   // is thrown names the field and the element, "ports[1]".
   template< class Element >
   auto list( std::string_view field, Element const & element )
         -> std::optional< std::vector< decltype( element( Kiv::String() ) ) > > {
      auto const texts = listOf( field );
      if( !texts ) {
         return std::nullopt;
      }
      std::vector< decltype( element( Kiv::String() ) ) > values;
      for( auto const & text : *texts ) {
         values.push_back( Kiv::inPlace( elementName( field, values.size() ),
                                         [ & ] { return element( text ); } ) );
      }
      return values;
   }
   // What a reader found of a field that the row must have. Throws Kiv::ParseError if it is nothing.
   template< class T >
   static T needed( std::string_view field, std::optional< T > const & value ) {
      return value ? *value : throw missing( field );
   }

   // Something of that name, which a row of one of the tables made, now or long ago. Only tables
   // that the row's own table refers to. Throws Kiv::ParseError when there is none, or the name is
   // none.
   template< class Id >
   Id existing( std::string_view name, std::initializer_list< std::string_view > tables ) const {
      auto const id = Kiv::fromText< Id >( name );
      checkExists( name, tables );
      return id;
   }

   // What the row is about, in this system's spelling; the key unless said. Throws
   // Kiv::ParseError when another row of the table is about the same, in a file in which all rows
   // hold at once.
   void identityIs( Kiv::String identity );
   // Something that people should know of a row that is taken.
   void remark( Kiv::String what ) { remarks_.push_back( std::move( what ) ); }
   // What the row becomes: in a few words, and what makes it so, which is called after all mappers
   // of the row have returned. Last, when nothing can refuse the row any more; once a mapper.
   void operationIs( Kiv::String what, std::function< void() > apply );

   // ---- For the importer.

   // By what the rows of a table are about: the key of the row that was taken.
   using Taken = Kiv::HashMap< Kiv::String, Kiv::String >;
   void takenIs( Taken const * taken ) { taken_ = taken; }
   Kiv::String const & identity() const { return identity_; }
   std::vector< Kiv::String > const & remarks() const { return remarks_; }
   // The words of all operations; "" if there is none.
   Kiv::String const & what() const { return what_; }
   void apply() const;
   std::vector< Kiv::String > unreadFields() const;

 private:
   static bool sameWord( std::string_view a, std::string_view b );
   [[noreturn]] static void isNoneOf( std::vector< std::string_view > const & words,
                                      std::string_view text );
   static Kiv::ParseError missing( std::string_view field );
   static Kiv::String elementName( std::string_view field, std::size_t place );
   std::optional< std::vector< Kiv::String > > listOf( std::string_view field );
   void checkExists( std::string_view name,
                     std::initializer_list< std::string_view > tables ) const;
   template< class Read >
   auto read( std::string_view field, Read const & read )
         -> std::optional< decltype( read( Kiv::String() ) ) > {
      auto const found = text( field );
      if( !found ) {
         return std::nullopt;
      }
      return Kiv::inPlace( field, [ & ] { return read( *found ); } );
   }

   Tables const & tables_;
   std::string_view table_;
   Key key_;
   Kiv::Datum const & fields_;
   Taken const * taken_ = nullptr;
   std::vector< Kiv::String > read_;
   Kiv::String identity_;
   std::vector< Kiv::String > remarks_;
   Kiv::String what_;
   std::vector< std::function< void() > > operations_;
};

// Rows of a table refer to rows of another.
struct Reference {
   std::string_view table;
   // The key of a row that there is and that refers to that one of `table`; "" if none does. It
   // keeps that one from being deleted. Null: referring to it keeps nothing.
   std::function< Kiv::String( Key const & key ) > referrer = {};
};

// A table that has a place in this system. All names live as long as the program.
struct Table {
   std::string_view name;
   std::vector< Reference > refersTo = {};
   // A row with a field that no reader asked for is refused: what it does not say might mean more
   // than what it says, as of a match in an access list.
   bool strict = false;
   // Whether there is what a row of that key makes. Throws Kiv::ParseError or Kiv::RangeException
   // for what is no such key. Needed if rows can be deleted or others refer to them.
   std::function< bool( Key const & key ) > has = {};
   // Checks a row and calls row.operationIs().
   std::function< void( Row & row ) > map;
   // The same for a row that is to go. It is there, and nothing refers to it. Its fields do not
   // count. Null: rows of this table cannot be deleted.
   std::function< void( Row & row ) > del = {};
};

// Fields that a feature reads of the rows of another feature's table, such as the MTU of a port. Its
// operation comes after that of the table. Its mapper need not call row.operationIs() if the row has
// none of its fields; `del` is called when a row goes, if there is one.
struct Fields {
   std::string_view table;
   std::vector< Reference > refersTo = {};
   std::function< void( Row & row ) > map;
   std::function< void( Row & row ) > del = {};
};

class Tables {
 public:
   // In the order in which rows are taken of a file in which all hold at once. Throws
   // Kiv::Exception if there is that table already, or one refers to it that was added before: its
   // rows would find nothing. A table that nobody ever adds may be referred to.
   void add( Table table );
   // Before or after the table itself; without it, these fields are never read. Throws
   // Kiv::Exception if they refer to a table that was added after theirs.
   void addFields( Fields fields );

   std::vector< Table > const & all() const { return tables_; }
   // Null if there is no such table.
   Table const * find( std::string_view name ) const;
   // Whether there is what a row of that table and key makes. As Table::has; false without one.
   bool has( std::string_view table, Key const & key ) const;
   // "TABLE|key" of a row that refers to that one; "" if none does.
   Kiv::String referrer( std::string_view table, Key const & key ) const;
   bool refers( std::string_view table, std::string_view to ) const;

   // What all who read rows of the table make of one. Throw what the mappers throw.
   void map( Table const & table, Row & row ) const;
   void del( Table const & table, Row & row ) const;

 private:
   std::vector< Table > tables_;
   std::vector< Fields > fields_;
};

} // namespace Import
