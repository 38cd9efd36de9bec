// SPDX-License-Identifier: Apache-2.0
// Forks again and again beside threads that are inside the C library or inside the checker; the child allocates,
// releases what its parent made, and leaves.
//
// forking ROUNDS handlers|bypass|streams|random
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "announce.h"

enum { kThreads = 3, kLine = 20000 };

void start_server(int bypassing);  // of fork_handlers.c, whose handlers do nothing before

// Reads lines that grow, so that getline allocates while it holds the stream.
static void* read_lines(void* unused) {
  char* text = malloc(kLine);
  memset(text, 'x', kLine);
  for (int i = 1; i < kLine; i += i / 2 + 7) text[i] = '\n';
  for (;;) {
    FILE* stream = fmemopen(text, kLine, "r");
    char* line = NULL;
    size_t room = 0;
    while (getline(&line, &room, stream) > 0) continue;
    free(line);
    fclose(stream);
  }
  return unused;
}

// Waits for every stream in turn, holding the list of them.
static void* flush_all(void* unused) {
  for (;;) fflush(NULL);
  return unused;
}

static void* draw(void* unused) {
  for (;;) free(random() % 5 ? NULL : malloc(10));
  return unused;
}

static void start(void* (*body)(void*), int count) {
  pthread_t thread;
  for (int i = 0; i < count; ++i)
    while (pthread_create(&thread, NULL, body, NULL) != 0) continue;  // allocations may fail on purpose
}

static void run_child(void* held) {
  for (int i = 0; i < 50; ++i) free(malloc(30));
  free(held);
  _exit(0);
}

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  if (strcmp(argv[2], "handlers") == 0 || strcmp(argv[2], "bypass") == 0) {
    start_server(argv[2][0] == 'b');
  } else if (strcmp(argv[2], "streams") == 0) {
    start(read_lines, kThreads);
    start(flush_all, 1);
  } else if (strcmp(argv[2], "random") == 0) {
    start(draw, kThreads);
  }
  for (int round = atoi(argv[1]); round > 0; --round) {
    void* held = malloc(100);
    pid_t child = fork();
    if (child == 0) run_child(held);
    int status;
    if (child < 0 || waitpid(child, &status, 0) != child || status != 0) return 71;
    free(held);
  }
  announce("finished", NULL);
  _exit(0);
}
