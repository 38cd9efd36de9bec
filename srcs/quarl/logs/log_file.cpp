#include "logs/log_file.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include "platform/print.h"
#include "platform/system.h"

namespace quarl {
namespace {

// Out of the way of programs that expect small numbers for their own files; 0 is never a log's descriptor.
constexpr int kLowestDescriptor = 100;

int move_up(int fd) {
  const int moved = sys::duplicate_above(fd, kLowestDescriptor);
  if (moved < 0) return fd;
  sys::close(fd);
  return moved;
}

}  // namespace

bool LogFile::open(const char* path, int flags) {
  close();
  const int fd = sys::open(path, flags, 0666);
  if (fd < 0) return false;
  fd_ = move_up(fd);
  struct stat64 info {};
  if (!sys::stat_fd(fd_, &info)) return false;
  device_ = info.st_dev;
  inode_ = info.st_ino;
  return true;
}

// The name in the directory that was current at the first call; the bare name when that directory has no path.
const char* LogFile::path_of(const char* name) {
  if (path_[0] != '\0') return path_;
  Text path(path_, sizeof path_);
  static char directory[4096];  // not on a stack that may be a small thread's; under the lock like all of this
  if (name[0] != '/' && sys::current_directory(directory, sizeof directory) > 1 && directory[0] == '/') {
    path.format("%s/", directory[1] != '\0' ? directory : "");
  }
  path.format("%s", name).terminate();
  return path_;
}

bool LogFile::create(const char* name) {
  path_[0] = '\0';
  if (!open(path_of(name), O_CREAT | O_WRONLY | O_TRUNC)) {
    path_[0] = '\0';
    return false;
  }
  created_ = true;
  return true;
}

bool LogFile::exists(const char* name) {
  const bool placed = path_[0] != '\0';
  const bool found = sys::readable(path_of(name));
  if (!placed) path_[0] = '\0';
  return found;
}

bool LogFile::reopen(const char* name) {
  return open(path_of(name), O_WRONLY);
}

bool LogFile::open_read_only(const char* path) {
  return open(path, O_RDONLY);
}

void LogFile::close() {
  if (is_open()) sys::close(fd_);
  fd_ = -1;
}

void LogFile::forget() {
  close();
  created_ = false;
  path_[0] = '\0';
}

bool LogFile::is_open() {
  if (fd_ <= 0) return false;
  struct stat64 info {};
  if (sys::stat_fd(fd_, &info) && info.st_dev == device_ && info.st_ino == inode_) return true;
  fd_ = -1;
  return false;
}

int64_t LogFile::seek(int64_t offset) {
  return sys::seek(fd_, offset, SEEK_SET);
}
int64_t LogFile::seek_end() {
  return sys::seek(fd_, 0, SEEK_END);
}
bool LogFile::truncate(int64_t size) {
  return sys::truncate(fd_, size) == 0;
}
bool LogFile::write(const void* data, size_t size) {
  return sys::write_quietly(fd_, data, size);
}
long LogFile::read(void* data, size_t size) {
  return sys::read(fd_, data, size);
}

bool LogFile::write_zeros(size_t size) {
  static constexpr char kZeros[8192] = {};
  while (size > 0) {
    const size_t step = size < sizeof kZeros ? size : sizeof kZeros;
    if (!write(kZeros, step)) return false;
    size -= step;
  }
  return true;
}

bool LogFile::seek_or_tell(int64_t offset) {
  if (seek(offset) >= 0) return true;
  print_write_failure();
  return false;
}

void LogFile::write_or_tell(const void* data, size_t size) {
  if (!write(data, size)) print_write_failure();
}

void LogFile::write_zeros_or_tell(size_t size) {
  if (!write_zeros(size)) print_write_failure();
}

bool LogFile::append(const void* data, size_t item_size, size_t count) {
  const int64_t start = seek_end();
  if (start < 0) return false;
  if (write(data, item_size * count)) return true;
  const int error = errno;
  const int64_t written = seek_end() - start;
  if (written > 0) truncate(start + written - written % static_cast<int64_t>(item_size));
  seek_end();
  errno = error;
  return false;
}

}  // namespace quarl
