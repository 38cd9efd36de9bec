// SPDX-License-Identifier: Apache-2.0
#include "events/events_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace quarl::events {

namespace {

bool is_readable(int file) {
  struct pollfd source = {file, POLLIN, 0};
  return poll(&source, 1, 0) > 0;
}

}  // namespace

EventsFile::EventsFile(const std::string& path) : path_(path) {
  file_ = path == "-" ? dup(STDIN_FILENO) : open(path.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat status;
  if (file_ < 0 || fstat(file_, &status) != 0)
    throw std::runtime_error(fmt::format("cannot read {}: {}", path, std::strerror(errno)));
  if (S_ISDIR(status.st_mode)) throw std::runtime_error(fmt::format("{} is a directory; name an events file", path));
  if (!S_ISREG(status.st_mode)) return;
  watch_ = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
  if (watch_ >= 0) inotify_add_watch(watch_, fmt::format("/proc/self/fd/{}", file_).c_str(), IN_MODIFY);
}

EventsFile::~EventsFile() {
  if (watch_ >= 0) close(watch_);
  if (file_ >= 0) close(file_);
}

bool EventsFile::read(const EventReader::Take& take) {
  char bytes[65536];
  ssize_t got = 0;
  if (watch_ < 0 && !is_readable(file_)) return true;
  while ((got = ::read(file_, bytes, sizeof bytes)) > 0 || (got < 0 && errno == EINTR)) {
    if (got < 0) continue;
    reader_.feed({bytes, static_cast<size_t>(got)}, take);
    if (watch_ < 0) return true;  // the next read may wait
  }
  return watch_ >= 0;
}

void EventsFile::skip_to_end() {
  lseek(file_, 0, SEEK_END);
}

void EventsFile::clear() {
  char notices[4096];
  while (watch_ >= 0 && ::read(watch_, notices, sizeof notices) > 0) {
  }
}

std::string EventsFile::complaint() const {
  if (reader_.bad_lines() == 0) return reader_.cut() ? fmt::format("{} ends within a line", path_) : "";
  std::string more = reader_.bad_lines() == 1 ? "" : fmt::format(", nor are {} more", reader_.bad_lines() - 1);
  return fmt::format("{}:{}: this line is no event{}", path_, reader_.first_bad_line(), more);
}

void for_each_event(const std::string& path, uint32_t pid, const EventReader::Take& take) {
  std::ifstream file(path, std::ios::binary);
  EventReader reader;
  auto take_own = [&](const Event& event) {
    if (static_cast<uint32_t>(event.pid()) == pid) take(event);
  };
  char bytes[65536];
  while (file.read(bytes, sizeof bytes), file.gcount() > 0)
    reader.feed({bytes, static_cast<size_t>(file.gcount())}, take_own);
  reader.feed("\n", take_own);  // nothing more will come to a last line without its end
}

}  // namespace quarl::events
