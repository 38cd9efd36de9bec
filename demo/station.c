// SPDX-License-Identifier: Apache-2.0
// A small measuring station: sensors on threads, a table of readings, and two leaks. station [ROUNDS]
// Without ROUNDS it measures until its standard input ends. A line "spoil" there makes it write behind a block, "mend"
// repairs that.
#include <pthread.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

enum { kSensors = 3, kHistory = 100, kEndless = -1 };

struct reading {
  double value;
  char unit[16];
};

static atomic_int stop;
static int rounds = kEndless;

// Leak: the label of every tenth reading is forgotten.
static void label(struct reading* reading, int number) {
  char* text = malloc(40);
  snprintf(text, 40, "reading %d", number);
  snprintf(reading->unit, sizeof(reading->unit), "%.10s", text);
  if (number % 10) free(text);
}

static struct reading* measure(int number) {
  struct reading* reading = calloc(1, sizeof(*reading));
  reading->value = number * 0.5;
  label(reading, number);
  return reading;
}

static void* sensor(void* unused) {
  (void)unused;
  struct reading* history[kHistory] = {0};
  for (int i = 0; i != rounds && !stop; i++) {
    free(history[i % kHistory]);
    history[i % kHistory] = measure(i);
    if (rounds == kEndless) usleep(1000);
  }
  for (int i = 0; i < kHistory; i++) free(history[i]);
  return NULL;
}

int main(int argc, char** argv) {
  if (argc > 1) rounds = atoi(argv[1]);
  void* archive = mmap(NULL, 64 * 1024, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  char* index = malloc(200 * 1024);  // leak: the index grows and is never given back
  index = realloc(index, 300 * 1024);
  pthread_t sensors[kSensors];
  for (int i = 0; i < kSensors; i++) pthread_create(&sensors[i], NULL, sensor, NULL);
  if (rounds == kEndless) {
    char line[16], *label = malloc(10), guard = label[10];
    puts("station: measuring");
    fflush(stdout);
    while (fgets(line, sizeof(line), stdin)) {
      label[10] = line[0] == 's' ? '!' : guard;
      printf("station: %s", line);
      fflush(stdout);
    }
    free(label);
    stop = 1;
  }
  for (int i = 0; i < kSensors; i++) pthread_join(sensors[i], NULL);
  munmap(archive, 64 * 1024);
  return index == NULL;
}
