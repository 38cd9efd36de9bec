// SPDX-License-Identifier: Apache-2.0
#include "platform/resident_memory.h"

#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include "platform/system.h"

namespace quarl {

// "size resident shared ...", in pages.
uint64_t resident_bytes() {
  const KeepErrno keep;
  const int fd = sys::open("/proc/self/statm", O_RDONLY);
  if (fd < 0) return 0;
  char text[128] = "";
  sys::read(fd, text, sizeof text - 1);
  sys::close(fd);
  const char* at = strchr(text, ' ');
  if (at == nullptr) return 0;
  uint64_t pages = 0;
  while (*++at >= '0' && *at <= '9') pages = pages * 10 + static_cast<uint64_t>(*at - '0');
  return pages * static_cast<uint64_t>(getpagesize());
}

}  // namespace quarl
