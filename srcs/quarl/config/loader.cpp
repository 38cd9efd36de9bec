#include "config/loader.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include "config/file_lines.h"
#include "config/items.h"
#include "platform/system.h"

namespace quarl {
namespace {

constexpr const char* kDefaultPath = "quarlcfg.ini";

const char* configuration_path() {
  const char* path = getenv("QUARL_CFG_FILE");
  return path != nullptr ? path : kDefaultPath;
}

}  // namespace

int load_configuration() {
  const int fd = sys::open(configuration_path(), O_RDONLY);
  if (fd < 0) return -1;
  const auto read_at = [fd](int64_t offset, char* buffer) -> long {
    return sys::seek(fd, offset, SEEK_SET) < 0 ? -1 : sys::read(fd, buffer, kReadSize);
  };
  for_each_line(read_at, [](const char* line, int64_t) NO_THREAD_SAFETY_ANALYSIS { apply_line(line); });
  apply_defaults();
  sys::close(fd);
  return 0;
}

}  // namespace quarl
