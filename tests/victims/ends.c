// SPDX-License-Identifier: Apache-2.0
// Ends in the way that its argument names, holding a block of 123 bytes that nobody gives back.
#include <fcntl.h>
#include <malloc.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "announce.h"

enum { kThreads = 8 };

static void* volatile kept;
static pthread_barrier_t barrier;

static volatile int deepest = 1 << 30;

__attribute__((noipa)) void write_at(volatile char* place) {
  *place = 1;
}

__attribute__((noipa)) int fall(int depth) {
  volatile char room[4000];
  room[0] = (char)depth;
  return depth < deepest ? fall(depth + 1) + room[0] : 0;
}

static void null(void) {
  write_at((char*)strtoul("0", NULL, 0));
}

static void wild(void) {
  ((void (*)(void))strtoul("16", NULL, 0))();
}

static void overflow(void) {
  kept = (void*)(long)fall(0);
}

static void behind(void) {
  volatile char* block = malloc(200000);
  announce("block", block);
  for (block += 200000;; ++block) write_at(block);
}

static void inside(void) {
  char* block = malloc(300000);
  announce("block", block);
  mprotect((void*)(((unsigned long)block + 8191) & ~4095ul), 4096, PROT_NONE);
  write_at(block + 8192);
}

static void bus(void) {
  int file = open("short", O_RDWR | O_CREAT, 0600);
  write_at(mmap(NULL, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0));
}

static void trap(void) {
  kept = __builtin_frame_address(0);
#ifdef __arm__
  __asm__ volatile("udf #0");
#else
  __asm__ volatile("ud2");
#endif
}

// The allocator's own word of what is free behind the last block: it ends the process inside its lock.
static void allocator(void) {
  char* block = malloc(104);
  memset(block + 108, 0x7F, 200);
  kept = malloc(20000);
}

// The check of the heap meets a block that is not to be read, with the checker's lock held; and so does the dump.
static void checker(void) {
  char* block = memalign(4096, 5000);
  mprotect(block, 4096, PROT_NONE);
  mprotect(block - 4096, 4096, PROT_NONE);
  quarl_check_mem();
}

static void* crash_with_others(void* unused) {
  (void)unused;
  pthread_barrier_wait(&barrier);
  null();
  return NULL;
}

static void threads(void) {
  pthread_t thread[kThreads];
  pthread_barrier_init(&barrier, NULL, kThreads);
  for (int i = 0; i < kThreads; ++i) pthread_create(&thread[i], NULL, crash_with_others, NULL);
  pthread_join(thread[0], NULL);
}

// Threads that have allocated, one after the other, and the last one's stack overflows.
static void* fall_in_thread(void* depth) {
  free(malloc(10));
  return depth == NULL ? NULL : (void*)(long)fall(0);
}

static void thread_overflow(void) {
  for (int i = 0; i < 200; ++i) {
    pthread_t thread;
    pthread_create(&thread, NULL, fall_in_thread, (void*)(long)(i == 199));
    pthread_join(thread, NULL);
  }
}

static void child_overflow(void) {
  pid_t forked = fork();
  if (forked == 0) thread_overflow();
  int status = 0;
  waitpid(forked, &status, 0);
  announce("child", (void*)(long)forked);
  raise(WTERMSIG(status));
}

static void small_stack(void) {
  static char stack[8192];
  stack_t alternate = {.ss_sp = stack, .ss_size = sizeof stack};
  sigaltstack(&alternate, NULL);
  overflow();
}

// The signal comes while it is let through for the time of a call.
static void suspended(void) {
  sigset_t blocked, none;
  sigemptyset(&none);
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGTERM);
  sigprocmask(SIG_BLOCK, &blocked, NULL);
  raise(SIGTERM);
  sigsuspend(&none);
}

static void handler(int number) {
  announce("handled", (void*)(long)number);
  signal(number, SIG_DFL);
  raise(number);
}

// A handler of its own that ends the program by the default action; what it is shown is what it would see unchecked.
static void own(void) {
  struct sigaction before, now = {.sa_handler = handler};
  sigaction(SIGTERM, NULL, &before);
  announce("shown", before.sa_handler);
  sigaction(SIGTERM, &now, &before);
  announce("shown", before.sa_handler);
  announce("shown", signal(SIGINT, handler));
  announce("shown", signal(SIGINT, SIG_DFL) == handler ? NULL : kept);
  announce("shown", signal(SIGINT, SIG_DFL));
  raise(SIGTERM);
}

// Puts back what it found, and asks for the end behind it.
static void restored(void) {
  struct sigaction before, now = {.sa_handler = handler};
  sigaction(SIGTERM, &now, &before);
  sigaction(SIGTERM, &before, NULL);
  raise(SIGTERM);
}

static void child(void) {
  pid_t forked = fork();
  if (forked == 0) {
    kept = malloc(77);
    null();
  }
  int status = 0;
  waitpid(forked, &status, 0);
  announce("child", (void*)(long)forked);
  announce("status", (void*)(long)status);
}

// A child that has its parent's memory ends without a word.
static void borrowed(void) {
  if (vfork() == 0) kill(getpid(), SIGTERM);
}

static void* work(void* unused) {
  void* blocks[64] = {0};
  for (unsigned draw = (unsigned)(unsigned long)&unused;; draw = draw * 1103515245 + 12345) {
    free(blocks[draw >> 16 & 63]);
    blocks[draw >> 16 & 63] = malloc(draw >> 8 & 1023);
  }
  return NULL;
}

// Until somebody ends it.
static void busy(void) {
  pthread_t thread;
  for (int i = 0; i < kThreads; ++i) pthread_create(&thread, NULL, work, NULL);
  announce("busy", NULL);
  work(NULL);
}

static void aborted(void) {
  abort();
}

__attribute__((noipa)) void go(const char* way) {
  static const struct {
    const char* name;
    void (*function)(void);
  } kWays[] = {{"null", null},
               {"wild", wild},
               {"overflow", overflow},
               {"behind", behind},
               {"inside", inside},
               {"bus", bus},
               {"trap", trap},
               {"abort", aborted},
               {"allocator", allocator},
               {"checker", checker},
               {"threads", threads},
               {"small_stack", small_stack},
               {"suspended", suspended},
               {"own", own},
               {"restored", restored},
               {"child", child},
               {"borrowed", borrowed},
               {"busy", busy},
               {"thread_overflow", thread_overflow},
               {"child_overflow", child_overflow}};
  for (unsigned i = 0; i < sizeof kWays / sizeof *kWays; ++i) {
    if (strcmp(kWays[i].name, way) == 0) kWays[i].function();
  }
}

int main(int argc, char** argv) {
  kept = malloc(123);
  if (argc > 1) go(argv[1]);
  return 7;
}
