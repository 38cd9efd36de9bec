// SPDX-License-Identifier: Apache-2.0
#include "report/verb.h"

#include <fmt/format.h>

#include <memory>

#include "report/command_line.h"
#include "report/verbs/refusals.h"
#include "report/verbs/verbs.h"

namespace quarl::report {
namespace {

using Run = int (*)(const Options&);

constexpr size_t kManyFiles = 0;  // one or more

struct Verb {
  const char* name;
  const char* help;
  const char* example;
  std::vector<Format> formats;
  size_t files;  // that it takes, or kManyFiles
  Run run;
};

const std::vector<Verb>& verbs() {
  using enum Format;
  static const std::vector<Verb> kVerbs = {
      {"leaks",
       "Unfreed blocks and mappings, grouped by call trace",
       "quarl report leaks --sysroot ~/target app_101_quarl.log",
       {kText, kJson, kCsv, kFolded, kPprof},
       1,
       report_leaks},
      {"peak",
       "What was live at the highest point of a run",
       "quarl report peak app_101_quarlAll.log",
       {kText, kJson, kCsv, kFolded},
       1,
       report_peak},
      {"at",
       "What was live at a moment of a run",
       "quarl report at +90 app_101_quarlAll.log\n  quarl report at 12345 app_101_quarlAll.log",
       {kText, kJson, kCsv, kFolded},
       1,
       report_moment},
      {"hot",
       "Where most bytes, or most blocks, were ever allocated",
       "quarl report hot --sort count app_101_quarlAll.log",
       {kText, kJson, kCsv, kFolded},
       1,
       report_hot},
      {"temporary",
       "Blocks that were released as soon as they were allocated",
       "quarl report temporary --within 10 app_101_quarlAll.log",
       {kText, kJson, kCsv, kFolded},
       1,
       report_temporary},
      {"grow",
       "Sites that rise over many snapshots, the steadiest and fastest first",
       "quarl report grow app_101_quarl_autosnap.log\n  quarl report grow monday.log tuesday.log wednesday.log",
       {kText, kJson, kCsv},
       kManyFiles,
       report_growth},
      {"callers",
       "Who calls a function through which memory is asked for",
       "quarl report callers '^make_buffer$' app_101_quarl.log",
       {kText, kJson, kCsv, kFolded},
       1,
       report_callers},
      {"diff",
       "What grew between two logs, or two snapshots of one",
       "quarl report diff app_101_quarl_autosnap.log@1 app_101_quarl_autosnap.log@9",
       {kText, kJson, kCsv, kFolded, kHtml},
       2,
       report_difference},
      {"timeline",
       "Bytes and blocks held over time",
       "quarl report timeline app_101_quarlAll.log",
       {kText, kJson, kCsv},
       1,
       report_timeline},
      {"threads",
       "What each thread allocated and holds",
       "quarl report threads app_101_quarl.log",
       {kText, kJson, kCsv},
       1,
       report_threads},
      {"events",
       "The records themselves, filtered",
       "quarl report events --op malloc --min-size 1000 app_101_quarlAll.log",
       {kText, kJson, kCsv},
       1,
       report_events},
      {"faults",
       "Overruns, with their blocks and neighbours",
       "quarl report faults app_101_quarl.log",
       {kText, kJson, kCsv},
       1,
       report_faults},
  };
  return kVerbs;
}

int guarded(Run run, const Options& options) {
  refuse_empty_ranges(options.selection);
  try {
    return run(options);
  } catch (const CLI::Error&) {
    throw;
  } catch (const std::exception& error) {
    fmt::print(stderr, "quarl report: {}\n", error.what());
    return 1;
  }
}

void add_common(CLI::App& command, Options& options, const std::vector<Format>& formats) {
  add_format_options(command, options, formats);
  add_reading_options(command, options);
}

void add_own_options(CLI::App& command, Options& options, const std::string& name) {
  if (name == "leaks" || name == "diff") add_site_options(command, options);
  if (name == "callers") {
    add_view_option(command, options);
    add_suppression_options(command, options);
  }
  if (name == "grow") {
    add_grouping_options(command, options);
    add_suppression_options(command, options);
  }
  const bool moments = name == "peak" || name == "at";
  const bool turnover = name == "hot" || name == "temporary";
  if (moments || turnover) add_grouping_options(command, options);
  if (moments || turnover) add_order_option(command, options);
  if (name == "temporary") add_within_option(command, options);
  if (name == "leaks" || moments || turnover)
    command.add_flag("--tree", options.tree, "Show callers above callees, with the bytes below each");
  if (name == "events") add_event_options(command, options.events);
}

void add_files(CLI::App& command, Options& options, size_t count) {
  std::string what = "The log; FILE@N means its snapshot N";
  if (count == 2) what = "The earlier and the later log; FILE@N means snapshot N";
  if (count == kManyFiles) what = "A chain of snapshots, a record log, or several logs of any kind";
  CLI::Option* files = command.add_option("FILE", options.files, what)->required();
  if (count != kManyFiles) files->expected(static_cast<int>(count));
}

void add_subverb(CLI::App& report, const std::shared_ptr<Options>& options, const Verb& verb, int& exit_status) {
  CLI::App* command = report.add_subcommand(verb.name, verb.help);
  command->footer(fmt::format("Example:\n  {}", verb.example));
  if (verb.name == std::string("callers")) {
    command
        ->add_option("FUNCTION", options->function,
                     "A pattern: matches anywhere in the name, * any characters, ^ and $ the ends")
        ->required();
  }
  if (verb.name == std::string("at")) {
    command
        ->add_option("MOMENT", options->moment,
                     "Number of a record, +SECONDS since the first, @SECONDS since the epoch, or \"YYYY-MM-DD "
                     "HH:MM:SS\" (UTC)")
        ->required();
  }
  add_files(*command, *options, verb.files);
  add_common(*command, *options, verb.formats);
  add_selection_options(*command, options->selection);
  add_own_options(*command, *options, verb.name);
  command->callback([=, &exit_status] {
    options->top_given = has_option(*command, "--top");
    exit_status = guarded(verb.run, *options);
  });
}

void check_summary(const Options& options) {
  if (options.files.empty()) throw CLI::RequiredError("FILE");
  bool import = options.format == Format::kSqlite;
  if (!import && options.files.size() > 1)
    throw CLI::ValidationError("FILE", "only --format sqlite takes several logs");
  if (import && !options.selection.empty())
    throw CLI::ValidationError("--format", "sqlite takes everything; choose in the database");
  if (import && (!options.suppressions.empty() || !options.default_suppressions))
    throw CLI::ValidationError("--format",
                               "sqlite takes everything; the table kept_traces tells what is kept by design");
  if (import && options.output.empty()) throw CLI::RequiredError("--output (the database)");
}

}  // namespace

void add_verb(CLI::App& app, int& exit_status) {
  using enum Format;
  auto options = std::make_shared<Options>();
  CLI::App* report = app.add_subcommand("report", "Answers from the logs: what leaks, from where, since when");
  report->footer(
      "Without a verb: a summary.\nExample:\n  quarl report app_101_quarl.log\n  quarl report --format sqlite -o "
      "fleet.db *.log\n\n"
      "Exit status: 0 answered, 1 nothing found or not readable, 2 wrong usage,\n3 more unfreed than --fail-on-leak "
      "allows, 4 not more in what is there of a log\nthat was cut or whose process was killed.");
  report->add_option("FILE", options->files, "A log; FILE@N means its snapshot N, without it the last one");
  add_common(*report, *options, {kText, kJson, kCsv, kFolded, kPprof, kHtml, kSqlite});
  add_selection_options(*report, options->selection);
  add_site_options(*report, *options);
  for (const Verb& verb : verbs()) add_subverb(*report, options, verb, exit_status);
  CLI::Option* list =
      report->add_flag("--list-suppressions")->description("List what --no-default-suppressions would show");
  report->callback([=, &exit_status] {
    if (!report->get_subcommands().empty()) return;
    if (list->count() != 0) {
      exit_status = guarded(list_suppressions, *options);
      return;
    }
    check_summary(*options);
    options->top_given = has_option(*report, "--top");
    exit_status = guarded(summarise, *options);
  });
}

}  // namespace quarl::report
