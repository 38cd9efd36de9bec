// SPDX-License-Identifier: Apache-2.0
#include "report/analysis/call_tree.h"

#include <algorithm>

#include "report/analysis/suppressions.h"

namespace quarl::report {
namespace {

CallNode& child_named(CallNode& node, const std::string& name) {
  auto found = std::find_if(node.children.begin(), node.children.end(),
                            [&](const CallNode& child) { return child.name == name; });
  if (found != node.children.end()) return *found;
  return node.children.emplace_back(CallNode{name, {}, {}});
}

void insert_path(CallNode& root, auto first, auto end, const Usage& usage) {
  CallNode* node = &root;
  node->usage += usage;
  for (auto frame = first; frame != end; ++frame) {
    node = &child_named(*node, name_of(*frame));
    node->usage += usage;
  }
}

void insert(CallNode& root, const Site& site) {
  insert_path(root, site.frames.rbegin(), site.frames.rend(), site.usage);
  if (site.frames.empty()) child_named(root, kNoTrace).usage += site.usage;
}

void sort(CallNode& node) {
  std::stable_sort(node.children.begin(), node.children.end(),
                   [](const CallNode& a, const CallNode& b) { return a.usage.bytes > b.usage.bytes; });
  for (CallNode& child : node.children) sort(child);
}

}  // namespace

CallNode build_call_tree(const std::vector<Site>& sites) {
  CallNode root;
  for (const Site& site : sites) insert(root, site);
  sort(root);
  return root;
}

CallNode build_caller_tree(const std::vector<Site>& sites, const std::string& pattern) {
  CallNode root;
  for (const Site& site : sites) {
    auto matches = [&](const Frame& frame) {
      return pattern_matches(pattern, frame.function.empty() ? name_of(frame) : frame.function);
    };
    auto first = std::find_if(site.frames.begin(), site.frames.end(), matches);
    if (first != site.frames.end()) insert_path(root, first, site.frames.end(), site.usage);
  }
  sort(root);
  return root;
}

}  // namespace quarl::report
