// SPDX-License-Identifier: Apache-2.0
#include "frames/batch/debug_path.h"

#include <filesystem>

namespace quarl::frames {

// "+" has debug links checked by their checksum; an element without "/" is a folder beside the file.
std::string debug_path(const std::vector<std::string>& debug_dirs, const std::vector<std::string>& sysroots) {
  std::string path = "+:.debug";
  auto add = [&](const std::string& folder) { path += ":" + std::filesystem::absolute(folder).string(); };
  for (const std::string& folder : debug_dirs) add(folder);
  for (const std::string& root : sysroots) add(root + "/usr/lib/debug");
  if (debug_dirs.empty()) add("/usr/lib/debug");
  return path;
}

}  // namespace quarl::frames
