// SPDX-License-Identifier: Apache-2.0
#pragma once

// The path of a frame through the simulated chip: in on a port, and out on others, or dropped. It goes
// by the chip's own tables and nothing else, so it works while no agent runs. Its stages:
//
//    trunk        which LAG the port is an active member of; the LAG stands for it from here on
//    header       addresses and tags, by the TPIDs of the port
//    vlan         the VLAN: of the outer tag, or the native one of frames without
//    ingress      whether the interface carries the VLAN
//    learning     the station that sent it; the end for what is dropped by its source: as its entry says,
//                 or as the whole table is told (MacSetting)
//    forwarding   to the interface of the station it is for, or to all others of the VLAN, in their order;
//                 never back, and not at all for groups that bridges keep to themselves and for what is
//                 dropped by its destination
//    out          out on a port each, of a LAG by one of its active members, tagged or not; by none that
//                 does not carry the VLAN. What is for the CPU, or for the overlay, which the chip does
//                 not know, leaves by none
//
// Of a LAG's members the addresses choose one: between two stations it is the same one as long as the LAG
// has the same members, and different stations share all of them. What leaves tagged has the priority
// with which it came, and the port's own outer TPID; a second tag stays as it is.
//
// Units hang further stages between these with stageIs(). Each step says what it decided, and why it
// dropped a frame.

#include "chips/sim/SimFrame.h"
#include "chips/sim/SimInverse.h"
#include "chips/sim/SimMac.h"
#include "chips/sim/SimTrunk.h"
#include "chips/sim/SimVlan.h"

#include <functional>
#include <memory>
#include <span>

namespace HobaSim {

// A frame that left.
struct FrameDeparture {
   KIV_VALUE( HobaSim::FrameDeparture );
   // The port, and what it stands for: itself or its LAG.
   KIV_FIELD( Pelt::IntfId, port );
   KIV_FIELD( Pelt::IntfId, intf );
   // As it is on the wire; what stood behind the header follows.
   KIV_FIELD( FrameHeader, header );
};

struct PathStep {
   KIV_VALUE( HobaSim::PathStep );
   KIV_FIELD( Kiv::String, stage );
   KIV_FIELD( Kiv::String, text );
};

// A frame on its way: how it came in, and what the stages made of it so far.
class PathFrame {
 public:
   PathFrame( Pelt::IntfId inPort, std::span< std::uint8_t const > frameBytes, bool explain )
         : port( inPort ), bytes( frameBytes ), explain_( explain ) {}

   Pelt::IntfId const port;
   std::span< std::uint8_t const > const bytes; // from its header on, as far as it is known
   Pelt::IntfId intf;                           // the port, or its LAG
   FrameHeader header;
   Bridging::VlanIdOrNone vlan;
   std::vector< Pelt::IntfId > to; // ports and LAGs that it is to leave by
   std::vector< FrameDeparture > departures;

   // A stage's decision. `text` is called for the words of it, if anybody wants any.
   template< class Text >
   void say( Text const & text ) {
      if( explain_ ) {
         steps_.push_back( { stage_, text() } );
      }
   }
   // The same, and the frame goes no further.
   template< class Text >
   void drop( Text const & text ) {
      say( [ & ] { return "dropped: " + Kiv::String( text() ); } );
      droppedAt_ = stage_;
   }

   bool dropped() const { return !droppedAt_.empty(); }
   // The stage that dropped it.
   Kiv::String const & droppedAt() const { return droppedAt_; }
   std::vector< PathStep > const & steps() const { return steps_; }

 private:
   friend class PathUnit;
   bool const explain_;
   Kiv::String stage_; // at work
   Kiv::String droppedAt_;
   std::vector< PathStep > steps_;
};

KIV_ENUM( PathCount, std::uint8_t, pathIn = 0 KIV_SHOWN( "in" ), pathOut KIV_SHOWN( "out" ) );

class PathUnit : public Unit {
   KIV_ENTITY( HobaSim::PathUnit, HobaSim::Unit );
   // Frames that came in, and that left; one that came in may leave by many ports.
   SIM_STATE( PathCount, std::uint64_t, count );
   // By stage: frames that it dropped.
   SIM_STATE( Name, std::uint64_t, drop );

 public:
   using Step = std::function< void( PathFrame & ) >;

   PathUnit( Kiv::String const & unitName, Kiv::Ptr< VlanUnit > const & vlan,
             Kiv::Ptr< TrunkUnit > const & trunk, Kiv::Ptr< MacUnit > const & mac,
             Memory const & memory = {} );

   // A further stage before the one called `before`, or another step for the one that is there. It has
   // at most Name::maxLength characters. Throws Kiv::ParseError if there is no stage `before`.
   void stageIs( Kiv::String const & stage, Kiv::String const & before, Step step );
   void stageDel( Kiv::String const & stage );
   std::vector< Kiv::String > stages() const;

   // Throws Kiv::ParseError unless frames can come in there: on an Ethernet port.
   static void checkPort( Pelt::IntfId port );
   // How the port recognises and writes tags.
   FrameTpids tpids( Pelt::IntfId port ) const;

   // A frame comes in on the port. `bytes` is it, or its beginning, up to its header at least. The
   // steps are put into words only if `explain` says so. Throws as checkPort(), and nothing has come
   // in then.
   PathFrame frame( Pelt::IntfId port, std::span< std::uint8_t const > bytes,
                    bool explain = false );

 private:
   struct Stage {
      Kiv::String name;
      Step step;
   };
   using Stages = std::vector< Stage >;
   static Stages::iterator stageAt( Stages & stages, Kiv::String const & stage );

   void findTrunk( PathFrame & frame ) const;
   void readHeader( PathFrame & frame );
   void findVlan( PathFrame & frame ) const;
   void checkIngress( PathFrame & frame ) const;
   void learn( PathFrame & frame );
   void forward( PathFrame & frame ) const;
   void flood( PathFrame & frame, Kiv::String const & why ) const;
   void sendAll( PathFrame & frame );
   Kiv::String beyondText( PathFrame const & frame, Pelt::IntfId intf ) const;
   void send( PathFrame & frame, Pelt::IntfId intf ) const;
   FrameHeader leaving( PathFrame const & frame, Pelt::IntfId port, Hoba::VlanTagging how ) const;
   std::vector< Pelt::IntfId > const & membersOf( Pelt::IntfId lag ) const;

   Kiv::Ptr< VlanUnit > const vlan_;
   Kiv::Ptr< TrunkUnit > const trunk_;
   Kiv::Ptr< MacUnit > const mac_;
   // Another list for every change: a frame on its way goes on by the one that it began with.
   std::shared_ptr< Stages const > stages_;
   mutable Inverse< Pelt::IntfId > members_;
};

} // namespace HobaSim
