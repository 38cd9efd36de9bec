// SPDX-License-Identifier: Apache-2.0
#include "target/elf_target.h"

#include <fcntl.h>
#include <gelf.h>
#include <libelf.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "refusal.h"

namespace quarl {
namespace {

struct CloseElf {
  void operator()(Elf* elf) const { elf_end(elf); }
};
using ElfHandle = std::unique_ptr<Elf, CloseElf>;

struct Descriptor {
  explicit Descriptor(const std::string& path) : fd(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (fd < 0) refuse("cannot read {}: {}", path, std::strerror(errno));
  }
  ~Descriptor() { close(fd); }
  int fd;
};

std::string find_interpreter(Elf* elf) {
  size_t count = 0, size = 0;
  const char* bytes = elf_rawfile(elf, &size);
  if (elf_getphdrnum(elf, &count) != 0 || !bytes) return "";
  for (size_t i = 0; i < count; ++i) {
    GElf_Phdr header;
    if (!gelf_getphdr(elf, static_cast<int>(i), &header) || header.p_type != PT_INTERP) continue;
    if (header.p_offset >= size || header.p_filesz > size - header.p_offset) return "";
    return std::string(bytes + header.p_offset, strnlen(bytes + header.p_offset, header.p_filesz));
  }
  return "";
}

// Old linkers do not state the float ABI in the header; then the loader's name tells it.
Target arm_target(const GElf_Ehdr& header, const std::string& interpreter) {
  if (header.e_flags & EF_ARM_ABI_FLOAT_HARD) return Target::kArmhf;
  if (header.e_flags & EF_ARM_ABI_FLOAT_SOFT) return Target::kArmel;
  return interpreter.ends_with("armhf.so.3") ? Target::kArmhf : Target::kArmel;
}

void check_class(const std::string& path, const GElf_Ehdr& header) {
  if (header.e_ident[EI_CLASS] == ELFCLASS64) {
    refuse(
        "{} is a 64-bit file and only 32-bit programs can be checked; build it for i686 (i686-linux-gnu-gcc, gcc -m32) "
        "or ARM (arm-linux-gnueabihf-gcc)",
        path);
  }
  if (header.e_ident[EI_DATA] != ELFDATA2LSB)
    refuse("{} is big-endian; only little-endian programs can be checked", path);
  if (header.e_machine != EM_386 && header.e_machine != EM_ARM) {
    refuse("{} is neither an i686 nor an ARM program; there is no libquarl.so for its machine", path);
  }
}

}  // namespace

const char* target_name(Target target) {
  return target == Target::kI686 ? "i686" : target == Target::kArmhf ? "armhf" : "armel";
}

ElfFile read_elf(const std::string& path) {
  Descriptor file(path);
  elf_version(EV_CURRENT);
  ElfHandle elf(elf_begin(file.fd, ELF_C_READ, nullptr));
  GElf_Ehdr header;
  if (!elf || elf_kind(elf.get()) != ELF_K_ELF || !gelf_getehdr(elf.get(), &header)) {
    refuse("{} is no program: it has no valid ELF header", path);
  }
  check_class(path, header);
  std::string interpreter = find_interpreter(elf.get());
  return {header.e_machine == EM_386 ? Target::kI686 : arm_target(header, interpreter), interpreter};
}

}  // namespace quarl
