// A file that is removed at the end of the scope.
#pragma once

#include <string>

namespace quarl {

class TemporaryFile {
 public:
  TemporaryFile() = default;
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile();

  // Made at the first write, in TMPDIR or /tmp, readable by the user alone. A Refusal when it cannot be.
  void write(const std::string& bytes);
  const std::string& path() const { return path_; }  // "" before the first write

 private:
  std::string path_;
};

}  // namespace quarl
