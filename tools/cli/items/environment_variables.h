// SPDX-License-Identifier: Apache-2.0
// The environment variables that the library reads: the one table of them, for the documentation and the manual pages.
#pragma once

namespace quarl {

// In the texts names stand between `` ` ``, and links as [text](page), as in the documentation.
struct EnvironmentVariable {
  const char* name;
  const char* meaning;
  const char* default_value;
};

inline constexpr EnvironmentVariable kEnvironmentVariables[] = {
    {"QUARL_CFG_FILE",
     "the configuration file; it may be a pipe, for whose writer the start waits up to 5 seconds and a reload "
     "not at all",
     "`quarlcfg.ini`"},
    {"QUARL_LOG_DIR", "folder for logs; made when only its last part is missing",
     "the current directory when a log is made"},
    {"QUARL_KEEP",
     "`findings`: at exit the process removes its own logs that hold no fault, no record and nothing unfreed",
     "all stay"},
    {"QUARL_END_SIGNALS",
     "`1`: signals that end the process (`SIGTERM`, `SIGINT`, `SIGHUP`, `SIGQUIT` and those of crashes) find the "
     "logs written first, and a crash is told; see [safety](safety.md)",
     "off"},
    {"QUARL_ONLY",
     "names of programs, separated by commas: of a tree of processes only these are checked. The name of the "
     "file, of the process or the one called by counts",
     "all"},
    {"QUARL_CONTRACT", "`plain` or `libc`: see above", "`plain`"},
    {"QUARL_FRAMES", "folder of the unwind tables that `quarl frames` makes: call traces go by their rules",
     "frame pointers only"},
    {"QUARL_EVENTS", "file or FIFO to which a line of JSON is appended for each thing worth telling (docs/events.md)",
     "none"},
    {"QUARL_MESSAGES", "`stdout`, `stderr` or `none`: where all texts of the library go, reports and statistics too",
     "each where it always does"},
    {"QUARL_AGENT_ADDRESS",
     "IPv4 address that the agent (`QUARL_DEMO_THREAD`) listens on; what is no address means 127.0.0.1", "all"},
};

}  // namespace quarl
