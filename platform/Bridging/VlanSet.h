// SPDX-License-Identifier: Apache-2.0
#pragma once

// A set of VLANs, kept as ranges: what a trunk carries is nearly always a few of them. A set of n
// ranges takes 4n octets beside the object's own 24; to look one up takes log n steps, to put one in
// or take one out as many and a move of what stands behind it; the worst set has 2,047 ranges.

#include "Bridging/VlanId.h"

#include <iterator>
#include <vector>

namespace Bridging {

class VlanSet {
 public:
   static constexpr std::string_view kivName = "Bridging::VlanSet";

   // Neither touches nor overlaps another one of its set.
   struct Range {
      std::uint16_t first;
      std::uint16_t last;
      bool operator==( Range const & ) const = default;
      auto operator<=>( Range const & ) const = default;
   };

   // Over the VLANs, in ascending order.
   class const_iterator {
    public:
      using iterator_category = std::forward_iterator_tag;
      using value_type = VlanId;
      using difference_type = std::ptrdiff_t;
      using pointer = VlanId const *;
      using reference = VlanId;

      const_iterator() = default;
      const_iterator( Range const * range, std::uint16_t offset )
            : range_( range ), offset_( offset ) {}
      VlanId operator*() const { return VlanId( range_->first + offset_ ); }
      const_iterator & operator++() {
         if( range_->first + offset_ == range_->last ) {
            ++range_;
            offset_ = 0;
         } else {
            ++offset_;
         }
         return *this;
      }
      const_iterator operator++( int ) {
         auto const before = *this;
         ++*this;
         return before;
      }
      bool operator==( const_iterator const & ) const = default;

    private:
      Range const * range_ = nullptr;
      std::uint16_t offset_ = 0;
   };

   bool empty() const { return ranges_.empty(); }
   std::size_t size() const;
   bool has( VlanId vlan ) const;
   const_iterator begin() const { return { ranges_.data(), 0 }; }
   const_iterator end() const { return { ranges_.data() + ranges_.size(), 0 }; }
   std::vector< Range > const & ranges() const { return ranges_; }

   // Whether that changed something.
   bool insert( VlanId vlan );
   bool erase( VlanId vlan );

   // Those that are in both, and those that are not in the other.
   VlanSet intersected( VlanSet const & other ) const;
   VlanSet without( VlanSet const & other ) const;

   bool operator==( VlanSet const & ) const = default;
   auto operator<=>( VlanSet const & ) const = default;
   std::size_t hash() const;

   // Appends "1-10,20"; nothing for the empty set.
   void print( std::string & out ) const;
   // Reads that, in any order, with overlaps. Throws Kiv::ParseError for what is no list of VLANs and
   // ranges of them, and Kiv::RangeException for a VLAN outside 1..4094.
   static VlanSet parse( std::string_view text );

 private:
   std::vector< Range > ranges_; // in ascending order
};

} // namespace Bridging
