// The 36 configuration items: the one table behind the library, the `quarl` tool and the reference page.
// Pure data: depends on nothing, so that the tool on the desk includes it as it is.
#pragma once

namespace quarl {

struct ItemInfo {
  const char* key;
  bool default_on;            // applied with "1" when nothing else set it
  bool resettable;            // takes every value that reaches it; otherwise the first one stays
  const char* values;         // what may stand behind the "="
  const char* default_value;  // what is in force when nothing sets it
  const char* effect;
  const char* depends;  // keys, blank-separated, that must be on (or set earlier) for it to act; "" for none
};

// In the order in which defaults are applied.
inline constexpr ItemInfo kItemTable[] = {
    {"QUARL_ALL", true, true, "0|1", "1", "Master switch: with 0 no other item is in force.", ""},
    {"QUARL_OUTPUT_LOG", false, true, "0|1", "0", "Write a record of every operation to the record log.", "QUARL_ALL"},
    {"QUARL_LOG_FILENAME", true, false, "1|PREFIX", "1",
     "Log file names: 1 gives NAME_PID_quarlAll.log, any other text PREFIX_NAME_PID_quarlAll.log for the record log.",
     ""},
    {"QUARL_DEMO_THREAD", false, false, "0|1", "0",
     "Start the agent, a TCP server that takes configuration lines. Whoever reaches its port controls the process.",
     ""},
    {"QUARL_SIG", true, false, "SIGNAL|NUMBER", "SIGUSR1",
     "Signal that writes the logs and requests a reload of the configuration file; 0, 1 or an unknown name is SIGUSR1.",
     ""},
    {"QUARL_PROF", true, true, "0|1", "1", "Usage statistics: calls, failures and bytes per operation.", "QUARL_ALL"},
    {"QUARL_THREAD", false, true, "0|1", "0", "The same statistics per thread, for the first 200 threads.",
     "QUARL_ALL QUARL_PROF"},
    {"QUARL_MMAP", true, true, "0|1", "1", "Keep a record of every live mapping.", "QUARL_ALL QUARL_MEM_HEAD"},
    {"QUARL_HEAP_LIMIT", false, true, "0|1", "0",
     "Stop a thread whose request would take the held bytes past heap_limit.", "QUARL_ALL QUARL_PROF"},
    {"QUARL_STACK_LIMIT", false, true, "0|1", "0",
     "Stop a thread whose request plus stack_use is greater than stack_limit.", "QUARL_ALL QUARL_PROF"},
    {"QUARL_RANDOM_FAIL", false, true, "0|1", "0",
     "Make about one allocation in seven fail, seeded with the process id.", "QUARL_ALL QUARL_PROF"},
    {"QUARL_RESET", false, true, "0|1", "0", "Clear the statistics once, at the next packet that the agent accepts.",
     ""},
    {"QUARL_MEM_HEAD", true, true, "0|1", "1", "Give every block a header and keep the list of live blocks.",
     "QUARL_ALL"},
    {"QUARL_HEAD_TID", true, true, "0|1", "1", "Headers and records hold the thread id.", "QUARL_ALL QUARL_MEM_HEAD"},
    {"QUARL_HEAD_TIME", true, true, "0|1|2", "1",
     "Headers and records hold time and sequence number; 2 also asks for the interval timer that keeps the time.",
     "QUARL_ALL QUARL_MEM_HEAD"},
    {"QUARL_TIMER_SIG", true, false, "SIGNAL|NUMBER", "SIGALRM",
     "Signal of the interval timer; 0, 1 or an unknown name is SIGALRM.", ""},
    {"QUARL_TIME_INTERVAL", true, false, "SECONDS", "1",
     "Period of the interval timer; 0 starts none. Only with QUARL_HEAD_TIME=2.",
     "QUARL_ALL QUARL_MEM_HEAD QUARL_HEAD_TIME QUARL_TIMER_SIG"},
    {"QUARL_SNAP_INTERVAL", false, true, "SECONDS", "0",
     "Take an automatic snapshot every so many seconds; 0 takes none. Without the timer (QUARL_HEAD_TIME=2) the "
     "process ends.",
     "QUARL_HEAD_TIME QUARL_TIME_INTERVAL"},
    {"QUARL_SNAP_DETAIL", false, true, "0|1", "0", "Automatic snapshots hold a record of every live block and mapping.",
     "QUARL_SNAP_INTERVAL"},
    {"QUARL_HEAD_STACKDEPTH", true, true, "0|1|2..64", "8",
     "Headers and records hold a call trace of at most so many return addresses; 1 is 8, 0 or anything else none.",
     "QUARL_ALL QUARL_MEM_HEAD"},
    {"QUARL_MAPS_SIZE", true, false, "KIB", "32",
     "KiB that each log file reserves for the copy of the process's maps; 0 and 1 leave 32.", ""},
    {"QUARL_TRACE_BUFSIZE", true, false, "BYTES", "28000",
     "Size of each of the two record buffers, cut to whole records of 280 bytes; a value that begins with 0 or 1, or "
     "is below 280, gives 28000.",
     ""},
    {"QUARL_RECORD_LOG_AT_FREE", true, true, "0|1", "1", "Accepted for older files; has no effect.", ""},
    {"QUARL_SLOPOVER", true, false, "0|1", "1", "Put a guard behind every block and check blocks on release.",
     "QUARL_ALL QUARL_MEM_HEAD"},
    {"QUARL_MEM_CHECK_IN_HOOK", false, true, "0|1", "0",
     "Bears on the bit that QUARL_SLOPOVER_API stores besides its trigger; starts no check of its own.", ""},
    {"QUARL_LOG_OVERLAY", false, true, "0|1", "0",
     "Overwrite an existing file of a log's name when the log is first created; 0 leaves such a file alone.", ""},
    {"QUARL_TIMER", false, false, "0|1", "0", "Allow the heap check on SIGALRM (see QUARL_SLOPOVER_TIMER).",
     "QUARL_SLOPOVER_TIMER"},
    {"QUARL_SLOPOVER_MALLOC", false, true, "0|1", "0", "Check the whole heap at every allocation.",
     "QUARL_ALL QUARL_MEM_HEAD QUARL_SLOPOVER"},
    {"QUARL_SLOPOVER_FREE", false, true, "0|1", "0", "Check the whole heap at every release.",
     "QUARL_ALL QUARL_MEM_HEAD QUARL_SLOPOVER"},
    {"QUARL_SLOPOVER_THREAD", false, true, "0|1", "0", "Accepted for older files; has no effect.", ""},
    {"QUARL_SLOPOVER_TIMER", false, false, "0|1", "0", "Check the whole heap on SIGALRM.",
     "QUARL_ALL QUARL_MEM_HEAD QUARL_SLOPOVER QUARL_TIMER"},
    {"QUARL_SLOPOVER_EXIT", true, true, "0|1", "1", "Check the whole heap at exit.",
     "QUARL_ALL QUARL_MEM_HEAD QUARL_SLOPOVER"},
    {"QUARL_SLOPOVER_API", true, true, "0|1", "1", "quarl_check_mem checks the whole heap.",
     "QUARL_ALL QUARL_MEM_HEAD QUARL_SLOPOVER"},
    {"QUARL_SLOPOVER_USER", false, false, "NUMBER", "none",
     "Check the whole heap on the signal of this number (a number, not a name).",
     "QUARL_ALL QUARL_MEM_HEAD QUARL_SLOPOVER"},
    {"QUARL_MEM_CHECK", false, true, "0|1", "0", "Check the whole heap after every packet that the agent accepts.",
     "QUARL_ALL QUARL_MEM_HEAD QUARL_SLOPOVER QUARL_DEMO_THREAD"},
    {"QUARL_PRINT_PROFINFO", false, true, "0|1", "0",
     "Print the statistics on the QUARL_SIG signal, at exit and after every packet; also the histogram of unfreed "
     "memory.",
     "QUARL_ALL QUARL_PROF"},
};
inline constexpr int kItemCount = sizeof kItemTable / sizeof kItemTable[0];
static_assert(kItemCount == 36);

// Limits of one configuration line, in characters without the NUL.
inline constexpr int kMaxKey = 31;
inline constexpr int kMaxValue = 15;
inline constexpr int kMaxLine = 127;
inline constexpr int kPacketSize = 32;  // bytes of an agent packet, NUL included

}  // namespace quarl
