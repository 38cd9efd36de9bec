#include "report/symbols/frame.h"

#include <fmt/format.h>

#include "report/reading/maps.h"

namespace quarl::report {

std::string name_of(const Frame& frame) {
  if (!frame.function.empty()) return frame.nearest ? "near " + frame.function : frame.function;
  if (frame.module.empty()) return fmt::format("0x{:08x}", frame.address);
  return fmt::format("{}+0x{:x}", base_name(frame.module), frame.offset);
}

std::string describe(const Frame& frame) {
  if (frame.function.empty()) return name_of(frame);
  if (!frame.file.empty()) return fmt::format("{} ({})", name_of(frame), source_of(frame));
  return fmt::format("{}+0x{:x} ({})", name_of(frame), frame.function_offset, base_name(frame.module));
}

std::string source_of(const Frame& frame) {
  return frame.file.empty() ? "" : fmt::format("{}:{}", base_name(frame.file), frame.line);
}

}  // namespace quarl::report
