// SPDX-License-Identifier: Apache-2.0
// What a walk by unwind rules carries from frame to frame.
#pragma once

#include <cstdint>

namespace quarl {

struct Registers {
  uint32_t pc;       // in the frame; of a caller the return address, as it stands on the stack
  uint32_t sp;       // behind what the callee has popped; never falls on a walk
  uint32_t frame;    // ebp (i386), r7 (ARM); 0 when lost
  uint32_t r11;      // ARM: the frame pointer of ARM code; 0 when lost
  uint32_t link;     // ARM: lr where a signal interrupted, else 0
  bool interrupted;  // pc is where a signal came, not behind a call
};

// Code that no table can tell about.
enum class KnownCode : uint8_t {
  kNone,
  kSignalReturn,    // where a signal handler returns to
  kRtSignalReturn,  // the same of one with SA_SIGINFO
  kSystemCall,      // the kernel's own code in the process, where system calls are made or small things done
};

}  // namespace quarl
