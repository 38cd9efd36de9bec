#include "logs/files/log_file.h"

#include <fcntl.h>
#include <unistd.h>

#include "platform/libc_hooks.h"
#include "platform/print.h"
#include "platform/system.h"

namespace quarl {

bool told(FileResult result) {
  if (!result.ok()) print(kStdout, "write log file failed,and error is %s\n", error_text(result.error()));
  return result.ok();
}

FileResult LogFile::open(const char* path, int flags) {
  close();
  const FileResult opened = FileResult::of(descriptor_.open(path, flags));
  find_end();
  return opened;
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

FileResult LogFile::create(const char* name) {
  path_[0] = '\0';
  const FileResult opened = open(path_of(name), O_CREAT | O_WRONLY | O_TRUNC);
  if (opened.ok()) {
    created_ = true;
  } else {
    path_[0] = '\0';
  }
  return opened;
}

bool LogFile::exists(const char* name) {
  const bool placed = path_[0] != '\0';
  const bool found = sys::readable(path_of(name));
  if (!placed) path_[0] = '\0';
  return found;
}

FileResult LogFile::reopen(const char* name) {
  return open(path_of(name), O_WRONLY);
}

void LogFile::close() {
  descriptor_.close();
}

void LogFile::forget() {
  close();
  created_ = false;
  path_[0] = '\0';
}

// 0 is never a log's descriptor.
bool LogFile::is_open() {
  if (descriptor_.fd() > 0 && descriptor_.is_ours(&end_)) return true;
  descriptor_.forget();
  return false;
}

void LogFile::find_end() {
  const int64_t end = sys::seek(descriptor_.fd(), 0, SEEK_END);
  end_ = end >= 0 ? end : 0;
}

FileResult LogFile::write_at(int64_t offset, const void* data, size_t size) {
  if (sys::seek(descriptor_.fd(), offset, SEEK_SET) < 0) return FileResult::of(false);
  const FileResult written = FileResult::of(sys::write_quietly(descriptor_.fd(), data, size));
  if (!written.ok()) {
    find_end();
  } else if (size > 0 && offset + static_cast<int64_t>(size) > end_) {
    end_ = offset + static_cast<int64_t>(size);
  }
  return written;
}

FileResult LogFile::append(const void* data, size_t size) {
  return write_at(end_, data, size);
}

FileResult LogFile::patch(int64_t offset, const void* data, size_t size) {
  return write_at(offset, data, size);
}

FileResult LogFile::patch_zeros(int64_t offset, size_t size) {
  static constexpr char kZeros[8192] = {};
  while (size > 0) {
    const size_t step = size < sizeof kZeros ? size : sizeof kZeros;
    const FileResult written = patch(offset, kZeros, step);
    if (!written.ok()) return written;
    offset += static_cast<int64_t>(step);
    size -= step;
  }
  return FileResult::success();
}

FileResult LogFile::append_zeros(size_t size) {
  return patch_zeros(end_, size);
}

FileResult LogFile::append_items(const void* data, size_t item_size, size_t count) {
  const int64_t start = end_;
  const FileResult written = append(data, item_size * count);
  if (!written.ok() && end_ > start) cut(end_ - (end_ - start) % static_cast<int64_t>(item_size)).unchecked();
  return written;
}

FileResult LogFile::cut(int64_t size) {
  const FileResult done = FileResult::of(sys::truncate(descriptor_.fd(), size) == 0);
  if (done.ok()) end_ = size;
  return done;
}

}  // namespace quarl
