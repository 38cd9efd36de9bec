// SPDX-License-Identifier: Apache-2.0
// `--list-suppressions`: the rules for what the C and C++ libraries keep by design.
#include "report/analysis/default_rules.h"

#include <CLI/CLI.hpp>

#include "report/formats/json_document.h"
#include "report/verbs/verbs.h"

namespace quarl::report {
namespace {

constexpr size_t kColumns = 100;

std::vector<std::string> words_of(std::string_view text) {
  std::vector<std::string> words;
  while (!text.empty()) {
    words.emplace_back(text.substr(0, text.find(' ')));
    text.remove_prefix(std::min(words.back().size() + 1, text.size()));
  }
  return words;
}

void print_indented(Output& output, std::string_view text) {
  constexpr std::string_view kIndent = "   ";
  std::string line(kIndent);
  for (const std::string& word : words_of(text)) {
    if (line.size() + 1 + word.size() > kColumns) {
      output.print("{}\n", line);
      line = kIndent;
    }
    line += " " + word;
  }
  output.print("{}\n", line);
}

void write_text_of(Output& output) {
  output.print(
      "What the C and C++ libraries keep by design is left out of what is unfreed (--no-default-suppressions: it is\n"
      "not). A rule covers a block when one of its functions is among the frames of these libraries at the front of\n"
      "the trace, up to the first frame of other code.\n");
  for (const DefaultRule& rule : default_rules()) {
    output.print("\n{} ({}{})\n", output.bold(rule.name), rule.library,
                 rule.below_only ? ", without what the function itself asked for" : "");
    print_indented(output, rule.what);
    print_indented(output, rule.functions);
  }
}

Json rules_json() {
  Json rules = Json::array();
  for (const DefaultRule& rule : default_rules()) {
    rules.push_back({{"name", rule.name},
                     {"library", rule.library},
                     {"functions", words_of(rule.functions)},
                     {"below_only", rule.below_only},
                     {"what", rule.what}});
  }
  return {{"schema", "quarl-report"}, {"version", kJsonVersion}, {"verb", "suppressions"}, {"rules", std::move(rules)}};
}

}  // namespace

int list_suppressions(const Options& options) {
  Output output(options.output, options.color, options.names);
  if (options.format == Format::kJson) {
    write_json(output, rules_json());
  } else if (options.format == Format::kText) {
    write_text_of(output);
  } else {
    throw CLI::ValidationError("--format", "suppressions are listed as text or json");
  }
  output.finish();
  return 0;
}

}  // namespace quarl::report
