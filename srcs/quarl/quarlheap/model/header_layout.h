// SPDX-License-Identifier: Apache-2.0
// Where in a block's header each field lies, and whether it is there at all. The one place that knows; reading and
// writing the words is block_header.h. Pure.
//
//   raw ->  (padding up to the alignment)
//           trace         depth words, entry 0 lowest          HAS_TRACE and depth >= 1
//           trace_info    depth | op << 8 | log2 align << 16   HAS_TRACE_INFO
//           time_sec      checker clock                        HAS_TIME
//           seq_num       sequence number                      HAS_TIME
//           tid           kernel task id                       HAS_TID
//   p[-4]   user_size     bytes that the application asked for
//   p[-3]   prev_link     | bit 0 HAS_TIME
//   p[-2]   next_link     | bit 0 HAS_TRACE       | bit 1 HAS_TAIL_GUARD
//   p[-1]   self_link     | bit 0 HAS_TRACE_INFO  | bit 1 HAS_TID;   QR_FREED_MARK after release
//   p ->    user bytes
//           EB BE DA FE   tail guard                           HAS_TAIL_GUARD
//
// p is the user pointer; links hold user pointers. A block keeps the layout that it was made with: readers go by its
// own flags, never by the present configuration.
#pragma once

#include <array>
#include <cstdint>

#include "logs/format.h"
#include "platform/address.h"
#include "state/settings.h"

namespace quarl {

inline constexpr uint32_t QR_FREED_MARK = 0xD8675309;
inline constexpr uint8_t kTailGuard[4] = {0xEB, 0xBE, 0xDA, 0xFE};
inline constexpr uint32_t kGuardSize = sizeof kTailGuard;
inline constexpr uint32_t kTailGuardWord = 0xFEDABEEB;  // the same, read as a word

// The words that every header has, by their position from the user pointer, and the flags in the low bits of the links.
enum HeaderWord : int { kSelfLink = -1, kNextLink = -2, kPrevLink = -3, kUserSize = -4 };
enum HeaderFlag : uint32_t {
  kHasTraceInfo = 1,  // in self_link
  kHasTid = 2,
  kHasTrace = 1,  // in next_link
  kHasTailGuard = 2,
  kHasTime = 1,  // in prev_link
};
inline constexpr uint32_t kLinkFlags = 3;
inline constexpr uint32_t kFixedSize = 4 * -kUserSize;       // bytes
inline constexpr uint32_t kLongestFields = kFixedSize + 16;  // bytes: all that every header can have, no trace
inline constexpr uint32_t kPlainAlignLog2 = 3;               // of what every raw block has

// The word that holds how many entries the trace has, the operation and the alignment of the block.
struct TraceInfo {
  uint32_t word;

  static constexpr TraceInfo make(uint32_t depth, Operation op, uint32_t align_log2) {
    return {(depth & 0xFF) | (op & 0xFU) << 8 | (align_log2 & 0xFF) << 16};
  }
  constexpr uint32_t depth() const { return word & 0xFF; }
  constexpr uint8_t operation() const { return static_cast<uint8_t>(word >> 8 & 0xF); }
  constexpr uint32_t align_log2() const { return word >> 16 & 0xFF; }

  // What most blocks have, of whatever operation: a trace of the default depth and the plain alignment.
  constexpr bool is_usual() const { return (word & ~make(0, static_cast<Operation>(0xF), 0).word) == kUsual; }
  static constexpr uint32_t kUsual = kDefaultDepth | kPlainAlignLog2 << 16;
};

// Blocks of these operations have the info word whatever the configuration says: it holds their alignment.
constexpr bool op_has_trace_info(uint32_t op) {
  return op == kOpRealloc || op == kOpMemalign;
}

// What a header can have besides the words that every one has: the flags of its links, one behind the other.
enum HeaderField : uint32_t {
  kTraceInfoField = kHasTraceInfo,
  kTidField = kHasTid,
  kTraceField = kHasTrace << 2,
  kGuardField = kHasTailGuard << 2,
  kTimeField = kHasTime << 4,
};

// Which optional fields a header has; their places follow from it.
struct HeaderLayout {
  uint32_t fields = 0;

  // Of a block that `op` makes now.
  static constexpr HeaderLayout for_new(const Flags& flags, Operation op) {
    return {configured(flags).fields | (op_has_trace_info(op) ? kTraceInfoField : 0U)};
  }

  // What the configuration says that every header has.
  static constexpr HeaderLayout configured(const Flags& flags) {
    const auto when = [&flags](ConfigBit item, uint32_t there) { return flags.in_force(item) ? there : 0; };
    return {when(kHeadTid, kTidField) | when(kHeadTime, kTimeField) |
            when(kHeadStackdepth, kTraceInfoField | kTraceField) | when(kSlopover, kGuardField)};
  }

