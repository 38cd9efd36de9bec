// SPDX-License-Identifier: Apache-2.0
// A file that a log is written to. It knows where it ends: bytes are appended there, or patched at an offset inside. It
// never writes into anything but the file that it was opened for (see OwnDescriptor).
//
// All functions need hook_mutex (start-up excepted).
#pragma once

#include <cstddef>
#include <cstdint>

#include "logs/files/file_result.h"
#include "platform/own_descriptor.h"

namespace quarl {

class LogFile {
 public:
  // The file is found again where it was created, also after the application has changed directory.
  FileResult create(const char* name);
  const char* path() const { return path_; }  // "" before it is placed
  bool exists(const char* name);              // readable, at the place where create would make it or has made it
  FileResult reopen(const char* name);        // not truncated
  void close();
  void remove();  // what this process has created, unless another file has its name by now
  void forget();  // in a forked child: closes the child's descriptor and starts anew

  // Looks whether the descriptor is still ours, and where the file ends now; opens the file again when the application
  // has closed it, as daemons do. To be asked before each round of changes.
  bool is_open();
  bool created() const { return created_; }
  int64_t end() const { return end_; }

  FileResult append(const void* data, size_t size);
  FileResult append_zeros(uint64_t size);
  // Whole items: when the disk fills up, a last partial item is cut off again.
  FileResult append_items(const void* data, size_t item_size, size_t count);
  FileResult patch(int64_t offset, const void* data, size_t size);
  FileResult patch_zeros(int64_t offset, uint64_t size);
  FileResult cut(int64_t size);

 private:
  static constexpr size_t kPathSize = 4096 + 256;

  FileResult make(int existing);
  bool make_at_start(const char* name);
  FileResult try_write_at(int64_t offset, const void* data, size_t size);
  FileResult write_at(int64_t offset, const void* data, size_t size);
  void find_end();
  const char* path_of(const char* name);

  OwnDescriptor descriptor_;
  int64_t end_ = 0;
  bool wanted_ = false;  // open, as far as the checker is concerned
  bool created_ = false;
  char path_[kPathSize] = "";  // empty: not placed yet
};

}  // namespace quarl
