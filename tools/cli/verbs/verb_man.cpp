// SPDX-License-Identifier: Apache-2.0
// The manual pages are made from the command line and the tables of variables and items, so that they say what --help
// and the documentation say.
#include <fmt/format.h>

#include <memory>
#include <regex>
#include <sstream>

#include "items/environment_variables.h"
#include "items/reference.h"
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

// Without the marks of the documentation: names between `` ` ``, links.
std::string plain(const std::string& text) {
  return std::regex_replace(std::regex_replace(text, std::regex(R"(\[([^\]]*)\]\([^)]*\))"), "$1"), std::regex("`"),
                            "");
}

std::string environment_section() {
  std::string text =
      ".SH ENVIRONMENT\nThe library in a program reads these. A set\\-user\\-id program ignores all of them.\n";
  for (const EnvironmentVariable& variable : kEnvironmentVariables) {
    text += fmt::format(".TP\n.B {}\n{}. Default: {}.\n", escape(variable.name), escape(plain(variable.meaning)),
                        escape(plain(variable.default_value)));
  }
  return text;
}

std::string title(const char* name, int section, const char* manual) {
  return fmt::format(".TH {} {} \"\" \"quarl " QUARL_VERSION "\" \"{}\"\n", name, section, manual);
}

std::string library_page() {
  return title("LIBQUARL", 7, "Miscellaneous") + R"(.SH NAME
libquarl \- heap and mapping checker for 32\-bit Linux programs, loaded into them
.SH SYNOPSIS
.nf
LD_PRELOAD=/path/to/libquarl.so ./application
.fi
.SH DESCRIPTION
libquarl.so is loaded into a program as it is. From then on every malloc, free, realloc, memalign, mmap and munmap passes
through it. It finds blocks released twice, bytes written in front of a block or behind it, and memory that is never given
back, and says which thread allocated the block and from where.
.PP
Faults are told on standard output and in the log. What was never given back is written to NAME_PID_quarl.log in the current
directory when the program ends; SIGUSR1 asks for it while the program runs.
.PP
On a system with glibc set QUARL_CONTRACT=libc, so that programs get from malloc what glibc promises them. QUARL_EVENTS=FILE
has the library write what it finds to a file; "quarl story" on a desk, where the debug information is, tells it as stories
with functions and lines, and "quarl report" answers questions about the logs.
.SH CONFIGURATION
The file quarlcfg.ini in the current directory, or the one that QUARL_CFG_FILE names: lines of KEY=value. Without one,
checking, call traces and statistics are on; the record of every operation and the agent are off.
)" + as_it_stands(item_list()) +
         environment_section() + R"(.SH CALLING IT
A program may call quarl_check_mem(), which checks every live block at once, and read quarl_version; quarl.h declares them.
"pkg\-config quarl" and CMake's find_package(quarl) name what to compile and to link with.
.SH SEE ALSO
.BR quarl (1),
.BR ld.so (8)
)";
}

std::string manual_page(const CLI::App& app) {
  std::string page = title("QUARL", 1, "User Commands");
  page += ".SH NAME\nquarl \\- heap and mapping checker for 32\\-bit Linux programs\n";
  page += ".SH SYNOPSIS\n.B quarl\n.I VERB\n[OPTIONS] [ARGS]\n.SH DESCRIPTION\n" + escape(app.get_description()) + "\n";
  page += as_it_stands(app.get_footer()) + options_of(app) + ".SH VERBS\n";
  for (const CLI::App* verb : app.get_subcommands([](const CLI::App*) { return true; })) {
    page += section_of(*verb, "quarl " + verb->get_name());
  }
  return page + environment_section() + ".SH SEE ALSO\n.BR libquarl (7)\n";
}

}  // namespace

void add_man(CLI::App& app, int& exit_status) {
  auto* verb = app.add_subcommand("man", "Write the manual page.");
  auto library = std::make_shared<bool>(false);
  verb->add_flag("--library", *library, "the page of the library, libquarl(7)");
  verb->footer("Example:\n  quarl man | man -l -");
  verb->callback([&app, &exit_status, library] {
    fmt::print("{}", *library ? library_page() : manual_page(app));
    exit_status = kDone;
  });
}

}  // namespace quarl
