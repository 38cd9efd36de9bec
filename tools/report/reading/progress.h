// SPDX-License-Identifier: Apache-2.0
// A progress bar on standard error, when that is a terminal and the work takes longer than a second.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace quarl::report {

class Progress {
 public:
  Progress(std::string label, uint64_t total);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void update(uint64_t done);

 private:
  using Clock = std::chrono::steady_clock;
  void draw(uint64_t done);

  std::string label_;
  uint64_t total_;
  bool terminal_;
  bool drawn_ = false;
  Clock::time_point next_;
};

}  // namespace quarl::report
