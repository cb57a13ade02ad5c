// SPDX-License-Identifier: Apache-2.0
#pragma once

// Entities, values and a machine for the tests of the object framework: one attribute of every
// kind, and reactors whose handlers do what the test at hand tells them.

#include "Kiv/ClockReactor.h"
#include "Kiv/Entity.h"
#include "Kiv/Reactor.h"
#include "Kiv/Value.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace Example {

KIV_ENUM( Colour, std::uint8_t, red, green = 4, blue );
KIV_RANGED( Percent, std::uint8_t, 1, 100, 10, "Example::Percent::value < 1 or > 100 not allowed" );

struct Point {
   KIV_VALUE( Example::Point );
   KIV_FIELD( std::int32_t, x, 1 );
   KIV_FIELD( std::uint8_t, y );
   KIV_FIELD( Colour, colour, green );
};

struct Shape {
   KIV_VALUE( Example::Shape );
   KIV_FIELD( Kiv::String, label );
   KIV_FIELD( Point, origin );
   KIV_FIELD( Percent, share );
   KIV_FIELD( bool, filled, true );
   KIV_FIELD( double, scale, 0.5 );
};

class Leaf : public Kiv::Entity {
   KIV_ENTITY( Example::Leaf );
   KIV_ATTRIBUTE( Point, spot );
   KIV_ATTRIBUTE( bool, enabled, true );
   KIV_COLLECTION( std::uint16_t, Point, mark );

 public:
   explicit Leaf( Kiv::String const & leafName ) : Entity( leafName ) {}
};

// Cannot be made from a key alone.
class Bare : public Kiv::Entity {
   KIV_ENTITY( Example::Bare );
   KIV_ATTRIBUTE( Kiv::String, note );

 public:
   Bare( std::uint16_t, Kiv::String const & bareNote ) : note_( bareNote ) {}
};

class Node : public Kiv::Entity {
   KIV_ENTITY( Example::Node );
   KIV_ATTRIBUTE( std::int32_t, a );
   KIV_ATTRIBUTE( std::int32_t, b, 5 );
   KIV_ATTRIBUTE( Kiv::String, text, "none" );
   KIV_ATTRIBUTE( Shape, shape );
   KIV_ATTRIBUTE( Kiv::Ptr< Leaf const >, peer );
   KIV_ANNOUNCED( std::uint16_t, pulse );
   KIV_COUNTER( std::uint32_t, reviews );
   KIV_SET( std::uint16_t, tag );
   KIV_COLLECTION( Kiv::String, Point, point );
   KIV_COLLECTION( int, int, loud, Kiv::everySet );
   KIV_COLLECTION( int, int, own, Kiv::onEverySet( &Node::handleOwn ) );
   KIV_COUNTERS( Colour, std::uint64_t, seen );
   KIV_KEYED( Shape, Kiv::String, label, byLabel );
   KIV_ORDERED( std::uint32_t, Kiv::String, line );
   KIV_QUEUE( std::uint8_t, job );
   KIV_STACK( Kiv::String, undo );
   KIV_CHILD( Leaf, leaf );
   KIV_CHILDREN( Kiv::String, Leaf, leaves );
   KIV_CHILDREN( std::uint16_t, Bare, odd, Kiv::everySet );

 public:
   explicit Node( Kiv::String const & nodeName = "n" ) : Entity( nodeName ) {}
   virtual void handleOwn( int const & key ) { ownSets.push_back( key ); }
   std::vector< int > ownSets;
};

class WideNode : public Node {
   KIV_ENTITY( Example::WideNode, Example::Node );
   KIV_ATTRIBUTE( bool, wide, true );

 public:
   explicit WideNode( Kiv::String const & nodeName ) : Node( nodeName ) {}
};

// Words, one after the other with blanks between: what was heard since it was last taken.
struct Words {
   std::string text;

   void add( std::string const & word ) { text += text.empty() ? word : " " + word; }
   std::string take() { return std::exchange( text, {} ); }
};

