// SPDX-License-Identifier: Apache-2.0
#include <malloc.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>

#include "../victims/announce.h"
#include "damage.h"

enum { kReleaseSignal = 60 };
enum Deed { kFree, kResize, kAllocate, kCheck, kDump, kCheckBySignal, kStale, kStaleResize, kUsable, kReload, kDeeds };

static struct Story* story;
static int deeds_left;

static void allocate(void) {
  if (block_count == kMostBlocks) return;
  struct Block* block = &blocks[block_count++];
  uint32_t size = 1 + draw(draw(4) ? 400 : 200000);
  take(block, draw(3) ? malloc(size) : draw(2) ? calloc(1, size) : memalign(16u << draw(6), size), size);
}

static void resize(struct Block* block) {
  uint32_t size = draw(12) ? 1 + draw(draw(4) ? 600 : 200000) : 0;
  char* before = block->p;
  block->live = 0;  // so it stays when the call does not come back
  char* p = realloc(before, size);
  if (p != before) remember_stale(before);
  if (p) *block = (struct Block){p, size, NULL, 1};
}

// Puts the other configuration in place and has it read.
static void reload(void) {
  story->reloaded = 1;
  rename("other.ini", "quarlcfg.ini");
  raise(SIGUSR1);
}

// A pointer that was given back: its memory may belong to anybody by now, the C library included.
static char* any_stale(void) {
  if (!stale_count) return NULL;
  story->allocator_hit = 1;
  story->stale = (uintptr_t)stale[draw((uint32_t)stale_count)];
  return (char*)story->stale;
}

static void do_deed(enum Deed deed) {
  struct Block* block = any_live();
  switch (deed) {
    case kFree:
      if (block) give_up(block);
      break;
    case kResize:
      if (block) resize(block);
      break;
    case kCheck:
      if (quarl_check_mem) quarl_check_mem();
      break;
    case kDump:
      raise(SIGUSR1);
      break;
    case kCheckBySignal:
      raise(kCheckSignal);
      break;
    case kStale:
      free(any_stale());
      break;
    case kStaleResize:
      free(realloc(any_stale(), 1 + draw(300)));
      break;
    case kUsable:
      if (block) malloc_usable_size(block->p);
      break;
    case kReload:
      if (draw(8) == 0) reload();
      break;
    default:
      allocate();
  }
}

static enum Deed draw_deed(void) {
  static const uint8_t kOften[] = {kFree, kFree, kFree, kFree, kFree, kResize, kResize, kResize, kAllocate, kAllocate};
  uint32_t which = draw(sizeof kOften + kDeeds);
  return which < sizeof kOften ? kOften[which] : which - sizeof kOften;
}

// Goes on where the thread before it was stopped. The signal that releases a parked thread waits for it already.
static void* work(void* unused) {
  (void)unused;
  tell_stack();
  story->worker = (int)syscall(SYS_gettid);
  pthread_kill(pthread_self(), kReleaseSignal);
  while (deeds_left > 0) {
    --deeds_left;
    story->kind = draw_deed();
    ++story->deed;
    do_deed(story->kind);
  }
  if (draw(4) == 0) exit(0);
  return work;
}

void do_deeds(struct Story* told) {
  story = told;
  deeds_left = 4 + (int)draw(60);
  sigset_t release;
  sigemptyset(&release);
  sigaddset(&release, kReleaseSignal);
  pthread_sigmask(SIG_BLOCK, &release, NULL);
  pthread_kill(pthread_self(), kReleaseSignal);  // what the C library releases here may stop this thread, too
  void* result = NULL;
  while (result == NULL) {
    pthread_t thread;
    if (pthread_create(&thread, NULL, work, NULL) != 0) return;
    pthread_join(thread, &result);
    if (result == NULL) ++story->thread_parked;
  }
}
