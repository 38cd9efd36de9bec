// SPDX-License-Identifier: Apache-2.0
#include "report/reading/progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>

namespace quarl::report {
namespace {

constexpr int kBarWidth = 40;
constexpr auto kDelay = std::chrono::seconds(1);
constexpr auto kPeriod = std::chrono::milliseconds(100);

}  // namespace

Progress::Progress(std::string label, uint64_t total)
    : label_(std::move(label)), total_(total), terminal_(isatty(STDERR_FILENO) == 1), next_(Clock::now() + kDelay) {}

Progress::~Progress() {
  if (drawn_) fmt::print(stderr, "\r\033[K");
}

void Progress::update(uint64_t done) {
  if (!terminal_ || Clock::now() < next_) return;
  next_ = Clock::now() + kPeriod;
  draw(done);
}

void Progress::draw(uint64_t done) {
  int filled = total_ == 0 ? kBarWidth : static_cast<int>(done * kBarWidth / total_);
  int percent = total_ == 0 ? 100 : static_cast<int>(done * 100 / total_);
  fmt::print(stderr, "\r{} [{:#<{}}{:.<{}}] {:3}%\033[K", label_, "", filled, "", kBarWidth - filled, percent);
  fflush(stderr);
  drawn_ = true;
}

}  // namespace quarl::report
