// SPDX-License-Identifier: Apache-2.0
#define _GNU_SOURCE
#include "workers.h"

#include <pthread.h>
#include <stdatomic.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "../announce.h"
#include "commands.h"

enum { kMaxWorkers = 300 };

static struct Worker {
  pthread_t thread;
  int channel[2];
  atomic_int task;
} workers[kMaxWorkers + 1];
static int worker_count;
static pthread_key_t end_key;

static void tell_end(void* argument) {
  struct Worker* self = argument;
  announce("ended", (void*)(unsigned long)self->task);
}

static void* serve(void* argument) {
  struct Worker* self = argument;
  self->task = (int)syscall(SYS_gettid);
  char line[kMaxLine];
  pthread_setspecific(end_key, self);
  while (read_line(self->channel[0], line)) {
    struct Answer answer = run_commands(line);
    send_answer((int)(self - workers), answer);
  }
  return NULL;
}

int spawn_worker(void) {
  if (worker_count == kMaxWorkers) return 0;
  if (worker_count == 0 && pthread_key_create(&end_key, tell_end) != 0) return 0;
  struct Worker* worker = &workers[worker_count + 1];
  if (pipe(worker->channel) != 0) return 0;
  if (pthread_create(&worker->thread, NULL, serve, worker) != 0) return 0;
  ++worker_count;
  while (worker->task == 0) usleep(100);
  return worker->task;
}

void pass_to_worker(int worker, const char* line) {
  size_t length = strlen(line);
  if (worker < 1 || worker > worker_count) _exit(97);
  if (write(workers[worker].channel[1], line, length) != (ssize_t)length ||
      write(workers[worker].channel[1], "\n", 1) != 1)
    _exit(97);
}

int cancel_worker(int worker) {
  return worker < 1 || worker > worker_count ? -1 : pthread_cancel(workers[worker].thread);
}
