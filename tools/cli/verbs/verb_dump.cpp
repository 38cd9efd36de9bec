// SPDX-License-Identifier: Apache-2.0
#include <fmt/format.h>

#include <chrono>
#include <memory>
#include <thread>

#include "items/config_check.h"
#include "items/config_reader.h"
#include "items/run_config.h"
#include "items/signal_text.h"
#include "message.h"
#include "process/checked_process.h"
#include "refusal.h"
#include "verbs/verbs.h"

namespace quarl {
namespace {

using Logs = std::map<std::string, CheckedProcess::Written>;

constexpr const char* kSignalText =
    "The signal is QUARL_SIG of the process's configuration file, SIGUSR1 otherwise. It does both: the process\n"
    "writes its logs at once and reads its configuration file again at its next allocation.\n\n";
constexpr const char* kStatusText =
    "Exit status: 0 when the signal was sent, 1 when the process is not there, does not run under the checker\n"
    "or does not handle the signal, or no log was written on a dump, 2 on wrong usage.\n\n";

constexpr auto kPatience = std::chrono::seconds(5);
constexpr auto kLook = std::chrono::milliseconds(20);

// The logs that were written since `before`, once there are any; none when nothing comes.
std::vector<std::string> await_logs(CheckedProcess& process, const Logs& before) {
  std::vector<std::string> written;
  auto end = std::chrono::steady_clock::now() + kPatience;
  while (written.empty() && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(kLook);
    for (const auto& [path, last] : process.logs()) {
      auto known = before.find(path);
      if (known == before.end() || known->second != last) written.push_back(path);
    }
  }
  return written;
}

int dump(pid_t pid) {
  CheckedProcess process(pid);
  Logs before = process.logs();
  say("sent {} to process {}", signal_name(process.signal_dump()), pid);
  std::vector<std::string> written = await_logs(process, before);
  for (const std::string& log : written) fmt::print("{}\n", log);
  if (!written.empty()) return kDone;
  refuse(
      "no log of process {} was written within {} s in {}; it writes where it was when it made its log, and none "
      "without QUARL_MEM_HEAD or QUARL_OUTPUT_LOG, nor over a file that it has not made",
      pid, kPatience.count(), fmt::join(process.log_folders(), " or "));
}

// Of the file's items those that the process has set already, each to what it was started with.
void tell_kept_items(const ConfigReport& config, const std::string& path) {
  for (const ItemRow& item : kItemRows) {
    const ItemState::Setting* setting = config.state.find(item.key);
    if (item.resettable || setting == nullptr || setting->line == 0) continue;
    say("{}:{}: {} cannot be set again: the process keeps what it was first set to", path, setting->line, item.key);
  }
}

int reload(pid_t pid) {
  CheckedProcess process(pid);
  auto config = process.config_file();
  if (!config) refuse("process {} has no configuration file to read again", pid);
  std::string bytes = slurp(*config);
  warn_of_config(bytes, *config);
  tell_kept_items(ConfigReport(bytes), *config);
  say("sent {} to process {}; it reads the file at its next allocation", signal_name(process.signal_dump()), pid);
  fmt::print("{}\n", *config);
  return kDone;
}

void add_verb(CLI::App& app, const char* name, const char* help, const std::string& footer, int (*act)(pid_t),
              int& exit_status) {
  auto* verb = app.add_subcommand(name, help);
  auto pid = std::make_shared<pid_t>();
  verb->add_option("PID", *pid, "Process on this machine")->required()->type_name("");
  verb->footer(footer);
  verb->callback([pid, act, &exit_status] { exit_status = act(*pid); });
}

}  // namespace

void add_dump(CLI::App& app, int& exit_status) {
  std::string footer = "Waits until a log is written, and prints the paths of those that were.\n\n";
  footer = footer + kSignalText + kStatusText + "Example:\n  quarl dump 1234";
  add_verb(app, "dump", "Make a running program write its logs.", footer, dump, exit_status);
}

void add_reload(CLI::App& app, int& exit_status) {
  std::string footer = "Tells what the library will not do as the file says, and prints the file's path.\n\n";
  footer = footer + kSignalText + kStatusText + "Example:\n  quarl reload 1234";
  add_verb(app, "reload", "Make a running program read its configuration again.", footer, reload, exit_status);
}

}  // namespace quarl
