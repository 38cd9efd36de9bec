// SPDX-License-Identifier: Apache-2.0
// What became of a change of a file.
#pragma once

#include <cerrno>

namespace quarl {

// Success, or the errno of the failure. Somebody has to look at it.
class [[nodiscard]] FileResult {
 public:
  static FileResult success() { return FileResult(0); }
  static FileResult failure(int error) { return FileResult(error); }
  static FileResult of(bool done) { return FileResult(done ? 0 : errno); }

  bool ok() const { return error_ == 0; }
  int error() const { return error_; }

  // For the rare place where a failure shows later by itself.
  void unchecked() const {}

 private:
  explicit FileResult(int error) : error_(error) {}

  int error_;
};

// Tells a failure (print_trouble), "write log file failed,and error is %s\n"; returns whether there was none.
bool told(FileResult result);

}  // namespace quarl
