// One log file: a descriptor that never writes into anything but the file that it was opened for. Applications close
// descriptors that they do not know; the number may then belong to a file of theirs. So the file's identity is compared
// before use, and a descriptor that is no longer ours is forgotten, not closed.
//
// All functions need hook_mutex (start-up excepted). Failures leave errno.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace quarl {

class LogFile {
 public:
  // The file lies in the directory that is the process's current one when it is created; it is found there again after
  // the application has changed directory.
  bool create(const char* name);
  bool exists(const char* name);  // readable, at the place where create would make it or has made it
  bool reopen(const char* name);  // write-only, not truncated
  bool open_read_only(const char* path);
  void close();
  void forget();  // in a forked child: closes the child's descriptor and starts anew

  bool is_open();  // looks whether the descriptor is still ours
  bool created() const { return created_; }

  int64_t seek(int64_t offset);
  int64_t seek_end();
  bool truncate(int64_t size);
  bool write(const void* data, size_t size);
  long read(void* data, size_t size);
  bool write_zeros(size_t size);

  // The same, and a failure is told on standard output.
  bool seek_or_tell(int64_t offset);
  void write_or_tell(const void* data, size_t size);
  void write_zeros_or_tell(size_t size);

  // Writes whole items at the end of the file: when the disk fills up, a last partial item is cut off again.
  bool append(const void* data, size_t item_size, size_t count);

 private:
  static constexpr size_t kPathSize = 4096 + 256;

  bool open(const char* path, int flags);
  const char* path_of(const char* name);

  int fd_ = -1;
  bool created_ = false;
  uint64_t device_ = 0;
  uint64_t inode_ = 0;
  char path_[kPathSize] = "";  // empty: not placed yet
};

}  // namespace quarl
