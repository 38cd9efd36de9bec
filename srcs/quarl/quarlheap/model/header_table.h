// SPDX-License-Identifier: Apache-2.0
// The layout of a block header as plain data in the library's image, for a debugger or a tool that reads blocks from a
// core file or from the memory of another process. It lies in the section ".quarl_header" of libquarl.so, stripped or
// not, and begins with kHeaderTableMagic. All numbers are in the target's byte order.
#pragma once

#include <cstdint>

#include "quarlheap/model/header_layout.h"

namespace quarl {

inline constexpr char kHeaderTableMagic[4] = {'Q', 'R', 'B', 'H'};
inline constexpr uint16_t kHeaderTableVersion = 1;

// A field of the header. Fields stand in the order in which they lie, from the user pointer downwards; one that is not
// there takes no room.
struct HeaderFieldRow {
  char name[12];       // NUL-padded
  uint8_t words;       // its size; 0: as many as the depth in trace_info says
  uint8_t flag_word;   // the field is there when this word (in words down from the user pointer) has flag_mask set
  uint8_t flag_mask;   // 0: always there
  uint8_t link_flags;  // low bits of the word that are flags and not part of the value
};
static_assert(sizeof(HeaderFieldRow) == 16);

struct HeaderTable {
  char magic[4];
  uint16_t version;
  uint16_t rows;
  uint32_t freed_mark;  // in self_link of a released block
  uint8_t guard[4];     // behind the user's bytes
  uint8_t guard_word;   // the guard is there when this word has guard_mask set
  uint8_t guard_mask;
  uint8_t depth_shift;  // parts of trace_info: bits from here, depth 8, operation 4, log2 of the alignment 8
  uint8_t op_shift;
  uint8_t align_shift;
  uint8_t plain_align;  // log2 of the alignment of a block without trace_info, or with 0 there
  uint8_t reserved[2];
  HeaderFieldRow fields[9];
};
static_assert(sizeof(HeaderTable) == 24 + 9 * sizeof(HeaderFieldRow));

constexpr uint8_t words_down(HeaderWord word) {
  return static_cast<uint8_t>(-word);
}

inline constexpr HeaderTable kHeaderTable = {
    .magic = {kHeaderTableMagic[0], kHeaderTableMagic[1], kHeaderTableMagic[2], kHeaderTableMagic[3]},
    .version = kHeaderTableVersion,
    .rows = 9,
    .freed_mark = QR_FREED_MARK,
    .guard = {kTailGuard[0], kTailGuard[1], kTailGuard[2], kTailGuard[3]},
    .guard_word = words_down(kNextLink),
    .guard_mask = kHasTailGuard,
    .depth_shift = 0,
    .op_shift = 8,
    .align_shift = 16,
    .plain_align = kPlainAlignLog2,
    .reserved = {},
    .fields =
        {
            {"self_link", 1, 0, 0, kLinkFlags},
            {"next_link", 1, 0, 0, kLinkFlags},
            {"prev_link", 1, 0, 0, kLinkFlags},
            {"user_size", 1, 0, 0, 0},
            {"tid", 1, words_down(kSelfLink), kHasTid, 0},
            {"seq_num", 1, words_down(kPrevLink), kHasTime, 0},
            {"time_sec", 1, words_down(kPrevLink), kHasTime, 0},
            {"trace_info", 1, words_down(kSelfLink), kHasTraceInfo, 0},
            {"trace", 0, words_down(kNextLink), kHasTrace, 0},
        },
};

}  // namespace quarl
