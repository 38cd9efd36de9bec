// SPDX-License-Identifier: Apache-2.0
#include "report/analysis/site.h"

#include <algorithm>

namespace quarl::report {

std::string site_name(const Frames& frames) {
  return frames.empty() ? kNoTrace : describe(frames.front());
}

void SiteSum::add(const LiveEntry& entry) {
  usage += {entry.size, 1};
  smallest = std::min(smallest, entry.size);
  largest = std::max(largest, entry.size);
  if (entry.time != 0) {
    oldest = oldest == 0 ? entry.time : std::min(oldest, entry.time);
    newest = std::max(newest, entry.time);
  }
  if (entry.tid != 0) tids.insert(entry.tid);
  (entry.from_file ? file_mappings : is_mapping(entry) ? mappings : heap) = true;
}

void SiteSum::add(const SiteSum& sum) {
  usage += sum.usage;
  smallest = std::min(smallest, sum.smallest);
  largest = std::max(largest, sum.largest);
  if (sum.oldest != 0) oldest = oldest == 0 ? sum.oldest : std::min(oldest, sum.oldest);
  newest = std::max(newest, sum.newest);
  tids.insert(sum.tids.begin(), sum.tids.end());
  heap |= sum.heap;
  mappings |= sum.mappings;
  file_mappings |= sum.file_mappings;
}

std::string SiteSum::kind() const {
  std::string text;
  auto append = [&](bool held, const char* name) {
    if (held) text += (text.empty() ? "" : "+") + std::string(name);
  };
  append(heap, "heap");
  append(mappings, "mapping");
  append(file_mappings, "file mapping");
  return text;
}

}  // namespace quarl::report
