// SPDX-License-Identifier: Apache-2.0
#include "agent/agent_client.h"

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "agent/packet.h"
#include "refusal.h"

namespace quarl {
namespace {

using Addresses = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

Addresses resolve(const AgentAddress& address) {
  addrinfo wanted{};
  wanted.ai_family = AF_INET;  // the agent listens on IPv4
  wanted.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  int error = getaddrinfo(address.host.c_str(), address.port.c_str(), &wanted, &found);
  if (error != 0) refuse("{}:{}: {}", address.host, address.port, gai_strerror(error));
  return {found, freeaddrinfo};
}

bool wait_for(int socket, short events, std::chrono::seconds limit) {
  pollfd source{socket, events, 0};
  int ready;
  while ((ready = poll(&source, 1, static_cast<int>(limit.count() * 1000))) < 0 && errno == EINTR) {
  }
  return ready > 0;
}

// 0, or the error that kept the connection from being made.
int connect_within(int socket, const addrinfo& address, std::chrono::seconds limit) {
  if (connect(socket, address.ai_addr, address.ai_addrlen) == 0) return 0;
  if (errno != EINPROGRESS) return errno;
  if (!wait_for(socket, POLLOUT, limit)) return ETIMEDOUT;
  int error = 0;
  socklen_t size = sizeof error;
  getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size);
  return error;
}

}  // namespace

AgentAddress parse_address(const std::string& text) {
  size_t colon = text.find(':');
  AgentAddress address{text.substr(0, colon), colon == std::string::npos ? "9000" : text.substr(colon + 1)};
  bool digits = !address.port.empty() && address.port.size() <= 5 &&
                address.port.find_first_not_of("0123456789") == std::string::npos;
  if (address.host.empty() || !digits || std::stoi(address.port) < 1 || std::stoi(address.port) > 65535) {
    refuse("\"{}\" is no HOST or HOST:PORT; a port is a number of 1 to 65535", text);
  }
  return address;
}

std::string make_packet(const std::string& line) {
  if (line.size() >= kPacketSize) {
    refuse("\"{}\" has {} characters, and a packet takes {}; choose a shorter value", line, line.size(),
           kPacketSize - 1);
  }
  std::string packet = line;
  packet.resize(kPacketSize);
  return packet;
}

AgentClient::AgentClient(const AgentAddress& address, std::chrono::seconds limit) : address_(address), limit_(limit) {
  Addresses found = resolve(address);
  socket_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  int error = socket_ < 0 ? errno : connect_within(socket_, *found, limit);
  if (error == 0) return;
  if (socket_ >= 0) close(socket_);
  refuse("no agent at {}:{}: {}; was the program started with QUARL_DEMO_THREAD=1, and which port did it print?",
         address.host, address.port, std::strerror(error));
}

AgentClient::~AgentClient() {
  close(socket_);
}

void AgentClient::send(const std::string& packet) {
  // A packet is far smaller than what a socket buffers: it goes as one or not at all.
  if (!wait_for(socket_, POLLOUT, limit_) ||
      ::send(socket_, packet.data(), packet.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(packet.size())) {
    refuse("the agent at {}:{} takes no more packets", address_.host, address_.port);
  }
}

void AgentClient::await_handled() {
  shutdown(socket_, SHUT_WR);
  char byte;
  if (!wait_for(socket_, POLLIN, limit_)) {
    refuse(
        "the agent at {}:{} has not handled it within {} s; it serves one client at a time, and another one may be "
        "connected",
        address_.host, address_.port, limit_.count());
  }
  if (recv(socket_, &byte, 1, 0) != 0) {
    refuse("the agent at {}:{} has dropped the connection; what was sent may be lost", address_.host, address_.port);
  }
}

}  // namespace quarl