// Hears every attribute of one entity, as "tag[4]".
class Listener : public Kiv::PtrInterface::NotifieeConst {
 public:
   using Heard = std::function< void( std::string const & ) >;
   Listener( Kiv::Entity const & entity, Heard heard );
   Kiv::Type const & fwkType() const override { return Kiv::typeInstance< Listener >; }
   void onAttribute( Kiv::AttributeId const & attribute, void const * key ) override;

 private:
   Heard heard_;
};

// A node, and what is heard of it.
class NodeTest : public testing::Test {
 protected:
   std::string heard() { return words_.take(); }
   Kiv::Ptr< Node > const node = Kiv::make< WideNode >( "w" );

 private:
   Words words_;
   Kiv::Ptr< Listener > const listener_ =
         Kiv::make< Listener >( *node, [ this ]( auto const & what ) { words_.add( what ); } );
};

// What handlers write to, and what they do besides: the action is found by the word written.
struct Script : Words {
   std::map< std::string, std::function< void() > > actions;

   void heard( std::string const & what ) {
      add( what );
      if( auto found = actions.find( what ); found != actions.end() ) {
         auto action = found->second;
         action();
      }
   }
};

// What machines have in common.
class Owner : public Kiv::PtrInterface, public Kiv::ReactorOwner {
 public:
   void hasNotificationActiveIs( bool active ) override {
      PtrInterface::hasNotificationActiveIs( active );
      reactorsActiveIs( active );
   }
   bool initialized() const { return initialized_; }
   void initializedIs( bool initialized ) {
      initialized_ = initialized;
      initialized ? reactorsInitialize() : reactorsUninitialize();
   }

   Script & script;

 protected:
   explicit Owner( Script & theScript )
         : PtrInterface( Lifetime::eventLoop ), script( theScript ) {}

 private:
   bool initialized_ = false;
};

class Machine : public Owner {
 public:
   void handleReviews() { script.heard( "reviews" ); }
   void handleShape( int key ) { script.heard( "shape" + std::to_string( key ) ); }

   class KivNode : public Kiv::Reactor< KivNode, Node const, Machine, int > {
      void heard( char const * what ) { owner().script.heard( what + std::to_string( key() ) ); }
      void handleA() { heard( "a" ); }
      void handleText() { heard( "text" ); }
      void handleTag( std::uint16_t const & tag ) {
         owner().script.heard( "tag" + std::to_string( tag ) );
      }
      void handlePoint() { heard( "point" ); }
      void handleB() { heard( "b" ); }
      void handleAgain() { heard( "again" ); }

    public:
      static constexpr auto handlers =
            Kiv::handlers( Kiv::On< Node::aAttr, &KivNode::handleA >(),
                           Kiv::OnAny< &KivNode::handleText, Node::textAttr, Node::pulseAttr >(),
                           Kiv::On< Node::tagAttr, &KivNode::handleTag >(),
                           Kiv::On< Node::pointAttr, &KivNode::handlePoint >(),
                           Kiv::OnChange< Node::bAttr, &KivNode::handleB >(),
                           Kiv::On< Node::reviewsAttr, &Machine::handleReviews >(),
                           Kiv::OnChange< Node::bAttr, &KivNode::handleAgain >(),
                           Kiv::OnChange< Node::shapeAttr, &Machine::handleShape >() );
      void handleInitialized() override {
         heard( "init" );
         initializedIs( true );
      }
   };

   void handleTimeout( int key ) { script.heard( "timeout" + std::to_string( key ) ); }
   class KivClock : public Kiv::ClockReactor< Machine, &Machine::handleTimeout, int > {};

   explicit Machine( Script & theScript ) : Owner( theScript ) {}
   Kiv::Type const & fwkType() const override { return Kiv::typeInstance< Machine >; }

   KIV_REACTOR( KivNode, first );
   KIV_REACTORS( int, KivNode, node );
   KIV_REACTORS( int, KivClock, clock );
};

inline Kiv::Ptr< Machine >
machineIs( Script & script ) {
   auto machine = Kiv::make< Machine >( script );
   machine->hasNotificationActiveIs( true );
   return machine;
}

} // namespace Example
