// SPDX-License-Identifier: Apache-2.0
// The functions of one compilation unit and what was inlined into them, by code address: made once, so that an address
// costs a search and no walk through the unit.
#pragma once

#include <elfutils/libdw.h>

#include <string>
#include <vector>

namespace quarl::report {

class ScopeTree {
 public:
  struct Scope {
    Dwarf_Die die;  // a function, or a call that was inlined
    bool inlined = false;
    std::string function;  // demangled, empty when it has no name
  };

  explicit ScopeTree(Dwarf_Die* unit);

  // The function that holds `address`, an address of the unit's own numbering, and behind it what was inlined there,
  // each into the one before. Empty where no function is.
  std::vector<const Scope*> around(Dwarf_Addr address) const;

 private:
  struct Range {
    Dwarf_Addr low, high;  // [low, high)
    size_t node;
    Dwarf_Addr reach;  // the highest `high` up to here
  };
  struct Node {
    Scope scope;
    std::vector<Range> inside;  // sorted by low
  };
  void add_children(Dwarf_Die* die, size_t parent);
  void add(Dwarf_Die* die, size_t parent);
  size_t add_node(Dwarf_Die* die, size_t parent);
  void sort_ranges();
  const Range* find(const Node& node, Dwarf_Addr address) const;

  std::vector<Node> nodes_{1};  // the first is the unit
};

}  // namespace quarl::report
