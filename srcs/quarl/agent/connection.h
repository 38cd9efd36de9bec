// SPDX-License-Identifier: Apache-2.0
// Receiving packets from the agent's client.
#pragma once

#include "platform/own_descriptor.h"

namespace quarl {

// Waits for one packet of kPacketSize bytes in `buffer`. Returns the bytes received (fewer when the peer closed in the
// middle; the rest is zero), 0 when the peer is gone, -1 when the connection can no longer be used.
int receive_packet(const OwnDescriptor& connection, char* buffer);

}  // namespace quarl
