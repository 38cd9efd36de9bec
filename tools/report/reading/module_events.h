// SPDX-License-Identifier: Apache-2.0
// What a file of events (docs/events.md) tells of the libraries of one process.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace quarl::report {

struct ModuleEvent {
  std::string path;
  std::string build_id;  // hexadecimal, empty when there is none
  uint32_t address = 0;  // where the file began in memory
  uint32_t bias = 0;     // an address in memory less one of the ELF file
};

// In the order in which they were told, while the process `pid` ran `program`, the last time it did; without such a
// time in its last program. Lines that make no sense are passed over, and so is a file that cannot be read.
std::vector<ModuleEvent> read_module_events(const std::string& path, uint32_t pid, const std::string& program);

}  // namespace quarl::report
