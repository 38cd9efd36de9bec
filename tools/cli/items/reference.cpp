// SPDX-License-Identifier: Apache-2.0
#include "items/reference.h"

#include <fmt/format.h>

#include <algorithm>
#include <sstream>
#include <string_view>
#include <vector>

#include "config/item_rows.h"
#include "items/environment_variables.h"
#include "items/item_order.h"

namespace quarl {
namespace {

constexpr size_t kTextWidth = 96;  // columns

constexpr std::string_view kReferenceHead = R"(# Configuration

The library takes its configuration from one text file: the path in the environment variable `QUARL_CFG_FILE`, or
`quarlcfg.ini` in the current directory of the process. Without a file the defaults are in force. The file is read when
the library is loaded and again, at the next allocation, after the `QUARL_SIG` signal. `quarl config check FILE` tells
what the library would not do as a file says; `quarl config --template` writes a file to start from.

## The contract

The environment variable `QUARL_CONTRACT` says whose promises `malloc` and its kin keep. `plain`, the default, passes on
what the hooks answer: null for a request of 0 bytes, blocks aligned to 8. `libc` keeps glibc's: a block for a request of
0 bytes, alignment to 16 on i686, `ENOMEM` after a failure; and a `SIGUSR1` that the process inherits ignored stays so,
unless the file names the signal. Standard output is the program's then: that a log could not be written is told on
standard error, once. Use `libc` on boards with glibc; `quarl run` sets it.

## Lines

A line is `KEY = VALUE`; blanks and tabs around both are skipped, and so is everything behind the value. A line whose
first character is `#` is a comment.

- A key has at most 31 characters, a value at most 15, a line at most 127: of a longer line only the last 127
  characters are read, as if they were the line. That goes for comments, too.
- The last line needs a line end; without one it is never read.
- Switches look at the first character of the value only: `1` is on, anything else off.
- Numbers are decimal; digits are read up to the first other character, and a value without any is 0.
- Signals are given by name (`SIGUSR2`, `SIG40`) or by number.

## Order

Lines are applied from top to bottom; then every default-on item that no line has set is applied with `1`.

- An item that can be set again takes every value that reaches it: of two lines the later one holds.
- An item that cannot keeps the first value for the life of the process, whichever source it came from.
- Some items look at others in the moment in which they are set. Put `QUARL_ALL`, `QUARL_MEM_HEAD`, `QUARL_PROF`,
  `QUARL_HEAD_TIME` and `QUARL_TIMER_SIG` first: defaults come after the whole file, too late for a line that needs them.

## Environment

What does not belong to one configuration is told by environment variables. A set-user-id program ignores all of them,
and `quarlcfg.ini` too. But for `QUARL_CFG_FILE`, which every reload looks at, they are read once, at start-up.

)";

constexpr std::string_view kReferenceTail = R"(
`quarl run` sets `QUARL_LOG_DIR` to a folder of the run and `QUARL_KEEP` to `findings`, unless they are set already;
`--logs DIR` and `--keep-all` choose otherwise. With `--agent` it sets `QUARL_AGENT_ADDRESS` to 127.0.0.1 unless it is set.
`QUARL_EVENTS` is a file in the folder of the run, `QUARL_MESSAGES` is `none` without `--raw`, and `QUARL_END_SIGNALS` is 1,
each unless it is set already.

A `QUARL_MAPS_SIZE` from which on the offsets in a log would not fit into 32 bits (about 4 million KiB) is taken, but no
log is written; one line on standard error says so.

## Items

| key | values | default | again | effect | needs |
|---|---|---|---|---|---|
)";

constexpr std::string_view kTemplateHead =
    "# Configuration of the heap checker. Every item stands here with its default, switched off by the \"#\" in "
    "front.\n"
    "# Lines are read from top to bottom; keep the order. Lines are at most 127 characters long, comments too, and "
    "the\n"
    "# last one needs a line end. Check the file with: quarl config check FILE\n";

// Lines of at most kTextWidth columns, each with the indent in front.
std::string wrap(std::string_view text, std::string_view indent) {
  std::istringstream words{std::string(text)};
  std::string wrapped, line;
  for (std::string word; words >> word;) {
    if (!line.empty() && indent.size() + line.size() + 1 + word.size() > kTextWidth) {
      wrapped += fmt::format("{}{}\n", indent, line);
      line.clear();
    }
    line += (line.empty() ? "" : " ") + word;
  }
  return wrapped + fmt::format("{}{}\n", indent, line);
}

std::string keys_list(std::string_view depends) {
  std::istringstream keys{std::string(depends)};
  std::string list;
  for (std::string key; keys >> key;) list += (list.empty() ? "`" : ", `") + key + "`";
  return list;
}

// A bar would end the cell of a table.
std::string escape_bars(std::string_view text) {
  std::string escaped;
  for (char c : text) escaped += c == '|' ? "\\|" : std::string(1, c);
  return escaped;
}

// The value with which the line changes nothing; QUARL_SLOPOVER_USER has none, and gets an example.
const char* template_value(const ItemRow& item) {
  if (std::string_view(item.key) == "QUARL_SLOPOVER_USER") return "40";
  return item.default_on ? "1" : "0";
}

}  // namespace

std::string item_list() {
  std::string list;
  for (const ItemRow& item : kItemRows) {
    list += fmt::format("{}={}  (default {}{})\n", item.key, item.values, item.default_value,
                        item.resettable ? "" : "; the first value stays");
    list += wrap(item.effect, "    ");
    if (*item.depends) list += wrap(fmt::format("Needs {}.", item.depends), "    ");
  }
  return list;
}

std::string item_template() {
  std::vector<const ItemRow*> items;
  for (const ItemRow& item : kItemRows) items.push_back(&item);
  std::stable_sort(items.begin(), items.end(), [](auto a, auto b) { return item_rank(a->key) < item_rank(b->key); });
  std::string text(kTemplateHead);
  for (const ItemRow* item : items) {
    text += "\n" + wrap(item->effect, "# ");
    text += fmt::format("# Values: {}. Default: {}.{}\n", item->values, item->default_value,
                        item->resettable ? "" : " The first value stays.");
    text += fmt::format("#{}={}\n", item->key, template_value(*item));
  }
  return text;
}

std::string item_reference() {
  std::string page(kReferenceHead);
  page += "| variable | meaning | default |\n|---|---|---|\n";
  for (const EnvironmentVariable& variable : kEnvironmentVariables) {
    page += fmt::format("| `{}` | {} | {} |\n", variable.name, variable.meaning, variable.default_value);
  }
  page += kReferenceTail;
  for (const ItemRow& item : kItemRows) {
    page += fmt::format("| `{}` | `{}` | {} | {} | {} | {} |\n", item.key, escape_bars(item.values), item.default_value,
                        item.resettable ? "yes" : "no", escape_bars(item.effect), keys_list(item.depends));
  }
  return page;
}

}  // namespace quarl
