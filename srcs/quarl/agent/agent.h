// SPDX-License-Identifier: Apache-2.0
// The agent: one thread, a TCP server for one client at a time, which takes packets of 32 bytes, each a line of
// configuration. It never answers. Whoever reaches its port controls the checker in this process.
#pragma once

#include "platform/annotations.h"

extern "C" {
extern QUARL_EXPORT int srv_desc;         // the listening socket, -1 when there is none
extern QUARL_EXPORT int srv_socket_desc;  // the accepted connection, -1 when there is none
extern QUARL_EXPORT int socket_desc;      // not used by the agent, closed with it when above 0
extern QUARL_EXPORT char* recv_buffer;    // 32 bytes, null when there is no agent
}

namespace quarl {

// Called on the agent's thread, without a lock, with the line of each packet.
using LineHandler = void (*)(const char* line);

// Starts the thread when QUARL_DEMO_THREAD is on. The application's signals are never delivered to it.
void start_agent(LineHandler handler);

// In a forked child there is no agent thread; its sockets are the parent's.
void leave_parent_agent();

}  // namespace quarl
