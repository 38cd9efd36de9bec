// The block header. It lies directly below the user's bytes; p is the user pointer.
//
//   raw ->  (padding up to the alignment)
//           trace         depth words, entry 0 lowest      HAS_TRACE and depth >= 1
//           trace_info    depth | op << 8 | log2 align << 16   HAS_TRACE_INFO
//           time_sec      checker clock                    HAS_TIME
//           seq_num       sequence number                  HAS_TIME
//           tid           kernel task id                   HAS_TID
//   p[-4]   user_size     bytes that the application asked for
//   p[-3]   prev_link     | bit 0 HAS_TIME
//   p[-2]   next_link     | bit 0 HAS_TRACE       | bit 1 HAS_TAIL_GUARD
//   p[-1]   self_link     | bit 0 HAS_TRACE_INFO  | bit 1 HAS_TID;   QR_FREED_MARK after release
//   p ->    user bytes
//           EB BE DA FE   tail guard                       HAS_TAIL_GUARD
//
// Links hold user pointers. A block keeps the layout that it was made with: readers go by its own flags, never by the
// present configuration. Only the accessors here touch the words.
#pragma once

#include <cstdint>

#include "config/state/config_state.h"
#include "logs/format.h"
#include "quarlheap/lock/hook_lock.h"

namespace quarl {

using Address = uint32_t;  // of the 32-bit target

inline constexpr uint32_t QR_FREED_MARK = 0xD8675309;
inline constexpr uint8_t kTailGuard[4] = {0xEB, 0xBE, 0xDA, 0xFE};
inline constexpr uint32_t kGuardSize = sizeof kTailGuard;
inline constexpr uint32_t kLinkFlags = 3;

// Positions in words from the user pointer, and flags of the word there.
enum HeaderWord : int { kSelfLink = -1, kNextLink = -2, kPrevLink = -3, kUserSize = -4 };
enum HeaderFlag : uint32_t {
  kHasTraceInfo = 1,  // in self_link
  kHasTid = 2,
  kHasTrace = 1,  // in next_link
  kHasTailGuard = 2,
  kHasTime = 1,  // in prev_link
};

inline uint32_t& header_word(Address p, int word) {
  return reinterpret_cast<uint32_t*>(p)[word];
}
inline bool has_flag(Address p, HeaderWord word, HeaderFlag flag) {
  return (header_word(p, word) & flag) != 0;
}
inline void set_flag(Address p, HeaderWord word, HeaderFlag flag) {
  header_word(p, word) |= flag;
}
inline Address link_of(Address p, HeaderWord word) {
  return header_word(p, word) & ~kLinkFlags;
}
inline void set_link(Address p, HeaderWord word, Address target) {
  uint32_t& link = header_word(p, word);
  link = (link & kLinkFlags) | target;
}

inline bool qr_is_block(Address p) {
  return p != 0 && link_of(p, kSelfLink) == p;
}
inline bool is_freed(Address p) {
  return header_word(p, kSelfLink) == QR_FREED_MARK;
}
inline uint32_t user_size_of(Address p) {
  return header_word(p, kUserSize);
}
inline bool has_tid(Address p) {
  return has_flag(p, kSelfLink, kHasTid);
}
inline bool has_time(Address p) {
  return has_flag(p, kPrevLink, kHasTime);
}
inline bool has_trace(Address p) {
  return has_flag(p, kNextLink, kHasTrace);
}
inline bool has_trace_info(Address p) {
  return has_flag(p, kSelfLink, kHasTraceInfo);
}
inline bool has_tail_guard(Address p) {
  return has_flag(p, kNextLink, kHasTailGuard);
}

// Which optional fields a header holds; their places follow from it.
struct Layout {
  bool tid;
  bool time;
  bool trace_info;
  bool trace;

  static Layout of_block(Address p) { return {has_tid(p), has_time(p), has_trace_info(p), has_trace(p)}; }

