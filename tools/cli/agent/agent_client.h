// SPDX-License-Identifier: Apache-2.0
// The connection to the agent of a running program.
#pragma once

#include <chrono>
#include <string>

namespace quarl {

struct AgentAddress {
  std::string host;
  std::string port;
};

// "HOST" or "HOST:PORT"; the port is 9000 when none is given.
AgentAddress parse_address(const std::string& text);

// A configuration line as the agent takes it: 32 bytes, padded with NULs. A Refusal when the line does not fit.
std::string make_packet(const std::string& line);

class AgentClient {
 public:
  // A Refusal when nobody answers within the time limit.
  AgentClient(const AgentAddress& address, std::chrono::seconds limit);
  ~AgentClient();
  AgentClient(const AgentClient&) = delete;
  AgentClient& operator=(const AgentClient&) = delete;

  void send(const std::string& packet);

  // The agent sends nothing back, but it closes the connection once it has handled everything and sees our end closed.
  // A Refusal when it does not within the time limit, or drops the connection: it may be serving another client.
  void await_handled();

 private:
  AgentAddress address_;
  std::chrono::seconds limit_;
  int socket_ = -1;
};

}  // namespace quarl