  // Of a block with these three link words.
  static constexpr HeaderLayout of_words(uint32_t self_link, uint32_t next_link, uint32_t prev_link) {
    return {(self_link & kLinkFlags) | (next_link & kLinkFlags) << 2 | (prev_link & kHasTime) << 4};
  }

  constexpr bool tid() const { return has(kTidField); }
  constexpr bool time() const { return has(kTimeField); }
  constexpr bool trace_info() const { return has(kTraceInfoField); }
  constexpr bool trace() const { return has(kTraceField); }
  constexpr bool guard() const { return has(kGuardField); }

  // The flags of each link word.
  constexpr uint32_t self_flags() const { return fields & kLinkFlags; }
  constexpr uint32_t next_flags() const { return fields >> 2 & kLinkFlags; }
  constexpr uint32_t prev_flags() const { return fields >> 4; }

  // Bytes from the user pointer down to a field that is there.
  constexpr uint32_t tid_offset() const { return kFixedSize + 4; }
  constexpr uint32_t seq_offset() const { return kFixedSize + (tid() ? 4 : 0) + 4; }
  constexpr uint32_t time_offset() const { return seq_offset() + 4; }
  constexpr uint32_t trace_info_offset() const { return kFixedSize + (tid() ? 4 : 0) + (time() ? 8 : 0) + 4; }

  // Bytes from the user pointer down to the lowest word of a trace of so many entries.
  constexpr uint32_t trace_offset(uint32_t depth) const { return trace_info_offset() + 4 * depth; }

  // Bytes from the user pointer down to the lowest field of a header whose trace has so many entries, 0 without one.
  constexpr uint32_t lowest_offset(uint32_t depth) const {
    return trace_info_offset() - (trace_info() ? 0 : 4) + 4 * depth;
  }

  constexpr uint32_t guard_size() const { return guard() ? kGuardSize : 0; }

 private:
  constexpr bool has(HeaderField field) const { return (fields & field) != 0; }
};

// All that a header can have.
inline constexpr HeaderLayout kFullLayout{kTidField | kTimeField | kTraceInfoField | kTraceField | kGuardField};

// Bytes from the raw block to the user pointer of a block of that alignment; `least` is the least of the process, 8 to
// kMostAlignment.
inline constexpr uint32_t kMostAlignment = 16;
constexpr uint32_t user_offset(uint32_t lowest, uint32_t alignment, uint32_t least) {
  return round_up(lowest, alignment <= 8 || alignment < least ? least : alignment);
}

// Of a block that has all fields and the usual trace info, whatever the least alignment of the process.
inline constexpr uint32_t kUsualOffset = user_offset(kFullLayout.lowest_offset(kDefaultDepth), 8, kMostAlignment);
static_assert(kUsualOffset == user_offset(kFullLayout.lowest_offset(kDefaultDepth), 8, 8));
inline constexpr uint32_t kUsualReach = 128;  // bytes: at least such a header and its chunk word; a power of two
static_assert(kUsualOffset + 4 <= kUsualReach);

// lowest_offset(0) of each layout: where a header is read, the table is quicker than the sum.
inline constexpr auto kFieldsSize = [] {
  std::array<uint8_t, 32> sizes{};
  for (uint32_t i = 0; i < sizes.size(); ++i) sizes[i] = static_cast<uint8_t>(HeaderLayout{i}.lowest_offset(0));
  return sizes;
}();

// The drawing, word by word.
namespace layout_proof {
constexpr HeaderLayout kFull = kFullLayout;
static_assert(kFull.fields == kFieldsSize.size() - 1);
static_assert(kFixedSize == 16 && kGuardSize == 4);
static_assert(kFull.tid_offset() == 20 && kFull.seq_offset() == 24 && kFull.time_offset() == 28);
static_assert(kFull.trace_info_offset() == 32 && kFull.trace_offset(8) == 64 && kFull.lowest_offset(8) == 64 &&
              kFull.lowest_offset(0) == 32);
static_assert(HeaderLayout{kTidField}.lowest_offset(0) == 20);
static_assert(HeaderLayout{kTimeField}.seq_offset() == 20 && HeaderLayout{kTimeField}.time_offset() == 24);
static_assert(HeaderLayout{kTraceInfoField}.trace_info_offset() == 20);
static_assert(HeaderLayout{}.lowest_offset(0) == 16 && user_offset(HeaderLayout{}.lowest_offset(0), 8, 8) == 16);
static_assert(user_offset(kFull.lowest_offset(8), 8, 8) == 64);
static_assert(user_offset(kFull.lowest_offset(8), 64, 8) == 64);
static_assert(user_offset(kFull.lowest_offset(1), 4096, 8) == 4096);
static_assert(TraceInfo::make(5, kOpRealloc, 4).word == 0x00040105);
}  // namespace layout_proof

}  // namespace quarl
