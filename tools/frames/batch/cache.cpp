// SPDX-License-Identifier: Apache-2.0
#include "frames/batch/cache.h"

#include <cstdlib>
#include <exception>
#include <filesystem>

#include "frames/batch/batch.h"
#include "frames/batch/debug_path.h"
#include "frames/table/table.h"

namespace quarl::frames {
namespace {

namespace fs = std::filesystem;

// Tables of another version of their format are others.
fs::path cache_folder() {
  const char* cache = std::getenv("XDG_CACHE_HOME");
  const char* home = std::getenv("HOME");
  fs::path own = "quarl/frames-" + std::to_string(kTableVersion);
  if (cache != nullptr && *cache == '/') return cache / own;
  if (home != nullptr && *home == '/') return fs::path(home) / ".cache" / own;
  return {};
}

bool lacks_table(const std::string& path, const fs::path& folder) {
  try {
    return !fs::exists(folder / table_id(ElfModule(path, "")).file_name());
  } catch (const NoModule&) {
    return false;
  }
}

}  // namespace

CachedTables cached_tables(const std::vector<std::string>& files, const std::string& sysroot) {
  fs::path folder = cache_folder();
  std::error_code error;
  if (folder.empty() || (fs::create_directories(folder, error), error)) return {};
  CachedTables tables{folder.string()};
  std::vector<std::string> sysroots;
  if (!sysroot.empty()) sysroots.push_back(sysroot);
  try {
    std::vector<ElfPath> lacking;
    for (const ElfPath& file : elf_files(files, sysroots)) {
      if (lacks_table(file.path, folder)) lacking.push_back(file);
    }
    TableOptions options;
    options.debug_path = debug_path({}, sysroots);
    for (const Outcome& outcome : make_tables(lacking, tables.folder, options))
      tables.made += outcome.table.empty() ? 0 : 1;
  } catch (const std::exception&) {
    // A full disk, a folder of somebody else: what is there is used.
  }
  return tables;
}

}  // namespace quarl::frames
