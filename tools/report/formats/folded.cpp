// SPDX-License-Identifier: Apache-2.0
#include "report/formats/folded.h"

#include <algorithm>

namespace quarl::report {
namespace {

// A name as one part of a stack.
std::string part_of(std::string name) {
  std::replace(name.begin(), name.end(), ';', ':');
  return name;
}

void write_node(Output& output, const CallNode& node, const std::string& stack) {
  uint64_t own = node.usage.bytes;
  for (const CallNode& child : node.children) own -= child.usage.bytes;
  if (own != 0 && !stack.empty()) output.print("{} {}\n", stack, own);
  for (const CallNode& child : node.children) {
    write_node(output, child, stack + (stack.empty() ? "" : ";") + part_of(child.name));
  }
}

std::string stack_of(const Frames& frames) {
  std::string stack;
  for (auto frame = frames.rbegin(); frame != frames.rend(); ++frame) {
    stack += (stack.empty() ? "" : ";") + part_of(name_of(*frame));
  }
  return stack.empty() ? kNoTrace : stack;
}

}  // namespace

void write_folded(Output& output, const std::vector<Site>& sites) {
  for (const Site& site : sites) output.print("{} {}\n", stack_of(site.frames), site.usage.bytes);
}

void write_folded(Output& output, const std::vector<SiteDifference>& changes) {
  for (const SiteDifference& change : changes) {
    output.print("{} {} {}\n", stack_of(change.site.frames), change.before.bytes, change.after.bytes);
  }
}

void write_folded(Output& output, const CallNode& root) {
  write_node(output, root, "");
}

}  // namespace quarl::report
