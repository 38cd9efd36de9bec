// SPDX-License-Identifier: Apache-2.0
#include "frames/verb.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <memory>

#include "frames/batch/answer.h"
#include "frames/batch/batch.h"
#include "frames/batch/debug_path.h"

namespace quarl::frames {
namespace {

struct Options {
  std::vector<std::string> sysroots, debug_dirs, names;
  std::string folder;
  std::string format = "text";
  TableOptions table;
};

constexpr const char* kFooter =
    R"(Call traces follow frame pointers, which most binaries do not have. With QUARL_FRAMES=DIR the library walks by the
rules of these tables instead, and by frame pointers only where there is no rule. DIR is all that a board needs: copy it
there beside libquarl.so. Each table is named by the build id of its file; tables of files that changed are not used.

Rules come, in this order, from .debug_frame of the file or of its split debug file, from .eh_frame, from .ARM.exidx, and
where a function has none of them from its code: the stack pointer is followed from the start of the function to each
call. Split debug files are found by build id or debug link, below DIR of --debug-dir (/usr/lib/debug without it) and
below usr/lib/debug of each sysroot. A ROOTFS is read with all folders in it, symbolic links are not followed; of what
it holds, 32-bit programs and libraries for ARM and i386 count. A NAME that is not there is looked for below the sysroots.

For each file it is told how large its table is, how many calls its code makes, and what share of them has a rule, by
where the rule comes from.

Exit status: 0 done, 1 when a file that was named got no table or none was made at all, 2 wrong usage.

Examples:
  quarl frames -o frames /srv/board
  quarl frames -o frames --debug-dir ~/symbols application libhelper.so
  QUARL_FRAMES=$PWD/frames LD_PRELOAD=$PWD/libquarl.so ./application)";

// 1 when something is amiss that the user asked for by name.
int tell_refusals(const std::vector<Outcome>& outcomes) {
  int status = 0;
  for (const Outcome& outcome : outcomes) {
    bool silent = !outcome.table.empty() || (outcome.refusal.empty() && !outcome.file.named);
    if (silent) continue;
    fmt::print(stderr, "quarl: {} {}\n", outcome.file.path, outcome.refusal.empty() ? "has no code" : outcome.refusal);
    if (outcome.file.named) status = 1;
  }
  bool none = std::ranges::all_of(outcomes, [](const Outcome& each) { return each.table.empty(); });
  if (none) fmt::print(stderr, "quarl: no table was made: no 32-bit program or library for ARM or i386\n");
  return none ? 1 : status;
}

int run(const Options& options) {
  std::vector<ElfPath> files = elf_files(options.names, options.sysroots);
  std::filesystem::create_directories(options.folder);
  TableOptions table = options.table;
  table.debug_path = debug_path(options.debug_dirs, options.sysroots);
  std::vector<Outcome> outcomes = make_tables(files, options.folder, table);
  auto answer = options.format == "json" ? json_answer : text_answer;
  fmt::print("{}", answer(outcomes, table.compare));
  return tell_refusals(outcomes);
}

void add_options(CLI::App& verb, Options& options) {
  auto many = [&](const char* name, std::vector<std::string>& values, const char* help) {
    verb.add_option(name, values, help)
        ->type_name("DIR")
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  };
  many("--sysroot", options.sysroots, "Folder that looks like the target's /; may be repeated");
  many("--debug-dir", options.debug_dirs, "Folder of split debug files; may be repeated");
  verb.add_option("-o,--output", options.folder, "Folder for the tables")->type_name("DIR")->required();
  verb.add_option("--format", options.format, "text or json")->check(CLI::IsMember({"text", "json"}).description(""));
  verb.add_flag("--compare", options.table.compare, "Tell how often what the code shows is what the other sources say");
  verb.add_option("NAME", options.names, "Programs, libraries and root file systems")
      ->required()
      ->type_name("FILE|ROOTFS...");
}

}  // namespace

void add_verb(CLI::App& app, int& exit_status) {
  auto* verb = app.add_subcommand("frames", "Prepare unwind rules, for traces that are full.");
  auto options = std::make_shared<Options>();
  add_options(*verb, *options);
  verb->footer(kFooter);
  verb->callback([options, &exit_status] { exit_status = run(*options); });
}

}  // namespace quarl::frames
