// SPDX-License-Identifier: Apache-2.0
// What takes time for every live block, beside the least that looks at or writes the same. Under the checker only.
//   heap check BLOCKS      quarl_check_mem; beside it a plain walk along the list that reads the same words of each
//   block heap search BLOCKS     free of a pointer that is no block of the checker's; beside it the same walk heap
//   snapshot BLOCKS   the dump signal; beside it writing the bytes of as many records in the same portions
// Prints both in ns of processor time per block of the list.
#include <fcntl.h>
#include <glob.h>
#include <signal.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "clock.h"
#include "logs/format.h"
#include "platform/chunk.h"
#include "quarl.h"
#include "quarlheap/model/header_layout.h"

extern "C" {
void* __libc_malloc(size_t size);
[[gnu::weak]] void quarl_check_mem(void);
}

namespace {

using namespace quarl;

constexpr HeaderLayout kLayout = kFullLayout;
constexpr int kRounds = 5;
constexpr size_t kPortion = 100 * sizeof(OpRecord);  // of the default QUARL_TRACE_BUFSIZE

[[noreturn]] void give_up(const char* why) {
  fprintf(stderr, "heap: %s\n", why);
  exit(1);
}

uint32_t word(Address p, HeaderWord which) {
  return word_at(p + static_cast<uint32_t>(4 * which));
}
Address link(Address p, HeaderWord which) {
  return word(p, which) & ~kLinkFlags;
}

bool is_sound(Address p, Address next) {
  const TraceInfo info{word_at(p - kLayout.trace_info_offset())};
  const uint32_t offset = round_up(kLayout.lowest_offset(info.depth()), 1U << (info.align_log2() & 31));
  const uint32_t size = word(p, kUserSize);
  const ChunkWord chunk = chunk_before(p - offset);
  return link(p, kSelfLink) == p && (next == 0 || link(next, kPrevLink) == p) &&
         (chunk.is_ordinary(chunk_size_for(offset + size + kGuardSize)) || chunk.mapped()) &&
         memcmp(pointer_to(p + size), kTailGuard, kGuardSize) == 0;
}

// From a block to the end of the list; all have the header of the defaults.
[[gnu::noinline]] uint32_t walk(Address first) {
  uint32_t sound = 0;
  for (Address p = first, next; p != 0; p = next) {
    next = link(p, kNextLink);
    sound += is_sound(p, next) ? 1 : 0;
  }
  return sound;
}

void free_foreign() {
  free(__libc_malloc(48));
}

void dump() {
  raise(SIGUSR1);
}

void write_records(uint32_t count) {
  static char portion[kPortion];
  static int file = open("records", O_WRONLY | O_CREAT | O_TRUNC, 0666);
  if (ftruncate(file, 0) != 0 || lseek(file, 0, SEEK_SET) != 0) give_up("the records' file cannot be made anew");
  for (size_t left = count * sizeof(OpRecord); left > 0;) {
    const ssize_t written = write(file, portion, left < kPortion ? left : kPortion);
    if (written <= 0) give_up("the records could not be written");
    left -= static_cast<size_t>(written);
  }
}

// What the checker wrote for that many blocks is there.
bool dumped(uint32_t count) {
  glob_t found;
  struct stat log {};
  return glob("*_quarl.log", 0, nullptr, &found) == 0 && found.gl_pathc == 1 && stat(found.gl_pathv[0], &log) == 0 &&
         static_cast<size_t>(log.st_size) > count * sizeof(OpRecord);
}

template <typename Step>
double cost(Step step) {  // ns
  const double begin = now(CLOCK_THREAD_CPUTIME_ID);
  step();
  return now(CLOCK_THREAD_CPUTIME_ID) - begin;
}

// The two take turns; what they do the first time is not counted.
template <typename Checker, typename Plain>
void compare(uint32_t count, Checker checker, Plain plain) {
  double of_checker = 0, of_plain = 0;
  for (int round = 0; round <= kRounds; round++) {
    const double first = cost(checker), second = cost(plain);
    if (round == 0) continue;
    of_checker += first;
    of_plain += second;
  }
  printf("%.2f %.2f\n", of_checker / kRounds / count, of_plain / kRounds / count);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    fprintf(stderr, "heap check|search|snapshot BLOCKS\n");
    return 2;
  }
  std::vector<void*> blocks(strtoul(argv[2], nullptr, 0));
  for (size_t i = 0; i < blocks.size(); i++) blocks[i] = malloc(8 + i * 7919 % 500);
  Address first = address_of(blocks.at(0));
  if (quarl_check_mem == nullptr || link(first, kSelfLink) != first) give_up("this is for the checker");
  while (link(first, kPrevLink) != 0) first = link(first, kPrevLink);
  uint32_t count = 0;
  for (Address p = first; p != 0; p = link(p, kNextLink)) count++;
  if (walk(first) != count) give_up("the plain walk finds unsound blocks");

  uint32_t sound = count;
  const auto walk_all = [&] { sound = sound < count ? sound : walk(first); };
  if (strcmp(argv[1], "check") == 0) {
    compare(count, quarl_check_mem, walk_all);
  } else if (strcmp(argv[1], "search") == 0) {
    compare(count, free_foreign, walk_all);
  } else {
    compare(count, dump, [=] { write_records(count); });
    if (!dumped(count)) give_up("no snapshot was written");
  }
  if (sound != count) give_up("the plain walk finds unsound blocks");
  for (void* block : blocks) free(block);
  return 0;
}
