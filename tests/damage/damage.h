// SPDX-License-Identifier: Apache-2.0
// A round of damage: a heap is built, some of it is overwritten, and the program goes on using it.
#pragma once

#include <signal.h>
#include <stddef.h>
#include <stdint.h>

// What a round leaves behind for the process that started it; lies in memory that both see.
enum { kCodeWords = 64, kCheckSignal = 40 };
struct Story {
  volatile int signal;         // that ended it, 0: none
  volatile int thread_parked;  // how often a thread was stopped
  volatile int allocator_hit;  // the C library's own words were overwritten, or may have been
  volatile int reloaded;       // another configuration was put in place
  volatile int deed;           // number of the last thing done, and which it was
  volatile int kind;
  volatile int worker;       // id of the thread that does it
  volatile uintptr_t stale;  // the last pointer handed over that was given back before
  uintptr_t pc, address;
  size_t depth;
  uintptr_t code[kCodeWords];  // what looks like return addresses, innermost first
};

// random.c
void seed_random(uint32_t seed, uint32_t round);
uint32_t draw(uint32_t below);
uint32_t draw_word(void);

// heap.c: the blocks of this round, all of its memory static.
enum { kMostBlocks = 128, kMostStale = 64 };
struct Block {
  char* p;
  uint32_t size;
  char* raw;  // as the header says when the block is made; null without a header
  int live;
};
extern struct Block blocks[kMostBlocks];
extern int block_count;
extern char* stale[kMostStale];  // pointers that were given back
extern int stale_count;

void build_heap(void);
struct Block* any_live(void);  // null when there is none
void take(struct Block* block, char* p, uint32_t size);
void give_up(struct Block* block);
void remember_stale(char* p);

// overwrite.c
void damage_heap(struct Story* story);

// deeds.c: what a program does with its heap, wherever that leads.
void do_deeds(struct Story* story);

// story.c
void tell_crashes(struct Story* story);
void tell_stack(void);  // once in each thread: its crashes are told from a stack of their own
