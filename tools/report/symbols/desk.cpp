// SPDX-License-Identifier: Apache-2.0
#include "report/symbols/desk.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

namespace quarl::report {

Desk::Desk(DeskOptions options) : options_(std::move(options)) {}

SymbolFile* Desk::find(const std::string& target_path, const std::vector<Mapping>& mappings,
                       const std::string& build_id) {
  for (const std::string& path : candidates(target_path)) {
    SymbolFile* file = open(path);
    if (file == nullptr) continue;
    const bool other = !build_id.empty() && file->build_id() != build_id;
    std::string why = other ? "" : file->mismatch(mappings);
    if (!other && why.empty()) return file;
    if (other) {
      warn_of_other_build(path, target_path);
    } else {
      warn(fmt::format("{} is not the {} of the log: {}.", path, target_path, why));
    }
  }
  return nullptr;
}

// Debug information that was split off stands in for a file that the desk does not have.
SymbolFile* Desk::find_build(const std::string& target_path, const std::string& build_id) {
  std::vector<std::string> paths = candidates(target_path);
  if (build_id.size() > 2) {
    const std::string split = "/.build-id/" + build_id.substr(0, 2) + "/" + build_id.substr(2) + ".debug";
    const std::string installed = "/usr/lib/debug" + split;
    for (const std::string& directory : options_.debug_dirs) paths.push_back(directory + split);
    for (const std::string& root : options_.sysroots) paths.push_back(root + installed);
    paths.push_back(installed);
  }
  std::vector<std::string> others;
  for (const std::string& path : paths) {
    SymbolFile* file = open(path);
    if (file == nullptr) continue;
    if (file->build_id() == build_id) return file;
    others.push_back(path);
  }
  if (!others.empty()) warn_of_other_build(others[0], target_path);
  return nullptr;
}

void Desk::warn_of_other_build(const std::string& path, const std::string& target_path) {
  warn(fmt::format("{} is another build than the {} that ran: its names are not used", path, target_path));
}

std::string Desk::events_of(const std::string& log_path) const {
  if (!options_.events.empty()) return options_.events;
  const std::filesystem::path beside = std::filesystem::path(log_path).parent_path() / "events.jsonl";
  std::error_code error;
  return std::filesystem::is_regular_file(beside, error) ? beside.string() : "";
}

void Desk::warn(const std::string& sentence) {
  if (std::find(warnings_.begin(), warnings_.end(), sentence) == warnings_.end()) warnings_.push_back(sentence);
}

// In the order of preference: what the user named, the sysroots, the debug directories, this machine's own file.
std::vector<std::string> Desk::candidates(const std::string& target_path) const {
  std::vector<std::string> paths;
  for (const std::string& rename : options_.renames) {
    size_t equals = rename.find('=');
    std::string from = rename.substr(0, equals);
    if (target_path.starts_with(from)) paths.push_back(rename.substr(equals + 1) + target_path.substr(from.size()));
  }
  for (const std::string& root : options_.sysroots) paths.push_back(root + target_path);
  for (const std::string& directory : options_.debug_dirs) {
    paths.push_back(directory + target_path);
    paths.push_back(directory + "/" + base_name(target_path));
  }
  paths.push_back(target_path);
  return paths;
}

SymbolFile* Desk::open(const std::string& path) {
  auto [position, added] = files_.try_emplace(path);
  if (added && std::filesystem::is_regular_file(std::filesystem::status(path))) {
    position->second = SymbolFile::open(path, debug_path());
  }
  return position->second.get();
}

// "+" has debug links checked by their checksum; an empty element is the file's own directory.
std::string Desk::debug_path() const {
  std::string path = "+:.debug";
  auto add = [&](const std::string& directory) {
    std::error_code error;
    path += ":" + std::filesystem::absolute(directory, error).string();
  };
  for (const std::string& directory : options_.debug_dirs) add(directory);
  for (const std::string& root : options_.sysroots) add(root + "/usr/lib/debug");
  return path + ":/usr/lib/debug";
}

}  // namespace quarl::report
