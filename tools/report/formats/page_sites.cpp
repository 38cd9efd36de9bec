// SPDX-License-Identifier: Apache-2.0
#include "report/formats/page_sites.h"

#include "report/analysis/site.h"
#include "report/symbols/short_name.h"

namespace quarl::report {
namespace {

constexpr size_t kMaxSites = 40000;
constexpr const char* kFrameColumns[] = {"name", "short", "place", "file", "line", "module", "inlined"};

}  // namespace

std::optional<size_t> PageSites::site_of(size_t stack) {
  if (auto known = sites_.find(stack); known != sites_.end()) return known->second;
  if (sites_.size() == kMaxSites) return std::nullopt;
  size_t site = sites_.size();
  site_column_.push_back(stack);
  return sites_[stack] = site;
}

size_t PageSites::stack_of(const Frames& frames) {
  if (frames.empty()) return below(0, add_frame(kNoTrace, kNoTrace, {}));
  size_t stack = 0;
  for (auto frame = frames.rbegin(); frame != frames.rend(); ++frame) stack = below(stack, frame_of(*frame));
  return stack;
}

size_t PageSites::string_of(const std::string& text) {
  auto [position, added] = strings_.try_emplace(text, strings_.size());
  if (added) string_column_.push_back(text);
  return position->second;
}

size_t PageSites::frame_of(const Frame& frame) {
  return add_frame(describe(frame), name_of(frame), frame);
}

// `text` begins with `name`.
size_t PageSites::add_frame(const std::string& text, const std::string& name, const Frame& frame) {
  auto [position, added] = frames_.try_emplace(text, frames_.size());
  if (!added) return position->second;
  const Json cells[] = {string_of(name),
                        string_of(short_name(name)),
                        string_of(text.substr(name.size())),
                        string_of(frame.file),
                        frame.line,
                        string_of(frame.module),
                        frame.inlined ? 1 : 0};
  for (size_t column = 0; column < std::size(cells); ++column) frame_columns_[column].push_back(cells[column]);
  return position->second;
}

size_t PageSites::below(size_t stack, size_t frame) {
  auto [position, added] = stacks_.try_emplace({stack, frame}, stacks_.size() + 1);
  if (added) {
    callers_.push_back(stack);
    stack_frames_.push_back(frame);
  }
  return position->second;
}

void PageSites::write(Json& document) && {
  document["strings"] = std::move(string_column_);
  Json& frames = document["frames"] = Json::object();
  for (size_t column = 0; column < std::size(kFrameColumns); ++column)
    frames[kFrameColumns[column]] = std::move(frame_columns_[column]);
  document["stacks"] = {{"caller", std::move(callers_)}, {"frame", std::move(stack_frames_)}};
  document["sites"] = std::move(site_column_);
}

}  // namespace quarl::report
