// SPDX-License-Identifier: Apache-2.0
#pragma once

// Interface ids. An id is one 64-bit word that holds the kind of the interface, its numbers and
// its subinterface number; names are made from it for people and read back from them.
//
//    Pelt::IntfId id = Pelt::EthIntfId( 3, 1 );                    // Ethernet3/1
//    Pelt::IntfId sub = Pelt::SubIntfId( id, 100 );                // Ethernet3/1.100
//    Pelt::IntfId lag( "Port-Channel7" );                          // throws Kiv::ParseError
//    if( Pelt::PortChannelIntfId::isPortChannelIntfId( lag ) ) ...
//
// | Kind                 | Canonical name             | Also read as                    |
// |----------------------|----------------------------|---------------------------------|
// | EthIntfId            | Ethernet<n>[/<n>[/<n>]]    | Eth..., Et...                   |
// |    backplane         | Ethernet-BP<n>             |                                 |
// | PortChannelIntfId    | Port-Channel<n>            | PortChannel, Port-channel, Po   |
// |    recirculation     | Recirc-Channel<n>          |                                 |
// | VlanIntfId           | Vlan<n>                    | Vl                              |
// | LoopbackIntfId       | Loopback<n>                | Lo                              |
// | ManagementIntfId     | Management<n>[/<n>[/<n>]]  | Ma                              |
// | TunnelIntfId         | Tunnel<n>                  | Tu                              |
// | VxlanIntfId          | Vxlan<n>                   | Vx                              |
// | CpuIntfId            | Cpu                        |                                 |
// | FabricIntfId         | Fabric<n>/<n>[/<n>]        |                                 |
// | PeerEthIntfId        | PeerEthernet<n>[/<n>[/<n>]]|                                 |
// | PeerPortChannelIntfId| PeerPort-Channel<n>        |                                 |
// | SubIntfId            | <parent>.<n>               | (Ethernet and Port-Channel)     |
//
// Leading zeros are read and not kept: PortChannel0003 is the same interface as Port-Channel3, and
// prints as Port-Channel3. Case matters, because "eth0" is not Ethernet0 on the systems whose
// configuration is read here.

#include "Kiv/Hash.h"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

namespace Pelt {

class IntfId {
 public:
   // Ids sort in the order of this list, then by number, then by subinterface number.
   enum class Kind : std::uint8_t {
      none,
      ethernet,
      backplaneEthernet,
      portChannel,
      recircChannel,
      vlan,
      loopback,
      management,
      tunnel,
      vxlan,
      cpu,
      fabric,
      peerEthernet,
      peerPortChannel,
   };

   // Bounds of the numbers of the kinds that have up to three ("Ethernet<first>/<next>/<next>").
   static constexpr std::uint32_t maxFirstNumber = 65535;
   static constexpr std::uint32_t maxNextNumber = 255;

   // The empty id: no interface. It prints as "", tests false and sorts before every other.
   constexpr IntfId() = default;
   // The id that a name stands for. Throws Kiv::ParseError, as parse does.
   explicit IntfId( std::string_view name ) : IntfId( parse( name ) ) {}

   constexpr explicit operator bool() const { return bits_ != 0; }
   // The kind of the interface; of a subinterface, the kind of its parent.
   constexpr Kind kind() const { return static_cast< Kind >( bits_ >> kindShift ); }
   // True for an id of that kind that is not a subinterface.
   constexpr bool isOnly( Kind kind ) const { return this->kind() == kind && !subIntfNumber(); }
   // How many numbers the name has, the subinterface number not counted: 0 (Cpu, empty) to 3.
   constexpr unsigned numberCount() const;
   // The number at that place, counted from 0; 0 if the name has none there.
   constexpr std::uint32_t number( unsigned place = 0 ) const;
   // 0 if the id is not a subinterface.
   constexpr std::uint32_t subIntfNumber() const { return bits_ & subIntfMask; }
   // The word itself: equal words are equal ids. 0 for the empty id and no other.
   constexpr std::uint64_t bits() const { return bits_; }

