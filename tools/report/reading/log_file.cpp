// SPDX-License-Identifier: Apache-2.0
#include "report/reading/log_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "report/reading/log_error.h"

namespace quarl::report {

// A FIFO is opened without waiting for its writer, to be refused.
LogFile::LogFile(std::string path)
    : path_(std::move(path)), descriptor_(open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
  struct stat status = {};
  if (descriptor_ < 0 || fstat(descriptor_, &status) != 0) {
    throw LogError(path_, 0, fmt::format("cannot be opened: {}", strerror(errno)));
  }
  if (!S_ISREG(status.st_mode)) {
    close(descriptor_);
    throw LogError(path_, 0, "not a regular file; a log is read at offsets, so copy it to a file first");
  }
  size_ = static_cast<uint64_t>(status.st_size);
  posix_fadvise(descriptor_, 0, 0, POSIX_FADV_SEQUENTIAL);
}

LogFile::~LogFile() {
  if (descriptor_ >= 0) close(descriptor_);
}

LogFile::LogFile(LogFile&& other) noexcept
    : path_(std::move(other.path_)), descriptor_(std::exchange(other.descriptor_, -1)), size_(other.size_) {}

size_t LogFile::read_at(uint64_t offset, void* buffer, size_t bytes) const {
  if (offset >= size_) return 0;
  bytes = static_cast<size_t>(std::min<uint64_t>(bytes, size_ - offset));
  size_t done = 0;
  while (done < bytes) {
    ssize_t got =
        pread(descriptor_, static_cast<char*>(buffer) + done, bytes - done, static_cast<off_t>(offset + done));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) throw LogError(path_, offset + done, fmt::format("cannot be read: {}", strerror(errno)));
    if (got == 0) break;  // truncated since it was opened
    done += static_cast<size_t>(got);
  }
  return done;
}

}  // namespace quarl::report
