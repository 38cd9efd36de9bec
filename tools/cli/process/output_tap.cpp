#include "process/output_tap.h"

#include <sys/stat.h>
#include <unistd.h>

#include "process/file_tap.h"
#include "process/relay_tap.h"

namespace quarl {

std::unique_ptr<OutputTap> OutputTap::open(bool direct) {
  struct stat output;
  if (direct || fstat(STDOUT_FILENO, &output) != 0) return std::make_unique<OutputTap>();
  if (S_ISREG(output.st_mode)) {
    if (auto tap = FileTap::open()) return tap;
  }
  return RelayTap::open(isatty(STDOUT_FILENO));
}

}  // namespace quarl
