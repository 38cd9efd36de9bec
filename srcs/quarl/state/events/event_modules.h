// SPDX-License-Identifier: Apache-2.0
// The ELF files that frames lie in: each is told once, before the first frame in it or before it may go. They are
// looked up in what the kernel says is mapped at that moment, without the loader, its lists or its lock.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/own_descriptor.h"

namespace quarl {

class EventModules {
 public:
  struct Frame {
    uint32_t module;  // 0: in none, and `offset` is the address
    uint32_t offset;
  };
  // Builds and writes the line of a module; false when it is not out.
  using Teller = bool (*)(uint32_t id, const char* path, const struct MappedObject& object, uint32_t address);

  // The frames of return addresses; modules that were not told are. Allocates nothing, reads /proc/self/maps. False
  // when one could not be told. At most kMostFrames.
  bool resolve(const uint32_t* addresses, int count, Teller tell, Frame* frames);

  // Tells all that are mapped and were not told. As resolve().
  bool tell_all(Teller tell);

  // In a process that begins, or in a child, which tells its modules anew. The mappings are kept open, for where a jail
  // has no /proc.
  void begin_process();

  static constexpr int kMostFrames = 64;

 private:
  struct Told {
    uint32_t base;
    uint32_t mark;  // of what lies there
    uint32_t id;
  };
  static constexpr uint32_t kMost = 256;

  struct Code;  // that is mapped, and its file

  template <typename Wanted, typename Visit>
  bool for_each_code(Wanted wanted, Visit visit);
  uint32_t told_id(const Code& code, Teller tell);
  uint32_t id_of(uint32_t base, uint32_t mark) const;
  void keep(uint32_t base, uint32_t mark, uint32_t id);

  OwnDescriptor maps_;
  char path_[4096 + 64] = "";  // of a line of mappings
  Told told_[kMost]{};
  uint32_t count_ = 0;  // of all that were ever told: of more than kMost the eldest are forgotten
  uint32_t next_id_ = 0;
};

}  // namespace quarl
