// SPDX-License-Identifier: Apache-2.0
#include "agent/agent.h"

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <unistd.h>

#include "agent/connection.h"
#include "agent/listener.h"
#include "agent/packet.h"
#include "platform/print.h"
#include "platform/process_end.h"
#include "platform/system.h"
#include "state/events/event.h"
#include "state/own_memory.h"
#include "state/settings.h"

extern "C" {
constinit int srv_desc = -1;
constinit int srv_socket_desc = -1;
constinit int socket_desc = -1;
constinit char* recv_buffer = nullptr;
}

namespace quarl {
namespace {

constexpr const char* kThreadName = "qr_demo_thread";
constexpr int kFirstPort = 9000;

constinit OwnDescriptor listener;
constinit OwnDescriptor connection;
constinit LineHandler take_line = nullptr;
constinit sigset_t mask_of_program{};

void tell_port(int port) {
  const Event event("agent");
  if (event) event.line().number("port", static_cast<uint32_t>(port));
}

bool listen_on(int* port) {
  if (listener.take(open_listener(port))) {
    srv_desc = listener.fd();
    print(kStdout, "Waiting for connect at port [ %d ]\n", *port);
    tell_port(*port);
    return true;
  }
  print_failure(kStdout, {"agent", nullptr, errno}, "%s: open socket failed\n", kThreadName);
  return false;
}

bool accept_client() {
  if (connection.take(accept_connection(listener))) {
    srv_socket_desc = connection.fd();
    return true;
  }
  print_failure(kStdout, {"agent", nullptr, errno}, "%s: accept connect failed\n", kThreadName);
  return false;
}

void close_sockets() {
  connection.close();
  srv_socket_desc = -1;
  listener.close();
  srv_desc = -1;
}

// A text without a NUL ends with the packet.
void hand_on(char* packet) {
  char line[kPacketSize + 1] = "";
  memcpy(line, packet, kPacketSize);
  memset(packet, 0, kPacketSize);
  take_line(line);
}

// Takes packets until the peer is gone (true) or the connection can no longer be used (false).
bool serve_client() {
  for (;;) {
    const int received = receive_packet(connection, recv_buffer);
    if (received <= 0) return received == 0;
    hand_on(recv_buffer);
  }
}

void serve(int port) {
  while (listen_on(&port) && accept_client() && serve_client()) close_sockets();
}

void* run_agent(void*) {
  const InsideChecker inside;  // nothing that this thread allocates is the application's
  set_mask_at_end(&mask_of_program);
  prctl(PR_SET_NAME, kThreadName);
  recv_buffer = static_cast<char*>(own_memory(kPacketSize));
  if (recv_buffer == nullptr) {
    print_failure(kStdout, {"agent", nullptr, errno}, "malloc recv_buffer faild\n");
  } else {
    serve(kFirstPort);
    release_own_memory(recv_buffer);
    recv_buffer = nullptr;
  }
  close_sockets();
  if (socket_desc > 0) ::close(socket_desc);
  return nullptr;
}

}  // namespace

void start_agent(LineHandler handler) {
  if (!Flags().set(kDemoThread)) return;
  take_line = handler;
  settle_agent_address();
  // The thread inherits the mask, so that it has no instant without it.
  sigset_t all;
  sigfillset(&all);
  sys::set_signal_mask(SIG_SETMASK, &all, &mask_of_program);
  if (!start_thread(run_agent)) print_failure(kStdout, {"agent", nullptr, errno}, "Create thread fail!\n");
  sys::set_signal_mask(SIG_SETMASK, &mask_of_program, nullptr);
}

void leave_parent_agent() {
  close_sockets();
  recv_buffer = nullptr;
}

}  // namespace quarl
