// SPDX-License-Identifier: Apache-2.0
// A program that does what the tests tell it, one line of its standard input at a time ("@2 free 0x8a0" is for worker
// 2), and otherwise leaves heap and standard output alone. It returns from main when its input ends.
#include <stdlib.h>
#include <unistd.h>

#include "commands.h"
#include "workers.h"

int main(void) {
  char line[kMaxLine];
  send_answer(0, (struct Answer){(unsigned long)getpid(), 0});
  while (read_line(STDIN_FILENO, line)) {
    if (line[0] == '@') {
      char* rest = NULL;
      int worker = (int)strtol(line + 1, &rest, 10);
      pass_to_worker(worker, rest + 1);
    } else {
      send_answer(0, run_commands(line));
    }
  }
  return 0;
}