   constexpr bool operator==( IntfId const & ) const = default;
   constexpr std::strong_ordering operator<=>( IntfId const & ) const = default;
   constexpr std::uint64_t kivWord() const { return bits_; }
   std::size_t hash() const { return Kiv::hashOf( bits_ ); }

   // Appends the canonical name.
   void print( std::string & out ) const;
   // The way back; takes the other spellings too, and "" for the empty id. Throws Kiv::ParseError.
   static IntfId parse( std::string_view name );

 protected:
   // These make ids and check their numbers; each throws Kiv::RangeException.
   static constexpr IntfId single( Kind kind, std::uint64_t number, std::uint64_t max );
   static constexpr IntfId upToThree( Kind kind, std::initializer_list< std::uint64_t > numbers );
   static constexpr IntfId subIntf( IntfId parent, std::uint64_t number );
   static constexpr IntfId withoutSubIntf( IntfId id ) { return IntfId( id.bits_ & ~subIntfMask ); }

   [[noreturn]] static void kindFailed( IntfId id, std::string_view expected );
   static IntfId parseKind( std::string_view name, bool ( *isKind )( IntfId ),
                            std::string_view expected );

 private:
   // From high to low: kind, numbers, subinterface number, so that comparing words is comparing
   // ids. Kinds with one number keep it as it is. Kinds with up to three keep the second and third
   // raised by one, so that 0 says "absent" and Ethernet1 sorts before Ethernet1/0.
   static constexpr unsigned kindShift = 58;
   static constexpr unsigned numbersShift = 24;
   static constexpr unsigned numbersBits = kindShift - numbersShift;
   static constexpr unsigned nextBits = 9;
   static constexpr std::uint64_t subIntfMask = ( 1ull << numbersShift ) - 1;

   constexpr explicit IntfId( std::uint64_t bits ) : bits_( bits ) {}
   constexpr std::uint64_t numbers() const {
      return bits_ >> numbersShift & ( ( 1ull << numbersBits ) - 1 );
   }
   static constexpr IntfId pack( Kind kind, std::uint64_t numbers ) {
      return IntfId( static_cast< std::uint64_t >( kind ) << kindShift | numbers << numbersShift );
   }
   static constexpr bool hasUpToThree( Kind kind ) {
      return kind == Kind::ethernet || kind == Kind::management || kind == Kind::fabric ||
             kind == Kind::peerEthernet;
   }

   [[noreturn]] static void numberFailed( Kind kind, std::uint64_t number, std::uint64_t max );
   [[noreturn]] static void subIntfFailed( IntfId parent, std::uint64_t number );

   friend class IntfIdParser;

