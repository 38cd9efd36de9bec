#include "frames/table/module_table.h"

#include <memory>
#include <numeric>

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

ModuleTable make_table(const std::string& path, const std::string& target_path, const TableOptions& options) {
  ElfModule module(path, options.debug_path);
  Sources sources = sources_of(module, options);
  ModuleTable result;
  Table table(module);
  uint32_t last = module.text_start();
  for (const CallSite& call : find_calls(module)) {
    std::optional<SourcedRule> rule;
    for (const std::unique_ptr<RuleSource>& source : sources) {
      std::optional<SourcedRule> found = source->rule(call);
      auto index = static_cast<size_t>(source->source());
      if (!found || rule) continue;
      rule = found;
      if (!call.system_call) ++result.coverage.by[index];
    }
    if (!call.system_call) ++result.coverage.calls;
    uint32_t start = rule ? std::max(last, rule->start) : call.address;
    table.add(std::max(last, start), rule ? &rule->rule : nullptr);
    last = call.return_address;
  }
  if (options.compare) compare_all(path, sources, result);
  result.id = table_id(module);
  result.bytes = table.bytes(target_path);
  result.size = static_cast<uint32_t>(result.bytes.size());
  result.rows = static_cast<uint32_t>(table.row_count());
  result.rules = static_cast<uint32_t>(table.rule_count());
  return result;
}

}  // namespace quarl::frames
