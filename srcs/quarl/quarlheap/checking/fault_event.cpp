// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/checking/fault_event.h"

#include "quarlheap/checking/known_block.h"
#include "quarlheap/model/call_trace.h"
#include "state/events/event.h"

namespace quarl {
namespace {

constinit FoundBy::Way found_by GUARDED_BY(hook_mutex) = FoundBy::kUnsaid;
constinit bool stops GUARDED_BY(hook_mutex) = false;
constinit uint32_t faults GUARDED_BY(hook_mutex) = 0;

// The call that met the fault, and the block: not on a stack that may be a signal handler's.
constinit uint32_t finder[kMaxTrace] GUARDED_BY(hook_mutex){};
constinit KnownBlock known GUARDED_BY(hook_mutex){};

const char* kind_of(FaultCode code) {
  switch (code) {
    case QR_FAULT_HEAD:
      return "head-overrun";
    case QR_FAULT_TAIL:
      return "tail-overrun";
    default:
      return "double-free";
  }
}

const char* way_found() REQUIRES(hook_mutex) {
  switch (found_by) {
    case FoundBy::kRelease:
      return "release";
    case FoundBy::kSearch:
      return "search";
    case FoundBy::kCalledCheck:
      return "check";
    case FoundBy::kExit:
      return "exit";
    case FoundBy::kUnsaid:
      break;
  }
  return stops ? "resize" : "check";
}

int trace_finder(HookFrame frame) REQUIRES(hook_mutex) {
  const bool called = stops || found_by == FoundBy::kCalledCheck;
  return called ? capture_trace(hook_frame_of(frame), finder, kMaxTrace) : 0;
}

// A word that is wrong, with what it should be where that is known.
void put_wrong(JsonLine& line, Address at, const uint32_t* expected) {
  line.open_object().address("at", at).bytes("found", pointer_to(at), sizeof(uint32_t));
  if (expected != nullptr) line.bytes("expected", expected, sizeof *expected);
  line.close();
}

bool put_wrong_link(JsonLine& line, Address p, HeaderWord which) REQUIRES(hook_mutex) {
  if (!link_is_wrong(p, which)) return false;
  uint32_t expected = 0;
  const bool right_known = find_right_link(p, which, &expected);
  put_wrong(line, p + static_cast<uint32_t>(4 * which), right_known ? &expected : nullptr);
  return true;
}

// The words that name the block and its neighbours; where these are sound the size, which does not agree with the
// chunk.
void put_wrong_head(JsonLine& line, DoubtfulBlock block) REQUIRES(hook_mutex) {
  const Address p = block.p();
  if (!block.can_be_block()) return;
  bool found = !block.names_itself();
  if (found) {
    const uint32_t expected = p | HeaderLayout::configured(Flags()).self_flags();
    put_wrong(line, p - 4, &expected);
  }
  for (const HeaderWord link : {kNextLink, kPrevLink}) found = put_wrong_link(line, p, link) || found;
  if (!found) put_wrong(line, p + static_cast<uint32_t>(4 * kUserSize), nullptr);
}

void put_block(const Event& event, DoubtfulBlock block) REQUIRES(hook_mutex) {
  JsonLine& line = event.line().open_object("block");
  put_known(event, block.p(), known);
  line.close();
}

void put_wrong_bytes(JsonLine& line, DoubtfulBlock block, FaultCode code) REQUIRES(hook_mutex) {
  if (code == QR_FAULT_DOUBLE_FREE) return;
  line.open_array("bytes");
  if (code == QR_FAULT_TAIL) put_wrong(line, block.p() + known.size(), &kTailGuardWord);
  if (code == QR_FAULT_HEAD) put_wrong_head(line, block);
  line.close();
}

// The event of one that is being told.
void put_fault(const Event& event, DoubtfulBlock block, FaultCode code, int finder_depth) REQUIRES(hook_mutex) {
  JsonLine& line = event.line();
  line.text("kind", kind_of(code)).text("found", way_found()).flag("stops", stops);
  put_block(event, block);
  put_wrong_bytes(line, block, code);
  event.trace("trace", finder, finder_depth);
}

}  // namespace

FoundBy::FoundBy(Way way) : before_(found_by) {
  found_by = way;
}
FoundBy::~FoundBy() NO_THREAD_SAFETY_ANALYSIS {
  found_by = before_;
}

void expect_fault_that_stops(bool search) {
  stops = true;
  if (search) found_by = FoundBy::kSearch;
}

void tell_fault(DoubtfulBlock block, FaultCode code) {
  ++faults;
  if (events_wanted()) {
    const int depth = trace_finder(reinterpret_cast<HookFrame>(__builtin_frame_address(0)));
    known = {};
    code == QR_FAULT_DOUBLE_FREE ? know_released(block, &known) : know_live(block, &known);
    if (const Event event("fault"); event) put_fault(event, block, code, depth);
  }
  if (!stops) return;
  stops = false;
  found_by = FoundBy::kUnsaid;
}

uint32_t faults_found() {
  return faults;
}
void forget_faults_found() {
  faults = 0;
}

}  // namespace quarl
