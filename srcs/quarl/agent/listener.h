// SPDX-License-Identifier: Apache-2.0
// The agent's listening socket and the connections that it accepts. IPv4.
#pragma once

#include "platform/own_descriptor.h"

namespace quarl {

// Any local address, or the one that QUARL_AGENT_ADDRESS names. Looks at the variable; once, at start-up: the
// application may change its environment later.
void settle_agent_address();

// Listens on *port, or, when that is in use, on a free port of the kernel's choice, which is stored there. The socket,
// or -1 with a message on standard output.
int open_listener(int* port);

// A port that is free at this moment, or -1 with a message.
int find_usable_port();

// The next client's socket with keep-alive on, or -1 with a message. Ignores SIGPIPE for the whole process.
int accept_connection(const OwnDescriptor& listener);

}  // namespace quarl
