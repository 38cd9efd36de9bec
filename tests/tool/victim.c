// SPDX-License-Identifier: Apache-2.0
// A program that does what its arguments say, one after the other; it ends with status 7.
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

static void* volatile kept;

static void free_twice(void) {
  void* block = malloc(40);
  free(block);
  free(block);  // again
}

static void* free_twice_in_thread(void* unused) {
  free_twice();  // thread
  return unused;
}

static void overrun(size_t size) {
  char* block = malloc(size);
  memset(block, 'x', size + 1);
  kept = block;
}

// The word below a block.
static void underrun(void) {
  int* block = malloc(40);
  block[-1] = 42;
  kept = block;
}

static void in_thread(void) {
  pthread_t thread;
  pthread_create(&thread, NULL, free_twice_in_thread, NULL);
  pthread_join(thread, NULL);
}

static void in_many_threads(void) {
  pthread_t threads[8];
  for (int i = 0; i < 8; ++i) pthread_create(&threads[i], NULL, free_twice_in_thread, NULL);
  for (int i = 0; i < 8; ++i) pthread_join(threads[i], NULL);
}

static void in_child(void) {
  if (fork() == 0) {
    free_twice();
    _exit(0);
  }
  wait(NULL);
}

// Allocates until its standard input ends.
static void serve(void) {
  char byte;
  printf("serving\n");
  fflush(stdout);
  if (fork() == 0) {  // wakes the parent when the input ends
    while (read(0, &byte, 1) > 0) {
    }
    kill(getppid(), SIGTERM);
    _exit(0);
  }
  for (;;) {
    free(malloc(100));
    usleep(1000);
  }
}

static void on_signal(int number) {
  printf("signal %d\n", number);
  fflush(stdout);
  _exit(9);
}

static void wait_for_signal(void) {
  signal(SIGTERM, on_signal);
  signal(SIGUSR2, on_signal);
  printf("waiting\n");
  fflush(stdout);
  for (;;) pause();
}

// Keeps a block, and waits for a signal that nobody handles.
static void hold(void) {
  kept = malloc(1000);
  printf("here\n");
  fflush(stdout);
  for (;;) pause();
}

// Stands still until its standard input ends.
static void stay(void) {
  char byte;
  printf("here\n");
  fflush(stdout);
  while (read(0, &byte, 1) > 0) {
  }
}

static void leave_child_behind(void) {
  char byte;
  if (fork() == 0) {
    while (read(0, &byte, 1) > 0) {
    }
    printf("left behind\n");
    fflush(stdout);
    _exit(0);
  }
}

// A daemon with a fault, which has closed all that it could tell of it.
static void leave_daemon(void) {
  if (fork() != 0) return;
  setsid();
  for (int file = 0; file < 3; ++file) close(file);
  if (fork() != 0) _exit(0);
  free_twice();
  _exit(0);
}

// A program of this machine, until its starter ends.
static void start_other(void) {
  if (fork() != 0) return;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  execl("/bin/sleep", "sleep", "1000", (char*)NULL);
  _exit(1);
}

// What standard input and output are, and which others there are of a program's own.
static void show_descriptors(void) {
  struct stat status;
  for (int file = 0; file < 2; ++file) {
    fstat(file, &status);
    printf("%ju %ju\n", (uintmax_t)status.st_dev, (uintmax_t)status.st_ino);
  }
  for (int file = 3; file < 100; ++file)
    if (fcntl(file, F_GETFD) >= 0) printf("%d ", file);
  printf("\n");
}

static void show_config(void) {
  const char* path = getenv("QUARL_CFG_FILE");
  FILE* file = path ? fopen(path, "r") : NULL;
  for (int c; file && (c = getc(file)) != EOF;) putchar(c);
  fflush(stdout);
}

static void show_contract(void) {
  const char* contract = getenv("QUARL_CONTRACT");
  void* volatile empty = malloc(0);
  printf("%s: %s\n", contract ? contract : "unset", empty ? "a block" : "null");
  free(empty);
}

// The stack of whoever calls it overflows.
static volatile int deepest = 1 << 30;
static int fall(int depth) {
  volatile char room[4000];
  room[0] = (char)depth;
  return depth < deepest ? fall(depth + 1) + room[0] : 0;
}

static void die_of_what_is_blocked(void) {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, NULL);
  *(volatile int*)8 = 1;
}

static void act(const char* what) {
  if (!strcmp(what, "double")) free_twice();  // act
  if (!strcmp(what, "thread")) in_thread();
  if (!strcmp(what, "threads")) in_many_threads();
  if (!strcmp(what, "child")) in_child();
  if (!strcmp(what, "tail")) overrun(20);
  if (!strcmp(what, "head")) underrun();  // act
  if (!strcmp(what, "free")) free(kept);
  if (!strcmp(what, "print"))
    printf("###### slop over occurs at tail of a memory block whose detail info is as follows:\n");
  if (!strcmp(what, "abort")) abort();
  if (!strcmp(what, "leave")) _exit(7);
  if (!strcmp(what, "killed")) raise(SIGKILL);
  if (!strcmp(what, "blocked")) die_of_what_is_blocked();
  if (!strcmp(what, "deep")) kept = (void*)(intptr_t)fall(0);
  if (!strcmp(what, "serve")) serve();
  if (!strcmp(what, "stay")) stay();
  if (!strcmp(what, "hold")) hold();
  if (!strcmp(what, "away") && chdir("/") != 0) abort();
  if (!strcmp(what, "wait")) wait_for_signal();
  if (!strcmp(what, "left")) leave_child_behind();
  if (!strcmp(what, "daemon")) leave_daemon();
  if (!strcmp(what, "other")) start_other();
  if (!strcmp(what, "descriptors")) show_descriptors();
  if (!strcmp(what, "config")) show_config();
  if (!strcmp(what, "contract")) show_contract();
  if (!strcmp(what, "tty")) printf("%d %d %d\n", isatty(0), isatty(1), isatty(2));
  if (!strcmp(what, "lines"))
    for (int i = 0; i < 100000; ++i) printf("line %d\n", i);
  fflush(stdout);
  if (!strcmp(what, "check")) {
    void (*check)(void) = (void (*)(void))dlsym(RTLD_DEFAULT, "quarl_check_mem");
    if (check) check();
  }
}

static void* act_in_thread(void* what) {
  free(malloc(10));
  act(what);
  return NULL;
}

int main(int count, char** arguments) {
  for (int i = 1; i < count; ++i) {
    pthread_t thread;
    if (strcmp(arguments[i], "in-thread") != 0) {
      act(arguments[i]);
    } else if (++i < count) {
      pthread_create(&thread, NULL, act_in_thread, arguments[i]);
      pthread_join(thread, NULL);
    }
  }
  return 7;
}