  // Bytes from the user pointer down to the field.
  uint32_t tid_offset() const { return 16 + 4; }
  uint32_t seq_offset() const { return 16 + (tid ? 4 : 0) + 4; }
  uint32_t time_offset() const { return seq_offset() + 4; }
  uint32_t trace_info_offset() const { return 16 + (tid ? 4 : 0) + (time ? 8 : 0) + 4; }
};
inline uint32_t& field_at(Address p, uint32_t offset) {
  return *reinterpret_cast<uint32_t*>(p - offset);
}

struct TraceInfo {
  uint32_t word;
  uint32_t depth() const { return word & 0xFF; }
  uint8_t operation() const { return static_cast<uint8_t>(word >> 8 & 0xF); }
  uint32_t align_log2() const { return word >> 16 & 0xFF; }
};

// Address of the trace_info word, by the block's flags.
inline Address trace_info_of(Address p) {
  return p - Layout::of_block(p).trace_info_offset();
}
inline TraceInfo read_trace_info(Address p) {
  return {header_word(trace_info_of(p), 0)};
}

inline uint32_t round_up(uint32_t value, uint32_t power_of_two) {
  return (value + power_of_two - 1) & ~(power_of_two - 1);
}

// Bytes from the raw block to the user pointer of a block, by its flags.
inline uint32_t offset_of_block(Address p) {
  const Layout layout = Layout::of_block(p);
  if (!layout.trace_info) return round_up(layout.trace_info_offset() - 4, 8);
  const TraceInfo info{field_at(p, layout.trace_info_offset())};
  const uint32_t fields = layout.trace_info_offset() + (layout.trace ? 4 * info.depth() : 0);
  return round_up(fields, info.align_log2() != 0 ? 1U << (info.align_log2() & 31) : 8);
}

// The same of any pointer; 0 for what is no block.
inline uint32_t header_offset_of(Address p) {
  return qr_is_block(p) ? offset_of_block(p) : 0;
}

// Blocks of these operations have the info word whatever the configuration says: it holds their alignment.
inline bool op_has_trace_info(Operation op) {
  return op == kOpRealloc || op == kOpMemalign;
}

// Bytes that header and guard of a new block take before rounding; 0 without QUARL_MEM_HEAD.
inline uint32_t header_size(const Flags& flags, Operation op, int depth) {
  if (!flags.header()) return 0;
  uint32_t size = 16;
  if (flags.in_force(kHeadTid)) size += 4;
  if (flags.in_force(kHeadTime)) size += 8;
  if (depth >= 1) size += 4 * static_cast<uint32_t>(depth);
  if (flags.in_force(kHeadStackdepth) || op_has_trace_info(op)) size += 4;
  if (flags.guard()) size += kGuardSize;
  return size;
}

// The 32-bit word before a raw block, as the allocator left it.
struct ChunkWord {
  uint32_t word;
  uint32_t size() const { return word & ~7U; }
  bool mapped() const { return (word & 2) != 0; }
};
inline ChunkWord chunk_before(Address raw) {
  return {header_word(raw, -1)};
}

// Where a new block lies in its raw block.
struct Placement {
  uint32_t offset;  // raw block to user pointer
  uint32_t guard;   // bytes behind the user's
  uint32_t alignment;
  uint32_t align_log2;

  uint32_t raw_size(uint32_t user_size) const { return offset + guard + user_size; }
};
inline Placement place_block(const Flags& flags, Operation op, int depth, uint32_t alignment, uint32_t align_log2) {
  if (!flags.header()) return {0, 0, alignment, align_log2};
  const uint32_t guard = flags.guard() ? kGuardSize : 0;
  return {round_up(header_size(flags, op, depth) - guard, alignment), guard, alignment, align_log2};
}

struct CallTrace;

// Writes the header fields below p, whose three link words are cleared first, and the tail guard behind the block.
void fill_header(Address p, const Flags& flags, uint32_t user_size, Operation op, const CallTrace& trace,
                 uint32_t align_log2) REQUIRES(hook_mutex);

// The last sequence number given out; blocks and timed records share one numbering.
extern uint32_t last_seq_num GUARDED_BY(hook_mutex);

}  // namespace quarl
