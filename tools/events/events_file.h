// SPDX-License-Identifier: Apache-2.0
// An events file that may still grow.
#pragma once

#include "events/event_reader.h"

namespace quarl::events {

class EventsFile {
 public:
  // "-" is standard input. Throws std::runtime_error when the file cannot be read.
  explicit EventsFile(const std::string& path);
  ~EventsFile();
  EventsFile(const EventsFile&) = delete;
  EventsFile& operator=(const EventsFile&) = delete;

  // Takes what was appended since the last time. False at the end of something that does not grow: a pipe whose writer
  // is gone.
  bool read(const EventReader::Take& take);
  // Goes to where the file ends now, so that only what is appended later is read.
  void skip_to_end();
  // A descriptor that poll() finds readable when the file may have grown; clear() takes that back.
  int watch() const { return watch_ >= 0 ? watch_ : file_; }
  void clear();

  const std::string& path() const { return path_; }
  // One sentence on lines that are no events; "" when all are.
  std::string complaint() const;

 private:
  std::string path_;
  int file_ = -1;
  int watch_ = -1;  // inotify; -1 for a pipe or a terminal
  EventReader reader_;
};

// Takes the events of one process that are in a file now, in their order; none of one that cannot be read.
void for_each_event(const std::string& path, uint32_t pid, const EventReader::Take& take);

}  // namespace quarl::events
