// SPDX-License-Identifier: Apache-2.0
#include <fmt/format.h>

#include <memory>

#include "items/config_check.h"
#include "items/reference.h"
#include "refusal.h"
#include "verbs/verbs.h"

namespace quarl {
namespace {

int check_file(const std::string& path) {
  const ConfigReport report(slurp(path));
  for (const Finding& finding : report.findings) fmt::print("{}:{}: {}\n", path, finding.line, finding.text);
  if (!report.findings.empty()) return kRefused;
  fmt::print("{}: every line is read as it is written; items set: {}\n", path, report.applied);
  return kDone;
}

void add_check(CLI::App& config, int& exit_status) {
  auto* check = config.add_subcommand("check", "Tell, by line, what the library would not do as FILE says.");
  auto path = std::make_shared<std::string>();
  check->add_option("FILE", *path, "Configuration file")->required();
  check->footer(
      "Exit status: 0 when every line is read as it is written, 1 when something is ignored or acts\n"
      "otherwise, 2 on wrong usage.\n\n"
      "Example:\n  quarl config check quarlcfg.ini");
  check->callback([path, &exit_status] { exit_status = check_file(*path); });
}

}  // namespace

void add_config(CLI::App& app, int& exit_status) {
  auto* config = app.add_subcommand("config", "List the configuration items, write a template, check a file.");
  auto as_template = std::make_shared<bool>(), as_markdown = std::make_shared<bool>();
  auto* option = config->add_flag("--template", *as_template, "Write a commented configuration file");
  config->add_flag("--markdown", *as_markdown, "Write the reference page")->excludes(option);
  config->require_subcommand(0, 1);
  config->footer(
      "Without an option, the items are listed with their values, defaults and meaning.\n\n"
      "Examples:\n  quarl config\n  quarl config --template > quarlcfg.ini\n  quarl config check quarlcfg.ini");
  add_check(*config, exit_status);
  config->callback([=] {
    if (!config->get_subcommands().empty()) return;
    std::string text = *as_template ? item_template() : *as_markdown ? item_reference() : item_list();
    fmt::print("{}", text);
  });
}

}  // namespace quarl
