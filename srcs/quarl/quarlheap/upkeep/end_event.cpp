// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/upkeep/end_event.h"

#include "quarlheap/checking/block_check.h"
#include "quarlheap/checking/fault_event.h"
#include "quarlheap/model/used_list.h"
#include "state/clock.h"
#include "state/events/event.h"
#include "state/process.h"

namespace quarl {
namespace {

// Blocks whose size can be believed, and those of them that the process made itself.
struct LiveBytes {
  uint64_t all = 0;
  uint64_t own = 0;
  uint32_t own_blocks = 0;

  void add(DoubtfulBlock block) REQUIRES(hook_mutex) {
    const BoundedBlock bounded = block.names_itself() ? block.bounded() : BoundedBlock();
    if (!header_fits(bounded)) return;
    all += bounded.size();
    const SoundBlock sound(bounded.p(), bounded.offset(), bounded.layout(), bounded.size());
    if (!is_own_seq_num(sound.fields().seq_num)) return;
    own += bounded.size();
    ++own_blocks;
  }
};

void tell_end(const char* kind, int signal) REQUIRES(hook_mutex) {
  if (!events_wanted()) return;
  const uint32_t blocks = heap_block_count;
  LiveBytes bytes;
  for (BlockWalk walk; walk.here(); walk.step()) bytes.add(walk.block());
  const Event event(kind);
  if (!event) return;
  if (signal != 0) event.line().number("signal", static_cast<uint32_t>(signal));
  event.line().number("faults", faults_found()).number("blocks", blocks).number("bytes", bytes.all);
  if (forked_child) event.line().number("own_blocks", bytes.own_blocks).number("own_bytes", bytes.own);
}

}  // namespace

void tell_exit(int signal) {
  tell_end("exit", signal);
}

void tell_confined() {
  tell_end("confined", 0);
}

}  // namespace quarl
