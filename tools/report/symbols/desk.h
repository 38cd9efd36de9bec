// SPDX-License-Identifier: Apache-2.0
// Finds the target's files on the development PC, and refuses those that cannot be the ones that were mapped.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "report/symbols/symbol_file.h"

namespace quarl::report {

struct DeskOptions {
  std::vector<std::string> sysroots;    // directories that look like the target's /
  std::vector<std::string> debug_dirs;  // of split debug files and of unstripped files by their base name
  std::vector<std::string> renames;     // FROM=TO, prefixes of paths
  std::string events;                   // file of the process's events; empty: events.jsonl beside the log
};

class Desk {
 public:
  explicit Desk(DeskOptions options);

  // The file mapped at `mappings` from `target_path`, null when the desk has none that fits. Opened once. `build_id`:
  // of what was mapped, empty where that is not known.
  SymbolFile* find(const std::string& target_path, const std::vector<Mapping>& mappings, const std::string& build_id);
  // The file of `target_path` with that build id ("" when it has none), null when the desk has no such build.
  SymbolFile* find_build(const std::string& target_path, const std::string& build_id);
  // Where the events of the process that wrote a log are.
  std::string events_of(const std::string& log_path) const;
  // One sentence for each file that was refused, or does not go with the log in all.
  const std::vector<std::string>& warnings() const { return warnings_; }
  void warn(const std::string& sentence);  // once each

 private:
  void warn_of_other_build(const std::string& path, const std::string& target_path);
  std::vector<std::string> candidates(const std::string& target_path) const;
  SymbolFile* open(const std::string& path);
  std::string debug_path() const;

  DeskOptions options_;
  std::map<std::string, std::unique_ptr<SymbolFile>> files_;  // by path on the desk
  std::vector<std::string> warnings_;
};

}  // namespace quarl::report
