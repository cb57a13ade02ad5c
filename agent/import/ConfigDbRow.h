// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the mappers of the tables work with: the row at hand, and what is known so far.

#include "agent/import/ConfigDb.h"

namespace Import {

// What exists, or will once the rows before have been applied. Mappers ask it, and tell it of what
// they add after everything that could refuse their row.
class Model {
 public:
   explicit Model( ConfigDbTargets const & targets ) : targets_( targets ) {}

   ConfigDbTargets const & targets() const { return targets_; }

   bool hasPort( Pelt::IntfId intf ) const;
   bool hasLag( Pelt::IntfId intf ) const;
   bool hasVlan( Bridging::VlanId vlan ) const;
   // The LAG that the port is in; the empty id for none.
   Pelt::IntfId lagOf( Pelt::IntfId port ) const;

   // Return the port, the LAG, either, or the VLAN of that name; throw Kiv::ParseError when the
   // name is none, or there is none such.
   Pelt::EthIntfId port( std::string_view name ) const;
   Pelt::PortChannelIntfId lag( std::string_view name ) const;
   Pelt::IntfId portOrLag( std::string_view name ) const;
   Bridging::VlanId vlan( std::string_view name ) const;

   void portIs( Pelt::IntfId intf ) { intfs_.insert( intf ); }
   void lagIs( Pelt::IntfId intf ) { intfs_.insert( intf ); }
   void vlanIs( Bridging::VlanId vlan ) { vlans_.insert( vlan ); }
   void memberIs( Pelt::IntfId port, Pelt::IntfId lag ) { lagOf_.insertOrAssign( port, lag ); }

 private:
   ConfigDbTargets targets_;
   Kiv::HashSet< Pelt::IntfId > intfs_;
   Kiv::HashSet< Bridging::VlanId > vlans_;
   Kiv::HashMap< Pelt::IntfId, Pelt::IntfId > lagOf_;
};

// "1 row", "2 rows"
Kiv::String counted( std::size_t count, std::string_view one );

// The VLAN of the name "Vlan<n>", whether there is one or not. Kiv::ParseError for another name,
// Kiv::RangeException for a number that is no VLAN's.
Bridging::VlanId vlanNamed( std::string_view name );

// One row. Its readers throw Kiv::ParseError, which names the field; a mapper lets it through, and
// the row is refused. Fields that no reader asked for have no place in this system.
class Row {
 public:
   // By what the rows of a table are about: the key of the row that was taken.
   using Taken = Kiv::HashMap< Kiv::String, Kiv::String >;

   // All three must outlive the row.
   Row( Kiv::String const & key, Kiv::Datum const & fields, Taken const & taken );

   Kiv::String const & key() const { return key_; }
   // The two parts of a key "first|second". `form` says what was expected.
   std::pair< std::string_view, std::string_view > keyPair( std::string_view form ) const;

   // The value of a field; nothing when the row does not have it.
   std::optional< Kiv::String > text( std::string_view field );
   std::optional< std::uint64_t > number( std::string_view field, std::uint64_t max );
   // Which of two words the field holds, in small letters or capitals: Python says "True".
   std::optional< bool > either( std::string_view field, std::string_view yes,
                                 std::string_view no );
   // The same for a field that the row must have.
   std::uint64_t numberNeeded( std::string_view field, std::uint64_t max );
   // The field was checked, but has no place in this system.
   void leave( std::string_view field ) { std::erase( read_, field ); }

   // What the row is about, in this system's spelling. Kiv::ParseError when another row of the
   // table is about the same.
   void identityIs( Kiv::String identity );
   void remark( Kiv::String what ) { remarks_.push_back( std::move( what ) ); }
   // What the row becomes, once. Last, when nothing can refuse the row any more.
   void operationIs( Kiv::String what, std::function< void() > apply );

   Kiv::String const & identity() const { return identity_; }
   std::vector< Kiv::String > const & remarks() const { return remarks_; }
   Operation const & operation() const { return operation_; }
   std::vector< Kiv::String > unreadFields() const;

 private:
   Kiv::String const & key_;
   Kiv::Datum const & fields_;
   Taken const & taken_;
   std::vector< std::string_view > read_;
   Kiv::String identity_;
   std::vector< Kiv::String > remarks_;
   Operation operation_;
};

// A table that has a place in this system.
struct TableMapper {
   std::string_view table;
   // Calls row.identityIs() and, last but for what it tells the model, row.operationIs().
   void ( *map )( Row & row, Model & model );
};

// In the order in which the tables build on each other.
std::vector< TableMapper > const & tableMappers();

} // namespace Import
