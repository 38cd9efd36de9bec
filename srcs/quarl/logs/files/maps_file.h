// SPDX-License-Identifier: Apache-2.0
// /proc/PID/maps, open for the whole run: what the maps section of every log is copied from.
#pragma once

#include "platform/own_descriptor.h"
#include "state/hook_lock.h"

namespace quarl {

class MapsFile {
 public:
  void open();  // of this process; a failure is told (print_trouble)
  bool open_quietly();
  bool is_open();  // opens it again, without a word, when it is not
  bool rewind();   // false with errno
  long read(void* data, size_t size);
  void close() { descriptor_.close(); }

 private:
  OwnDescriptor descriptor_;
};

extern MapsFile maps_file GUARDED_BY(hook_mutex);

}  // namespace quarl
