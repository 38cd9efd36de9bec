#include "platform/maps_reader.h"

#include <fcntl.h>

#include "platform/system.h"

namespace quarl {

MapsReader::MapsReader() : fd_(sys::open("/proc/self/maps", O_RDONLY)) {}

MapsReader::~MapsReader() {
  if (fd_ >= 0) sys::close(fd_);
}

int MapsReader::get() {
  if (used_ == filled_) {
    const long got = fd_ >= 0 ? sys::read(fd_, buffer_, sizeof buffer_) : 0;
    if (got <= 0) return -1;
    used_ = 0;
    filled_ = static_cast<size_t>(got);
  }
  return static_cast<unsigned char>(buffer_[used_++]);
}

// The hexadecimal number that comes next; `stop` receives the character behind it.
uintptr_t MapsReader::hex(int* stop) {
  uintptr_t value = 0;
  for (;;) {
    const int c = get();
    if (c >= '0' && c <= '9') {
      value = value * 16 + static_cast<uintptr_t>(c - '0');
    } else if (c >= 'a' && c <= 'f') {
      value = value * 16 + static_cast<uintptr_t>(c - 'a' + 10);
    } else {
      *stop = c;
      return value;
    }
  }
}

// A line: "low-high rwxp offset major:minor inode   path".
bool MapsReader::next(MapsLine* line) {
  int c = 0;
  line->low = hex(&c);
  if (c != '-') return false;
  line->high = hex(&c);
  if (line->high == 0) line->high = ~uintptr_t{0};  // a 4 GiB end cut to 32 bits
  line->readable = get() == 'r';
  get();
  line->executable = get() == 'x';
  get();
  get();
  line->offset = static_cast<uint32_t>(hex(&c));
  const uint64_t major = hex(&c);
  const uint64_t minor = hex(&c);
  line->file_id = (major << 20 ^ minor) << 32 | hex(&c);  // the inode is decimal, and as good a name in hexadecimal
  line->file = false;
  while (c != '\n' && c != -1) {
    c = get();
    if (c == '/') line->file = true;
  }
  return true;
}

}  // namespace quarl
