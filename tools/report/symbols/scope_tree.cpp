// SPDX-License-Identifier: Apache-2.0
#include "report/symbols/scope_tree.h"

#include <dwarf.h>

#include <algorithm>

#include "report/symbols/function_table.h"

namespace quarl::report {
namespace {

constexpr size_t kUnit = 0;

std::string function_name(Dwarf_Die* die) {
  Dwarf_Attribute attribute;
  for (unsigned name : {DW_AT_linkage_name, DW_AT_MIPS_linkage_name}) {
    if (dwarf_attr_integrate(die, name, &attribute) == nullptr) continue;
    if (const char* text = dwarf_formstring(&attribute)) return demangle(text);
  }
  const char* plain = dwarf_diename(die);
  return plain == nullptr ? "" : plain;
}

}  // namespace

ScopeTree::ScopeTree(Dwarf_Die* unit) {
  add_children(unit, kUnit);
  sort_ranges();
}

void ScopeTree::add_children(Dwarf_Die* die, size_t parent) {
  Dwarf_Die child;
  if (dwarf_child(die, &child) != 0) return;
  do {
    add(&child, parent);
  } while (dwarf_siblingof(&child, &child) == 0);
}

// A function inside another one's scope (a local class's, say) has code of its own elsewhere.
void ScopeTree::add(Dwarf_Die* die, size_t parent) {
  switch (dwarf_tag(die)) {
    case DW_TAG_subprogram:
      return add_children(die, add_node(die, kUnit));
    case DW_TAG_inlined_subroutine:
      return add_children(die, add_node(die, parent));
    case DW_TAG_formal_parameter:
    case DW_TAG_variable:
    case DW_TAG_call_site:
    case DW_TAG_GNU_call_site:
      return;
    default:
      return add_children(die, parent);
  }
}

// One without code of its own, an abstract function, is no node: what is inside belongs to the unit.
size_t ScopeTree::add_node(Dwarf_Die* die, size_t parent) {
  const size_t node = nodes_.size();
  Dwarf_Addr base = 0, low = 0, high = 0;
  for (ptrdiff_t next = 0; (next = dwarf_ranges(die, next, &base, &low, &high)) > 0;) {
    if (low < high) nodes_[parent].inside.push_back({low, high, node, 0});
  }
  if (nodes_[parent].inside.empty() || nodes_[parent].inside.back().node != node) return kUnit;
  nodes_.push_back({{*die, dwarf_tag(die) == DW_TAG_inlined_subroutine, function_name(die)}, {}});
  return node;
}

void ScopeTree::sort_ranges() {
  for (Node& node : nodes_) {
    std::sort(node.inside.begin(), node.inside.end(), [](const Range& a, const Range& b) { return a.low < b.low; });
    Dwarf_Addr reach = 0;
    for (Range& range : node.inside) range.reach = reach = std::max(reach, range.high);
  }
}

// Ranges of one level lie beside each other, save those of code that the linker dropped.
const ScopeTree::Range* ScopeTree::find(const Node& node, Dwarf_Addr address) const {
  auto behind = std::upper_bound(node.inside.begin(), node.inside.end(), address,
                                 [](Dwarf_Addr value, const Range& range) { return value < range.low; });
  for (auto at = behind; at != node.inside.begin();) {
    --at;
    if (address < at->high) return &*at;
    if (at->reach <= address) return nullptr;
  }
  return nullptr;
}

std::vector<const ScopeTree::Scope*> ScopeTree::around(Dwarf_Addr address) const {
  std::vector<const Scope*> scopes;
  for (const Range* range = find(nodes_[kUnit], address); range != nullptr;
       range = find(nodes_[range->node], address)) {
    scopes.push_back(&nodes_[range->node].scope);
  }
  return scopes;
}

}  // namespace quarl::report
