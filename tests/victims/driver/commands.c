// SPDX-License-Identifier: Apache-2.0
#define _GNU_SOURCE
#include "commands.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <malloc.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "../announce.h"
#include "workers.h"

typedef unsigned long Word;

static Word number(const char* word) {
  return word == NULL ? 0 : strtoul(word, NULL, 0);
}
static void* address(const char* word) {
  return (void*)number(word);
}

#define COMMAND(name) static Word do_##name(char** words)
#define N(i) number(words[i])
#define P(i) address(words[i])

COMMAND(malloc) {
  return (Word)malloc(N(1));
}
COMMAND(calloc) {
  return (Word)calloc(N(1), N(2));
}
COMMAND(realloc) {
  return (Word)realloc(P(1), N(2));
}
COMMAND(reallocarray) {
  return (Word)reallocarray(P(1), N(2), N(3));
}
COMMAND(memalign) {
  return (Word)memalign(N(1), N(2));
}
COMMAND(aligned_alloc) {
  return (Word)aligned_alloc(N(1), N(2));
}
COMMAND(valloc) {
  return (Word)valloc(N(1));
}
COMMAND(pvalloc) {
  return (Word)pvalloc(N(1));
}
COMMAND(usable_size) {
  return malloc_usable_size(P(1));
}
COMMAND(free) {
  free(P(1));
  return 0;
}
COMMAND(posix_memalign) {
  void* block = NULL;
  errno = posix_memalign(&block, N(1), N(2));
  return (Word)block;
}
COMMAND(mmap) {
  return (Word)mmap(P(1), N(2), (int)N(3), (int)N(4), (int)N(5), (off_t)N(6));
}
COMMAND(mmap64) {
  return (Word)mmap64(P(1), N(2), (int)N(3), (int)N(4), (int)N(5), (off64_t)strtoull(words[6], NULL, 0));
}
COMMAND(munmap) {
  return (Word)munmap(P(1), N(2));
}

COMMAND(fill) {
  memset(P(1), (int)N(2), N(3));
  return 0;
}
COMMAND(holds) {  // whether every one of N(3) bytes at P(1) is N(2)
  const unsigned char* bytes = P(1);
  for (Word i = 0; i < N(3); ++i)
    if (bytes[i] != N(2)) return 0;
  return 1;
}
COMMAND(word) {
  return *(volatile uint32_t*)P(1);
}
COMMAND(set_word) {
  return *(volatile uint32_t*)P(1) = (uint32_t)N(2);
}
COMMAND(symbol) {
  return (Word)dlsym(RTLD_DEFAULT, words[1]);
}
COMMAND(call) {
  ((void (*)(void))number(words[1]))();
  return 0;
}
COMMAND(check) {
  (void)words;
  if (quarl_check_mem) quarl_check_mem();
  return quarl_check_mem != NULL;
}

COMMAND(raise) {
  return (Word)raise((int)N(1));
}
COMMAND(chdir) {
  return (Word)chdir(words[1]);
}
COMMAND(open) {
  return (Word)open64(words[1], (int)N(2), 0666);
}
COMMAND(close) {
  return (Word)close((int)N(1));
}
COMMAND(dup2) {
  return (Word)dup2((int)N(1), (int)N(2));
}
COMMAND(socket) {  // one with words[1] waiting in it, in 32 bytes
  int pair[2];
  char waiting[32] = "";
  if (words[1] == NULL || socketpair(AF_UNIX, SOCK_STREAM, 0, pair) != 0) return (Word)-1;
  strncpy(waiting, words[1], sizeof waiting - 1);
  return write(pair[1], waiting, sizeof waiting) == sizeof waiting ? (Word)pair[0] : (Word)-1;
}
COMMAND(wait) {  // for a byte of the file N(1); once
  char byte;
  return (Word)read((int)N(1), &byte, 1);
}
COMMAND(idle) {  // for N(2) milliseconds in the call words[1]
  int milliseconds = (int)N(2);
  struct timeval time = {milliseconds / 1000, milliseconds % 1000 * 1000};
  struct timespec precise = {milliseconds / 1000, milliseconds % 1000 * 1000000};
  struct epoll_event event;
  if (strcmp(words[1], "select") == 0) return (Word)select(0, NULL, NULL, NULL, &time);
  if (strcmp(words[1], "poll") == 0) return (Word)poll(NULL, 0, milliseconds);
  if (strcmp(words[1], "epoll_wait") == 0)
    return (Word)epoll_wait(epoll_create1(EPOLL_CLOEXEC), &event, 1, milliseconds);
  return (Word)nanosleep(&precise, NULL);
}
COMMAND(receive) {  // how many bytes wait in the socket N(1), which it takes out
  char taken[128];
  return (Word)recv((int)N(1), taken, sizeof taken, MSG_DONTWAIT);
}
COMMAND(stack) {  // uses N(1) bytes of it
  volatile char deep[N(1)];
  deep[0] = deep[N(1) - 1] = 1;
  return deep[0];
}
COMMAND(blocked) {  // whether the thread blocks the signal N(1)
  sigset_t mask;
  (void)pthread_sigmask(SIG_SETMASK, NULL, &mask);
  return (Word)sigismember(&mask, (int)N(1));
}
COMMAND(setenv) {
  return (Word)setenv(words[1], words[2], 1);
}
COMMAND(say) {  // into the buffer of the C library
  return (Word)fputs(words[1], stdout);
}
COMMAND(dlsym) {  // of that library alone; a symbol found in all would keep its library loaded
  return (Word)dlsym(P(1), words[2]);
}
COMMAND(dlclose) {
  return (Word)dlclose(P(1));
}
COMMAND(dlopen) {
  return (Word)dlopen(words[1], RTLD_NOW | RTLD_GLOBAL);
}
COMMAND(limit) {  // resource, soft limit
  struct rlimit limit;
  getrlimit((int)N(1), &limit);
  limit.rlim_cur = N(2);
  return (Word)setrlimit((int)N(1), &limit);
}
COMMAND(refuse) {  // from now on the kernel refuses to unmap N(1) bytes; the checker does not hear of the filter
  struct sock_filter steps[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_munmap, 0, 3),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, args[1])),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, N(1), 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOMEM),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  struct sock_fprog filter = {sizeof steps / sizeof steps[0], steps};
  prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  long result = -1;
