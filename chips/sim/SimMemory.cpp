// SPDX-License-Identifier: Apache-2.0
#include "chips/sim/SimMemory.h"

GLIM_RECORD( HobaSim::Name, HobaSim::TableShape );

namespace HobaSim {

namespace {

Name const layout( "layout" );

Kiv::String
roomText( TableShape const & shape ) {
   auto text = shape.capacity ? Kiv::toText( shape.capacity ) + " rows"
                              : Kiv::String( "any number of rows" );
   return shape.bucketSize ? text + " in buckets of " + Kiv::toText( shape.bucketSize ) : text;
}

} // namespace

ChipMemory::ChipMemory( Memory const & memory ) : name_( memory.name ), forUnits_( memory ) {
   if( name_.empty() ) {
      return;
   }
   try {
      shapes_ = std::make_unique< Glim::TableWriter< Name, TableShape > >(
            name_ + ".chip", Glim::WriterOptions{ .lifetime = Glim::Lifetime::stays,
                                                  .rows = 16,
                                                  .changes = 64,
                                                  .replace = memory.cold } );
   } catch( Glim::WriterThereError const & error ) {
      throw Glim::Error( "chip memory \"" + name_ + "\" is driven by another agent" +
                         ( error.pid ? ", process " + Kiv::toText( error.pid ) : "" ) );
   } catch( Glim::Error const & error ) {
      throw faultOf( error );
   }
   TableShape shape;
   if( memory.cold || !shapes_->get( layout, shape ) ) {
      // New, or its maker died before it was complete.
      forUnits_.cold = true;
      shapes_->delAll();
   } else if( shape.version != version ) {
      throw Glim::Error( "chip memory \"" + name_ + "\" is of version " +
                         Kiv::toText( shape.version ) + ", expected " + Kiv::toText( version ) );
   } else {
      forUnits_.whole = true;
   }
}

void
ChipMemory::complete() {
   if( shapes_ ) {
      shapes_->is( layout, { version, 0, 0 } );
      shapes_->commit();
   }
}

Glim::Error
ChipMemory::faultOf( Glim::Error const & error ) const {
   return name_.empty() ? error
                        : Glim::Error( "chip memory \"" + name_ +
                                       "\" cannot be gone on with: " + error.what() );
}

void
ChipMemory::checkCapacities( std::vector< RowsBase const * > const & tables ) {
   if( !shapes_ ) {
      return;
   }
   Kiv::String differences;
   std::vector< std::pair< Name, TableShape > > shapes;
   for( auto const * table : tables ) {
      auto const & control = *table->control();
      TableShape const wanted{ version, control.capacity(), control.bucketSize() };
      TableShape found;
      shapes.emplace_back( Name( table->name() ), wanted );
      if( shapes_->get( shapes.back().first, found ) && !( found == wanted ) ) {
         differences += ( differences.empty() ? "" : "; " ) + table->name() + " has room for " +
                        roomText( found ) + " there, " + roomText( wanted ) + " expected";
      }
   }
   if( !differences.empty() ) {
      throw Glim::Error( "chip memory \"" + name_ +
                         "\" is that of a chip with other capacities: " + differences );
   }
   for( auto const & [ table, shape ] : shapes ) {
      shapes_->is( table, shape );
   }
   shapes_->commit();
}

} // namespace HobaSim
