// SPDX-License-Identifier: Apache-2.0
#include "frames/modules.h"

#include "frames/table_files.h"
#include "platform/maps_reader.h"
#include "unwind.h"

namespace quarl {

void ModuleList::add(const Module& module) {
  if (count_ < kMax) modules_[count_++] = module;
}

Module* ModuleList::find(uint32_t address) {
  uint32_t from = 0;
  uint32_t to = count_;
  while (from < to) {
    const uint32_t middle = from + (to - from) / 2;
    if (address >= modules_[middle].high) {
      from = middle + 1;
    } else {
      to = middle;
    }
  }
  return from < count_ && address >= modules_[from].low ? &modules_[from] : nullptr;
}

namespace {

// A file that begins in memory at `base`, and code of the same file behind it: an object that was loaded, and not only
// mapped to be read.
struct Candidate {
  uint32_t base = 0;
  uint64_t file_id = 0;
};

constexpr uint32_t kPage = 4096;

void add_object(uint32_t base, MemoryCopier copy, bool stays, ModuleList* list) {
  LoadedObject object;
  if (!object.read(base, frame::kElfMachine, copy)) return;
  if (object.id_size == 0 && stays) object.identify_by_text();
  const uint32_t low = object.text_low & ~(kPage - 1);
  list->add({low, round_up(object.text_high, kPage), object.bias, table_of(object)});
}

}  // namespace

void learn_modules(MemoryCopier copy, ModuleList* taken, ModuleList* list) {
  MapsReader maps;
  MapsLine line;
  Candidate candidate;
  while (maps.next(&line)) {
    if (!line.file) continue;
    if (line.offset == 0 && line.readable) candidate = {static_cast<uint32_t>(line.low), line.file_id};
    if (!line.executable || candidate.base == 0 || candidate.file_id != line.file_id) continue;
    const auto low = static_cast<uint32_t>(line.low);
    if (taken == nullptr || taken->find(low) == nullptr) add_object(candidate.base, copy, taken == nullptr, list);
    candidate.base = 0;
  }
}

}  // namespace quarl
