// SPDX-License-Identifier: Apache-2.0
#include "agent/connection.h"

#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "agent/packet.h"
#include "agent/wait.h"
#include "platform/libc_hooks.h"
#include "platform/print.h"

namespace quarl {
namespace {

constexpr useconds_t kRetryPause = 10;  // microseconds

// After a failed receive: false when the connection can no longer be used. A descriptor that the application has closed
// and taken for something else counts as closed.
bool may_receive_again(const OwnDescriptor& connection) {
  if (errno == EINTR) {
    print_failure(kStdout, {"agent", nullptr, errno}, "recvfrom is interrupted\n");
    return true;
  }
  print_failure(kStdout, {"agent", nullptr, errno}, "get packet error %s\n", error_text(errno));
  if (errno == EBADF || !connection.is_ours()) return false;
  usleep(kRetryPause);
  return true;
}

// The next piece of a packet, waiting for it as an idle agent does: half a packet keeps no finished process alive.
long receive_piece(const OwnDescriptor& connection, char* buffer, size_t room) {
  errno = EBADF;
  if (!connection.is_ours() || !wait_for_socket(connection.fd())) return -1;
  errno = EBADF;
  if (!connection.is_ours()) return -1;
  errno = 0;
  return recv(connection.fd(), buffer, room, MSG_DONTWAIT);
}

// A whole packet, or what came of it before the peer was gone or the connection failed.
long receive(const OwnDescriptor& connection, char* buffer) {
  size_t received = 0;
  while (received < kPacketSize) {
    const long piece = receive_piece(connection, buffer + received, kPacketSize - received);
    if (piece < 0 && errno == EAGAIN) continue;
    if (piece <= 0) return received > 0 ? static_cast<long>(received) : piece;
    received += static_cast<size_t>(piece);
  }
  return kPacketSize;
}

}  // namespace

int receive_packet(const OwnDescriptor& connection, char* buffer) {
  memset(buffer, 0, kPacketSize);
  if (!wait_for_socket(connection.fd())) {
    print_failure(kStdout, {"agent", nullptr, errno}, "%s failed... %s\n", "tam_get_tcp_packet", error_text(errno));
    return -1;
  }
  for (;;) {
    const long received = receive(connection, buffer);
    if (received > 0) return static_cast<int>(received);
    if (received == 0) {
      print(kStdout, "connection broken, restarts listening...\n");
      return 0;
    }
    if (!may_receive_again(connection)) return -1;
  }
}

}  // namespace quarl
