// SPDX-License-Identifier: Apache-2.0
// Leaves where it came from as daemons do, and keeps blocks of before and behind: leaving FORKS CLOSES DIRECTORY.
// FORKS is none, one (daemon) or two (with a session between); CLOSES is nothing, loop, from, range or over (another
// file put over each descriptor). The process that is left announces its id; what it does then can be seen in its logs
// only: it maps the file "quarlcfg.ini", goes to DIRECTORY, allocates and asks for a dump.
#define _GNU_SOURCE
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "announce.h"

enum { kLast = 300 };  // behind every descriptor of the checker's

// Until another process has become the parent, which is to see the end.
static void lose_parent(pid_t parent) {
  while (getppid() == parent) usleep(1000);
}

static void go_on_in_a_child(void) {
  pid_t parent = getpid();
  pid_t child = fork();
  if (child != 0) _exit(child < 0);
  lose_parent(parent);
}

static void go_away(const char* forks) {
  pid_t parent = getpid();
  if (strcmp(forks, "one") == 0) {
    if (daemon(1, 1) != 0) _exit(90);
    lose_parent(parent);
  }
  if (strcmp(forks, "two") == 0) {
    go_on_in_a_child();
    setsid();
    go_on_in_a_child();
  }
}

static void put_over_all(void) {
  int other = open("/dev/null", O_RDWR);
  for (int fd = 0; fd < kLast; ++fd) dup2(other, fd);
}

static void leave_descriptors(const char* closes) {
  if (strcmp(closes, "loop") == 0)
    for (int fd = 0; fd < kLast; ++fd) close(fd);
  if (strcmp(closes, "from") == 0) closefrom(0);
  if (strcmp(closes, "range") == 0) syscall(SYS_close_range, 0, ~0U, 0);
  if (strcmp(closes, "over") == 0) put_over_all();
}

static void* map_file(const char* name) {
  int fd = open(name, O_RDONLY);
  void* mapping = mmap(NULL, 4096, PROT_READ, MAP_PRIVATE, fd, 0);
  close(fd);
  return mapping;
}

int main(int argc, char** argv) {
  if (argc < 4) return 2;
  void* volatile kept = malloc(1000);
  go_away(argv[1]);
  announce("left", (void*)getpid());
  leave_descriptors(argv[2]);
  if (map_file("quarlcfg.ini") == MAP_FAILED || chdir(argv[3]) != 0) return 91;
  kept = malloc(2000);
  raise(SIGUSR1);
  free(malloc(3000));
  kept = malloc(4000);
  (void)kept;
  return 0;
}
