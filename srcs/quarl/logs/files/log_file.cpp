// SPDX-License-Identifier: Apache-2.0
#include "logs/files/log_file.h"

#include <fcntl.h>
#include <unistd.h>

#include "logs/files/log_directory.h"
#include "platform/environment.h"
#include "platform/libc_hooks.h"
#include "platform/print.h"
#include "platform/system.h"

namespace quarl {
namespace {

constexpr int kOnlyNew = O_EXCL | O_NOFOLLOW;

}  // namespace

bool told(FileResult result) {
  static bool told_before = false;
  if (result.ok()) return true;
  print_trouble(&told_before, {"log", nullptr, result.error()}, "write log file failed,and error is %s\n",
                error_text(result.error()));
  return false;
}

// The path that it got at the first call.
const char* LogFile::path_of(const char* name) {
  if (path_[0] != '\0') return path_;
  Text path(path_, sizeof path_);
  place_log(name, &path);
  return path_;
}

// `existing`: the flags that say what becomes of a file that is there.
FileResult LogFile::make(int existing) {
  const FileResult made = FileResult::of(descriptor_.open(path_, O_CREAT | O_WRONLY | existing));
  if (made.error() != ENOENT || !make_log_directory()) return made;
  return FileResult::of(descriptor_.open(path_, O_CREAT | O_WRONLY | existing));
}

bool LogFile::make_at_start(const char* name) {
  Text path(path_, sizeof path_);
  return place_log_at_start(name, &path) && make(kOnlyNew).ok();
}

FileResult LogFile::create(const char* name) {
  close();
  path_[0] = '\0';
  path_of(name);
  // With rights that whoever chose the directory may not have, nothing that lies there already is written to.
  const FileResult made = make(has_borrowed_rights() ? kOnlyNew : O_TRUNC);
  wanted_ = created_ = made.ok() || make_at_start(name);
  find_end();
  if (!wanted_) path_[0] = '\0';
  return wanted_ ? FileResult::success() : made;
}

bool LogFile::exists(const char* name) {
  const bool placed = path_[0] != '\0';
  const bool found = sys::readable(path_of(name));
  if (!placed) path_[0] = '\0';
  return found;
}

FileResult LogFile::reopen(const char* name) {
  close();
  const char* path = path_of(name);
  const FileResult opened =
      FileResult::of(has_borrowed_rights() ? descriptor_.open_again(path, O_WRONLY) : descriptor_.open(path, O_WRONLY));
  wanted_ = opened.ok();
  find_end();
  return opened;
}

void LogFile::remove() {
  if (created_ && descriptor_.named_by(path_)) sys::unlink(path_);
}

void LogFile::close() {
  descriptor_.close();
  wanted_ = false;
}

void LogFile::forget() {
  close();
  created_ = false;
  path_[0] = '\0';
}

// 0 is never a log's descriptor.
bool LogFile::is_open() {
  if (!wanted_) return false;
  if (descriptor_.fd() > 0 && descriptor_.is_ours(&end_)) return true;
  descriptor_.forget();
  if (!descriptor_.open_again(path_, O_WRONLY)) return false;
  find_end();
  return true;
}

void LogFile::find_end() {
  const int64_t end = sys::seek(descriptor_.fd(), 0, SEEK_END);
  end_ = end >= 0 ? end : 0;
}

FileResult LogFile::try_write_at(int64_t offset, const void* data, size_t size) {
  return FileResult::of(sys::write_quietly_at(descriptor_.fd(), offset, data, size));
}

FileResult LogFile::write_at(int64_t offset, const void* data, size_t size) {
  FileResult written = try_write_at(offset, data, size);
  // A thread of the application may close it at any moment.
  if (written.error() == EBADF && is_open()) written = try_write_at(offset, data, size);
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

FileResult LogFile::patch_zeros(int64_t offset, uint64_t size) {
  static constexpr char kZeros[8192] = {};
  while (size > 0) {
    const auto step = static_cast<size_t>(size < sizeof kZeros ? size : sizeof kZeros);
    const FileResult written = patch(offset, kZeros, step);
    if (!written.ok()) return written;
    offset += static_cast<int64_t>(step);
    size -= step;
  }
  return FileResult::success();
}

FileResult LogFile::append_zeros(uint64_t size) {
  return patch_zeros(end_, size);
}

FileResult LogFile::append_items(const void* data, size_t item_size, size_t count) {
  const int64_t start = end_;
  const FileResult written = append(data, item_size * count);
  if (!written.ok() && end_ > start) cut(end_ - (end_ - start) % static_cast<int64_t>(item_size)).unchecked();
  return written;
}

FileResult LogFile::cut(int64_t size) {
  const FileResult done = FileResult::of(sys::truncate(descriptor_.fd(), size));
  if (done.ok()) end_ = size;
  return done;
}

}  // namespace quarl
