// SPDX-License-Identifier: Apache-2.0
#include "report/command_line.h"

#include <filesystem>
#include <map>

#include "report/formats/operation_name.h"

namespace quarl::report {
namespace {

const std::map<std::string, Format> kFormats = {
    {"text", Format::kText},   {"json", Format::kJson}, {"csv", Format::kCsv},      {"folded", Format::kFolded},
    {"pprof", Format::kPprof}, {"html", Format::kHtml}, {"sqlite", Format::kSqlite}};
const std::map<std::string, Grouping> kGroupings = {{"trace", Grouping::kTrace},   {"function", Grouping::kFunction},
                                                    {"file", Grouping::kFile},     {"module", Grouping::kModule},
                                                    {"thread", Grouping::kThread}, {"size", Grouping::kSize}};
const std::map<std::string, View> kViews = {
    {"held", View::kHeld}, {"peak", View::kPeak}, {"allocated", View::kAllocated}};
const std::map<std::string, Order> kOrders = {{"bytes", Order::kBytes}, {"count", Order::kCount}};
constexpr uint32_t kMaxWithin = 100000;  // remembered for each thread
const std::map<std::string, ColorChoice> kColors = {
    {"auto", ColorChoice::kAuto}, {"always", ColorChoice::kAlways}, {"never", ColorChoice::kNever}};
const std::map<std::string, Names> kNames = {{"short", Names::kShort}, {"whole", Names::kWhole}};
const std::map<std::string, LogKind> kKinds = {
    {"records", LogKind::kRecords}, {"snapshot", LogKind::kSnapshot}, {"autosnap", LogKind::kSnapshotChain}};

std::map<std::string, Format> named(const std::vector<Format>& formats) {
  std::map<std::string, Format> chosen;
  for (const auto& [name, format] : kFormats) {
    if (std::find(formats.begin(), formats.end(), format) != formats.end()) chosen[name] = format;
  }
  return chosen;
}

std::string names(const auto& map) {
  std::string text;
  for (const auto& item : map) text += (text.empty() ? "" : "|") + item.first;
  return text;
}

// An option whose value is one of the names of `map`.
template <typename Value>
CLI::Option* add_choice(CLI::App& command, const std::string& name, Value& value,
                        const std::map<std::string, Value>& map, const std::string& help) {
  return command
      .add_option_function<std::string>(
          name, [&value, map](const std::string& text) { value = map.at(text); }, help)
      ->check(CLI::IsMember(map).description(""))
      ->type_name(names(map));
}

std::map<std::string, int> operations() {
  std::map<std::string, int> codes;
  for (int code = 0; code < kOpCount; ++code) {
    std::string name = operation_name(code);
    std::replace(name.begin(), name.end(), ' ', '-');
    codes[name] = code;
  }
  return codes;
}

const std::map<std::string, int> kResults = {{"allocated", kKindAllocated},
                                             {"released", kKindReleased},
                                             {"failed", kKindFailed},
                                             {"head-overrun", kKindSlopHead},
                                             {"tail-overrun", kKindSlopTail}};

void add_number(CLI::App& command, const std::string& name, std::optional<uint32_t>& value, const std::string& help) {
  command
      .add_option_function<uint32_t>(
          name, [&value](const uint32_t& number) { value = number; }, help)
      ->type_name("N");
}

CLI::Validator existing_directory() {
  return CLI::Validator(CLI::ExistingDirectory).description("");
}

// Events are read more than once, which a FIFO is not; of one without a writer the reading would not begin.
std::string check_regular(const std::string& path) {
  std::error_code error;
  if (!std::filesystem::exists(path, error)) return "there is no file " + path;
  return std::filesystem::is_regular_file(path, error) ? "" : path + " is not a regular file; copy it to one first";
}

// Numbers of 64 bits are read modulo 2^64: -1 would allow everything.
std::string check_not_negative(const std::string& text) {
  return text.starts_with('-') ? "a number from 0 on was expected, " + text + " was given" : "";
}

std::string check_rename(const std::string& text) {
  size_t equals = text.find('=');
  return equals == 0 || equals == std::string::npos ? "FROM=TO was expected, \"" + text + "\" was given" : "";
}

}  // namespace

void add_format_options(CLI::App& command, Options& options, const std::vector<Format>& formats) {
  add_choice(command, "--format", options.format, named(formats), "How to write the answer (default text)");
  command
      .add_option("-o,--output", options.output, "Write to this file instead of standard output; sqlite appends to it")
      ->type_name("FILE");
  add_choice(command, "--color", options.color, kColors,
             "Colours in text (default auto: on a terminal, unless NO_COLOR is set)");
  add_choice(
      command, "--names", options.names, kNames,
      "C++ names of more than 60 bytes in text (default short: \"...\" for template arguments, then parameters)");
}

void add_reading_options(CLI::App& command, Options& options) {
  auto kind = [&options](const std::string& name) { options.kind = kKinds.at(name); };
  command.add_option_function<std::string>("--as", kind, "Read the log as this kind (default: as its content says)")
      ->check(CLI::IsMember(kKinds).description(""))
      ->type_name(names(kKinds));
  command
      .add_option("--sysroot", options.desk.sysroots,
                  "A directory that looks like the target's root; can be given again")
      ->type_name("DIR")
      ->check(existing_directory())
      ->allow_extra_args(false);
  command
      .add_option("--debug-dir", options.desk.debug_dirs,
                  "A directory of split debug files or of unstripped files by name; can be given again")
      ->type_name("DIR")
      ->check(existing_directory())
      ->allow_extra_args(false);
  command
      .add_option(
          "--events", options.desk.events,
          "The process's events: what was unloaded, and which builds ran (default: events.jsonl beside the log)")
      ->type_name("FILE")
      ->check(check_regular);
  command
      .add_option("--map", options.desk.renames, "Look for target files under FROM in TO instead; can be given again")
      ->type_name("FROM=TO")
      ->check(check_rename)
      ->allow_extra_args(false);
}

void add_selection_options(CLI::App& command, Selection& selection) {
  add_number(command, "--thread", selection.thread, "Only what this thread asked for (kernel task id)");
  add_number(command, "--min-size", selection.min_size, "Only blocks of at least this many bytes");
  add_number(command, "--max-size", selection.max_size, "Only blocks of at most this many bytes");
  add_number(command, "--min-age", selection.min_age,
             "Only what was allocated this many seconds before the moment of the answer, or earlier");
  add_number(command, "--max-age", selection.max_age,
             "Only what was allocated this many seconds before the moment of the answer, or later");
  command
      .add_option("--module", selection.module,
                  "Only what a matching program or library asked for: * any characters, ^ and $ the ends")
      ->type_name("PATTERN");
}

void add_grouping_options(CLI::App& command, Options& options) {
  if (command.get_name() != "report")
    add_choice(command, "--by", options.grouping, kGroupings, "What to group by (default trace)");
  command
      .add_option("--top", options.top,
                  "How many sites to give (default 20 in text, 10 in a summary; all in other formats)")
      ->check(check_not_negative)
      ->type_name("N");
}

void add_order_option(CLI::App& command, Options& options) {
  add_choice(command, "--sort", options.order, kOrders, "Which sites come first (default bytes)");
}

void add_view_option(CLI::App& command, Options& options) {
  add_choice(command, "--view", options.view, kViews,
             "Of what is held at the end, was live at the highest point, or was ever allocated (default held)");
}

void add_within_option(CLI::App& command, Options& options) {
  command
      .add_option(
          "--within", options.within,
          "Count blocks that went within so many operations of their thread (default: before its next allocation)")
      ->type_name("N")
      ->check(CLI::Range(1u, kMaxWithin).description(""));
}

void add_suppression_options(CLI::App& command, Options& options) {
  command
      .add_option("--suppress", options.suppressions,
                  "Leave out known leaks: lines leak:PATTERN, matched against function, file and module")
      ->type_name("FILE")
      ->check(CLI::Validator(CLI::ExistingFile).description(""));
  command.add_flag_callback(
      "--no-default-suppressions", [&options] { options.default_suppressions = false; },
      "Also what the C and C++ libraries keep by design (report --list-suppressions)");
}

void add_site_options(CLI::App& command, Options& options) {
  add_grouping_options(command, options);
  add_suppression_options(command, options);
  auto limit = [&options](const uint64_t& bytes) { options.fail_on_leak = bytes; };
  command
      .add_option_function<uint64_t>("--fail-on-leak", limit,
                                     "End with status 3 when more than this is unfreed (diff: has grown)")
      ->check(check_not_negative)
      ->type_name("BYTES");
}

void add_event_options(CLI::App& command, EventFilter& filter) {
  static const std::map<std::string, int> kOperations = operations();
  auto operation = [&filter](const std::string& name) { filter.operations.push_back(kOperations.at(name)); };
  command.add_option_function<std::string>("--op", operation, "Of this operation; can be given again")
      ->check(CLI::IsMember(kOperations).description(""))
      ->type_name(names(kOperations))
      ->trigger_on_parse();
  auto result = [&filter](const std::string& name) { filter.result = kResults.at(name); };
  command.add_option_function<std::string>("--result", result, "With this result")
      ->check(CLI::IsMember(kResults).description(""))
      ->type_name(names(kResults));
  add_number(command, "--since", filter.since, "From this time on, seconds since the epoch");
  add_number(command, "--until", filter.until, "Up to this time, seconds since the epoch");
  add_number(command, "--address", filter.address, "Whose block holds this address (0x... for hexadecimal)");
  command
      .add_option("--function", filter.function,
                  "With a frame whose function matches: * any characters, ^ and $ the ends")
      ->type_name("PATTERN");
  command.add_option("--limit", filter.limit, "At most this many (default all)")
      ->check(check_not_negative)
      ->type_name("N");
}

bool has_option(const CLI::App& command, const std::string& name) {
  const CLI::Option* option = command.get_option_no_throw(name);
  return option != nullptr && option->count() != 0;
}

}  // namespace quarl::report
