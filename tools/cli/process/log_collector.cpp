#include "process/log_collector.h"

#include <signal.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <filesystem>
#include <regex>

#include "message.h"
#include "refusal.h"

namespace quarl {
namespace {

namespace fs = std::filesystem;

void move_file(const fs::path& from, const fs::path& to) {
  std::error_code error;
  fs::rename(from, to, error);
  if (error == std::errc::cross_device_link) {
    fs::copy_file(from, to, fs::copy_options::overwrite_existing, error);
    if (!error) fs::remove(from, error);
  }
  if (error) {
    say("cannot move the log {} to {}: {}", from.string(), to.string(), error.message());
  } else {
    say("log: {}", to.string());
  }
}

}  // namespace

pid_t process_of_log(const std::string& file_name) {
  static const std::regex pattern(R"(.*_([0-9]{1,9})_quarl(All|_autosnap)?\.log)");
  std::smatch match;
  return std::regex_match(file_name, match, pattern) ? std::stoi(match[1]) : 0;
}

LogCollector::LogCollector(const std::string& folder) : folder_(folder) {
  if (folder.empty()) return;
  std::error_code error;
  fs::create_directories(folder, error);
  if (!fs::is_directory(folder)) refuse("--logs {}: cannot make the folder: {}", folder, error.message());
  watch_ = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
  inotify_add_watch(watch_, ".", IN_CREATE);
}

LogCollector::~LogCollector() {
  if (watch_ >= 0) close(watch_);
}

void LogCollector::drain() const {
  alignas(inotify_event) char events[4096];
  while (read(watch_, events, sizeof events) > 0) {
  }
}

void LogCollector::note(const std::vector<pid_t>& processes) {
  processes_.insert(processes.begin(), processes.end());
}

void LogCollector::collect() const {
  if (folder_.empty()) return;
  std::vector<fs::path> logs;
  for (const auto& entry : fs::directory_iterator(".")) {
    pid_t pid = process_of_log(entry.path().filename());
    if (processes_.count(pid) && kill(pid, 0) != 0) logs.push_back(entry.path().filename());
  }
  for (const fs::path& log : logs) move_file(log, folder_ / log);
}

}  // namespace quarl
