// SPDX-License-Identifier: Apache-2.0
#include "platform/maps_reader.h"

#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include "platform/system.h"

namespace quarl {

MapsReader::MapsReader(char* path, size_t size, int spare)
    : fd_(sys::open(kOwnMaps, O_RDONLY)), opened_(fd_ >= 0), path_(path), path_size_(size) {
  if (!opened_ && sys::seek(spare, 0, SEEK_SET) == 0) fd_ = spare;
}

MapsReader::~MapsReader() {
  if (opened_) sys::close(fd_);
}

bool MapsReader::fill() {
  const long got = fd_ >= 0 ? sys::read(fd_, buffer_, sizeof buffer_) : 0;
  used_ = 0;
  filled_ = got > 0 ? static_cast<size_t>(got) : 0;
  return filled_ > 0;
}

inline int MapsReader::get() {
  if (used_ == filled_ && !fill()) return -1;
  return static_cast<unsigned char>(buffer_[used_++]);
}

bool MapsReader::skip_line() {
  bool slash = false;
  while (used_ != filled_ || fill()) {
    const char* rest = buffer_ + used_;
    const auto* end = static_cast<const char*>(memchr(rest, '\n', filled_ - used_));
    const size_t length = end != nullptr ? static_cast<size_t>(end - rest) : filled_ - used_;
    const auto* first = slash ? rest : static_cast<const char*>(memchr(rest, '/', length));
    slash = first != nullptr;
    if (slash && path_ != nullptr) keep_path(first, length - static_cast<size_t>(first - rest));
    used_ += length;
    if (end == nullptr) continue;
    ++used_;
    break;
  }
  return slash;
}

void MapsReader::keep_path(const char* part, size_t length) {
  const size_t room = path_size_ - 1 - path_used_;
  if (length > room) length = room;
  memcpy(path_ + path_used_, part, length);
  path_used_ += length;
  path_[path_used_] = '\0';
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
  path_used_ = 0;
  if (path_ != nullptr) path_[0] = '\0';
  line->file = c != '\n' && skip_line();
  return true;
}

}  // namespace quarl
