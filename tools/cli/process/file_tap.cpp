#include "process/file_tap.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quarl {

std::unique_ptr<FileTap> FileTap::open() {
  int file = ::open("/proc/self/fd/1", O_RDONLY | O_CLOEXEC);
  if (file < 0) return nullptr;
  bool appends = fcntl(STDOUT_FILENO, F_GETFL) & O_APPEND;
  off_t start = appends ? lseek(file, 0, SEEK_END) : lseek(STDOUT_FILENO, 0, SEEK_CUR);
  return std::unique_ptr<FileTap>(new FileTap(file, start));
}

FileTap::~FileTap() {
  close(file_);
}

void FileTap::look() {
  struct stat status;
  if (fstat(file_, &status) == 0 && status.st_size < position_) position_ = 0;  // the program has cut its file
  char piece[64 * 1024];
  for (ssize_t got; (got = pread(file_, piece, sizeof piece, position_)) > 0; position_ += got) {
    scanner_.feed({piece, static_cast<size_t>(got)});
  }
}

}  // namespace quarl
