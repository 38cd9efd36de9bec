// SPDX-License-Identifier: Apache-2.0
#include "platform/mapped_object.h"

#include <elf.h>
#include <string.h>

namespace quarl {
namespace {

constexpr uint32_t kPage = 4096;
constexpr size_t kHeadBytes = 1024;  // with every program header there is: linkers make a dozen
constexpr uint32_t kNoteBytes = 256;

struct Head {
  alignas(Elf32_Ehdr) uint8_t bytes[kHeadBytes];

  const Elf32_Ehdr& header() const { return *reinterpret_cast<const Elf32_Ehdr*>(bytes); }
  const Elf32_Phdr* segments() const { return reinterpret_cast<const Elf32_Phdr*>(bytes + header().e_phoff); }

  bool fits(uint16_t machine) const {
    const Elf32_Ehdr& elf = header();
    return memcmp(elf.e_ident, ELFMAG, SELFMAG) == 0 && elf.e_ident[EI_CLASS] == ELFCLASS32 &&
           elf.e_machine == machine && elf.e_phentsize == sizeof(Elf32_Phdr) &&
           elf.e_phoff % alignof(Elf32_Phdr) == 0 && elf.e_phoff <= kHeadBytes &&
           elf.e_phnum <= (kHeadBytes - elf.e_phoff) / sizeof(Elf32_Phdr);
  }

  // The segment that begins the file tells where its link-time address went.
  bool bias(uint32_t base, uint32_t* out) const {
    for (int i = 0; i < header().e_phnum; ++i) {
      const Elf32_Phdr& segment = segments()[i];
      if (segment.p_type != PT_LOAD || segment.p_offset >= kPage) continue;
      *out = base - (segment.p_vaddr - segment.p_offset);
      return true;
    }
    return false;
  }
};

bool is_build_id(const Elf32_Nhdr& note, const uint8_t* name) {
  return note.n_type == NT_GNU_BUILD_ID && note.n_namesz == sizeof ELF_NOTE_GNU &&
         memcmp(name, ELF_NOTE_GNU, sizeof ELF_NOTE_GNU) == 0;
}

// The build id among the notes in [bytes, bytes + size); its size, 0 when there is none.
uint8_t find_build_id(const uint8_t* bytes, uint32_t size, uint8_t* id) {
  uint32_t at = 0;
  while (size - at >= sizeof(Elf32_Nhdr)) {
    Elf32_Nhdr note;
    memcpy(&note, bytes + at, sizeof note);
    at += static_cast<uint32_t>(sizeof note);
    if (note.n_namesz > size - at || round_up(note.n_namesz, 4) > size - at) return 0;
    const uint8_t* name = bytes + at;
    at += round_up(note.n_namesz, 4);
    if (note.n_descsz > size - at) return 0;
    if (is_build_id(note, name)) {
      const uint32_t kept = note.n_descsz < kBuildIdMax ? note.n_descsz : kBuildIdMax;
      memcpy(id, bytes + at, kept);
      return static_cast<uint8_t>(kept);
    }
    at += round_up(note.n_descsz, 4);
    if (at > size) return 0;
  }
  return 0;
}

}  // namespace

bool MappedObject::read(uint32_t base, uint16_t machine, MemoryCopier copy) {
  Head head;
  if (!copy(pointer_to(base), head.bytes, sizeof head.bytes) || !head.fits(machine) || !head.bias(base, &bias))
    return false;
  for (int i = 0; i < head.header().e_phnum; ++i) {
    const Elf32_Phdr& segment = head.segments()[i];
    const uint32_t start = segment.p_vaddr + bias;
    if (segment.p_type == PT_LOAD && (segment.p_flags & PF_X) != 0) {
      if (first_segment.size == 0) first_segment = {start, segment.p_filesz};
      if (text_high == 0 || start < text_low) text_low = start;
      if (start + segment.p_memsz > text_high) text_high = start + segment.p_memsz;
    } else if (segment.p_type == PT_NOTE && id_size == 0) {
      uint8_t notes[kNoteBytes];
      const uint32_t size = segment.p_memsz < kNoteBytes ? segment.p_memsz : kNoteBytes;
      if (copy(pointer_to(start), notes, size)) id_size = find_build_id(notes, size, id);
    }
  }
  return text_low < text_high;
}

}  // namespace quarl
