// SPDX-License-Identifier: Apache-2.0
#include "agent/listener.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include "agent/wait.h"
#include "platform/environment.h"
#include "platform/libc_hooks.h"
#include "platform/print.h"

namespace quarl {
namespace {

constexpr int kBacklog = 1;
constexpr int kIdleSeconds = 5;
constexpr int kProbeSeconds = 3;
constexpr int kProbes = 10;

// Out of the program's way; -1 stays -1.
int moved_up(int fd) {
  return fd < 0 ? fd : move_up(fd);
}

int tcp_socket() {
  const int fd = moved_up(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (fd < 0) print_failure(kStdout, {"agent", nullptr, errno}, "Can't open socket\n");
  return fd;
}

// A new socket on the same descriptor: one that was bound to a port keeps it, even when it may not listen there.
void renew(int fd) {
  const int fresh = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fresh < 0) return;  // the next bind tells
  dup3(fresh, fd, O_CLOEXEC);
  close(fresh);
}

constinit struct in_addr agent_address {};  // any, while nothing names one

bool bind_to(int fd, int port) {
  struct sockaddr_in address {};
  address.sin_family = AF_INET;
  address.sin_addr = agent_address;
  address.sin_port = htons(static_cast<uint16_t>(port));
  return bind(fd, reinterpret_cast<const struct sockaddr*>(&address), sizeof address) == 0;
}

bool set_option(int fd, int level, int option, int value) {
  return setsockopt(fd, level, option, &value, sizeof value) == 0;
}

int close_and_fail(int fd) {
  close(fd);
  return -1;
}

struct KeepAliveOption {
  int level;
  int option;
  int value;
  const char* failure;
};
constexpr KeepAliveOption kKeepAlive[] = {
    {SOL_SOCKET, SO_KEEPALIVE, 1, "Set socket keepalive options failed\n"},
    {IPPROTO_TCP, TCP_KEEPIDLE, kIdleSeconds, "Set socket keepidle options failed\n"},
    {IPPROTO_TCP, TCP_KEEPINTVL, kProbeSeconds, "Set socket keepintvl options failed\n"},
    {IPPROTO_TCP, TCP_KEEPCNT, kProbes, "Set socket keepcnt options failed\n"},
};

bool keep_alive(int fd) {
  for (const KeepAliveOption& each : kKeepAlive) {
    if (set_option(fd, each.level, each.option, each.value)) continue;
    print_failure(kStdout, {"agent", nullptr, errno}, "%s", each.failure);
    return false;
  }
  return true;
}

}  // namespace

// In dotted form; a text that is no address is the agent's own machine.
void settle_agent_address() {
  const char* text = environment("QUARL_AGENT_ADDRESS");
  if (text == nullptr || inet_pton(AF_INET, text, &agent_address) == 1) return;
  agent_address.s_addr = htonl(INADDR_LOOPBACK);
}

int open_listener(int* port) {
  const int fd = tcp_socket();
  if (fd < 0) return -1;
  for (;;) {
    set_option(fd, SOL_SOCKET, SO_REUSEADDR, 1);
    if (bind_to(fd, *port) && listen(fd, kBacklog) == 0) return fd;
    if (errno != EADDRINUSE) {
      print_failure(kStdout, {"agent", nullptr, errno}, "Can't bind address, errno %d, %s\n", errno, error_text(errno));
      return close_and_fail(fd);
    }
    *port = find_usable_port();
    if (*port < 0) {
      print_failure(kStdout, {"agent", nullptr, errno}, "target agent get a usable port faild\n");
      return close_and_fail(fd);
    }
    renew(fd);
  }
}

int find_usable_port() {
  const int fd = tcp_socket();
  if (fd < 0) return -1;
  struct sockaddr_in address {};
  socklen_t size = sizeof address;
  if (!bind_to(fd, 0) || getsockname(fd, reinterpret_cast<struct sockaddr*>(&address), &size) != 0) {
    print_failure(kStdout, {"agent", nullptr, errno}, "Can't bind address\n");
    return close_and_fail(fd);
  }
  close(fd);
  return ntohs(address.sin_port);
}

namespace {

// Fails with EBADF when the application has closed the descriptor and perhaps has a socket of its own there.
int accept_from(const OwnDescriptor& listener, struct sockaddr_in* peer) {
  wait_for_socket(listener.fd());  // a failure shows in the accept
  errno = EBADF;
  if (!listener.is_ours()) return -1;
  socklen_t size = sizeof *peer;
  errno = 0;
  return moved_up(accept4(listener.fd(), reinterpret_cast<struct sockaddr*>(peer), &size, SOCK_CLOEXEC));
}

}  // namespace

int accept_connection(const OwnDescriptor& listener) {
  struct sockaddr_in peer {};
  int fd = -1;
  do {
    fd = accept_from(listener, &peer);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) {
    print_failure(kStdout, {"agent", nullptr, errno}, "Access failed, %s\n", error_text(errno));
    return -1;
  }
  if (!keep_alive(fd)) return close_and_fail(fd);
  set_option(fd, IPPROTO_TCP, TCP_NODELAY, 1);
  signal(SIGPIPE, SIG_IGN);
  print(kStdout, "Remote connected from host %s\n", inet_ntoa(peer.sin_addr));
  return fd;
}

}  // namespace quarl
