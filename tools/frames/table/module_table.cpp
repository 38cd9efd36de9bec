// SPDX-License-Identifier: Apache-2.0
#include "frames/table/module_table.h"

#include <memory>
#include <numeric>

#include "frames/code/signal_returns.h"
#include "frames/sources/cfi_rules.h"
#include "frames/sources/derived_rules.h"
#include "frames/sources/exidx_rules.h"

namespace quarl::frames {
namespace {

using Sources = std::vector<std::unique_ptr<RuleSource>>;

// The best first.
Sources sources_of(const ElfModule& module, const TableOptions& options) {
  Sources sources;
  for (Source source : {Source::kDebugFrame, Source::kEhFrame}) {
    auto cfi = std::make_unique<CfiRules>(module, source);
    if (cfi->present()) sources.push_back(std::move(cfi));
  }
  if (module.arm()) sources.push_back(std::make_unique<ExidxRules>(module));
  if (options.derive) sources.push_back(std::make_unique<DerivedRules>(module.arm()));
  return sources;
}

void compare(const CallSite& call, const FrameRule& rule, bool arm, Agreement& agreement) {
  std::optional<bool> agrees = call.state ? call.state->agrees(rule, arm) : std::nullopt;
  if (!agrees) {
    ++agreement.unknown;
  } else if (*agrees) {
    ++agreement.same;
  } else {
    ++agreement.different;
    agreement.differences.push_back({call.address, rule, *call.state->rule(arm)});
  }
}

// What is derived without any symbols is what matters: files that have symbols have other sources too.
void compare_all(const std::string& path, const Sources& sources, ModuleTable& result) {
  ElfModule bare(path, "");
  for (const CallSite& call : find_calls(bare)) {
    for (const std::unique_ptr<RuleSource>& source : sources) {
      std::optional<SourcedRule> rule = source->rule(call);
      if (rule) compare(call, rule->rule, bare.arm(), result.agreement[static_cast<size_t>(source->source())]);
    }
  }
}

}  // namespace

uint32_t Coverage::covered() const {
  return std::accumulate(by.begin(), by.end(), 0u);
}

Coverage& Coverage::operator+=(const Coverage& other) {
  calls += other.calls;
  for (int source = 0; source < kSourceCount; ++source) by[source] += other.by[source];
  return *this;
}

namespace {

class TableMaker {
 public:
  TableMaker(const ElfModule& module, const Sources& sources, ModuleTable& result)
      : module_(module), sources_(sources), result_(result), table_(module), last_(module.text_start()) {}

  const Table& run() {
    std::vector<SignalReturn> signals = signal_returns(module_);
    auto signal = signals.begin();
    for (const CallSite& call : find_calls(module_)) {
      for (; signal != signals.end() && signal->address <= call.address; ++signal) add(*signal);
      add(call);
    }
    for (; signal != signals.end(); ++signal) add(*signal);
    return table_;
  }

 private:
  void add(const SignalReturn& signal) {
    FrameRule rule = {};
    rule.base = signal.base;
    row(signal.address - 1, signal.address, &rule);
  }

  void add(const CallSite& call) {
    std::optional<SourcedRule> rule = best(call);
    if (!call.system_call) ++result_.coverage.calls;
    row(rule ? rule->start : call.address, call.return_address, rule ? &rule->rule : nullptr);
  }

  std::optional<SourcedRule> best(const CallSite& call) {
    for (const std::unique_ptr<RuleSource>& source : sources_) {
      std::optional<SourcedRule> rule = source->rule(call);
      if (!rule) continue;
      if (!call.system_call) ++result_.coverage.by[static_cast<size_t>(source->source())];
      // A call overwrites lr: a function that has not saved it calls what does not return.
      bool lost = module_.arm() && !call.system_call && rule->rule.return_place == kPlaceUnchanged;
      if (lost) rule->rule = FrameRule{};
      return rule;
    }
    return std::nullopt;
  }

  void row(uint32_t start, uint32_t end, const FrameRule* rule) {
    table_.add(std::max(last_, start), rule);
    last_ = std::max(last_, end);
  }

  const ElfModule& module_;
  const Sources& sources_;
  ModuleTable& result_;
  Table table_;
  uint32_t last_;  // end of the last call
};

}  // namespace

ModuleTable make_table(const std::string& path, const std::string& target_path, const TableOptions& options) {
  ElfModule module(path, options.debug_path);
  Sources sources = sources_of(module, options);
  ModuleTable result;
  TableMaker maker(module, sources, result);
  const Table& table = maker.run();
  if (options.compare) compare_all(path, sources, result);
  result.id = table_id(module);
  result.bytes = table.bytes(target_path);
  result.size = static_cast<uint32_t>(result.bytes.size());
  result.rows = static_cast<uint32_t>(table.row_count());
  result.rules = static_cast<uint32_t>(table.rule_count());
  return result;
}

}  // namespace quarl::frames
