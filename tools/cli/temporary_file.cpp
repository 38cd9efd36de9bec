#include "temporary_file.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "refusal.h"

namespace quarl {

TemporaryFile::~TemporaryFile() {
  if (!path_.empty()) unlink(path_.c_str());
}

void TemporaryFile::write(const std::string& bytes) {
  if (path_.empty()) {
    std::string path = std::filesystem::temp_directory_path() / "quarl-XXXXXX";
    int fd = mkstemp(path.data());
    if (fd < 0) refuse("cannot make a file in {}: {}", path, std::strerror(errno));
    close(fd);
    path_ = path;
  }
  std::ofstream file(path_, std::ios::binary);
  if (!(file << bytes).flush()) refuse("cannot write {}: {}", path_, std::strerror(errno));
}

}  // namespace quarl