   std::uint64_t bits_ = 0;
};

// What the classes of one kind of interface share. They add no state and convert to IntfId; the
// way back is explicit and throws Kiv::RangeException for an id of another kind. There is no empty
// id of a kind. A subinterface is of no kind but SubIntfId: ask for its parent first.
template< class Self, IntfId::Kind... kinds >
class IntfIdOfKind : public IntfId {
 public:
   constexpr explicit IntfIdOfKind( IntfId id ) : IntfId( id ) {
      if( !Self::isKind( id ) ) {
         kindFailed( id, Self::kindText );
      }
   }
   // The name of an interface of this kind; "" is none. Throws Kiv::ParseError.
   static Self parse( std::string_view name ) {
      return Self( parseKind( name, &Self::isKind, Self::kindText ) );
   }
   static constexpr bool isKind( IntfId id ) { return ( id.isOnly( kinds ) || ... ); }
};

// A front-panel port, or a backplane port. Of the numbers, the first is at most maxFirstNumber and
// the others at most maxNextNumber; Kiv::RangeException otherwise.
class EthIntfId
      : public IntfIdOfKind< EthIntfId, IntfId::Kind::ethernet, IntfId::Kind::backplaneEthernet > {
 public:
   static constexpr std::string_view kindText = "the name of an Ethernet interface";
   static constexpr std::uint32_t maxBackplaneNumber = 65535;

   using IntfIdOfKind::IntfIdOfKind;
   constexpr explicit EthIntfId( std::uint64_t port )
         : IntfIdOfKind( upToThree( Kind::ethernet, { port } ) ) {}
   constexpr EthIntfId( std::uint64_t first, std::uint64_t second )
         : IntfIdOfKind( upToThree( Kind::ethernet, { first, second } ) ) {}
   constexpr EthIntfId( std::uint64_t first, std::uint64_t second, std::uint64_t third )
         : IntfIdOfKind( upToThree( Kind::ethernet, { first, second, third } ) ) {}
   // Ethernet-BP<number>, at most maxBackplaneNumber.
   static constexpr EthIntfId backplaneIntfId( std::uint64_t number ) {
      return EthIntfId( single( Kind::backplaneEthernet, number, maxBackplaneNumber ) );
   }
   static constexpr bool isEthIntfId( IntfId id ) { return isKind( id ); }
   static constexpr bool isBackplane( IntfId id ) { return id.isOnly( Kind::backplaneEthernet ); }
};

// A LAG, or a recirculation channel, which is a LAG of ports that send back into the chip. Numbers
// up to maxNumber; Kiv::RangeException otherwise.
class PortChannelIntfId : public IntfIdOfKind< PortChannelIntfId, IntfId::Kind::portChannel,
                                               IntfId::Kind::recircChannel > {
 public:
   static constexpr std::string_view kindText = "the name of a port channel";
   static constexpr std::uint32_t maxNumber = 999999;

   using IntfIdOfKind::IntfIdOfKind;
   constexpr explicit PortChannelIntfId( std::uint64_t number )
         : IntfIdOfKind( single( Kind::portChannel, number, maxNumber ) ) {}
   // Recirc-Channel<number>.
   static constexpr PortChannelIntfId recircIntfId( std::uint64_t number ) {
      return PortChannelIntfId( single( Kind::recircChannel, number, maxNumber ) );
   }
   static constexpr bool isPortChannelIntfId( IntfId id ) { return isKind( id ); }
   static constexpr bool isRecirc( IntfId id ) { return id.isOnly( Kind::recircChannel ); }
};

// A port channel of the MLAG peer. Numbers up to maxNumber; Kiv::RangeException otherwise.
class PeerPortChannelIntfId
      : public IntfIdOfKind< PeerPortChannelIntfId, IntfId::Kind::peerPortChannel > {
 public:
   static constexpr std::string_view kindText = "the name of a port channel of the peer";
   static constexpr std::uint32_t maxNumber = PortChannelIntfId::maxNumber;

   using IntfIdOfKind::IntfIdOfKind;
   constexpr explicit PeerPortChannelIntfId( std::uint64_t number )
         : IntfIdOfKind( single( Kind::peerPortChannel, number, maxNumber ) ) {}
   static constexpr bool isPeerPortChannelIntfId( IntfId id ) { return isKind( id ); }
};

// An Ethernet port of the MLAG peer. Numbers as those of EthIntfId.
class PeerEthIntfId : public IntfIdOfKind< PeerEthIntfId, IntfId::Kind::peerEthernet > {
 public:
   static constexpr std::string_view kindText = "the name of an Ethernet interface of the peer";

   using IntfIdOfKind::IntfIdOfKind;
   constexpr explicit PeerEthIntfId( std::uint64_t port )
         : IntfIdOfKind( upToThree( Kind::peerEthernet, { port } ) ) {}
   constexpr PeerEthIntfId( std::uint64_t first, std::uint64_t second )
         : IntfIdOfKind( upToThree( Kind::peerEthernet, { first, second } ) ) {}
   constexpr PeerEthIntfId( std::uint64_t first, std::uint64_t second, std::uint64_t third )
         : IntfIdOfKind( upToThree( Kind::peerEthernet, { first, second, third } ) ) {}
   static constexpr bool isPeerEthIntfId( IntfId id ) { return isKind( id ); }
};

// The port to the switch's own processor. There is one.
class CpuIntfId : public IntfIdOfKind< CpuIntfId, IntfId::Kind::cpu > {
 public:
   static constexpr std::string_view kindText = "the name of the CPU interface";

   using IntfIdOfKind::IntfIdOfKind;
   constexpr CpuIntfId() : IntfIdOfKind( single( Kind::cpu, 0, 0 ) ) {}
   static constexpr bool isCpuIntfId( IntfId id ) { return isKind( id ); }
};

// A port to the fabric between chips. Numbers as those of EthIntfId, two or three.
class FabricIntfId : public IntfIdOfKind< FabricIntfId, IntfId::Kind::fabric > {
 public:
   static constexpr std::string_view kindText = "the name of a fabric interface";

