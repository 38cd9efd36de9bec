// SPDX-License-Identifier: Apache-2.0
// Sets itself a filter of system calls, behind which only those are left that its own work needs.
//
// filtered prctl|syscall|by-number|every-thread|strict|strict-syscall|refused sound|thread|fork|overrun|dumped|crash
#define _GNU_SOURCE
#include <errno.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <pthread.h>
#include <signal.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "announce.h"

#define CASE(number, answer) BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, number, 0, 1), BPF_STMT(BPF_RET | BPF_K, answer)
#define ALLOW(number) CASE(number, SECCOMP_RET_ALLOW)

static struct sock_filter filter[] = {
    BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, nr)),
    ALLOW(SYS_futex),  // of programs with threads
    // of any such program
    ALLOW(SYS_read),
    ALLOW(SYS_write),
    ALLOW(SYS_exit_group),
    ALLOW(SYS_brk),
    ALLOW(SYS_mmap2),
    ALLOW(SYS_munmap),
    ALLOW(SYS_sigreturn),
    ALLOW(SYS_rt_sigreturn),
    // of the C library, for threads and children
    CASE(SYS_clone3, SECCOMP_RET_ERRNO | ENOSYS),
    ALLOW(SYS_clone),
    ALLOW(SYS_rseq),
    ALLOW(SYS_set_robust_list),
    ALLOW(SYS_rt_sigaction),
    ALLOW(SYS_rt_sigprocmask),
    ALLOW(SYS_mprotect),
    ALLOW(SYS_madvise),
    ALLOW(SYS_exit),
    ALLOW(SYS_wait4),
    BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
};

enum { kFutexAnswer = 2 };

static long set_filter(const char* way) {
  struct sock_fprog program = {sizeof filter / sizeof *filter, filter};
  prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  if (strcmp(way, "prctl") == 0) return prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program);
  if (strcmp(way, "syscall") == 0) return syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, 0, &program);
  if (strcmp(way, "by-number") == 0) return syscall(SYS_prctl, PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program);
  if (strcmp(way, "every-thread") == 0)
    return syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_TSYNC, &program);
  if (strcmp(way, "strict") == 0) return prctl(PR_SET_SECCOMP, SECCOMP_MODE_STRICT);
  if (strcmp(way, "strict-syscall") == 0) return syscall(SYS_seccomp, SECCOMP_SET_MODE_STRICT, 0, NULL);
  program.len = 0;  // which no kernel takes
  return prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == -1 && prctl(PR_SET_SECCOMP, 2, NULL) == -1 ? 0 : -1;
}

// Blocks of many sizes, kept, grown and released.
static void* work(void* unused) {
  for (int i = 0; i < 900; ++i) {
    char* block = realloc(malloc(100 * i), 110 * i + 1);
    if (block == NULL) _exit(71);
    memset(block, 1, 110 * i + 1);
    free(i % 7 != 0 ? block : NULL);
  }
  for (int i = 0; i < 20; ++i) free(realloc(malloc(100000), 200000));
  return unused;
}

// What a strict filter leaves room for: the heap cannot grow.
static void work_in_room(void) {
  for (int i = 0; i < 300; ++i) free(malloc(100 + i));
  for (int i = 0; i < 200; ++i) malloc(100);
}

static void* count_up(void* counter) {
  for (;; ++*(volatile unsigned*)counter) free(realloc(malloc(10), 30));
  return counter;
}

static void act(const char* action) {
  work(NULL);
  if (strcmp(action, "overrun") == 0) {
    char* block = malloc(10);
    block[10] = 0;
    free(block);
  } else if (strcmp(action, "crash") == 0) {
    *(volatile char*)strtoul("0", NULL, 0) = 1;
  } else if (strcmp(action, "thread") == 0) {
    pthread_t thread;
    if (pthread_create(&thread, NULL, work, NULL) != 0 || pthread_join(thread, NULL) != 0) _exit(72);
  } else if (strcmp(action, "fork") == 0) {
    int status = -1;
    pid_t child = fork();
    if (child == 0) {
      work(NULL);
      exit(3);
    }
    if (waitpid(child, &status, 0) != child || WEXITSTATUS(status) != 3) _exit(73);
  }
}

int main(int argc, char** argv) {
  unsigned counter = 0;
  pthread_t thread;
  if (argc < 3) return 2;
  announce("before", malloc(10));
  if (strcmp(argv[1], "every-thread") == 0 && pthread_create(&thread, NULL, count_up, &counter) == 0)
    while (*(volatile unsigned*)&counter < 100) continue;
  if (strcmp(argv[2], "thread") != 0 && counter == 0) filter[kFutexAnswer].k = SECCOMP_RET_KILL_PROCESS;
  if (strcmp(argv[2], "dumped") == 0) raise(SIGUSR1);
  if (set_filter(argv[1]) != 0) return 70;
  if (strncmp(argv[1], "strict", 6) == 0) {
    work_in_room();
    announce("done", NULL);
    for (;;) syscall(SYS_exit, 0);
  }
  unsigned counted = counter;
  announce("after", malloc(20));
  act(argv[2]);
  while (counted != 0 && *(volatile unsigned*)&counter < counted + 100) continue;
  announce("done", NULL);
  char byte;
  return read(STDIN_FILENO, &byte, 1) < 0;
}
