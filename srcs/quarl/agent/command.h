// What a packet does: applies its line; then, by the items in force, checks the heap, prints and clears the statistics.
#pragma once

namespace quarl {

// `packet`: kPacketSize bytes, cleared here once its text is taken. A text without a NUL ends with the packet.
void handle_packet(char* packet);

}  // namespace quarl
