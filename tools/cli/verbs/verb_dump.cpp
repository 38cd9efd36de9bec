#include <fmt/format.h>

#include <memory>

#include "items/config_reader.h"
#include "items/run_config.h"
#include "items/signal_text.h"
#include "message.h"
#include "process/checked_process.h"
#include "refusal.h"
#include "verbs/verbs.h"

namespace quarl {
namespace {

constexpr const char* kSignalText =
    "The signal is QUARL_SIG of the process's configuration file, SIGUSR1 otherwise. It does both: the process\n"
    "writes its logs at once and reads its configuration file again at its next allocation.\n\n";
constexpr const char* kStatusText =
    "Exit status: 0 when the signal was sent, 1 when the process is not there, does not run under the checker\n"
    "or does not handle the signal, 2 on wrong usage.\n\n";

int dump(pid_t pid) {
  CheckedProcess process(pid);
  say("sent {} to process {}", signal_name(process.signal_dump()), pid);
  for (const std::string& log : process.logs()) fmt::print("{}\n", log);
  return kDone;
}

int reload(pid_t pid) {
  CheckedProcess process(pid);
  auto config = process.config_file();
  if (!config) refuse("process {} has no configuration file to read again", pid);
  warn_of_config(slurp(*config), *config);
  say("sent {} to process {}", signal_name(process.signal_dump()), pid);
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
  std::string footer = "Prints the paths of the process's log files.\n\n";
  footer = footer + kSignalText + kStatusText + "Example:\n  quarl dump 1234";
  add_verb(app, "dump", "Make a running program write its logs.", footer, dump, exit_status);
}

void add_reload(CLI::App& app, int& exit_status) {
  std::string footer = "Tells what the library will not do as the file says, and prints the file's path.\n\n";
  footer = footer + kSignalText + kStatusText + "Example:\n  quarl reload 1234";
  add_verb(app, "reload", "Make a running program read its configuration again.", footer, reload, exit_status);
}

}  // namespace quarl
