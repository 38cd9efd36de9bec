// SPDX-License-Identifier: Apache-2.0
// Start-up: before main, on the thread that loads the library.
#include <elf.h>
#include <link.h>
#include <string.h>
#include <sys/auxv.h>
#include <unistd.h>

#include "agent/agent.h"
#include "config/configuration.h"
#include "frames/rules.h"
#include "logs/files/log_directory.h"
#include "logs/files/log_files.h"
#include "logs/files/log_keeping.h"
#include "logs/files/maps_file.h"
#include "logs/mappings/mapping_records.h"
#include "logs/snapshots/snapshot_chain.h"
#include "platform/checked_programs.h"
#include "platform/code_map.h"
#include "platform/libc_hooks.h"
#include "platform/stack.h"
#include "platform/system.h"
#include "quarlheap/checking/block_check.h"
#include "quarlheap/hooks/hook_table.h"
#include "quarlheap/hooks/mapping_resize.h"
#include "quarlheap/lifecycle/end_signals.h"
#include "quarlheap/lifecycle/filter_steps.h"
#include "quarlheap/lifecycle/fork_handlers.h"
#include "quarlheap/model/block_header.h"
#include "quarlheap/model/code_pages.h"
#include "quarlheap/upkeep/agent_line.h"
#include "quarlheap/upkeep/configuration_event.h"
#include "quarlheap/upkeep/effects.h"
#include "quarlheap/upkeep/pending_work.h"
#include "state/events/event.h"
#include "state/held_text.h"
#include "state/process.h"
#include "symbols/symbol_table.h"

namespace quarl {
namespace {

void identify_process() REQUIRES(hook_mutex) {
  proc_pid = getpid();
  maps_file.open();
  if (!sys::thread_name(proc_name)) memcpy(proc_name, "quarl", sizeof "quarl");
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
  set_outermost_code(range_of("main", bias), range_of("clone", bias));
  unload_symbols();
}

HeadedBlock find_headed_block(void* user) {
  const DoubtfulBlock block(address_of(user));
  if (!block.can_be_block() || !block.names_itself()) return {HeadedBlock::kNone, nullptr, 0};
  const BoundedBlock bounded = block.bounded();
  if (!header_fits(bounded)) return {HeadedBlock::kDamaged, nullptr, 0};
  const uint32_t size = bounded.size() < bounded.room() ? bounded.size() : bounded.room();
  return {HeadedBlock::kSound, pointer_to(block.p() - bounded.offset()), size};
}

void forget_headed_block(void* user) {
  forget_header(address_of(user));
}

void prepare_logs() REQUIRES(hook_mutex) {
  settle_log_directory();
  settle_log_keeping();
  build_log_header();
  primary_buffer.allocate(settings.trace_buf_size);
  snapshot_chain.set_up();
  set_up_record_pages();
}

// Of the program as it starts.
void learn_mappings() {
  MapsReader maps;
  MapsLine line;
  while (maps.next(&line)) {
    learn_startup_code(line);
    learn_main_stack(line);
  }
}

void prepare_platform() {
  prepare_raw_entries();
  set_mapping_resized(note_resized_mapping);
  set_headed_block_access({find_headed_block, forget_headed_block});
  learn_mappings();
  learn_startup_frames(is_outermost);
  hook_mutex.set_worker(do_pending_work);
  hold_texts();
  register_fork_handlers();
  register_filter_steps();
  register_end_signals();
}

// The C library may call it again: it does nothing once the hooks are installed.
[[gnu::constructor]] void start() {
  if (hooks_installed != 0 || left_alone()) return;
  const KeepErrno keep;
  const InsideChecker inside;
  prepare_platform();
  const ScopedLock lock;
  identify_process();
  settle_messages();
  settle_events();
  find_stop_ranges();
  if (load_configuration(carry_out) != 0) apply_defaults_without_file(carry_out);
  tell_configuration();
  if (hook_mutex.ends_at_release()) return;
  prepare_logs();
  open_log_files();
  start_agent(take_agent_line);
  install_hooks(start);
  settle_hooks();
  install_end_signals();
}

}  // namespace
}  // namespace quarl
