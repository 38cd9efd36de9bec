// SPDX-License-Identifier: Apache-2.0
#include "channel.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "../announce.h"

int read_line(int descriptor, char* line) {
  for (int length = 0; length < kMaxLine - 1;) {
    ssize_t got = read(descriptor, line + length, 1);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return 0;
    if (line[length] == '\n') {
      line[length] = 0;
      return 1;
    }
    ++length;
  }
  return 0;
}

int cut_words(char* line, char** words) {
  int count = 0;
  char* rest = NULL;
  for (char* word = strtok_r(line, " ", &rest); word != NULL && count < kMaxWords - 1;
       word = strtok_r(NULL, " ", &rest))
    words[count++] = word;
  words[count] = NULL;
  return count;
}

void send_answer(int worker, struct Answer answer) {
  char line[64];
  int length = snprintf(line, sizeof line, "%d 0x%lx %d\n", worker, answer.value, answer.number);
  if (write(kAnnounceDescriptor, line, (size_t)length) != length) _exit(99);
}
