// SPDX-License-Identifier: Apache-2.0
// What the command line asks for.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "report/analysis/selection.h"
#include "report/analysis/site_table.h"
#include "report/formats/output.h"
#include "report/reading/log.h"
#include "report/symbols/desk.h"

namespace quarl::report {

enum class Format { kText, kJson, kCsv, kFolded, kPprof, kHtml, kSqlite };

// Which blocks an answer is about.
enum class View { kHeld, kPeak, kAllocated };

// "held", "peak" or "allocated".
const char* name_of(View view);

// Which records `events` shows. An absent value filters nothing.
struct EventFilter {
  std::vector<int> operations;
  std::optional<int> result;
  std::optional<uint32_t> since, until;  // seconds since the epoch, both included
  std::optional<uint32_t> address;       // any byte of the block
  std::string function;                  // a pattern, see pattern_matches()
  uint64_t limit = UINT64_MAX;
};

struct Options {
  std::vector<std::string> files;
  Format format = Format::kText;
  std::string output;  // a path, empty for standard output
  std::optional<LogKind> kind;
  DeskOptions desk;
  std::string suppressions;
  bool default_suppressions = true;
  std::optional<uint64_t> fail_on_leak;  // bytes
  ColorChoice color = ColorChoice::kAuto;
  Names names = Names::kShort;
  Grouping grouping = Grouping::kTrace;
  Order order = Order::kBytes;
  uint32_t within = 0;  // operations, of `temporary`; 0 for up to the thread's next allocation
  bool tree = false;
  std::string moment;    // of `at`
  std::string function;  // of `callers`, a pattern
  View view = View::kHeld;
  size_t top = 20;
  bool top_given = false;
  Selection selection;
  EventFilter events;
};

}  // namespace quarl::report