#if defined(__i386__)  // the emulator of others knows no filters
  __asm__ volatile("int $0x80"
                   : "=a"(result)
                   : "0"(SYS_prctl), "b"(PR_SET_SECCOMP), "c"(SECCOMP_MODE_FILTER), "d"(&filter)
                   : "memory");
#endif
  (void)filter;
  return (Word)result;
}
COMMAND(exit) {
  exit((int)N(1));
}
COMMAND(leave) {
  _exit((int)N(1));
}
COMMAND(exec) {
  unsetenv("LD_PRELOAD");
  if (words[1][0] == '+') setenv("LD_PRELOAD", words[1] + 1, 1);
  return (Word)execv(words[2], words + 2);
}
COMMAND(spawn) {
  (void)words;
  return (Word)spawn_worker();
}
COMMAND(cancel) {
  return (Word)cancel_worker((int)N(1));
}
COMMAND(end_thread) {  // answers nothing
  (void)words;
  pthread_exit(NULL);
}

static const struct {
  const char* name;
  Word (*run)(char** words);
} kCommands[] = {
#define ROW(name) \
  { #name, do_##name }
    ROW(malloc), ROW(calloc),  ROW(realloc),     ROW(reallocarray), ROW(memalign), ROW(aligned_alloc),
    ROW(valloc), ROW(pvalloc), ROW(usable_size), ROW(free),         ROW(mmap),     ROW(posix_memalign),
    ROW(mmap64), ROW(munmap),  ROW(fill),        ROW(holds),        ROW(word),     ROW(set_word),
    ROW(symbol), ROW(check),   ROW(raise),       ROW(chdir),        ROW(open),     ROW(close),
    ROW(limit),  ROW(exit),    ROW(leave),       ROW(exec),         ROW(spawn),    ROW(call),
    ROW(dup2),   ROW(socket),  ROW(receive),     ROW(say),          ROW(dlopen),   ROW(dlclose),
    ROW(dlsym),  ROW(cancel),  ROW(end_thread),  ROW(wait),         ROW(refuse),   ROW(idle),
    ROW(stack),  ROW(blocked), ROW(setenv),
};

// Runs the commands in a child and answers its wait status and its process id.
static struct Answer run_in_child(char* commands) {
  pid_t child = fork();
  if (child == 0) {
    run_commands(commands);
    exit(0);
  }
  int status = -1;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
  return (struct Answer){(Word)status, child};
}

static struct Answer run_one(char* command) {
  char* words[kMaxWords];
  if (cut_words(command, words) == 0) return (struct Answer){0, 0};
  for (unsigned i = 0; i < sizeof kCommands / sizeof kCommands[0]; ++i) {
    if (strcmp(words[0], kCommands[i].name) != 0) continue;
    errno = 0;
    Word value = kCommands[i].run(words);
    return (struct Answer){value, errno};
  }
  _exit(98);
}

static struct Answer run_repeatedly(Word times, const char* commands) {
  struct Answer answer = {0, 0};
  char copy[kMaxLine];
  while (times-- > 0) answer = run_commands(strcpy(copy, commands));
  return answer;
}

static char handler_commands[kMaxLine];

static void run_handler(int unused) {
  (void)unused;
  int interrupted = errno;
  char copy[kMaxLine];
  send_answer(kHandlerWorker, run_commands(strcpy(copy, handler_commands)));
  errno = interrupted;
}

static struct Answer install_handler(int signal, const char* commands) {
  struct sigaction action = {.sa_handler = run_handler, .sa_flags = SA_RESTART};
  strcpy(handler_commands, commands);
  return (struct Answer){(Word)sigaction(signal, &action, NULL), 0};
}

static char exit_commands[kMaxLine];

static void run_at_exit(void) {
  send_answer(kExitWorker, run_commands(exit_commands));
}

struct Answer run_commands(char* line) {
  if (strncmp(line, "fork ", 5) == 0) return run_in_child(line + 5);
  if (strncmp(line, "repeat ", 7) == 0) {
    char* rest = NULL;
    Word times = strtoul(line + 7, &rest, 0);
    return run_repeatedly(times, rest + 1);
  }
  if (strncmp(line, "handle ", 7) == 0) {
    char* rest = NULL;
    int signal = (int)strtol(line + 7, &rest, 0);
    return install_handler(signal, rest + 1);
  }
  if (strncmp(line, "at_exit ", 8) == 0) {
    strcpy(exit_commands, line + 8);
    return (struct Answer){(Word)atexit(run_at_exit), 0};
  }
  struct Answer answer = run_one(strsep(&line, ";"));
  return line == NULL ? answer : run_commands(line);
}
