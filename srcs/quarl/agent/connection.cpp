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
    print(kStdout, "recvfrom is interrupted\n");
    return true;
  }
  print(kStdout, "get packet error %s\n", error_text(errno));
  if (errno == EBADF || !connection.is_ours()) return false;
  usleep(kRetryPause);
  return true;
}

long receive(const OwnDescriptor& connection, char* buffer) {
  errno = 0;
  if (connection.is_ours()) return recv(connection.fd(), buffer, kPacketSize, MSG_WAITALL);
  errno = EBADF;
  return -1;
}

}  // namespace

int receive_packet(const OwnDescriptor& connection, char* buffer) {
  memset(buffer, 0, kPacketSize);
  if (!wait_for_socket(connection.fd())) {
    print(kStdout, "%s failed... %s\n", "tam_get_tcp_packet", error_text(errno));
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
