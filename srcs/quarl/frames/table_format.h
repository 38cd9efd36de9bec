// SPDX-License-Identifier: Apache-2.0
// The layout of a table of unwind rules, to the byte: what `quarl frames` writes and the library maps read-only.
// docs/frames.md describes the same layout in prose, with these names. All numbers are little-endian, all offsets count
// from the start of the file and are multiples of 4.
//
//   TableHeader | page index | rows | rules | path of the ELF file, NUL-terminated
//
// Addresses are those of the ELF file (link-time), without the Thumb bit; a row has its address as a distance from
// `text_start`, the low 16 bits of it: the page index says which rows lie in which 64 KiB. A rule is looked up for the
// return address less one, which lies in the call. Rows are made for calls only, and for system calls, where signals
// interrupt: at other addresses the rule found may be wrong.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quarl {

inline constexpr uint8_t kTableMagic[4] = {'Q', 'R', 'F', 'T'};
inline constexpr uint16_t kTableVersion = 1;
inline constexpr uint16_t kTableI386 = 3;  // as e_machine of the ELF header
inline constexpr uint16_t kTableArm = 40;
inline constexpr int kTablePageBits = 16;
inline constexpr int kTableIdMax = 32;

// What TableHeader::id is, and how the table's file is called.
enum TableIdKind : uint8_t {
  kBuildId = 1,  // the build id of the ELF file: "HEX.frames"; the first kTableIdMax bytes if it is longer
  kTextId = 2,   // it has none; two words, size in the file and table_checksum of its first executable segment:
                 // "text-HEX.frames"
};

struct TableHeader {
  uint8_t magic[4];
  uint16_t version;
  uint16_t machine;   // kTableI386 or kTableArm
  uint32_t size;      // of the whole file
  uint32_t checksum;  // table_checksum of all words behind this one
  uint8_t id_kind;    // TableIdKind
  uint8_t id_size;    // bytes of id that count, [1, kTableIdMax]
  uint8_t reserved[2];
  uint8_t id[kTableIdMax];
  uint32_t text_start;  // [text_start, text_end): all executable segments of the ELF file
  uint32_t text_end;
  uint32_t pages_offset;  // uint32_t[page_count + 1]: index of the first row of each page; the last one is row_count
  uint32_t page_count;    // the pages cover the text
  uint32_t rows_offset;   // TableRow[row_count], by address
  uint32_t row_count;
  uint32_t rules_offset;  // FrameRule[rule_count]
  uint32_t rule_count;    // at most 65535
  uint32_t path_offset;   // of the ELF file as the target knows it; for people
  uint32_t path_size;     // with its NUL
};
static_assert(sizeof(TableHeader) == 92);
static_assert(offsetof(TableHeader, version) == 4);
static_assert(offsetof(TableHeader, machine) == 6);
static_assert(offsetof(TableHeader, size) == 8);
static_assert(offsetof(TableHeader, checksum) == 12);
static_assert(offsetof(TableHeader, id_kind) == 16);
static_assert(offsetof(TableHeader, id_size) == 17);
static_assert(offsetof(TableHeader, id) == 20);
static_assert(offsetof(TableHeader, text_start) == 52);
static_assert(offsetof(TableHeader, text_end) == 56);
static_assert(offsetof(TableHeader, pages_offset) == 60);
static_assert(offsetof(TableHeader, page_count) == 64);
static_assert(offsetof(TableHeader, rows_offset) == 68);
static_assert(offsetof(TableHeader, row_count) == 72);
static_assert(offsetof(TableHeader, rules_offset) == 76);
static_assert(offsetof(TableHeader, rule_count) == 80);
static_assert(offsetof(TableHeader, path_offset) == 84);
static_assert(offsetof(TableHeader, path_size) == 88);
inline constexpr size_t kTableChecked = offsetof(TableHeader, id_kind);  // from here on the checksum counts

// Holds from its address to that of the next row, whichever page that is in. In front of the first row there is no
// rule.
struct TableRow {
  uint16_t low;   // of the distance from text_start
  uint16_t rule;  // index of a FrameRule, or kNoRule
};
static_assert(sizeof(TableRow) == 4);
inline constexpr uint16_t kNoRule = 0xFFFF;

// How the canonical frame address (CFA) is had: the value of sp in the caller, behind the call (i386: the return
// address popped).
enum FrameBase : uint8_t {
  kFrameEnd = 0,       // the trace ends here: the function has no caller, or its return address is lost
  kFrameSp = 1,        // sp + cfa
  kFrameEbp = 2,       // i386: ebp + cfa
  kFrameEbpWord = 3,   // i386: the word at ebp + cfa (realigned frames); the caller's ebp is the word at ebp
  kFrameR7 = 4,        // ARM: r7 + cfa
  kFrameR11 = 5,       // ARM: r11 + cfa
  kFrameSignal = 6,    // returns through sigreturn; the frame is the kernel's, cfa and the places are 0
  kFrameRtSignal = 7,  // the same through rt_sigreturn
};

inline constexpr uint8_t kRuleDerived = 1;  // FrameRule::flags: followed through the code, not from unwind information

inline constexpr int16_t kPlaceUnchanged = 0;  // the register holds the caller's value; the return address: still in lr
inline constexpr int16_t kPlaceLost = -0x8000;  // the caller's value is not to be had

// The places are distances in bytes from the CFA, below 0; or one of the constants above.
struct FrameRule {
  uint8_t base;  // FrameBase
  uint8_t flags;
  int16_t return_place;  // i386: always -4
  int32_t cfa;
  int16_t frame_place;  // of the caller's ebp (i386) or r7 (ARM)
  int16_t r11_place;    // of the caller's r11; i386: 0
};
static_assert(sizeof(FrameRule) == 12);
static_assert(offsetof(FrameRule, flags) == 1);
static_assert(offsetof(FrameRule, return_place) == 2);
static_assert(offsetof(FrameRule, cfa) == 4);
static_assert(offsetof(FrameRule, frame_place) == 8);
static_assert(offsetof(FrameRule, r11_place) == 10);

// Every step is a bijection, so that a change of one word is always seen; a multiplication a word, so that all tables
// of a process are checked while it starts. `size` is a multiple of 4 (a rest is left out), `bytes` is aligned to 4.
inline uint32_t table_checksum(const void* bytes, size_t size) {
  auto* word = static_cast<const uint32_t*>(bytes);
  uint32_t sum = 0;
  for (size_t left = size / sizeof(uint32_t); left > 0; --left) sum = ((sum << 5 | sum >> 27) ^ *word++) * 0x9E3779B1u;
  return sum;
}

}  // namespace quarl
