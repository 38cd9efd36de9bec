// SPDX-License-Identifier: Apache-2.0
#include "items/config_check.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <sstream>

#include "config/line.h"
#include "items/item_values.h"
#include "items/signal_text.h"

namespace quarl {
namespace {

class Checker {
 public:
  explicit Checker(ConfigReport& report) : report_(report) {}
  void read(const ConfigLine& line);
  void finish();

 private:
  template <typename... Args>
  void find(int line, fmt::format_string<Args...> text, Args&&... args) {
    report_.findings.push_back({line, fmt::format(text, std::forward<Args>(args)...)});
  }
  void read_item(const ConfigLine& line);
  void skipped_text(const ConfigLine& line, const Line& parsed);
  void kept(const Applied& applied, int line);
  void set(const Applied& applied, int line);
  void order(const Applied& applied, int line);
  void no_timer(int line);
  void without_effect();
  void shared_signals();

  ConfigReport& report_;
  ItemState& state_ = report_.state;
};

bool is_blank(const std::string& text) {
  return text.find_first_not_of(" \t") == std::string::npos;
}

bool starts_comment(const std::string& text) {
  return text[text.find_first_not_of(" \t")] == '#';
}

std::string error_text(const Line& line) {
  switch (line.error) {
    case LineError::kKeyTooLong:
      return fmt::format("the key is longer than {} characters", kMaxKey);
    case LineError::kNoEquals:
      return fmt::format("\"{}\" is not followed by \"=\"", line.key);
    case LineError::kNoValue:
      return fmt::format("{}: no value after \"=\"", line.key);
    case LineError::kValueLength:
      return fmt::format("{}: the value is empty or longer than {} characters", line.key, kMaxValue);
    case LineError::kNone:
      break;
  }
  return "";
}

void Checker::read(const ConfigLine& line) {
  if (!line.ended) {
    if (is_blank(line.text) || (starts_comment(line.text) && !line.cut())) return;
    find(line.number, "the last line has no line end and is never read; end it with a line feed");
    return;
  }
  if (line.cut()) {
    find(line.number, "the line has {} characters; only its last {} are read", line.length, kMaxLine);
  }
  read_item(line);
}

void Checker::read_item(const ConfigLine& line) {
  if (is_blank(line.text)) {
    find(line.number, "a line of blanks is no empty line; the library complains about it");
    return;
  }
  const Applied applied = state_.apply(line.text, line.number);
  if (applied.outcome == Applied::kBadLine) {
    find(line.number, "ignored: {}", error_text(applied.line));
  } else if (applied.outcome == Applied::kUnknown) {
    find(line.number, "ignored: {}", unknown_key(applied.line.key));
  } else {
    skipped_text(line, applied.line);
    applied.outcome == Applied::kSet ? set(applied, line.number) : kept(applied, line.number);
  }
}

// Text that the line parser passes over: between the key and the "=", and behind the value.
void Checker::skipped_text(const ConfigLine& line, const Line& parsed) {
  std::string_view text = line.text;
  size_t key = text.find(parsed.key);
  size_t equals = text.find('=', key);
  std::string between(text.substr(key, equals - key).substr(std::string_view(parsed.key).size()));
  if (!is_blank(between)) find(line.number, "{}: \"{}\" before the \"=\" is ignored", parsed.key, between);
  size_t value = text.find(parsed.value, equals + 1);
  std::string behind(text.substr(value + std::string_view(parsed.value).size()));
  if (is_blank(behind) || starts_comment(behind)) return;
  find(line.number, "{}: \"{}\" behind the value is ignored", parsed.key, behind);
}

void Checker::kept(const Applied& applied, int line) {
  const char* key = applied.row->key;
  const ItemState::Setting& first = *state_.find(key);
  find(line, "{}={} is ignored: the item cannot be set again and keeps {} from line {}", key, applied.line.value,
       first.value, first.line);
}

void Checker::set(const Applied& applied, int line) {
  if (std::string complaint = value_complaint(*applied.row, applied.line.value); !complaint.empty()) {
    find(line, "{}: {}", applied.row->key, complaint);
  }
  order(applied, line);
  ++report_.applied;
}

// Items that look at others in the moment in which they are set.
void Checker::order(const Applied& applied, int line) {
  const std::string_view key = applied.row->key;
  const bool one = applied.line.value[0] == '1';
  if (key == "QUARL_TIME_INTERVAL" && applied.effect.kind != Effect::kStartTimer &&
      leading_number(applied.line.value) > 0) {
    no_timer(line);
  }
  if (applied.effect.kind == Effect::kRefuseSnapshots) {
    find(line, "QUARL_SNAP_INTERVAL ends the process here: put QUARL_HEAD_TIME=2 above it");
  }
  if (key == "QUARL_TIMER_SIG" && state_.timer_started()) {
    find(line, "QUARL_TIMER_SIG comes too late for the timer; put it above QUARL_TIME_INTERVAL in line {}",
         state_.find("QUARL_TIME_INTERVAL")->line);
  }
  if (applied.effect.kind == Effect::kRefuseThreads) {
    find(line, "QUARL_THREAD is refused while QUARL_PROF is not on: put QUARL_PROF=1 above it");
  }
  if (key == "QUARL_PROF" && !one && state_.on("QUARL_PROF")) {
    find(line, "QUARL_PROF stays on: it is switched off only after QUARL_ALL=1");
  }
  if (key == "QUARL_MMAP" && one && !state_.find("QUARL_PROF")) {
    find(line, "the statistics do not learn of QUARL_MMAP: put QUARL_PROF=1 above it");
  }
}

void Checker::no_timer(int line) {
  std::vector<std::string> missing;
  if (!state_.on("QUARL_ALL")) missing.push_back("QUARL_ALL=1");
  if (!state_.on("QUARL_MEM_HEAD")) missing.push_back("QUARL_MEM_HEAD=1");
  if (!state_.on("QUARL_HEAD_TIME") || !state_.clock_wanted()) missing.push_back("QUARL_HEAD_TIME=2");
  find(line, "QUARL_TIME_INTERVAL starts no timer: put {} above it", fmt::join(missing, " and "));
}

// Items that are on while one that they need is off.
void Checker::without_effect() {
  for (const ItemRow& item : kItemRows) {
    const ItemState::Setting* setting = state_.find(item.key);
    if (!setting || setting->line == 0 || !state_.on(item.key)) continue;
    std::istringstream depends(item.depends);
    for (std::string key; depends >> key;) {
      if (!state_.on(key)) find(setting->line, "{} has no effect: {} is off", item.key, key);
    }
  }
}

// Of two handlers of one signal only the one installed last is called.
void Checker::shared_signals() {
  struct Use {
    const char* key;
    int signal;
    int line;
  };
  std::vector<Use> uses;
  auto use = [&](const char* key) {
    const ItemState::Setting& setting = *state_.find(key);
    uses.push_back({key, setting.effect.number, setting.line});
  };
  use("QUARL_SIG");
  if (state_.timer_started()) use("QUARL_TIMER_SIG");
  if (state_.on("QUARL_SLOPOVER_USER")) use("QUARL_SLOPOVER_USER");
  if (state_.on("QUARL_SLOPOVER_TIMER")) use("QUARL_SLOPOVER_TIMER");
  for (size_t i = 0; i < uses.size(); ++i) {
    for (size_t j = i + 1; j < uses.size(); ++j) {
      if (uses[i].signal != uses[j].signal) continue;
      find(std::max(uses[i].line, uses[j].line), "{} and {} share signal {}; only the one set last has it", uses[i].key,
           uses[j].key, signal_name(uses[i].signal));
    }
  }
}

void Checker::finish() {
  state_.apply_defaults();
  without_effect();
  shared_signals();
  std::stable_sort(report_.findings.begin(), report_.findings.end(),
                   [](const Finding& a, const Finding& b) { return a.line < b.line; });
}

}  // namespace

ConfigReport::ConfigReport(std::string_view bytes) {
  Checker checker(*this);
  for (const ConfigLine& line : read_config(bytes)) checker.read(line);
  checker.finish();
}

}  // namespace quarl
