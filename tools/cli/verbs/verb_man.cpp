// SPDX-License-Identifier: Apache-2.0
// The manual page is made from the command line itself, so that it says what --help says.
#include <fmt/format.h>

#include <sstream>

#include "refusal.h"
#include "verbs/verbs.h"

namespace quarl {
namespace {

// A backslash, and a dot or quote at the start of a line, would be read as commands.
std::string escape(const std::string& text) {
  std::string escaped;
  for (char c : text) {
    if ((c == '.' || c == '\'') && (escaped.empty() || escaped.back() == '\n')) escaped += "\\&";
    escaped += c == '\\' ? "\\e" : c == '-' ? "\\-" : std::string(1, c);
  }
  return escaped;
}

// Help text is laid out by hand: it is shown as it stands.
std::string as_it_stands(const std::string& text) {
  return text.empty() ? "" : ".PP\n.nf\n" + escape(text) + "\n.fi\n";
}

std::string options_of(const CLI::App& app) {
  std::string text;
  for (const CLI::Option* option : app.get_options()) {
    if (option->get_group().empty()) continue;  // left out of the help as well
    std::string name = option->get_name(option->get_positional(), true);
    std::string type = option->get_type_size() > 0 && !option->get_positional() ? " " + option->get_type_name() : "";
    text += fmt::format(".TP\n.B {}\n{}\n", escape(name + type), escape(option->get_description()));
  }
  return text;
}

std::string section_of(const CLI::App& verb, const std::string& path) {
  std::string text = fmt::format(".SS {}\n{}\n", escape(path), escape(verb.get_description()));
  text += options_of(verb) + as_it_stands(verb.get_footer());
  for (const CLI::App* inner : verb.get_subcommands([](const CLI::App*) { return true; })) {
    text += section_of(*inner, path + " " + inner->get_name());
  }
  return text;
}

std::string manual_page(const CLI::App& app) {
  std::string page = ".TH QUARL 1 \"\" \"quarl " QUARL_VERSION "\" \"User Commands\"\n";
  page += ".SH NAME\nquarl \\- heap and mapping checker for 32\\-bit Linux programs\n";
  page += ".SH SYNOPSIS\n.B quarl\n.I VERB\n[OPTIONS] [ARGS]\n.SH DESCRIPTION\n" + escape(app.get_description()) + "\n";
  page += as_it_stands(app.get_footer()) + options_of(app) + ".SH VERBS\n";
  for (const CLI::App* verb : app.get_subcommands([](const CLI::App*) { return true; })) {
    page += section_of(*verb, "quarl " + verb->get_name());
  }
  return page;
}

}  // namespace

void add_man(CLI::App& app, int& exit_status) {
  auto* verb = app.add_subcommand("man", "Write the manual page.");
  verb->footer("Example:\n  quarl man | man -l -");
  verb->callback([&app, &exit_status] {
    fmt::print("{}", manual_page(app));
    exit_status = kDone;
  });
}

}  // namespace quarl
