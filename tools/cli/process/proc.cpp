// SPDX-License-Identifier: Apache-2.0
#include "process/proc.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace quarl {
namespace {

namespace fs = std::filesystem;

std::string proc_path(pid_t pid, const std::string& file) {
  return "/proc/" + std::to_string(pid) + "/" + file;
}

std::string task_file(pid_t tid, const char* file) {
  return "task/" + std::to_string(tid) + "/" + file;
}

// The names of a folder's entries that are numbers.
std::vector<pid_t> numbers_in(const std::string& folder) {
  std::vector<pid_t> numbers;
  std::error_code gone;
  for (fs::directory_iterator entry(folder, gone), end; !gone && entry != end; entry.increment(gone)) {
    std::string name = entry->path().filename();
    pid_t number = 0;
    if (std::from_chars(name.data(), name.data() + name.size(), number).ec == std::errc()) numbers.push_back(number);
  }
  return numbers;
}

// The main thread may have ended before others; then only theirs show the process's memory, program and directory.
pid_t with_memory(pid_t pid) {
  if (thread_lives(pid, pid)) return pid;
  for (pid_t tid : threads_of(pid)) {
    if (thread_lives(pid, tid)) return tid;
  }
  return pid;
}

// The entry NAME=VALUE of a list whose entries end with a NUL.
std::optional<std::string> find_entry(const std::string& list, const std::string& name) {
  std::istringstream entries(list);
  for (std::string entry; std::getline(entries, entry, '\0');) {
    if (entry.starts_with(name + "=")) return entry.substr(name.size() + 1);
  }
  return std::nullopt;
}

// Of the emulator's "-E NAME=VALUE" arguments.
std::optional<std::string> emulator_environment(pid_t pid, const std::string& name) {
  std::istringstream arguments(read_proc(with_memory(pid), "cmdline"));
  for (std::string argument; std::getline(arguments, argument, '\0');) {
    if (argument != "-E" || !std::getline(arguments, argument, '\0')) continue;
    if (argument.starts_with(name + "=")) return argument.substr(name.size() + 1);
  }
  return std::nullopt;
}

}  // namespace

std::string read_proc(pid_t pid, const std::string& file) {
  std::ifstream stream(proc_path(pid, file), std::ios::binary);
  std::ostringstream bytes;
  bytes << stream.rdbuf();
  return bytes.str();
}

std::vector<pid_t> threads_of(pid_t pid) {
  return numbers_in(proc_path(pid, "task"));
}

std::vector<pid_t> all_processes() {
  return numbers_in("/proc");
}

std::vector<fs::path> open_files(pid_t pid) {
  std::vector<fs::path> files;
  std::error_code gone;
  for (fs::directory_iterator entry(proc_path(with_memory(pid), "fd"), gone), end; !gone && entry != end;
       entry.increment(gone)) {
    std::error_code closed;
    files.push_back(fs::read_symlink(entry->path(), closed));
  }
  return files;
}

std::vector<pid_t> process_tree(pid_t root) {
  std::vector<pid_t> tree{root};
  for (size_t i = 0; i < tree.size(); ++i) {
    for (pid_t tid : threads_of(tree[i])) {
      std::istringstream children(read_proc(tree[i], task_file(tid, "children")));
      for (pid_t child; children >> child;) tree.push_back(child);
    }
  }
  return tree;
}

std::string thread_name(pid_t pid, pid_t tid) {
  std::string name = read_proc(pid, task_file(tid, "comm"));
  return name.substr(0, name.find('\n'));
}

bool thread_lives(pid_t pid, pid_t tid) {
  std::string stat = read_proc(pid, task_file(tid, "stat"));
  size_t name_end = stat.rfind(')');
  if (name_end == std::string::npos || name_end + 2 >= stat.size()) return false;
  char state = stat[name_end + 2];
  return state != 'Z' && state != 'X';
}

bool blocks_signals(pid_t pid, pid_t tid) {
  std::string status = read_proc(pid, task_file(tid, "status"));
  size_t mask = status.find("\nSigBlk:");
  if (mask == std::string::npos) return false;
  return std::strtoull(status.c_str() + mask + 8, nullptr, 16) >> (SIGTERM - 1) & 1;
}

bool only_agent_left(pid_t pid) {
  bool agent = false;
  for (pid_t tid : threads_of(pid)) {
    if (!thread_lives(pid, tid)) continue;
    bool is_agent = thread_name(pid, tid) == "qr_demo_thread";
    if (!is_agent && !(is_emulated(pid) && blocks_signals(pid, tid))) return false;
    agent = agent || is_agent;
  }
  return agent;
}

bool runs_under_checker(pid_t pid) {
  return read_proc(pid, "maps").find("/libquarl.so") != std::string::npos;
}

std::string memory_map(pid_t pid) {
  return read_proc(with_memory(pid), "maps");
}

std::string current_directory(pid_t pid) {
  std::error_code gone;
  return fs::read_symlink(proc_path(with_memory(pid), "cwd"), gone);
}

bool is_emulated(pid_t pid) {
  std::error_code gone;
  return fs::read_symlink(proc_path(with_memory(pid), "exe"), gone).filename().string().starts_with("qemu-arm");
}

int machine_signal(int signal, bool emulated) {
  constexpr int kFirstRealTime = 32, kKeptByEmulator = 2;
  return emulated && signal >= kFirstRealTime ? signal + kKeptByEmulator : signal;
}

std::optional<std::string> environment_of(pid_t pid, const std::string& name) {
  if (is_emulated(pid)) {
    if (auto value = emulator_environment(pid, name)) return value;
  }
  return find_entry(read_proc(with_memory(pid), "environ"), name);
}

std::optional<uint64_t> read_memory(pid_t pid, uint64_t address) {
  int memory = open(proc_path(with_memory(pid), "mem").c_str(), O_RDONLY | O_CLOEXEC);
  if (memory < 0) return std::nullopt;
  uint64_t word = 0;
  ssize_t got = pread64(memory, &word, sizeof word, static_cast<off64_t>(address));
  close(memory);
  return got == sizeof word ? std::optional(word) : std::nullopt;
}

}  // namespace quarl
