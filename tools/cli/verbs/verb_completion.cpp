// SPDX-License-Identifier: Apache-2.0
// The completion script is made from the command line itself: verbs, options and the keys of the items.
#include <fmt/format.h>

#include <memory>

#include "config/item_rows.h"
#include "refusal.h"
#include "verbs/verbs.h"

namespace quarl {
namespace {

constexpr std::string_view kHead = R"(# bash completion for quarl
_quarl() {
  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]} verb="" words="" i
  COMPREPLY=()
  for ((i = 1; i < COMP_CWORD; i++)); do
    # What follows "--" belongs to the program.
    if [[ ${COMP_WORDS[i]} == -- ]]; then
      COMPREPLY=($(compgen -c -f -- "$cur"))
      return
    fi
    if [[ ${COMP_WORDS[i]} != -* && -z $verb ]]; then verb=${COMP_WORDS[i]}; fi
  done
  case $verb in
)";
constexpr std::string_view kTail = R"(  esac
  if [[ $prev == --set || ( $verb == ctl && $cur == Q* ) ]]; then
    words=$keys
    compopt -o nospace
  fi
  COMPREPLY=($(compgen -W "$words" -- "$cur"))
}
complete -o default -F _quarl quarl
)";

std::string words_of(const CLI::App& app) {
  std::string words;
  for (const CLI::App* verb : app.get_subcommands([](const CLI::App*) { return true; }))
    words += verb->get_name() + " ";
  for (const CLI::Option* option : app.get_options()) {
    if (option->get_group().empty()) continue;  // left out of the help as well
    for (const std::string& name : option->get_lnames()) words += "--" + name + " ";
  }
  return words;
}

std::string bash_script(const CLI::App& app) {
  std::string keys, script(kHead);
  for (const ItemRow& item : kItemRows) keys += fmt::format("{}= ", item.key);
  script += fmt::format("    \"\") words=\"{}\" ;;\n", words_of(app));
  for (const CLI::App* verb : app.get_subcommands([](const CLI::App*) { return true; })) {
    script += fmt::format("    {}) words=\"{}\" ;;\n", verb->get_name(), words_of(*verb));
  }
  return script.insert(script.find("  case"), fmt::format("  local keys=\"{}\"\n", keys)) + std::string(kTail);
}

}  // namespace

void add_completion(CLI::App& app, int& exit_status) {
  auto* verb = app.add_subcommand("completion", "Write the completion script of a shell.");
  auto shell = std::make_shared<std::string>();
  verb->add_option("SHELL", *shell, "bash")->required()->check(CLI::IsMember({"bash"}).description(""))->type_name("");
  verb->footer("Example:\n  source <(quarl completion bash)");
  verb->callback([&app, &exit_status] {
    fmt::print("{}", bash_script(app));
    exit_status = kDone;
  });
}

}  // namespace quarl
