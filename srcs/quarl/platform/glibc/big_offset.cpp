// SPDX-License-Identifier: Apache-2.0
#include "platform/glibc/big_offset.h"

namespace quarl::glibc {
namespace {

struct Kept {
  bool in_use;
  int fd;
  uint64_t offset;
};
constinit thread_local Kept kept{};

}  // namespace

BigOffset::BigOffset(int fd, uint64_t offset) {
  kept = {true, fd, offset};
}
BigOffset::~BigOffset() {
  kept.in_use = false;
}

uint64_t full_offset(int fd, long offset) {
  const auto low = static_cast<uint32_t>(offset);
  // The checker's own mappings inside the hook have no descriptor.
  const bool meant = kept.in_use && fd == kept.fd && low == static_cast<uint32_t>(kept.offset);
  return meant ? kept.offset : low;
}

}  // namespace quarl::glibc
