#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>

#include "frames/batch/cache.h"
#include "items/config_reader.h"
#include "items/run_config.h"
#include "message.h"
#include "process/log_folder.h"
#include "process/target_run.h"
#include "refusal.h"
#include "target/launch_command.h"
#include "target/library_path.h"
#include "target/loaded_files.h"
#include "temporary_file.h"
#include "verbs/verbs.h"

namespace quarl {
namespace {

struct RunOptions {
  std::vector<std::string> set;
  std::string config, sysroot, library;
  bool record = false, no_frames = false;
  int snapshots = 0;
  RunSettings settings;
  std::vector<std::string> command;
};

constexpr const char* kFooter =
    R"(Configuration: without --config the program reads what it would read anyway, the file named by QUARL_CFG_FILE or
quarlcfg.ini in the current directory. Items from the command line are written to a temporary file together with that
file's lines, in an order in which all of them act; --set goes before the short names, and both before the file.

Libraries: libquarl.so is chosen by PROGRAM's ELF header. i686 programs run natively, or with --sysroot by the loader
of that folder (their logs are named after the loader then); ARM programs run through qemu-arm, by default with
/usr/arm-linux-gnueabihf or -gnueabi as the sysroot. A PROGRAM without "/" is looked up in PATH, first below --sysroot.

Contract: QUARL_CONTRACT=libc is set for the program unless the variable is set already: a request of 0 bytes gets a
block, blocks are aligned and failures tell ENOMEM as glibc's programs expect; that a log could not be written is told
on standard error, once in a process. QUARL_CONTRACT=plain passes on what the checker's hooks answer, as a C library with
such hooks does.

Faults: a parked thread is found by what the kernel says of it. Reports are found in what the program prints: a file is
passed through and read on the side, a pipe is replaced by a pipe, a terminal by a pseudo-terminal, and what comes out
is passed on unchanged. --direct passes the descriptor itself; then only parked threads count as faults and the agent's
port is not told, as when the program sends its standard output elsewhere. 32-bit programs that PROGRAM starts are
checked, too; of 64-bit ones the loader says on standard error that it cannot.

Logs: those of the program and of all processes that it starts are written to one folder and named NAME_PID_quarl*.log.
It is DIR with --logs, else what QUARL_LOG_DIR names, else a new one below ~/.local/state/quarl (XDG_STATE_HOME counts),
so that the program finds no strange files where it works; it is told at the end. Logs that hold no fault, no record and
nothing unfreed are removed (QUARL_KEEP=findings), unless --keep-all is given or QUARL_KEEP has another value. Of a tree
of processes QUARL_ONLY=NAME,NAME in the environment has only the programs of these names checked.

Traces: unwind rules of the program and of the libraries that its loader names are prepared first and kept below
~/.cache/quarl (XDG_CACHE_HOME counts) for the next time; "quarl frames --help" tells more. Removing that folder has them
made anew, as after debug files were installed. QUARL_FRAMES=DIR in the environment names tables of one's own.

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

// The file that the program is to read: a temporary one when items come from the command line.
std::string prepare_config(const RunOptions& options, TemporaryFile& temporary) {
  std::vector<Assignment> items = short_names(options);
  for (const Assignment& item : parse_assignments(options.set)) items.push_back(item);
  std::string path = config_file(options.config);
  std::string bytes = path.empty() ? "" : slurp(path);
  if (items.empty()) warn_of_config(bytes, path);
  // A pipe is read up by now.
  if (items.empty() && (path.empty() || std::filesystem::is_regular_file(path))) {
    return path.empty() ? "" : std::filesystem::absolute(path).string();
  }
  temporary.write(items.empty() ? bytes : compose_config(bytes, path, items));
  return temporary.path();
}

// For the program, when the variable is not set already.
void set_unless_told(LaunchCommand& command, const char* variable, const char* value) {
  if (std::getenv(variable) == nullptr) command.environment.push_back({variable, value});
}

bool keeps_findings_only(const RunOptions& options) {
  const char* kept = std::getenv("QUARL_KEEP");
  return !options.settings.keep_all && (kept == nullptr || std::string_view(kept) == "findings");
}

int run(const RunOptions& options) {
  Program program = find_program(options.command[0], options.sysroot);
  std::string sysroot = options.sysroot.empty() ? default_sysroot(program.elf.target) : options.sysroot;
  std::string library = find_library(program.elf.target, options.library);
  std::vector<std::string> arguments(options.command.begin() + 1, options.command.end());
  LaunchCommand command = make_launch_command(program, arguments, library, sysroot);
  TemporaryFile temporary;
  std::string config = prepare_config(options, temporary);
  if (!config.empty()) command.environment.push_back({"QUARL_CFG_FILE", config});
  set_unless_told(command, "QUARL_CONTRACT", "libc");
  if (options.settings.agent) set_unless_told(command, "QUARL_AGENT_ADDRESS", "127.0.0.1");
  if (!options.no_frames && std::getenv("QUARL_FRAMES") == nullptr) {
    std::string frames = frames::cached_tables(loaded_files(command, program, sysroot), sysroot);
    if (!frames.empty()) command.environment.push_back({"QUARL_FRAMES", frames});
  }
  bool findings_only = keeps_findings_only(options);
  if (findings_only || options.settings.keep_all) {
    command.environment.push_back({"QUARL_KEEP", findings_only ? "findings" : "all"});
  }
  LogFolder logs(options.settings.logs, program.path);
  command.environment.push_back({"QUARL_LOG_DIR", logs.path()});
  TargetRun target(options.settings);
  int status = target.run(command);
  logs.finish(findings_only, target.killed());
  return status;
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
  run.add_flag("--direct", options.settings.direct, "Pass standard output itself; count only parked threads as faults");
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
