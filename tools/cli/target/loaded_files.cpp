// SPDX-License-Identifier: Apache-2.0
#include "target/loaded_files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <sstream>

extern char** environ;

namespace quarl {
namespace {

namespace fs = std::filesystem;

constexpr const char* kAsk = "LD_TRACE_LOADED_OBJECTS=1";

std::vector<char*> pointers(std::vector<std::string>& words) {
  std::vector<char*> list;
  list.reserve(words.size() + 1);
  for (std::string& word : words) list.push_back(word.data());
  list.push_back(nullptr);
  return list;
}

// What the command writes to standard output; standard error is of no interest.
std::string output_of(std::vector<std::string> argv, std::vector<std::string> environment) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return "";
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t pid = 0;
  bool started =
      posix_spawn(&pid, argv[0].c_str(), &actions, nullptr, pointers(argv).data(), pointers(environment).data()) == 0;
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  std::string output;
  char buffer[4096];
  for (ssize_t count; started && (count = read(ends[0], buffer, sizeof buffer)) > 0;)
    output.append(buffer, static_cast<size_t>(count));
  close(ends[0]);
  if (started) waitpid(pid, nullptr, 0);
  return output;
}

// Loaders of other C libraries do not know the question, and would start the program.
// The emulator, and the loader that is started by name, are told in their own ways.
std::string ask_loader(const LaunchCommand& command, const Program& program) {
  std::vector<std::string> argv = command.argv, environment;
  auto at = std::ranges::find(argv, program.path);
  if (at == argv.end() || !fs::path(program.elf.interpreter).filename().string().starts_with("ld-linux")) return "";
  argv.erase(at + 1, argv.end());
  if (command.emulated) argv.insert(argv.begin() + 1, {"-E", kAsk});
  for (char** each = environ; *each != nullptr; ++each) environment.emplace_back(*each);
  for (const auto& [name, value] : command.environment) environment.push_back(fmt::format("{}={}", name, value));
  if (!command.emulated) environment.emplace_back(kAsk);
  return output_of(argv, environment);
}

// The C library loads it when a thread ends by pthread_exit, as one with a fault does.
void add_unwinder(std::vector<std::string>& files) {
  auto is_libc = [](const std::string& file) { return fs::path(file).filename() == "libc.so.6"; };
  auto libc = std::ranges::find_if(files, is_libc);
  if (libc == files.end()) return;
  fs::path unwinder = fs::path(*libc).replace_filename("libgcc_s.so.1");
  if (fs::exists(unwinder)) files.push_back(unwinder.string());
}

}  // namespace

// Its lines are "NAME => PATH (ADDRESS)" or "PATH (ADDRESS)".
std::vector<std::string> loaded_files(const LaunchCommand& command, const Program& program,
                                      const std::string& sysroot) {
  std::vector<std::string> files = {program.path};
  std::istringstream lines(ask_loader(command, program));
  for (std::string line; std::getline(lines, line);) {
    size_t end = line.rfind(" (0x"), arrow = line.find("=> "), begin = arrow == line.npos ? line.find('/') : arrow + 3;
    if (end == line.npos || begin == line.npos || begin >= end || line[begin] != '/') continue;
    std::string path = line.substr(begin, end - begin);
    bool below = !sysroot.empty() && !path.starts_with(sysroot) && fs::exists(sysroot + path);
    files.push_back(below ? sysroot + path : path);
  }
  add_unwinder(files);
  return files;
}

}  // namespace quarl