   using IntfIdOfKind::IntfIdOfKind;
   constexpr FabricIntfId( std::uint64_t first, std::uint64_t second )
         : IntfIdOfKind( upToThree( Kind::fabric, { first, second } ) ) {}
   constexpr FabricIntfId( std::uint64_t first, std::uint64_t second, std::uint64_t third )
         : IntfIdOfKind( upToThree( Kind::fabric, { first, second, third } ) ) {}
   static constexpr bool isFabricIntfId( IntfId id ) { return isKind( id ); }
};

// A tunnel. Numbers up to maxNumber; Kiv::RangeException otherwise.
class TunnelIntfId : public IntfIdOfKind< TunnelIntfId, IntfId::Kind::tunnel > {
 public:
   static constexpr std::string_view kindText = "the name of a tunnel interface";
   static constexpr std::uint32_t maxNumber = 16777215;

   using IntfIdOfKind::IntfIdOfKind;
   constexpr explicit TunnelIntfId( std::uint64_t number )
         : IntfIdOfKind( single( Kind::tunnel, number, maxNumber ) ) {}
   static constexpr bool isTunnelIntfId( IntfId id ) { return isKind( id ); }
};

// A VXLAN tunnel end point. Numbers up to maxNumber; Kiv::RangeException otherwise.
class VxlanIntfId : public IntfIdOfKind< VxlanIntfId, IntfId::Kind::vxlan > {
 public:
   static constexpr std::string_view kindText = "the name of a VXLAN interface";
   static constexpr std::uint32_t maxNumber = 65535;

   using IntfIdOfKind::IntfIdOfKind;
   constexpr explicit VxlanIntfId( std::uint64_t number )
         : IntfIdOfKind( single( Kind::vxlan, number, maxNumber ) ) {}
   static constexpr bool isVxlanIntfId( IntfId id ) { return isKind( id ); }
};

// The routed interface of a VLAN. Any 12-bit number can be in an id, 0 and 4095 too: what is a
// valid VLAN is for the type of VLAN ids to say. Kiv::RangeException above maxNumber.
class VlanIntfId : public IntfIdOfKind< VlanIntfId, IntfId::Kind::vlan > {
 public:
   static constexpr std::string_view kindText = "the name of a VLAN interface";
   static constexpr std::uint32_t maxNumber = 4095;

   using IntfIdOfKind::IntfIdOfKind;
   constexpr explicit VlanIntfId( std::uint64_t number )
         : IntfIdOfKind( single( Kind::vlan, number, maxNumber ) ) {}
   static constexpr VlanIntfId vlanIdToIntfId( std::uint64_t vlan ) { return VlanIntfId( vlan ); }
   // The VLAN number. Throws Kiv::RangeException if the id is not that of a VLAN interface.
   static constexpr std::uint16_t vlanId( IntfId id ) {
      return static_cast< std::uint16_t >( VlanIntfId( id ).number() );
   }
   static constexpr bool isVlanIntfId( IntfId id ) { return isKind( id ); }
};

// A loopback interface. Numbers up to maxNumber; Kiv::RangeException otherwise.
class LoopbackIntfId : public IntfIdOfKind< LoopbackIntfId, IntfId::Kind::loopback > {
 public:
   static constexpr std::string_view kindText = "the name of a loopback interface";
   static constexpr std::uint32_t maxNumber = 65535;

   using IntfIdOfKind::IntfIdOfKind;
   constexpr explicit LoopbackIntfId( std::uint64_t number )
         : IntfIdOfKind( single( Kind::loopback, number, maxNumber ) ) {}
   static constexpr bool isLoopbackIntfId( IntfId id ) { return isKind( id ); }
};

// A management port. Numbers as those of EthIntfId.
class ManagementIntfId : public IntfIdOfKind< ManagementIntfId, IntfId::Kind::management > {
 public:
   static constexpr std::string_view kindText = "the name of a management interface";

