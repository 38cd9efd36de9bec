// SPDX-License-Identifier: Apache-2.0
// Prints what the C library and the kernel know of the process once it has worked: arenas, mappings of the allocator,
// memory that was never touched, descriptors, handled signals, blocks of size 0, the end of a large request.
#include <dirent.h>
#include <errno.h>
#include <malloc.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

enum { kThreads = 5, kBlocks = 200 };

static pthread_barrier_t all_hold;

// Every thread holds blocks while the others allocate, so that each has an arena of its own where it may.
static void* work(void* unused) {
  void* blocks[kBlocks];
  for (int i = 0; i < kBlocks; ++i) blocks[i] = malloc((size_t)i * 97 + 1);
  pthread_barrier_wait(&all_hold);
  for (int i = 0; i < kBlocks; ++i) free(realloc(blocks[i], (size_t)i * 201 + 5));
  pthread_barrier_wait(&all_hold);
  return unused;
}

static void run_threads(void) {
  pthread_t threads[kThreads];
  pthread_barrier_init(&all_hold, NULL, kThreads);
  for (int i = 0; i < kThreads; ++i) pthread_create(&threads[i], NULL, work, NULL);
  for (int i = 0; i < kThreads; ++i) pthread_join(threads[i], NULL);
}

// Of the text of malloc_info: how many arenas there are, and how many mappings.
static void print_arenas(void) {
  char* text = NULL;
  size_t size = 0;
  FILE* file = open_memstream(&text, &size);
  malloc_info(0, file);
  fclose(file);
  int arenas = 0;
  for (const char* at = text; (at = strstr(at, "<heap nr=")) != NULL; ++at) ++arenas;
  const char* mapped = strstr(text, "<total type=\"mmap\"");
  printf("arenas %d, %.*s\n", arenas, mapped != NULL ? (int)strcspn(mapped, "\n") : 0, mapped);
  free(text);
}

static void print_descriptors(void) {
  DIR* folder = opendir("/proc/self/fd");
  for (struct dirent* entry; (entry = readdir(folder)) != NULL;)
    if (entry->d_name[0] != '.' && atoi(entry->d_name) != dirfd(folder)) printf("descriptor %s\n", entry->d_name);
  closedir(folder);
}

static void print_signals(void) {
  for (int number = 1; number < NSIG; ++number) {
    struct sigaction action;
    if (sigaction(number, NULL, &action) == 0 && action.sa_handler != SIG_DFL) printf("signal %d\n", number);
  }
}

static void print_faults_of_cleared_memory(void) {
  struct rusage before, after;
  getrusage(RUSAGE_SELF, &before);
  void* cleared = calloc(50, 1 << 20);
  getrusage(RUSAGE_SELF, &after);
  printf("touched %d\n", after.ru_minflt - before.ru_minflt > 1000);
  free(cleared);
}

static void print_edges(void) {
  void* empty[] = {malloc(0), calloc(0, 3), realloc(NULL, 0), memalign(16, 0), reallocarray(NULL, 0, 5)};
  for (int i = 0; i < 5; ++i) printf("empty %d\n", empty[i] != NULL);
  for (int i = 0; i < 5; ++i) free(empty[i]);
  errno = 0;
  volatile size_t beyond = (size_t)-64;
  void* none = malloc(beyond);
  printf("large %d %d\n", none != NULL, errno);
  printf("usable %d\n", (int)malloc_usable_size(malloc(100)));
  print_arenas();
  printf("option %d\n", mallopt(M_MMAP_MAX, 0));
  free(malloc(2 << 20));
  print_arenas();
}

// Before threads: what they leave in the arenas decides where a block lies.
static void print_large_block(void) {
  void* large = malloc(1 << 20);  // a mapping of the allocator's own
  print_arenas();
  free(large);
}

int main(void) {
  setvbuf(stdout, NULL, _IOFBF, 65536);
  print_large_block();
  run_threads();
  print_edges();
  print_faults_of_cleared_memory();
  print_descriptors();
  print_signals();
  fflush(stdout);
  pid_t child = fork();
  if (child == 0) {
    run_threads();
    print_edges();
    exit(0);
  }
  int status = -1;
  waitpid(child, &status, 0);
  printf("child %d\n", status);
  return 0;
}
