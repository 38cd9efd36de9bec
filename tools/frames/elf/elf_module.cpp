// SPDX-License-Identifier: Apache-2.0
#include "frames/elf/elf_module.h"

#include <fcntl.h>
#include <gelf.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace quarl::frames {
namespace {

bool is_elf(int descriptor) {
  char start[SELFMAG];
  return pread(descriptor, start, sizeof start, 0) == sizeof start && std::memcmp(start, ELFMAG, SELFMAG) == 0;
}

}  // namespace

ElfModule::ElfModule(std::string path, std::string debug_path)
    : path_(std::move(path)), debug_path_(std::move(debug_path)), debug_path_pointer_(debug_path_.data()) {
  callbacks_.find_debuginfo = dwfl_standard_find_debuginfo;
  callbacks_.section_address = dwfl_offline_section_address;
  callbacks_.debuginfo_path = &debug_path_pointer_;
  try {
    open();
    read_segments();
  } catch (...) {
    if (dwfl_ != nullptr) dwfl_end(dwfl_);
    throw;
  }
}

ElfModule::~ElfModule() {
  dwfl_end(dwfl_);
}

// The file is alone in its Dwfl and loaded at 0, so that addresses are those of the file itself.
void ElfModule::open() {
  dwfl_ = dwfl_begin(&callbacks_);
  int descriptor = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC);
  if (dwfl_ == nullptr || descriptor < 0) throw NoModule("cannot be opened");
  if (!is_elf(descriptor)) {
    ::close(descriptor);
    throw NoModule("is no ELF file");
  }
  module_ = dwfl_report_elf(dwfl_, path_.c_str(), path_.c_str(), descriptor, 0, false);
  if (module_ == nullptr) ::close(descriptor);
  dwfl_report_end(dwfl_, nullptr, nullptr);
  if (module_ == nullptr) throw NoModule("is damaged");
}

void ElfModule::read_segments() {
  GElf_Addr bias;
  Elf* elf = dwfl_module_getelf(module_, &bias);
  GElf_Ehdr header;
  if (elf == nullptr || gelf_getehdr(elf, &header) == nullptr) throw NoModule("is damaged");
  bool known = header.e_machine == EM_ARM || header.e_machine == EM_386;
  if (gelf_getclass(elf) != ELFCLASS32 || header.e_ident[EI_DATA] != ELFDATA2LSB || !known) {
    throw NoModule("is for another processor");
  }
  arm_ = header.e_machine == EM_ARM;
  relocatable_ = header.e_type == ET_DYN;
  entry_ = static_cast<uint32_t>(header.e_entry);
  size_t size = 0, count = 0;
  const char* file = elf_rawfile(elf, &size);
  if (file == nullptr || elf_getphdrnum(elf, &count) != 0) throw NoModule("is damaged");
  for (size_t index = 0; index < count; ++index) {
    GElf_Phdr part;
    if (gelf_getphdr(elf, static_cast<int>(index), &part) == nullptr) throw NoModule("is damaged");
    if (part.p_type == PT_NULL || part.p_offset > size || part.p_filesz > size - part.p_offset) {
      if (part.p_type == PT_LOAD) throw NoModule("is cut short");
      continue;
    }
    Segment segment{static_cast<uint32_t>(part.p_vaddr),
                    {reinterpret_cast<const uint8_t*>(file) + part.p_offset, part.p_filesz},
                    (part.p_flags & PF_X) != 0};
    if (part.p_vaddr + part.p_filesz > UINT32_MAX) throw NoModule("is damaged");
    parts_.emplace_back(part.p_type, segment);
    if (part.p_type == PT_LOAD) segments_.push_back(segment);
  }
  for (const Segment& segment : segments_) {
    if (!segment.executable) continue;
    if (text_end_ == 0) text_start_ = segment.address;
    text_end_ = segment.address + static_cast<uint32_t>(segment.bytes.size());
  }
  if (text_end_ <= text_start_) throw NoCode("has no code");
  read_code(elf);
  const unsigned char* bits = nullptr;
  GElf_Addr address;
  int length = dwfl_module_build_id(module_, &bits, &address);
  if (length > 0) build_id_.assign(bits, bits + length);
}

