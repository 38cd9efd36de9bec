// Start-up: before main, on the thread that loads the library.
#include <elf.h>
#include <link.h>
#include <string.h>
#include <sys/auxv.h>
#include <sys/prctl.h>
#include <unistd.h>

#include "agent/agent.h"
#include "config/items.h"
#include "config/loader.h"
#include "logs/log_files.h"
#include "platform/code_map.h"
#include "platform/stack.h"
#include "platform/system.h"
#include "quarlheap/hooks/hook_call.h"
#include "quarlheap/hooks/hook_table.h"
#include "quarlheap/lifecycle/fork_handlers.h"
#include "quarlheap/lifecycle/pending_work.h"
#include "quarlheap/model/call_trace.h"
#include "symbols/symbol_table.h"

namespace quarl {
namespace {

void identify_process() REQUIRES(hook_mutex) {
  proc_pid = getpid();
  open_maps_file();
  if (prctl(PR_GET_NAME, proc_name) != 0) memcpy(proc_name, "quarl", sizeof "quarl");
}

// What the kernel added to the program's link-time addresses: 0 but for position-independent executables.
uint32_t load_bias() {
  const uintptr_t headers = getauxval(AT_PHDR);
  const auto* segment = reinterpret_cast<const Elf32_Phdr*>(headers);
  for (unsigned long i = 0; segment != nullptr && i < getauxval(AT_PHNUM); ++i) {
    if (segment[i].p_type == PT_PHDR) return static_cast<uint32_t>(headers) - segment[i].p_vaddr;
  }
  return 0;
}

CodeRange range_of(const char* function, uint32_t bias) {
  uint32_t size = 0;
  const uint32_t start = look_up_symbol(function, nullptr, &size);
  return start != 0 ? CodeRange{start + bias, start + bias + size} : CodeRange{0, 0};
}

void find_stop_ranges() {
  load_symbols(nullptr);
  const uint32_t bias = symbols_are_link_time() ? load_bias() : 0;
  main_range = range_of("main", bias);
  clone_range = range_of("clone", bias);
  unload_symbols();
}

HeadedBlock find_headed_block(void* user) {
  const Address p = address_of(user);
  if (!qr_is_block(p)) return {nullptr, 0};
  return {pointer_to(p - header_offset_of(p)), user_size_of(p)};
}

void prepare_platform() {
  prepare_raw_entries();
  set_headed_block_finder(find_headed_block);
  learn_main_stack();
  learn_startup_code();
  hook_mutex.set_worker(do_pending_work);
  register_fork_handlers();
}

// The C library may call it again: it does nothing once the hooks are installed.
[[gnu::constructor]] void start() {
  if (hooks_installed != 0) return;
  const KeepErrno keep;
  const InsideChecker inside;
  prepare_platform();
  const ScopedLock lock;
  identify_process();
  find_stop_ranges();
  if (load_configuration() != 0) apply_defaults_without_file();
  build_headers_and_buffers();
  open_log_files();
  start_agent();
  install_hooks(start);
}

}  // namespace
}  // namespace quarl
