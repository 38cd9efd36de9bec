// SPDX-License-Identifier: Apache-2.0
#include "logs/files/maps_file.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include "platform/print.h"
#include "platform/system.h"
#include "state/process.h"

namespace quarl {

constinit MapsFile maps_file;

namespace {

using Path = TextBuffer<256>;

void name_maps(Path* path) {
  path->format("/proc/%d/maps", proc_pid).terminate();
}

}  // namespace

void MapsFile::open() {
  if (open_quietly()) return;
  Path path;
  name_maps(&path);
  static bool told_before = false;
  print_trouble(&told_before, {"maps", path.data(), errno}, "Open proc maps file %s failed\n", path.data());
}

bool MapsFile::open_quietly() {
  close();
  Path path;
  name_maps(&path);
  return descriptor_.open(path.data(), O_RDONLY);
}

// The kernel's file has no size and tells what is mapped now. An emulator's is a copy of what was mapped when it was
// opened: it is opened anew, but where a limit of the file size would make the emulator's own writing a deadly signal.
bool MapsFile::is_open() {
  int64_t size = 0;
  if (descriptor_.fd() <= 0 || !descriptor_.is_ours(&size)) return open_quietly();
  return size == 0 || sys::file_sizes_limited() || open_quietly();
}

bool MapsFile::rewind() {
  return sys::seek(descriptor_.fd(), 0, SEEK_SET) >= 0;
}

long MapsFile::read(void* data, size_t size) {
  return sys::read(descriptor_.fd(), data, size);
}

}  // namespace quarl
