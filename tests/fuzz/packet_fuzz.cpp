// SPDX-License-Identifier: Apache-2.0
// An agent's packet of any 32 bytes or fewer, in the 33 bytes that end in NUL.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "agent/packet.h"
#include "config/line.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::unique_ptr<char[]> packet(new char[quarl::kPacketSize + 1]());
  memcpy(packet.get(), data, size < quarl::kPacketSize ? size : quarl::kPacketSize);
  const quarl::Line line = quarl::parse_line(packet.get());
  if (strlen(line.key) > quarl::kMaxKey || strlen(line.value) > quarl::kMaxValue) abort();
  if (line.error == quarl::LineError::kNone && line.value[0] == '\0') abort();
  if (line.error_text != nullptr && strlen(line.error_text) > quarl::kPacketSize) abort();
  return 0;
}
