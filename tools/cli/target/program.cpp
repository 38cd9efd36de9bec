// SPDX-License-Identifier: Apache-2.0
#include "target/program.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "refusal.h"

namespace quarl {
namespace {

namespace fs = std::filesystem;

bool is_executable(const std::string& path) {
  return fs::is_regular_file(path) && access(path.c_str(), X_OK) == 0;
}

std::string locate(const std::string& name, const std::string& sysroot) {
  if (name.find('/') == std::string::npos) {
    std::optional<std::string> found;
    if (!sysroot.empty()) found = search_path(name, sysroot);
    if (!found) found = search_path(name, "");
    if (!found) refuse("{}: no such program in PATH; for one in the current directory write ./{}", name, name);
    return *found;
  }
  if (!fs::exists(name)) refuse("{}: no such file", name);
  if (!is_executable(name)) refuse("{} is not executable; try: chmod +x {}", name, name);
  return name;
}

// The words behind "#!": the interpreter and what is left of the line, which the kernel passes as one argument.
std::vector<std::string> shebang(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string line;
  if (!std::getline(file, line) || !line.starts_with("#!")) return {};
  std::istringstream words(line.substr(2));
  std::vector<std::string> parts(1);
  words >> parts[0] >> std::ws;
  std::string rest;
  if (std::getline(words, rest)) parts.push_back(rest.substr(0, rest.find_last_not_of(" \t\r") + 1));
  return parts;
}

// "#!/usr/bin/env NAME" runs NAME from PATH; the kernel would start the 64-bit env of this machine.
std::vector<std::string> skip_env(std::vector<std::string> parts) {
  bool env = parts.size() == 2 && fs::path(parts[0]).filename() == "env";
  if (env && parts[1].find_first_of(" -") == std::string::npos) return {parts[1]};
  return parts;
}

std::string below(const std::string& sysroot, const std::string& path) {
  bool there = !sysroot.empty() && path.starts_with('/') && is_executable(sysroot + path);
  return there ? sysroot + path : path;
}

void check_privileges(const std::string& path) {
  struct stat status;
  if (stat(path.c_str(), &status) != 0 || !(status.st_mode & (S_ISUID | S_ISGID))) return;
  if (status.st_uid != geteuid() || (status.st_mode & S_ISGID)) {
    refuse("{} changes its user or group when it starts, and the loader ignores LD_PRELOAD then; run a copy of it",
           path);
  }
}

ElfFile read_program(const std::string& path, const std::string& sysroot) {
  try {
    return read_elf(path);
  } catch (const Refusal& refusal) {
    if (sysroot.empty() || path.starts_with(sysroot) || !is_executable(sysroot + path)) throw;
    throw Refusal(std::string(refusal.what()) + "; did you mean " + sysroot + path + "?");
  }
}

}  // namespace

std::optional<std::string> search_path(const std::string& name, const std::string& prefix) {
  const char* path = std::getenv("PATH");
  std::istringstream folders(path ? path : "/usr/local/bin:/usr/bin:/bin");
  for (std::string folder; std::getline(folders, folder, ':');) {
    std::string candidate = prefix;
    candidate.append(folder.empty() ? "." : folder).append("/").append(name);
    if (is_executable(candidate)) return candidate;
  }
  return std::nullopt;
}

Program find_program(const std::string& name, const std::string& sysroot) {
  Program program{locate(name, sysroot), {}, {}};
  std::vector<std::string> script = skip_env(shebang(program.path));
  if (!script.empty()) {
    program.leading.assign(script.begin() + 1, script.end());
    program.leading.push_back(program.path);
    program.path = below(sysroot, script[0].find('/') == std::string::npos ? locate(script[0], sysroot) : script[0]);
  }
  check_privileges(program.path);
  program.elf = read_program(program.path, sysroot);
  if (program.elf.interpreter.empty()) {
    refuse("{} is linked statically and loads no libraries; link it dynamically (without -static)", program.path);
  }
  return program;
}

}  // namespace quarl
