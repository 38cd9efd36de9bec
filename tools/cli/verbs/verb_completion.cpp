// SPDX-License-Identifier: Apache-2.0
// The completion scripts are made from the command line itself: verbs, options and the keys of the items.
#include <fmt/format.h>

#include <memory>
#include <string>
#include <vector>

#include "config/item_rows.h"
#include "refusal.h"
#include "verbs/verbs.h"

namespace quarl {
namespace {

constexpr std::string_view kBashHead = R"(# bash completion for quarl
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
constexpr std::string_view kBashTail = R"(  esac
  if [[ $prev == --set || ( $verb == ctl && $cur == Q* ) ]]; then
    words=$keys
    compopt -o nospace
  fi
  COMPREPLY=($(compgen -W "$words" -- "$cur"))
}
complete -o default -F _quarl quarl
)";

// Loaded by zsh from a folder of its fpath, or by `source`.
constexpr std::string_view kZshHead = R"(#compdef quarl
_quarl() {
  local verb="" i
  local -a known
  for ((i = 2; i < CURRENT; i++)); do
    # What follows "--" belongs to the program.
    if [[ $words[i] == -- ]]; then
      shift $i words
      ((CURRENT -= i))
      _normal
      return
    fi
    if [[ $words[i] != -* && -z $verb ]]; then verb=$words[i]; fi
  done
  case $verb in
)";
constexpr std::string_view kZshTail = R"(  esac
  if [[ $words[CURRENT-1] == --set || ( $verb == ctl && $words[CURRENT] == Q* ) ]]; then
    compadd -S "" -- $keys
    return
  fi
  compadd -- $known
  [[ -z $verb ]] || _files
}
if [[ $funcstack[1] == _quarl ]]; then _quarl "$@"; else compdef _quarl quarl; fi
)";

constexpr std::string_view kFishHead = R"(# fish completion for quarl
# What follows "--" belongs to the program.
function __quarl_own
    not contains -- -- (commandline -opc)
end
)";

using Verbs = std::vector<const CLI::App*>;

Verbs verbs_of(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App*) { return true; });
}

std::string keys_of_items() {
  std::string keys;
  for (const ItemRow& item : kItemRows) keys += fmt::format("{}= ", item.key);
  return keys;
}

std::string words_of(const CLI::App& app) {
  std::string words;
  for (const CLI::App* verb : verbs_of(app)) words += verb->get_name() + " ";
  for (const CLI::Option* option : app.get_options()) {
    if (option->get_group().empty()) continue;  // left out of the help as well
    for (const std::string& name : option->get_lnames()) words += "--" + name + " ";
  }
  return words;
}

// A case of each verb, with the words that may follow it, below the keys of the items.
std::string script_by_case(const CLI::App& app, std::string_view head, std::string_view tail, const char* open,
                           const char* close) {
  std::string cases = fmt::format("    \"\") {}{}{} ;;\n", open, words_of(app), close);
  for (const CLI::App* verb : verbs_of(app)) {
    cases += fmt::format("    {}) {}{}{} ;;\n", verb->get_name(), open, words_of(*verb), close);
  }
  return std::string(head) + cases + std::string(tail);
}

std::string with_keys(std::string script, const std::string& line) {
  return script.insert(script.find("  case"), line);
}

std::string bash_script(const CLI::App& app) {
  return with_keys(script_by_case(app, kBashHead, kBashTail, "words=\"", "\""),
                   fmt::format("  local keys=\"{}\"\n", keys_of_items()));
}

std::string zsh_script(const CLI::App& app) {
  return with_keys(script_by_case(app, kZshHead, kZshTail, "known=(", ")"),
                   fmt::format("  local -a keys=({})\n", keys_of_items()));
}

// The first line of a description, between quotes of fish.
std::string quoted(const std::string& description) {
  std::string text = "'";
  for (char c : description.substr(0, description.find('\n'))) {
    if (c == '\'' || c == '\\') text += '\\';
    text += c;
  }
  return text + "'";
}

std::string fish_options(const CLI::App& app, const std::string& condition) {
  std::string lines;
  for (const CLI::Option* option : app.get_options()) {
    if (option->get_group().empty()) continue;  // left out of the help as well
    for (const std::string& name : option->get_lnames()) {
      lines += fmt::format("complete -c quarl -n \"__quarl_own; and {}\" -l {}{} -d {}\n", condition, name,
                           option->get_type_size() > 0 ? " -r" : "", quoted(option->get_description()));
    }
  }
  return lines;
}

std::string fish_script(const CLI::App& app) {
  std::string script(kFishHead);
  script += fish_options(app, "__fish_use_subcommand");
  for (const CLI::App* verb : verbs_of(app)) {
    const std::string seen = fmt::format("__fish_seen_subcommand_from {}", verb->get_name());
    script += fmt::format("complete -c quarl -n __fish_use_subcommand -fa {} -d {}\n", verb->get_name(),
                          quoted(verb->get_description()));
    for (const CLI::App* inner : verbs_of(*verb)) {
      script += fmt::format("complete -c quarl -n \"__quarl_own; and {}\" -a {} -d {}\n", seen, inner->get_name(),
                            quoted(inner->get_description()));
    }
    script += fish_options(*verb, seen);
  }
  return script + fmt::format("complete -c quarl -n \"__quarl_own; and __fish_seen_subcommand_from ctl\" -a \"{}\"\n",
                              keys_of_items());
}

struct Shell {
  const char* name;
  std::string (*script)(const CLI::App& app);
};
constexpr Shell kShells[] = {{"bash", bash_script}, {"zsh", zsh_script}, {"fish", fish_script}};

}  // namespace

void add_completion(CLI::App& app, int& exit_status) {
  auto* verb = app.add_subcommand("completion", "Write the completion script of a shell.");
  auto shell = std::make_shared<std::string>();
  std::vector<std::string> names;
  for (const Shell& known : kShells) names.push_back(known.name);
  verb->add_option("SHELL", *shell, "bash, zsh or fish")
      ->required()
      ->check(CLI::IsMember(names).description(""))
      ->type_name("");
  verb->footer("Example:\n  source <(quarl completion bash)");
  verb->callback([&app, &exit_status, shell] {
    for (const Shell& known : kShells) {
      if (*shell == known.name) fmt::print("{}", known.script(app));
    }
    exit_status = kDone;
  });
}

}  // namespace quarl
