// SPDX-License-Identifier: Apache-2.0
// Rounds of damage under the checker, each in a child of its own: damage SEED FIRST COUNT [fresh]
//
// A round is made of (SEED, number) alone. Its child goes on in a fork, or is started anew when `fresh` is given. What
// is counted as a failure is printed, a line each, to be run again with COUNT 1: a crash in the checker or below it, a
// child that does not end, output without bound. The C library that ends the program over its own damaged words is
// counted apart: its allocator was on top of the stack, and a word of its own had been overwritten.
//
// Runs where quarlcfg.ini and other.ini lie, the configurations before and after a reload; children's logs are removed.
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/personality.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "code.h"
#include "damage.h"

enum { kStoryDescriptor = 60, kOutputDescriptor = 61, kMostOutput = 4 << 20, kSeconds = 30, kLoaderGaveUp = 127 };
enum Result { kSound, kApart, kFailed };

static struct Story* story;
static char** command;
static int fresh;

// The configuration decides whether the signal is the checker's.
static void ignore_unless_handled(int number) {
  struct sigaction action;
  sigaction(number, NULL, &action);
  if (action.sa_handler == SIG_DFL) signal(number, SIG_IGN);
}

static void play(uint32_t seed, uint32_t round) {
  seed_random(seed, round);
  tell_crashes(story);
  ignore_unless_handled(kCheckSignal);
  build_heap();
  damage_heap(story);
  do_deeds(story);
  exit(0);
}

static void start_child(uint32_t seed, uint32_t round) {
  dup2(kOutputDescriptor, 1);
  dup2(kOutputDescriptor, 2);
  if (!fresh) play(seed, round);
  char number[16];
  snprintf(number, sizeof number, "%u", round);
  execl(command[0], command[0], command[1], number, "play", NULL);
  _exit(99);
}

static time_t seconds_now(void) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec;
}

// The child's status, or -1 when it does not end.
static int await_child(pid_t child) {
  sigset_t ended;
  sigemptyset(&ended);
  sigaddset(&ended, SIGCHLD);
  const time_t deadline = seconds_now() + kSeconds;
  int status = -1;
  while (waitpid(child, &status, WNOHANG) == 0) {
    // The checker's timer interrupts the wait of this process, too: only the clock says that the time is up.
    const time_t left = deadline - seconds_now();
    if (left > 0) sigtimedwait(&ended, NULL, &(struct timespec){.tv_sec = left});
    if (left > 0) continue;
    if (waitpid(child, &status, WNOHANG) != 0) break;
    if (getenv("QUARL_DAMAGE_KEEP")) printf("child %d\n", (int)child), fflush(stdout), pause();
    // Where it hangs is told by the thread that works.
    syscall(SYS_tgkill, child, story->worker, SIGABRT);
    sigtimedwait(&ended, NULL, &(struct timespec){.tv_sec = 1});
    kill(child, SIGKILL);
    waitpid(child, NULL, 0);
    return -1;
  }
  return status;
}

// Who crashed: the first on the stack who could. Only the C library aborts, and a pointer to memory that is gone
// crashes it as it would without the checker. A call that leads to where no code is goes by a pointer in static data
// that was written over: the allocator's own list was led there, and gave the place out as a block.
static enum Owner culprit(void) {
  if (story->signal == SIGSEGV && story->stale && (story->address | 3) == ((story->stale - 4) | 3)) return kAllocator;
  if (story->signal == SIGSEGV && story->pc == story->address && owner_of(story->pc) == kNobody) return kAllocator;
  enum Owner owner = owner_of(story->pc);
  if (story->signal == SIGABRT) {
    for (size_t i = 0; i < story->depth && owner != kAllocator; ++i) owner = owner_of(story->code[i]);
    return owner;
  }
  for (size_t i = 0; i < story->depth && owner != kChecker && owner != kAllocator; ++i)
    owner = owner_of(story->code[i]);
  return owner;
}

static enum Result judge(int status, off_t printed) {
  if (printed > kMostOutput) return kFailed;
  if (status == 0) return kSound;
  if (!story->allocator_hit) return kFailed;
  if (status != -1 && WIFEXITED(status)) return WEXITSTATUS(status) == kLoaderGaveUp ? kApart : kFailed;
  return culprit() == kAllocator ? kApart : kFailed;
}

