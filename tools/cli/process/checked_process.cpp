// SPDX-License-Identifier: Apache-2.0
#include "process/checked_process.h"

#include <signal.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <sstream>

#include "items/config_check.h"
#include "items/signal_text.h"
#include "process/log_folder.h"
#include "process/proc.h"
#include "refusal.h"

namespace quarl {
namespace {

namespace fs = std::filesystem;

// Bit N-1 of the line "SigCgt:" stands for signal N.
bool handles(pid_t pid, int signal) {
  std::istringstream status(read_proc(pid, "status"));
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("SigCgt:")) return std::stoull(line.substr(7), nullptr, 16) >> (signal - 1) & 1;
  }
  return false;
}

}  // namespace

CheckedProcess::CheckedProcess(pid_t pid) : pid_(pid) {
  if (pid <= 0 || (kill(pid, 0) != 0 && errno == ESRCH)) refuse("there is no process {}", pid);
  if (memory_map(pid).empty()) refuse("cannot look into process {}; are you its user?", pid);
  if (!runs_under_checker(pid)) refuse("process {} does not run under the checker; start it with \"quarl run\"", pid);
}

std::optional<std::string> CheckedProcess::config_file() const {
  fs::path path = environment_of(pid_, "QUARL_CFG_FILE").value_or("quarlcfg.ini");
  if (path.is_relative()) path = current_directory(pid_) / path;
  if (!fs::is_regular_file(path)) return std::nullopt;
  return path.string();
}

int CheckedProcess::dump_signal() const {
  auto path = config_file();
  if (!path) return kDefaultDumpSignal;
  return ConfigReport(slurp(*path)).state.find("QUARL_SIG")->effect.number;
}

// The library is loaded, but the process need not be checked.
std::string CheckedProcess::why_not_handled(int signal) const {
  if (auto only = environment_of(pid_, "QUARL_ONLY")) {
    return fmt::format("QUARL_ONLY={} may leave the program out", *only);
  }
  if (signal == kDefaultDumpSignal)
    return "it may have been started with the signal ignored, or handle it itself no more";
  return "was its configuration file changed since it started?";
}

int CheckedProcess::signal_dump() const {
  int signal = dump_signal();
  int number = machine_signal(signal, is_emulated(pid_));
  if (!handles(pid_, number)) {
    refuse("process {} does not handle {}, its QUARL_SIG; {}", pid_, signal_name(signal), why_not_handled(signal));
  }
  if (kill(pid_, number) != 0) refuse("cannot signal process {}: {}", pid_, std::strerror(errno));
  return signal;
}

// They lie where the process began. A daemon is elsewhere by now; what the shell that started it said tells where.
std::set<std::string> CheckedProcess::log_folders() const {
  std::set<std::string> folders = seen_in_;
  std::string chosen = environment_of(pid_, "QUARL_LOG_DIR").value_or("");
  for (const std::string& began : {environment_of(pid_, "PWD").value_or(""), current_directory(pid_)}) {
    std::error_code error;
    fs::path folder = fs::canonical(fs::path(began) / chosen, error);
    if (!error) folders.insert(folder);
  }
  return folders;
}

std::map<std::string, CheckedProcess::Written> CheckedProcess::logs() {
  std::map<std::string, Written> found;
  auto look_at = [&](const fs::path& path) {
    struct stat file {};
    if (process_of_log(path.filename()) != pid_ || stat(path.c_str(), &file) != 0) return;
    found[path] = {file.st_mtim.tv_sec * INT64_C(1000000000) + file.st_mtim.tv_nsec, file.st_size};
  };
  for (const fs::path& path : open_files(pid_)) {
    if (process_of_log(path.filename()) == pid_) seen_in_.insert(path.parent_path());
  }
  for (const std::string& folder : log_folders()) {
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
      look_at(entry->path());
    }
  }
  return found;
}

}  // namespace quarl