   using IntfIdOfKind::IntfIdOfKind;
   constexpr explicit ManagementIntfId( std::uint64_t port )
         : IntfIdOfKind( upToThree( Kind::management, { port } ) ) {}
   constexpr ManagementIntfId( std::uint64_t first, std::uint64_t second )
         : IntfIdOfKind( upToThree( Kind::management, { first, second } ) ) {}
   constexpr ManagementIntfId( std::uint64_t first, std::uint64_t second, std::uint64_t third )
         : IntfIdOfKind( upToThree( Kind::management, { first, second, third } ) ) {}
   static constexpr bool isManagementIntfId( IntfId id ) { return isKind( id ); }
};

// A subinterface of an Ethernet port (not a backplane port) or of a port channel (not a
// recirculation channel). Numbers from minNumber to maxNumber. Kiv::RangeException for another
// parent or number.
class SubIntfId : public IntfIdOfKind< SubIntfId > {
 public:
   static constexpr std::string_view kindText = "the name of a subinterface";
   static constexpr std::uint32_t minNumber = 1;
   static constexpr std::uint32_t maxNumber = 16777215;

   using IntfIdOfKind::IntfIdOfKind;
   constexpr SubIntfId( IntfId parent, std::uint64_t number )
         : IntfIdOfKind( subIntf( parent, number ) ) {}
   // The interface that carries the subinterface. Kiv::RangeException if the id is none.
   static constexpr IntfId parentIntfId( IntfId id ) { return SubIntfId( id ).parentIntfId(); }
   constexpr IntfId parentIntfId() const { return withoutSubIntf( *this ); }
   static constexpr bool isSubIntfId( IntfId id ) { return isKind( id ); }
   static constexpr bool isKind( IntfId id ) { return id.subIntfNumber() != 0; }
   static constexpr bool canHaveSubIntf( IntfId parent ) {
      return parent.isOnly( Kind::ethernet ) || parent.isOnly( Kind::portChannel );
   }
};

// ---- what is inline ----------------------------------------------------------------------------

constexpr unsigned
IntfId::numberCount() const {
   if( !hasUpToThree( kind() ) ) {
      return kind() == Kind::none || kind() == Kind::cpu ? 0 : 1;
   }
   constexpr std::uint64_t nextMask = ( 1ull << nextBits ) - 1;
   return 1 + ( ( numbers() >> nextBits & nextMask ) != 0 ) + ( ( numbers() & nextMask ) != 0 );
}

constexpr std::uint32_t
IntfId::number( unsigned place ) const {
   if( place >= numberCount() ) {
      return 0;
   }
   if( !hasUpToThree( kind() ) ) {
      return static_cast< std::uint32_t >( numbers() );
   }
   if( place == 0 ) {
      return static_cast< std::uint32_t >( numbers() >> 2 * nextBits );
   }
   std::uint64_t raised = numbers() >> ( 2 - place ) * nextBits & ( ( 1ull << nextBits ) - 1 );
   return static_cast< std::uint32_t >( raised - 1 );
}

constexpr IntfId
IntfId::single( Kind kind, std::uint64_t number, std::uint64_t max ) {
   if( number > max ) {
      numberFailed( kind, number, max );
   }
   return pack( kind, number );
}

constexpr IntfId
IntfId::upToThree( Kind kind, std::initializer_list< std::uint64_t > numbers ) {
   std::uint64_t packed = 0;
   unsigned place = 0;
   for( std::uint64_t number : numbers ) {
      std::uint64_t max = place == 0 ? maxFirstNumber : maxNextNumber;
      if( number > max ) {
         numberFailed( kind, number, max );
      }
      packed |= place == 0 ? number << 2 * nextBits : ( number + 1 ) << ( 2 - place ) * nextBits;
      ++place;
   }
   return pack( kind, packed );
}

constexpr IntfId
IntfId::subIntf( IntfId parent, std::uint64_t number ) {
   if( !SubIntfId::canHaveSubIntf( parent ) || number < SubIntfId::minNumber ||
       number > SubIntfId::maxNumber ) {
      subIntfFailed( parent, number );
   }
   return IntfId( parent.bits_ | number );
}

} // namespace Pelt
