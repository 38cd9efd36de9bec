#include "report/formats/folded.h"

#include <algorithm>

namespace quarl::report {
namespace {

std::string stack_of(const Frames& frames) {
  std::string stack;
  for (auto frame = frames.rbegin(); frame != frames.rend(); ++frame) {
    std::string name = name_of(*frame);
    std::replace(name.begin(), name.end(), ';', ':');
    stack += (stack.empty() ? "" : ";") + name;
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

}  // namespace quarl::report
