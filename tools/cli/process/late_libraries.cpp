// SPDX-License-Identifier: Apache-2.0
#include "process/late_libraries.h"

#include <filesystem>
#include <set>

#include "frames/batch/cache.h"
#include "message.h"
#include "report/reading/log.h"
#include "report/reading/log_error.h"

namespace quarl {
namespace {

using Paths = std::set<std::string>;

void add_files_of(const std::string& log_path, Paths& files) {
  try {
    const report::Log log(log_path);
    for (const report::Snapshot& snapshot : log.snapshots()) {
      const report::Maps maps = log.maps(snapshot);
      for (const report::Mapping& mapping : maps.all()) {
        if (mapping.executable && report::is_file(mapping)) files.insert(mapping.path);
      }
    }
  } catch (const report::LogError&) {
    // Of a process that is not through with it.
  }
}

std::vector<std::string> files_of(const RunEvents& events, const std::vector<std::string>& logs) {
  Paths files;
  for (const story::Process& process : events.processes().all()) {
    for (const auto& [id, module] : process.modules) files.insert(module.path);
  }
  for (const std::string& log : logs) add_files_of(log, files);
  std::error_code error;
  std::erase_if(files, [&](const std::string& path) { return !std::filesystem::is_regular_file(path, error); });
  return {files.begin(), files.end()};
}

}  // namespace

void prepare_late_libraries(const RunEvents& events, const std::vector<std::string>& logs, const std::string& sysroot) {
  const size_t made = frames::cached_tables(files_of(events, logs), sysroot).made;
  if (made == 0) return;
  say("{} loaded on the way had no unwind rules; {} now, so another run has whole traces through {}",
      made == 1 ? "a library that was" : fmt::format("{} libraries that were", made),
      made == 1 ? "it has" : "they have", made == 1 ? "it" : "them");
}

}  // namespace quarl
