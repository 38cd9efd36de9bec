// SPDX-License-Identifier: Apache-2.0
#include "frames/code/code_map.h"

#include <algorithm>

namespace quarl::frames {

CodeMap::CodeMap(const ElfModule& module)
    : start_(module.text_start()), flags_(module.text_end() - module.text_start()) {
  const std::vector<CodeMark>& marks = module.marks();
  for (size_t index = 0; index < marks.size(); ++index) {
    static constexpr uint8_t kFlags[] = {kKnownArm, kKnownThumb, kData};
    // The symbols of one section say nothing of the next one; marks end with their section, whose start has one again.
    uint32_t end = index + 1 < marks.size() ? marks[index + 1].address : module.code_end(marks[index].address);
    add_range(marks[index].address, std::min(end, module.code_end(marks[index].address)) - marks[index].address,
              kFlags[marks[index].kind]);
  }
  uint32_t last = start_;
  for (const CodeRange& range : module.code()) {
    if (range.start > last) add_range(last, range.start - last, kData);
    last = std::max(last, range.end);
  }
  if (end() > last) add_range(last, end() - last, kData);
}

}  // namespace quarl::frames
