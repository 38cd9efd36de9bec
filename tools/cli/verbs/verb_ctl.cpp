// SPDX-License-Identifier: Apache-2.0
#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <sstream>

#include "agent/agent_client.h"
#include "config/items.h"
#include "config/line.h"
#include "items/assignment.h"
#include "message.h"
#include "refusal.h"
#include "verbs/verbs.h"

namespace quarl {
namespace {

struct CtlOptions {
  std::string address;
  std::vector<std::string> commands;
  int timeout = 10;
  bool force = false;
};

constexpr const char* kFooter =
    R"(HOST is the machine on which a program runs with QUARL_DEMO_THREAD=1, PORT the port that it printed (9000).
COMMAND is one of
  KEY=VALUE   sets an item of the running process; refused before anything is sent when the agent would
              refuse it or read it as something else. At most 31 characters in all.
  check       checks the whole heap once        (QUARL_MEM_CHECK=1, then =0)
  stats       prints the usage statistics once  (QUARL_PRINT_PROFINFO=1, then =0)
  reset       clears the usage statistics       (QUARL_RESET=1)
Results show in the program's own output and logs; under "quarl run" with --raw alone, but for the stories of faults
that "check" finds. While QUARL_MEM_CHECK or QUARL_PRINT_PROFINFO is on, every
packet checks or prints; "check" and "stats" leave them off.

The commands are sent in order over one connection, and the tool waits until the agent has handled them. Anybody who
reaches the port can do the same: confine it with a firewall, or leave the item off.

Exit status: 0 when the agent has handled everything, 1 when something was refused or the agent did not answer,
2 on wrong usage.

Examples:
  quarl ctl board check
  quarl ctl 192.168.0.7:9000 QUARL_SLOPOVER_FREE=1 stats reset)";

bool timer_wanted_before(const std::vector<std::string>& lines) {
  return std::find(lines.begin(), lines.end(), "QUARL_HEAD_TIME=2") != lines.end();
}

// Without the timer the item ends the process; only the caller can know whether it runs.
void check_snapshot_item(const Assignment& item, const std::vector<std::string>& before, bool force) {
  bool dangerous = std::string_view(item.item->key) == "QUARL_SNAP_INTERVAL" && leading_number(item.value.c_str()) > 0;
  if (!dangerous || force || timer_wanted_before(before)) return;
  refuse("{} ends a process that runs without QUARL_HEAD_TIME=2; send that first, or give --force when it has it",
         item.text());
}

// Items that this or that program needs are on by default, or the line before has set them.
std::string missing_needs(const ItemRow& item, const std::vector<std::string>& before) {
  std::string missing;
  std::istringstream needs(item.depends);
  for (std::string key; needs >> key;) {
    bool sent =
        std::any_of(before.begin(), before.end(), [&](const std::string& line) { return line.starts_with(key + "="); });
    if (!find_item(key.c_str())->default_on && !sent) missing += (missing.empty() ? "" : " and ") + key;
  }
  return missing;
}

bool switches_on(const Assignment& item) {
  return item.item->value != ItemValue::kText && leading_number(item.value.c_str()) > 0;
}

// What sending the item does not do, as far as that is known without a look at the process.
void tell_effect(const Assignment& item, const std::vector<std::string>& before) {
  const std::string_view key = item.item->key;
  if (!item.item->resettable && (item.item->default_on || key == "QUARL_DEMO_THREAD")) {
    return say("{} has no effect: the item cannot be set again, and was set when the program started", item.text());
  }
  if (!item.item->resettable) {
    say("{} cannot be set again: {} acts only when nothing has set it before", key, item.text());
  }
  if (key == "QUARL_RECORD_LOG_AT_FREE") return say("{} has no effect: it is accepted for older files", item.text());
  if (key == "QUARL_HEAD_TIME" && item.value == "2") {
    say("{} starts no timer: only a program that was started with it keeps the time", item.text());
  }
  if (!switches_on(item)) return;
  if (key == "QUARL_OUTPUT_LOG") {
    say("the record log begins now, and does not know what was allocated before; it is made where the program writes "
        "its "
        "logs, unless a file of its name is there");
  }
  if (std::string missing = missing_needs(*item.item, before); !missing.empty()) {
    say("{} has no effect unless the program was started with {}", item.text(), missing);
  }
}

std::vector<std::string> lines_of(const std::string& command, const std::vector<std::string>& before, bool force) {
  if (command == "check") return {"QUARL_MEM_CHECK=1", "QUARL_MEM_CHECK=0"};
  if (command == "stats") return {"QUARL_PRINT_PROFINFO=1", "QUARL_PRINT_PROFINFO=0"};
  if (command == "reset") return {"QUARL_RESET=1"};
  Assignment item = parse_assignment(command);
  check_snapshot_item(item, before, force);
  tell_effect(item, before);
  return {item.text()};
}

int control(const CtlOptions& options) {
  AgentAddress address = parse_address(options.address);
  std::vector<std::string> lines, packets;
  for (const std::string& command : options.commands) {
    for (const std::string& line : lines_of(command, lines, options.force)) lines.push_back(line);
  }
  for (const std::string& line : lines) packets.push_back(make_packet(line));
  AgentClient agent(address, std::chrono::seconds(options.timeout));
  for (const std::string& packet : packets) agent.send(packet);
  agent.await_handled();
  for (const std::string& line : lines) fmt::print("sent to {}:{}: {}\n", address.host, address.port, line);
  return kDone;
}

}  // namespace

void add_ctl(CLI::App& app, int& exit_status) {
  auto* verb = app.add_subcommand("ctl", "Steer a running program through its agent.");
  auto options = std::make_shared<CtlOptions>();
  verb->add_option("HOST[:PORT]", options->address, "Where the agent listens")->required();
  verb->add_option("COMMAND", options->commands, "KEY=VALUE, check, stats or reset")->required()->type_name("...");
  verb->add_option("--timeout", options->timeout, "Seconds to wait for the agent (10)")
      ->type_name("SECONDS")
      ->check(CLI::Range(1, 86400).description(""));
  verb->add_flag("--force", options->force, "Send QUARL_SNAP_INTERVAL without QUARL_HEAD_TIME=2 before it");
  verb->footer(kFooter);
  verb->callback([options, &exit_status] { exit_status = control(*options); });
}

}  // namespace quarl
