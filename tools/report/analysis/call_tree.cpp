#include "report/analysis/call_tree.h"

#include <algorithm>

namespace quarl::report {
namespace {

CallNode& child_named(CallNode& node, const std::string& name) {
  auto found = std::find_if(node.children.begin(), node.children.end(),
                            [&](const CallNode& child) { return child.name == name; });
  if (found != node.children.end()) return *found;
  return node.children.emplace_back(CallNode{name, {}, {}});
}

void insert(CallNode& root, const Site& site) {
  CallNode* node = &root;
  node->usage += site.usage;
  for (auto frame = site.frames.rbegin(); frame != site.frames.rend(); ++frame) {
    node = &child_named(*node, name_of(*frame));
    node->usage += site.usage;
  }
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

}  // namespace quarl::report
