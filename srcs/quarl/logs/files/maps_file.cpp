#include "logs/files/maps_file.h"

#include <fcntl.h>
#include <unistd.h>

#include "platform/print.h"
#include "platform/system.h"
#include "state/process.h"

namespace quarl {

constinit MapsFile maps_file;

void MapsFile::open() {
  TextBuffer<256> path;
  path.format("/proc/%d/maps", proc_pid).terminate();
  close();
  static bool told_before = false;
  if (!descriptor_.open(path.data(), O_RDONLY))
    print_trouble(&told_before, "Open proc maps file %s failed\n", path.data());
}

bool MapsFile::is_open() {
  if (descriptor_.fd() > 0 && descriptor_.is_ours()) return true;
  descriptor_.forget();
  return false;
}

bool MapsFile::rewind() {
  return sys::seek(descriptor_.fd(), 0, SEEK_SET) >= 0;
}

long MapsFile::read(void* data, size_t size) {
  return sys::read(descriptor_.fd(), data, size);
}

}  // namespace quarl
