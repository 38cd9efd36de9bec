// SPDX-License-Identifier: Apache-2.0
// Waiting for the network without keeping the process alive.
#pragma once

namespace quarl {

// Waits until the socket has something to say: data, a client, a hang-up or an error. False when the wait itself fails,
// with errno set. A process of which only the agent is left ends here, as it would have ended without the agent.
bool wait_for_socket(int fd);

}  // namespace quarl
