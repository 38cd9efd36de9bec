// SPDX-License-Identifier: Apache-2.0
#include "target/library_path.h"

#include <filesystem>

#include "refusal.h"

namespace quarl {
namespace {

namespace fs = std::filesystem;

fs::path search(Target target) {
  fs::path tool = fs::read_symlink("/proc/self/exe").parent_path();
  fs::path file = fs::path(target_name(target)) / "libquarl.so";
  for (const fs::path& place : {tool.parent_path() / file, tool.parent_path() / "lib/quarl" / file}) {
    if (fs::exists(place)) return place;
  }
  refuse("no libquarl.so for {} belongs to this tool: neither {} nor {} is there; name one with --library",
         target_name(target), (tool.parent_path() / file).string(), (tool.parent_path() / "lib/quarl" / file).string());
}

}  // namespace

std::string find_library(Target target, const std::string& given) {
  if (!given.empty() && !fs::exists(given)) refuse("--library {}: no such file", given);
  std::string path = fs::absolute(given.empty() ? search(target) : fs::path(given)).lexically_normal();
  Target built_for = read_elf(path).target;
  if (built_for != target) {
    refuse("{} is for {}, but the program is for {}", path, target_name(built_for), target_name(target));
  }
  if (path.find_first_of(" :;,") != std::string::npos) {
    refuse("the loader splits LD_PRELOAD at blanks, \":\", \";\" and \",\"; give {} a path without them", path);
  }
  return path;
}

}  // namespace quarl
