// SPDX-License-Identifier: Apache-2.0
// Holds back every signal of the calling thread, those of the C library's own included: no handler interrupts it and no
// cancellation ends it meanwhile. Nothing where calls are refused (confinement.h). Safe in a signal handler.
#pragma once

#include <cstdint>

namespace quarl {

class HeldSignals {
 public:
  explicit HeldSignals(bool wanted = true);
  ~HeldSignals();
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;

 private:
  uint64_t before_ = 0;  // the kernel's mask
  bool held_;
};

}  // namespace quarl
