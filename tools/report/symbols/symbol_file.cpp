// SPDX-License-Identifier: Apache-2.0
#include "report/symbols/symbol_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <gelf.h>
#include <unistd.h>

#include <algorithm>

#include "report/symbols/call_check.h"

namespace quarl::report {
namespace {

// Debug information that was split off names the sections of code, and holds none of them.
bool holds_code(Elf* elf) {
  for (Elf_Scn* section = nullptr; (section = elf_nextscn(elf, section)) != nullptr;) {
    GElf_Shdr header;
    if (gelf_getshdr(section, &header) == nullptr || header.sh_type != SHT_NOBITS) continue;
    if ((header.sh_flags & SHF_EXECINSTR) != 0) return false;
  }
  return true;
}

// Both target families map files in pages of 4 KiB.
constexpr uint64_t kPage = 4096;
uint64_t page_down(uint64_t value) {
  return value & ~(kPage - 1);
}
uint64_t page_up(uint64_t value) {
  return page_down(value + kPage - 1);
}

struct Extent {
  uint64_t offset, size;
};

// The executable mappings of a file, those that a change of protection has split put together again.
std::vector<Extent> executable_extents(const std::vector<Mapping>& mappings) {
  std::vector<Extent> extents;
  uint64_t end = 0;
  for (const Mapping& mapping : mappings) {
    if (!mapping.executable) continue;
    if (extents.empty() || mapping.start != end || mapping.offset != extents.back().offset + extents.back().size) {
      extents.push_back({mapping.offset, 0});
    }
    extents.back().size += mapping.end - mapping.start;
    end = mapping.end;
  }
  return extents;
}

}  // namespace

SymbolFile::SymbolFile(std::string path, std::string debug_path)
    : path_(std::move(path)), debug_path_(std::move(debug_path)), debug_path_pointer_(debug_path_.data()) {
  callbacks_.find_debuginfo = dwfl_standard_find_debuginfo;
  callbacks_.section_address = dwfl_offline_section_address;
  callbacks_.debuginfo_path = &debug_path_pointer_;
}

SymbolFile::~SymbolFile() {
  if (dwfl_ != nullptr) dwfl_end(dwfl_);
}

std::unique_ptr<SymbolFile> SymbolFile::open(const std::string& path, const std::string& debug_path) {
  std::unique_ptr<SymbolFile> file(new SymbolFile(path, debug_path));
  if (!file->report() || !file->read_segments()) return nullptr;
  file->functions_.emplace(file->module_);
  file->chains_.emplace(file->module_);
  return file;
}

// The file is alone in its Dwfl and loaded at 0, so that addresses are those of the file itself.
bool SymbolFile::report() {
  dwfl_ = dwfl_begin(&callbacks_);
  int descriptor = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC);
  if (dwfl_ == nullptr || descriptor < 0) return false;
  module_ = dwfl_report_elf(dwfl_, path_.c_str(), path_.c_str(), descriptor, 0, false);
  if (module_ == nullptr) ::close(descriptor);
  dwfl_report_end(dwfl_, nullptr, nullptr);
  return module_ != nullptr;
}

bool SymbolFile::read_segments() {
  GElf_Addr bias;
  Elf* elf = dwfl_module_getelf(module_, &bias);
  GElf_Ehdr header;
  if (elf == nullptr || gelf_getclass(elf) != ELFCLASS32 || gelf_getehdr(elf, &header) == nullptr) return false;
  arm_ = header.e_machine == EM_ARM;
  has_code_ = holds_code(elf);
  size_t count = 0;
  elf_getphdrnum(elf, &count);
  for (size_t index = 0; index < count; ++index) {
    GElf_Phdr segment;
    if (gelf_getphdr(elf, static_cast<int>(index), &segment) == nullptr || segment.p_type != PT_LOAD) continue;
    segments_.push_back({segment.p_offset, segment.p_vaddr, segment.p_filesz, (segment.p_flags & PF_X) != 0});
  }
  return true;
}

std::string SymbolFile::mismatch(const std::vector<Mapping>& mappings) const {
  for (const Extent& extent : executable_extents(mappings)) {
    bool exact = std::any_of(segments_.begin(), segments_.end(), [&](const Segment& segment) {
      return segment.executable && extent.offset == page_down(segment.offset) &&
             extent.offset + extent.size == page_up(segment.offset + segment.size);
    });
    if (!exact) {
      return fmt::format("{} bytes of code were mapped from offset 0x{:x}, its code segment differs", extent.size,
                         extent.offset);
    }
  }
  return "";
}

std::string SymbolFile::build_id() const {
  const unsigned char* bits = nullptr;
  GElf_Addr address;
  int length = dwfl_module_build_id(module_, &bits, &address);
  std::string text;
  for (int index = 0; index < length; ++index) text += fmt::format("{:02x}", bits[index]);
  return text;
}

std::optional<uint64_t> SymbolFile::address_of(uint64_t offset) const {
  for (const Segment& segment : segments_) {
    if (offset >= page_down(segment.offset) && offset < page_up(segment.offset + segment.size) && segment.executable) {
      return segment.address + offset - segment.offset;
    }
  }
  return std::nullopt;
}

std::optional<uint64_t> SymbolFile::offset_of(uint64_t address) const {
  for (const Segment& segment : segments_) {
    if (address >= segment.address && address - segment.address < segment.size && segment.executable) {
      return address - segment.address + segment.offset;
    }
  }
  return std::nullopt;
}

bool SymbolFile::call_ends_at(uint64_t offset, bool thumb) const {
  if (!has_code_) return true;
  GElf_Addr bias;
  size_t size = 0;
  const char* bytes = elf_rawfile(dwfl_module_getelf(module_, &bias), &size);
  if (bytes == nullptr) return true;
  if (offset < kLongestCall || offset > size) return false;
  const Instructions instructions = !arm_ ? Instructions::kI386 : thumb ? Instructions::kThumb : Instructions::kArm;
  return ends_with_call({reinterpret_cast<const uint8_t*>(bytes) + offset - kLongestCall, kLongestCall}, instructions);
}

bool SymbolFile::function_starts_at(uint64_t address) const {
  auto match = functions_->find(address);
  return match && match->offset == 0;
}

Frames SymbolFile::resolve(uint64_t address, const Frame& frame) {
  Frames frames = chains_->at(address, frame);
  if (auto match = functions_->find(address); match && frames.back().function.empty()) {
    frames.back().function = demangle(match->name);
    frames.back().function_offset = match->offset;
    frames.back().nearest = !match->inside;
  }
  return frames;
}

}  // namespace quarl::report
