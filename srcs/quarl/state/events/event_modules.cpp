// SPDX-License-Identifier: Apache-2.0
#include "state/events/event_modules.h"

#include <fcntl.h>
#include <string.h>

#include "platform/mapped_object.h"
#include "platform/maps_reader.h"
#include "platform/system.h"
#include "unwind.h"

namespace quarl {
namespace {

constexpr const char* kDeleted = " (deleted)";  // behind the path of a file that has no name any more

// As the kernel writes it: a line feed by its digits.
void restore_path(char* path) {
  const size_t length = strlen(path);
  const size_t tail = strlen(kDeleted);
  if (length > tail && strcmp(path + length - tail, kDeleted) == 0) path[length - tail] = '\0';
  for (char* found = path; (found = strstr(found, "\\012")) != nullptr;) {
    *found++ = '\n';
    memmove(found, found + 3, strlen(found + 3) + 1);
  }
}

uint32_t mark_of(uint64_t file_id, const MappedObject& object) {
  uint32_t mark = static_cast<uint32_t>(file_id) * 31 + static_cast<uint32_t>(file_id >> 32);
  for (int i = 0; i < object.id_size; ++i) mark = mark * 31 + object.id[i];
  return mark;
}

bool holds_any(const MapsLine& line, const uint32_t* addresses, int count) {
  for (int i = 0; i < count; ++i) {
    if (addresses[i] >= line.low && addresses[i] < line.high) return true;
  }
  return false;
}

}  // namespace

uint32_t EventModules::id_of(uint32_t base, uint32_t mark) const {
  for (uint32_t i = 0; i < count_ && i < kMost; ++i) {
    if (told_[i].base == base && told_[i].mark == mark) return told_[i].id;
  }
  return 0;
}

void EventModules::keep(uint32_t base, uint32_t mark, uint32_t id) {
  for (uint32_t i = 0; i < count_ && i < kMost; ++i) {
    if (told_[i].base == base) {
      told_[i] = {base, mark, id};
      return;
    }
  }
  told_[count_ % kMost] = {base, mark, id};
  ++count_;
}

void EventModules::begin_process() {
  const KeepErrno keep;
  count_ = next_id_ = 0;
  maps_.close();
  maps_.open(kOwnMaps, O_RDONLY);
}

struct EventModules::Code {
  const MapsLine& line;
  const MappedObject& object;
  uint32_t base;  // where its file begins in memory
};

// Until a visit answers false, and that is the answer then.
template <typename Wanted, typename Visit>
bool EventModules::for_each_code(Wanted wanted, Visit visit) {
  MapsReader maps(path_, sizeof path_, maps_.is_ours() ? maps_.fd() : -1);
  MapsLine line;
  uint64_t file = 0;  // whose first byte lies at `base`
  uint32_t base = 0;
  while (maps.next(&line)) {
    if (!line.file) continue;
    if (line.offset == 0 && line.file_id != file) {
      file = line.file_id;
      base = static_cast<uint32_t>(line.low);
    }
    if (!line.executable || line.file_id != file || !wanted(line)) continue;
    MappedObject object;
    if (!object.read(base, frame::kElfMachine, sys::copy_memory)) continue;
    if (!visit(Code{line, object, base})) return false;
  }
  return true;
}

// 0: it was to be told, and could not be.
uint32_t EventModules::told_id(const Code& code, Teller tell) {
  const uint32_t mark = mark_of(code.line.file_id, code.object);
  if (const uint32_t known = id_of(code.base, mark)) return known;
  restore_path(path_);
  const uint32_t id = ++next_id_;
  if (!tell(id, path_, code.object, code.base)) return 0;
  keep(code.base, mark, id);
  return id;
}

bool EventModules::resolve(const uint32_t* addresses, int count, Teller tell, Frame* frames) {
  for (int i = 0; i < count; ++i) frames[i] = {0, addresses[i]};
  const auto wanted = [=](const MapsLine& line) { return holds_any(line, addresses, count); };
  return for_each_code(wanted, [&](const Code& code) {
    const uint32_t id = told_id(code, tell);
    for (int i = 0; id != 0 && i < count; ++i) {
      const bool here = addresses[i] >= code.line.low && addresses[i] < code.line.high;
      if (here) frames[i] = {id, addresses[i] - code.object.bias};
    }
    return id != 0;
  });
}

bool EventModules::tell_all(Teller tell) {
  const auto any = [](const MapsLine&) { return true; };
  return for_each_code(any, [&](const Code& code) { return told_id(code, tell) != 0; });
}

}  // namespace quarl
