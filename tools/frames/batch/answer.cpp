// SPDX-License-Identifier: Apache-2.0
#include "frames/batch/answer.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

namespace quarl::frames {
namespace {

using Json = nlohmann::ordered_json;

double share(uint32_t part, uint32_t whole) {
  return whole == 0 ? 100.0 : 100.0 * part / whole;
}

std::string by_source(const Coverage& coverage) {
  std::string text;
  for (int source = 0; source < kSourceCount; ++source) {
    if (coverage.by[source] == 0) continue;
    text += fmt::format("{}{} {:.1f} %", text.empty() ? "" : ", ", source_name(Source(source)),
                        share(coverage.by[source], coverage.calls));
  }
  return text;
}

std::string line(const std::string& name, const Coverage& coverage, uint32_t size) {
  return fmt::format("{:>9} {:>8} {:>6.1f} %  {}{}\n", size, coverage.calls, share(coverage.covered(), coverage.calls),
                     name, coverage.covered() == 0 ? "" : " (" + by_source(coverage) + ")");
}

std::string agreement_lines(const std::array<Agreement, kSourceCount>& agreement) {
  std::string text;
  for (int source = 0; source < kSourceCount; ++source) {
    const Agreement& each = agreement[source];
    uint32_t both = each.same + each.different;
    if (Source(source) == Source::kDerived || both + each.unknown == 0) continue;
    text += fmt::format("{:>29}derived says what {} says at {:.2f} % of {} calls, nothing at {}\n", "",
                        source_name(Source(source)), share(each.same, both), both, each.unknown);
  }
  return text;
}

Json coverage_json(const Coverage& coverage) {
  Json by;
  for (int source = 0; source < kSourceCount; ++source) by[source_name(Source(source))] = coverage.by[source];
  return {{"calls", coverage.calls}, {"covered", coverage.covered()}, {"by", by}};
}

Json rule_json(const FrameRule& rule) {
  static constexpr const char* kBases[] = {"end", "sp", "ebp", "[ebp]", "r7", "r11", "signal", "rt_signal"};
  return {{"base", kBases[rule.base]},
          {"cfa", rule.cfa},
          {"return", rule.return_place},
          {"frame", rule.frame_place},
          {"r11", rule.r11_place}};
}

Json agreement_json(const std::array<Agreement, kSourceCount>& agreement) {
  Json all = Json::object();
  for (int source = 0; source < kSourceCount; ++source) {
    const Agreement& each = agreement[source];
    if (Source(source) == Source::kDerived || each.same + each.different + each.unknown == 0) continue;
    Json differences = Json::array();
    for (const Agreement::Difference& difference : each.differences) {
      differences.push_back({{"call", fmt::format("0x{:x}", difference.call)},
                             {"rule", rule_json(difference.rule)},
                             {"derived", rule_json(difference.derived)}});
    }
    all[source_name(Source(source))] = {
        {"same", each.same}, {"different", each.different}, {"unknown", each.unknown}, {"differences", differences}};
  }
  return all;
}

}  // namespace

std::string text_answer(const std::vector<Outcome>& outcomes, bool compared) {
  std::string text = fmt::format("{:>9} {:>8} {:>8}  file\n", "bytes", "calls", "covered");
  Coverage total;
  uint32_t size = 0, count = 0;
  for (const Outcome& outcome : outcomes) {
    if (outcome.table.empty()) continue;
    text += line(outcome.file.target_path, outcome.made.coverage, outcome.made.size);
    if (compared) text += agreement_lines(outcome.made.agreement);
    total += outcome.made.coverage;
    size += outcome.made.size;
    ++count;
  }
  return text + line(fmt::format("{} tables", count), total, size);
}

std::string json_answer(const std::vector<Outcome>& outcomes, bool compared) {
  Json files = Json::array();
  Coverage total;
  for (const Outcome& outcome : outcomes) {
    Json file = {{"path", outcome.file.path}, {"target_path", outcome.file.target_path}};
    if (outcome.table.empty()) {
      file["refusal"] = outcome.refusal.empty() ? "has no code" : outcome.refusal;
    } else {
      const ModuleTable& made = outcome.made;
      file.update({{"table", outcome.table}, {"bytes", made.size}, {"rows", made.rows}, {"rules", made.rules}});
      file["coverage"] = coverage_json(made.coverage);
      if (compared) file["agreement"] = agreement_json(made.agreement);
      total += made.coverage;
    }
    files.push_back(file);
  }
  Json document = {{"schema", "quarl-frames"}, {"version", 1}, {"files", files}, {"total", coverage_json(total)}};
  return document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace quarl::frames
