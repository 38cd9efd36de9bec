// SPDX-License-Identifier: Apache-2.0
// The agent's receive path: any bytes that a client sends before it closes come out as packets of 32 bytes, in order,
// the last one filled up with zeros; then the connection is told as closed.
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "agent/connection.h"
#include "agent/packet.h"
#include "agent/wait.h"
#include "platform/print.h"
#include "platform/system.h"

// What the library brings for 32-bit targets only.
namespace quarl {

bool sys::stat_fd(int fd, struct stat64* out) {
  return fstat64(fd, out) == 0;
}
int sys::close(int fd) {
  return ::close(fd);
}
// A connection is taken over, never opened.
int sys::open(const char*, int, int) {
  abort();
}
bool sys::stat_path(const char*, struct stat64*) {
  abort();
}
int sys::descriptor_limit() {
  return 1024;
}
int sys::duplicate_above(int, int) {
  abort();
}
void print(int, const char*, ...) {}
void print_failure(int, Trouble, const char*, ...) {}
const char* error_text(int) {
  return "";
}

bool wait_for_socket(int fd) {
  struct pollfd wanted {
    fd, POLLIN, 0
  };
  return poll(&wanted, 1, 1000) > 0;
}

}  // namespace quarl

namespace {

void require(bool holds) {
  if (!holds) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  int ends[2];
  require(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
  quarl::OwnDescriptor connection;
  require(connection.take(ends[0]));
  require(write(ends[1], data, size) == static_cast<ssize_t>(size));
  close(ends[1]);

  char packet[quarl::kPacketSize];
  for (size_t at = 0; at < size; at += quarl::kPacketSize) {
    const size_t expected = std::min(size - at, sizeof packet);
    require(quarl::receive_packet(connection, packet) == static_cast<int>(expected));
    require(memcmp(packet, data + at, expected) == 0);
    require(std::all_of(packet + expected, packet + sizeof packet, [](char c) { return c == 0; }));
  }
  require(quarl::receive_packet(connection, packet) == 0);
  connection.close();
  return 0;
}
