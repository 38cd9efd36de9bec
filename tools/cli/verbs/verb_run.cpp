// SPDX-License-Identifier: Apache-2.0
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>

#include "frames/batch/cache.h"
#include "items/config_reader.h"
#include "items/run_config.h"
#include "message.h"
#include "process/late_libraries.h"
#include "process/run_end.h"
#include "refusal.h"
#include "target/launch_command.h"
#include "target/library_path.h"
#include "target/loaded_files.h"
#include "verbs/verbs.h"

namespace quarl {
namespace {

struct RunOptions {
  std::vector<std::string> set;
  std::string config, sysroot, library;
  bool record = false, no_frames = false, direct = false;
  int snapshots = 0;
  RunSettings settings;
  std::vector<std::string> command;
};

constexpr const char* kFooter =
    R"(Stories: the checker tells each fault in a line of the file events.jsonl beside the logs, and the tool tells it at once on
standard error: where the block was allocated, who met the fault, and which bytes are wrong. "quarl story" tells the same
from the file later. What the library prints itself, reports as well as the tables of QUARL_PRINT_PROFINFO, is shown
with --raw instead of the stories. The program's own input and output are not touched.
A parked thread is released to end, which the kernel tells as well when no event does. Of a fault that several checks
meet the story is told once. 32-bit programs that PROGRAM starts are checked, too; of others it is said that they are not,
and of 64-bit ones the loader says itself, on their standard error, that libquarl.so is of the wrong ELF class.

Configuration: without --config the program reads what it would read anyway, the file named by QUARL_CFG_FILE or
quarlcfg.ini in the current directory. Items from the command line are written to a file beside the logs together with
that file's lines, in an order in which all of them act; --set goes before the short names, and both before the file. It
is removed at the end, unless processes of the run are still there.

Libraries: libquarl.so is chosen by PROGRAM's ELF header. i686 programs run natively, or with --sysroot by the loader
of that folder (their logs are named after the loader then); ARM programs run through qemu-arm, by default with
/usr/arm-linux-gnueabihf or -gnueabi as the sysroot. A PROGRAM without "/" is looked up in PATH, first below --sysroot.

Contract: QUARL_CONTRACT=libc is set for the program unless the variable is set already: a request of 0 bytes gets a
block, blocks are aligned and failures tell ENOMEM as glibc's programs expect. QUARL_CONTRACT=plain passes on what the
checker's hooks answer, as a C library with such hooks does.

Logs: those of the program and of all processes that it starts are written to one folder and named NAME_PID_quarl*.log.
It is DIR with --logs, else what QUARL_LOG_DIR names, else a new one below ~/.local/state/quarl (XDG_STATE_HOME counts),
so that the program finds no strange files where it works; the last line tells. Logs that hold no fault, no record and
nothing unfreed are removed (QUARL_KEEP=findings), unless --keep-all is given or QUARL_KEEP has another value. Of a tree
of processes QUARL_ONLY=NAME,NAME in the environment has only the programs of these names checked.

Signals: those that the tool gets are passed on. One that ends the program has it write its logs first
(QUARL_END_SIGNALS=1); of a crash the story tells where, and which block the address lies in or next to.

Environment: QUARL_EVENTS, QUARL_MESSAGES=none and QUARL_END_SIGNALS=1 are set unless they are set already. A file of
your own in QUARL_EVENTS is followed; where it is a FIFO or a terminal, no stories are told.

Traces: unwind rules of the program and of the libraries that its loader names are prepared first and kept below
~/.cache/quarl (XDG_CACHE_HOME counts) for the next time; those of libraries that were loaded later are made at the end,
for another run. "quarl frames --help" tells more. Removing that folder has them made anew, as after debug files were
installed. QUARL_FRAMES=DIR in the environment names tables of one's own.

Agent: with --agent it listens on 127.0.0.1, unless QUARL_AGENT_ADDRESS is set already (0.0.0.0 means all addresses of
this machine). Whoever can connect to it steers the checker in the program.

Exit status: that of the program, 128+N when signal N ended it, the one of --fault-exitcode when a fault was reported;
1 when the program was not started, 2 on wrong usage.

Examples:
  quarl run -- ./application --its-option
  quarl run --set QUARL_SLOPOVER_FREE=1 --logs logs -- ./application
  quarl run --record --snapshots 10 --sysroot /srv/board -- /srv/board/usr/bin/application)";

std::vector<Assignment> short_names(const RunOptions& options) {
  std::vector<std::string> items;
  if (options.settings.agent) items.push_back("QUARL_DEMO_THREAD=1");
  if (options.record) items.insert(items.end(), {"QUARL_ALL=1", "QUARL_OUTPUT_LOG=1"});
  if (options.snapshots > 0) {
    items.insert(items.end(), {"QUARL_ALL=1", "QUARL_MEM_HEAD=1", "QUARL_HEAD_TIME=2", "QUARL_TIME_INTERVAL=1",
                               "QUARL_SNAP_INTERVAL=" + std::to_string(options.snapshots), "QUARL_SNAP_DETAIL=1"});
  }
  return parse_assignments(items);
}

// The file that the program would read; "" when there is none.
std::string config_file(const std::string& given) {
  if (!given.empty()) return given;
  const char* from_environment = std::getenv("QUARL_CFG_FILE");
  std::string path = from_environment ? from_environment : "quarlcfg.ini";
  return access(path.c_str(), R_OK) == 0 ? path : "";
}

// The file that the program is to read: one in the folder when items come from the command line, or when the file is a
// pipe, which is read up then.
std::string prepare_config(const RunOptions& options, const LogFolder& folder, RunFiles& files) {
  std::vector<Assignment> items = short_names(options);
  for (const Assignment& item : parse_assignments(options.set)) items.push_back(item);
  std::string path = config_file(options.config);
  std::string bytes = path.empty() ? "" : slurp(path);
  if (items.empty()) warn_of_config(bytes, path);
  if (items.empty() && (path.empty() || std::filesystem::is_regular_file(path))) {
    return path.empty() ? "" : std::filesystem::absolute(path).string();
  }
  if (!items.empty()) bytes = compose_config(bytes, path, items);
  files.config = folder.make_file("quarlcfg", "ini");
  std::ofstream file(files.config, std::ios::binary);
  if (!(file << bytes).flush()) refuse("cannot write {}: {}", files.config, std::strerror(errno));
  return files.config;
}

bool is_set(const char* variable) {
  const char* value = std::getenv(variable);
  return value != nullptr && *value != '\0';
}

// The file to follow; "" when the user has given one that cannot be.
std::string prepare_events(const LogFolder& folder, RunFiles& files) {
  if (!is_set("QUARL_EVENTS")) return files.events = folder.make_file("events", "jsonl");
  std::filesystem::path path = std::filesystem::absolute(std::getenv("QUARL_EVENTS"));
  if (!std::filesystem::exists(path)) std::ofstream(path, std::ios::app);
  return std::filesystem::is_regular_file(path) ? path.string() : "";
}

// For the program, when the variable is not set already.
void set_unless_told(LaunchCommand& command, const char* variable, const char* value) {
  if (std::getenv(variable) == nullptr) command.environment.push_back({variable, value});
}

bool keeps_findings_only(const RunOptions& options) {
  const char* kept = std::getenv("QUARL_KEEP");
  return !options.settings.keep_all && (kept == nullptr || std::string_view(kept) == "findings");
}

void set_environment(LaunchCommand& command, const RunOptions& options, bool findings_only) {
  set_unless_told(command, "QUARL_CONTRACT", "libc");
  set_unless_told(command, "QUARL_END_SIGNALS", "1");
  if (!options.settings.raw) set_unless_told(command, "QUARL_MESSAGES", "none");
  if (options.settings.agent) set_unless_told(command, "QUARL_AGENT_ADDRESS", "127.0.0.1");
  if (findings_only || options.settings.keep_all)
    command.environment.push_back({"QUARL_KEEP", findings_only ? "findings" : "all"});
}

bool prepares_rules(const RunOptions& options) {
  return !options.no_frames && std::getenv("QUARL_FRAMES") == nullptr;
}

int follow_run(RunOptions options, LaunchCommand command, const LogFolder& folder, const std::string& sysroot) {
  RunFiles files;
  std::string config = prepare_config(options, folder, files);
  if (!config.empty()) command.environment.push_back({"QUARL_CFG_FILE", config});
  std::string events = prepare_events(folder, files);
  if (events.empty()) {
    say("QUARL_EVENTS names no file: its reader is told, and here only which threads are stopped");
    options.settings.raw = true;
  } else {
    command.environment.push_back({"QUARL_EVENTS", events});
  }
  const bool findings_only = keeps_findings_only(options);
  set_environment(command, options, findings_only);
  command.environment.push_back({"QUARL_LOG_DIR", folder.path()});
  RunEvents followed(events.empty() ? "/dev/null" : events, sysroot, options.settings.raw);
  TargetRun target(options.settings, followed);
  int status = target.run(command);
  if (prepares_rules(options)) prepare_late_libraries(followed, folder.logs(findings_only, target.killed()), sysroot);
  tell_end(target, followed, folder, files, findings_only);
  return status;
}

int run(const RunOptions& options) {
  if (options.direct) say("--direct does nothing any more: the program's descriptors are never touched");
  Program program = find_program(options.command[0], options.sysroot);
  std::string sysroot = options.sysroot.empty() ? default_sysroot(program.elf.target) : options.sysroot;
  std::string library = find_library(program.elf.target, options.library);
  std::vector<std::string> arguments(options.command.begin() + 1, options.command.end());
  LaunchCommand command = make_launch_command(program, arguments, library, sysroot);
  if (prepares_rules(options)) {
    std::string frames = frames::cached_tables(loaded_files(command, program, sysroot), sysroot).folder;
    if (!frames.empty()) command.environment.push_back({"QUARL_FRAMES", frames});
  }
  LogFolder folder(options.settings.logs, program.path);
  return follow_run(options, std::move(command), folder, sysroot);
}

void add_options(CLI::App& run, RunOptions& options) {
  run.add_option("--set", options.set, "Set a configuration item; may be repeated")
      ->type_name("KEY=VALUE")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  run.add_option("--config", options.config, "Configuration file")->type_name("FILE");
  run.add_option("--logs", options.settings.logs, "Folder for the log files")->type_name("DIR");
  run.add_flag("--keep-all", options.settings.keep_all, "Keep logs without faults, records and unfreed memory, too");
  run.add_option("--sysroot", options.sysroot, "Folder with the target's loader and libraries")->type_name("DIR");
  run.add_option("--library", options.library, "libquarl.so to use instead of the one beside this tool")
      ->type_name("FILE");
  run.add_flag("--agent", options.settings.agent, "Start the agent and tell its port");
  run.add_flag("--record", options.record, "Write the record log: every operation");
  run.add_option("--snapshots", options.snapshots, "Take a detailed snapshot every N seconds")
      ->type_name("N")
      ->check(CLI::Range(1, 999999999).description(""));
  run.add_flag("--no-frames", options.no_frames, "Follow frame pointers alone; prepare no unwind rules");
  run.add_flag("--keep-parked", options.settings.keep_parked, "Leave a thread parked after a fault");
  run.add_option("--fault-exitcode", options.settings.fault_status, "Exit status after a fault (86); 0: the program's")
      ->type_name("N")
      ->check(CLI::Range(0, 255).description(""));
  run.add_flag("--raw", options.settings.raw, "Show what the library prints instead of stories");
  run.add_flag("--direct", options.direct, "Does nothing; it is there for scripts that give it")->group("");
  run.add_option("PROGRAM", options.command, "Program and its arguments")->required()->type_name("ARGS...");
}

}  // namespace

void add_run(CLI::App& app, int& exit_status) {
  auto* verb = app.add_subcommand("run", "Run a program under the checker.");
  auto options = std::make_shared<RunOptions>();
  add_options(*verb, *options);
  verb->positionals_at_end();
  verb->footer(kFooter);
  verb->callback([options, &exit_status] { exit_status = run(*options); });
}

}  // namespace quarl