void ElfModule::read_code(Elf* elf) {
  for (Elf_Scn* section = nullptr; (section = elf_nextscn(elf, section)) != nullptr;) {
    GElf_Shdr header;
    if (gelf_getshdr(section, &header) == nullptr || header.sh_type != SHT_PROGBITS ||
        !(header.sh_flags & SHF_EXECINSTR))
      continue;
    auto start = static_cast<uint32_t>(header.sh_addr), end = static_cast<uint32_t>(header.sh_addr + header.sh_size);
    if (start < end && is_code(start) && is_code(end - 1)) code_.push_back({start, end});
  }
  if (code_.empty()) {
    for (const Segment& segment : segments_) {
      if (segment.executable)
        code_.push_back({segment.address, segment.address + static_cast<uint32_t>(segment.bytes.size())});
    }
  }
  std::ranges::sort(code_, {}, &CodeRange::start);
}

namespace {

std::optional<CodeMark::Kind> mark_kind(const char* name) {
  if (name[0] != '$' || name[1] == 0 || (name[2] != 0 && name[2] != '.')) return std::nullopt;
  switch (name[1]) {
    case 'a':
      return CodeMark::kArm;
    case 't':
      return CodeMark::kThumb;
    case 'd':
      return CodeMark::kData;
    default:
      return std::nullopt;
  }
}

}  // namespace

// The symbols of the file, of its split debug file and of its .gnu_debugdata, as libdwfl finds them.
void ElfModule::read_symbols() const {
  if (std::exchange(symbols_read_, true)) return;
  int count = dwfl_module_getsymtab(module_);
  for (int index = 0; index < count; ++index) {
    GElf_Sym symbol;
    GElf_Addr value;
    const char* name = dwfl_module_getsym_info(module_, index, &symbol, &value, nullptr, nullptr, nullptr);
    if (name == nullptr || symbol.st_shndx == SHN_UNDEF) continue;
    auto address = static_cast<uint32_t>(value);
    if (auto kind = mark_kind(name); kind && arm_ && GELF_ST_BIND(symbol.st_info) == STB_LOCAL) {
      if (is_code(address)) marks_.push_back({address, *kind});
      continue;
    }
    if (GELF_ST_TYPE(symbol.st_info) != STT_FUNC && GELF_ST_TYPE(symbol.st_info) != STT_GNU_IFUNC) continue;
    bool thumb = arm_ && (address & 1);
    if (thumb) address -= 1;
    if (is_code(address)) functions_.push_back({address, thumb});
  }
  std::ranges::sort(functions_, {}, &CodeSymbol::address);
  std::ranges::stable_sort(marks_, {}, &CodeMark::address);
}

const std::vector<CodeSymbol>& ElfModule::functions() const {
  read_symbols();
  return functions_;
}

const std::vector<CodeMark>& ElfModule::marks() const {
  read_symbols();
  return marks_;
}

bool ElfModule::is_code(uint32_t address) const {
  return std::ranges::any_of(segments_, [&](const Segment& each) { return each.executable && each.contains(address); });
}

uint32_t ElfModule::code_end(uint32_t address) const {
  for (const CodeRange& range : code_) {
    if (address >= range.start && address < range.end) return range.end;
  }
  return address;
}

std::span<const uint8_t> ElfModule::bytes(uint32_t address) const {
  for (const Segment& segment : segments_) {
    if (segment.contains(address)) return segment.bytes.subspan(address - segment.address);
  }
  return {};
}

std::optional<uint32_t> ElfModule::word(uint32_t address) const {
  std::span<const uint8_t> at = bytes(address);
  if (at.size() < 4) return std::nullopt;
  uint32_t value;
  std::memcpy(&value, at.data(), 4);
  return value;
}

std::optional<Segment> ElfModule::part(uint32_t type) const {
  for (const auto& [each, segment] : parts_) {
    if (each == type) return segment;
  }
  return std::nullopt;
}

}  // namespace quarl::frames
