// SPDX-License-Identifier: Apache-2.0
// The file that events go to: each line by one write behind what is there. The descriptor is opened once and kept, so
// that it outlives chroot and dropped privileges; where the program has closed it, the file is opened again.
#pragma once

#include <cstddef>

#include "platform/own_descriptor.h"

namespace quarl {

class EventFile {
 public:
  // Takes the path, by the current directory when it is relative, and opens the file; false with errno.
  bool settle(const char* path);

  // False when the line is not there whole: nobody reads, a full disk or pipe. Waits for nobody.
  bool write(const char* line, size_t size);

 private:
  bool open();
  bool ready() { return descriptor_.is_ours() || open(); }
  bool end_cut_line();

  static constexpr size_t kPathSize = 4096;
  char path_[kPathSize] = "";
  OwnDescriptor descriptor_;
  bool made_ = false;  // it was there: one that is gone is not made anew, in a jail or by another user
  bool cut_ = false;   // the last line has no end
};

}  // namespace quarl
