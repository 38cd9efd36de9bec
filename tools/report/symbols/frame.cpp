// SPDX-License-Identifier: Apache-2.0
#include "report/symbols/frame.h"

#include <fmt/format.h>

#include "report/reading/maps.h"
#include "report/symbols/short_name.h"

namespace quarl::report {

std::string name_of(const Frame& frame) {
  if (!frame.function.empty()) return frame.nearest ? "near " + frame.function : frame.function;
  if (frame.module.empty()) return fmt::format("0x{:08x}", frame.address);
  return fmt::format("{}+0x{:x}", base_name(frame.module), frame.offset);
}

std::string describe(const Frame& frame, Names names) {
  if (frame.function.empty()) return name_of(frame);
  const std::string name = names == Names::kShort ? short_name(name_of(frame)) : name_of(frame);
  if (!frame.file.empty()) return fmt::format("{} ({})", name, source_of(frame));
  return fmt::format("{}+0x{:x} ({})", name, frame.function_offset, base_name(frame.module));
}

std::string source_of(const Frame& frame) {
  return frame.file.empty() ? "" : fmt::format("{}:{}", base_name(frame.file), frame.line);
}

}  // namespace quarl::report
