// SPDX-License-Identifier: Apache-2.0
#include "story/verb.h"

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <filesystem>
#include <memory>

#include "events/events_file.h"
#include "story/telling/summary.h"
#include "story/telling/terminal.h"

namespace quarl::story {
namespace {

namespace fs = std::filesystem;

struct Options {
  std::vector<std::string> files;
  report::DeskOptions desk;
  bool follow = false;
};

constexpr const char* kFooter =
    R"(FILE is what the library wrote to QUARL_EVENTS, on this machine or on another; "-" reads standard input. Functions and
lines come from the files that ran: below --sysroot, in --debug-dir, or at their own place here. A file of another build
is not used, and that is told.

A story is told once: later reports of the same fault are counted in the last line. With several files each is told by
itself. --follow goes on with what is appended, until it is interrupted.

Exit status: 0 told, 1 when a file cannot be read or holds no event, 2 on wrong usage.

Examples:
  quarl story --sysroot /srv/board events.jsonl
  ssh board tail -n +1 -f /tmp/events.jsonl | quarl story --sysroot /srv/board -)";

void print(const std::string& text) {
  fwrite(text.data(), 1, text.size(), stdout);
  fflush(stdout);
}

// The logs that the file names, as they lie beside it here; otherwise where they were written.
std::vector<std::string> logs_of(const Process& process, const std::string& file) {
  std::vector<std::string> logs;
  for (const std::string& log : process.logs) {
    fs::path beside = fs::path(file).parent_path() / fs::path(log).filename();
    std::error_code error;
    logs.push_back(printable(fs::exists(beside, error) ? beside.string() : log));
  }
  return logs;
}

void print_end(const Teller& teller, const std::string& file) {
  const Process& main = teller.processes().all().front();
  std::string more = next_question(logs_of(main, file), main.pid);
  print(fmt::format("quarl: {}{}\n", summary(teller, &main), more.empty() ? "" : "; more: quarl " + more));
}

// Until the file ends, or for ever. Stories of stopped threads wait a moment for the thread's end.
void read_all(EventsFile& file, Teller& teller, bool follow) {
  constexpr std::chrono::seconds kPatience(1);
  constexpr int kPeriod = 500;  // milliseconds
  while (file.read([&](const Event& event) { teller.take(event); })) {
    bool grows = follow || file.path() == "-" || !fs::is_regular_file(file.path());
    if (!grows) return;
    teller.settle_older_than(kPatience);
    struct pollfd source = {file.watch(), POLLIN, 0};
    poll(&source, 1, kPeriod);
    file.clear();
  }
}

bool tell(const std::string& path, const Options& options) {
  EventsFile file(path);
  Teller teller(options.desk, wants_colours(STDOUT_FILENO), print);
  read_all(file, teller, options.follow);
  teller.settle_older_than(std::chrono::milliseconds(0));
  std::string complaint = file.complaint();
  if (!complaint.empty()) fmt::print(stderr, "quarl story: {}\n", printable(complaint));
  if (teller.processes().all().empty()) {
    fmt::print(stderr, "quarl story: {} holds no event\n", printable(path));
    return false;
  }
  print_end(teller, path);
  return true;
}

int tell_all(const Options& options) {
  bool told = true;
  for (const std::string& path : options.files) {
    if (options.files.size() > 1)
      print(fmt::format("{}{}:\n", &path == &options.files[0] ? "" : "\n", printable(path)));
    try {
      told = tell(path, options) && told;
    } catch (const std::runtime_error& error) {
      fmt::print(stderr, "quarl story: {}\n", error.what());
      told = false;
    }
  }
  return told ? 0 : 1;
}

}  // namespace

void add_verb(CLI::App& app, int& exit_status) {
  auto options = std::make_shared<Options>();
  CLI::App* verb = app.add_subcommand("story", "Tell what an events file says: each fault, and where it came from.");
  verb->add_option("FILE", options->files, "Events file; \"-\" for standard input")->required()->type_name("...");
  verb->add_option("--sysroot", options->desk.sysroots, "Directory that looks like the target's /")
      ->check(CLI::Validator(CLI::ExistingDirectory).description(""))
      ->type_name("DIR");
  verb->add_option("--debug-dir", options->desk.debug_dirs, "Directory with unstripped or split debug files")
      ->check(CLI::Validator(CLI::ExistingDirectory).description(""))
      ->type_name("DIR");
  verb->add_flag("--follow", options->follow, "Go on with what is appended");
  verb->footer(kFooter);
  verb->callback([options, &exit_status] { exit_status = tell_all(*options); });
}

}  // namespace quarl::story