static void print_failure(uint32_t round, int status, off_t printed) {
  printf("round %u: %s %d, %ld bytes printed, deed %d (%d)%s", round,
         status == -1          ? "hangs"
         : WIFSIGNALED(status) ? "signal"
                               : "status",
         status == -1          ? 0
         : WIFSIGNALED(status) ? WTERMSIG(status)
                               : WEXITSTATUS(status),
         (long)printed, story->deed, story->kind, story->allocator_hit ? ", allocator's words hit" : "");
  if (story->signal) {
    printf(", at 0x%lx by %s", (unsigned long)story->address, name_of(story->pc));
    for (size_t i = 0; i < story->depth && i < 16; ++i) {
      if (story->code[i]) printf(" < %s", name_of(story->code[i]));
    }
  }
  printf("\n");
  fflush(stdout);
}

static void remove_logs(pid_t child) {
  static const char* const kKinds[] = {"quarl", "quarlAll", "quarl_autosnap"};
  char name[16], path[80];
  prctl(PR_GET_NAME, name);
  for (size_t i = 0; i < sizeof kKinds / sizeof *kKinds; ++i) {
    snprintf(path, sizeof path, "%s_%d_%s.log", name, (int)child, kKinds[i]);
    unlink(path);
  }
}

static void copy(const char* from, const char* to) {
  char text[1024];
  int in = open(from, O_RDONLY), out = open(to, O_WRONLY | O_CREAT | O_TRUNC, 0600);
  ssize_t length = read(in, text, sizeof text);
  if (length < 0 || write(out, text, (size_t)length) != length) abort();
  close(in);
  close(out);
}

static enum Result run_round(uint32_t seed, uint32_t round) {
  memset(story, 0, sizeof *story);
  if (ftruncate(kOutputDescriptor, 0) != 0) abort();
  pid_t child = fork();
  if (child == 0) start_child(seed, round);
  int status = await_child(child);
  struct stat output;
  fstat(kOutputDescriptor, &output);
  enum Result result = judge(status, output.st_size);
  if (result == kFailed) print_failure(round, status, output.st_size);
  remove_logs(child);
  if (story->reloaded) {
    copy("before.ini", "quarlcfg.ini");
    copy("after.ini", "other.ini");
  }
  return result;
}

static void open_shared(void) {
  int memory = open("story", O_RDWR | O_CREAT | O_TRUNC, 0600),
      output = open("output", O_RDWR | O_CREAT | O_TRUNC | O_APPEND, 0600);
  if (ftruncate(memory, sizeof *story) != 0) abort();
  dup2(memory, kStoryDescriptor);
  dup2(output, kOutputDescriptor);
}

int main(int count, char** arguments) {
  if (count < 4) return 2;
  command = arguments;
  // All children lie at the same addresses, so that their stacks can be read here.
  int kind = personality(0xFFFFFFFF);
  if (count > 4 && (kind & ADDR_NO_RANDOMIZE) == 0) {
    personality((unsigned long)kind | ADDR_NO_RANDOMIZE);
    execv(arguments[0], arguments);
  }
  uint32_t seed = (uint32_t)strtoul(arguments[1], NULL, 10), first = (uint32_t)strtoul(arguments[2], NULL, 10);
  int playing = strcmp(arguments[3], "play") == 0;
  if (!playing) open_shared();
  story = mmap(NULL, sizeof *story, PROT_READ | PROT_WRITE, MAP_SHARED, kStoryDescriptor, 0);
  learn_code();
  if (playing) play(seed, first);
  fresh = count > 4;
  copy("quarlcfg.ini", "before.ini");
  copy("other.ini", "after.ini");
  sigset_t ended;
  sigemptyset(&ended);
  sigaddset(&ended, SIGCHLD);
  sigprocmask(SIG_BLOCK, &ended, NULL);
  setrlimit(RLIMIT_CORE, &(struct rlimit){0, 0});
  unsigned results[3] = {0}, stopped = 0;
  for (uint32_t i = 0; i < strtoul(arguments[3], NULL, 10); ++i) {
    ++results[run_round(seed, first + i)];
    stopped += story->thread_parked > 0;
  }
  printf("sound %u apart %u failed %u stopped %u\n", results[kSound], results[kApart], results[kFailed], stopped);
  return 0;
}
