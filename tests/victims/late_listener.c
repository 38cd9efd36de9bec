// SPDX-License-Identifier: Apache-2.0
// Comes first to the port on which the agent is about to listen: its listen() stands before the C library's, and takes
// the port by another socket that is bound to it as well. Ends with its input.
#define _GNU_SOURCE
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/syscall.h>

#include "announce.h"

static int taker = -1;

static void take_port_of(int descriptor) {
  struct sockaddr_in address;
  socklen_t size = sizeof address;
  const int on = 1;
  getsockname(descriptor, (struct sockaddr*)&address, &size);
  taker = socket(AF_INET, SOCK_STREAM, 0);
  setsockopt(taker, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (bind(taker, (struct sockaddr*)&address, size) == 0 && syscall(SYS_listen, taker, 1) == 0)
    announce("taken", (void*)(unsigned long)ntohs(address.sin_port));
}

int listen(int descriptor, int backlog) {
  if (taker < 0) take_port_of(descriptor);
  return (int)syscall(SYS_listen, descriptor, backlog);
}

int main(void) {
  char byte;
  while (read(STDIN_FILENO, &byte, 1) > 0) continue;
  return 0;
}
