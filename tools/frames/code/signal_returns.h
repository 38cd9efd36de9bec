// SPDX-License-Identifier: Apache-2.0
// The code that handlers of signals return to: it calls the kernel to restore what the signal interrupted.
#pragma once

#include <vector>

#include "frames/elf/elf_module.h"
#include "quarl/frames/table_format.h"

namespace quarl::frames {

struct SignalReturn {
  uint32_t address;  // handlers return to it
  FrameBase base;    // kFrameSignal or kFrameRtSignal
};

// By address.
std::vector<SignalReturn> signal_returns(const ElfModule& module);

}  // namespace quarl::frames
