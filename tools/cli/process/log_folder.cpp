// SPDX-License-Identifier: Apache-2.0
#include "process/log_folder.h"

#include <fcntl.h>
#include <fmt/chrono.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <regex>

#include "logs/format.h"
#include "refusal.h"

namespace quarl {
namespace {

namespace fs = std::filesystem;

// Where a user's programs keep what they write by themselves; a temporary folder for one without a home.
fs::path state_folder() {
  const char* state = std::getenv("XDG_STATE_HOME");
  if (state != nullptr && *state == '/') return fs::path(state) / "quarl";
  const char* home = std::getenv("HOME");
  if (home != nullptr && *home == '/') return fs::path(home) / ".local/state/quarl";
  return fs::temp_directory_path() / fmt::format("quarl-{}", getuid());
}

fs::path folder_of_run(const std::string& program) {
  std::tm now = fmt::localtime(std::time(nullptr));
  return state_folder() / fmt::format("{}-{:%Y%m%d-%H%M%S}-{}", fs::path(program).filename().string(), now, getpid());
}

fs::path choose(const std::string& given, const std::string& program) {
  if (!given.empty()) return given;
  const char* named = std::getenv("QUARL_LOG_DIR");
  return named != nullptr && *named != '\0' ? fs::path(named) : folder_of_run(program);
}

bool lives(pid_t pid) {
  return kill(pid, 0) == 0 || errno == EPERM;
}

// Begun, and neither a dump nor a record was written to it.
bool says_nothing(const fs::path& log) {
  LogHeader header{};
  std::ifstream file(log, std::ios::binary);
  if (!file.read(reinterpret_cast<char*>(&header), sizeof header)) return false;
  std::error_code error;
  return header.time == 0 && fs::file_size(log, error) <= header.records_offset && !error;
}

}  // namespace

pid_t process_of_log(const std::string& file_name) {
  static const std::regex pattern(R"(.*_([0-9]{1,9})_quarl(All|_autosnap)?\.log)");
  std::smatch match;
  return std::regex_match(file_name, match, pattern) ? std::stoi(match[1]) : 0;
}

LogFolder::LogFolder(const std::string& given, const std::string& program) {
  fs::path folder = choose(given, program);
  std::error_code error;
  made_ = fs::create_directories(folder, error);
  if (!fs::is_directory(folder)) refuse("cannot make the folder {} for logs: {}", folder.string(), error.message());
  path_ = fs::absolute(folder).lexically_normal().string();
}

LogFolder::~LogFolder() {
  std::error_code error;
  if (made_) fs::remove(path_, error);
}

std::string LogFolder::make_file(const std::string& name, const std::string& extension) const {
  for (int number = 1;; ++number) {
    std::string path = fmt::format("{}/{}{}.{}", path_, name, number == 1 ? "" : fmt::format("-{}", number), extension);
    int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (file < 0 && errno != EEXIST) refuse("cannot make {}: {}", path, std::strerror(errno));
    if (file < 0) continue;
    close(file);
    return path;
  }
}

std::vector<std::string> LogFolder::logs(bool findings_only, pid_t spared) const {
  std::vector<std::string> logs;
  std::error_code error;
  for (fs::directory_iterator entry(path_, error), end; !error && entry != end; entry.increment(error)) {
    if (process_of_log(entry->path().filename()) != 0) logs.push_back(entry->path());
  }
  std::erase_if(logs, [&](const std::string& log) {
    pid_t pid = process_of_log(fs::path(log).filename());
    return findings_only && pid != spared && !lives(pid) && says_nothing(log) && fs::remove(log, error);
  });
  std::sort(logs.begin(), logs.end());
  return logs;
}

}  // namespace quarl
