// SPDX-License-Identifier: Apache-2.0
#include "chips/sim/SimMemory.h"

GLIM_RECORD( HobaSim::Name, HobaSim::TableShape );

namespace HobaSim {

namespace {

Name const layout( "layout" );

void
checkName( Kiv::String const & name ) {
   if( name.size() <= ChipMemory::maxNameLength ) {
      try {
         return Glim::checkName( name );
      } catch( Glim::Error const & ) {
         // In the words for a memory.
      }
   }
   auto shown = name.substr( 0, 80 );
   std::replace_if(
         shown.begin(), shown.end(), []( char c ) { return c < ' ' || c > '~'; }, '?' );
   throw Glim::Error( "\"" + shown + "\" is no name of a chip memory: expected 1 to " +
                      Kiv::toText( ChipMemory::maxNameLength ) +
                      " of A-Z a-z 0-9 _ - ., not beginning with - or ." );
}

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
   checkName( name_ );
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
