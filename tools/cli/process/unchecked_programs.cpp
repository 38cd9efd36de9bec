// SPDX-License-Identifier: Apache-2.0
#include "process/unchecked_programs.h"

#include <elf.h>
#include <fmt/format.h>

#include <filesystem>
#include <fstream>

#include "message.h"
#include "process/proc.h"
#include "refusal.h"
#include "story/telling/page.h"
#include "target/elf_target.h"

namespace quarl {
namespace {

constexpr size_t kMostTold = 5;

std::string program_of(pid_t pid) {
  std::error_code gone;
  return std::filesystem::read_symlink(fmt::format("/proc/{}/exe", pid), gone).string();
}

bool is_64_bit(const std::string& path) {
  unsigned char ident[EI_NIDENT] = {};
  std::ifstream(path, std::ios::binary).read(reinterpret_cast<char*>(ident), sizeof ident);
  return ident[EI_CLASS] == ELFCLASS64;
}

std::string why_unchecked(const std::string& path) {
  if (is_64_bit(path)) return "64-bit";
  try {
    return read_elf(path).interpreter.empty() ? "static" : "the loader took no libquarl.so";
  } catch (const Refusal&) {
    return "no program for this checker";
  }
}

}  // namespace

void UncheckedPrograms::look(pid_t pid) {
  std::string program = program_of(pid);
  if (program.empty() || told_.contains(program)) return;
  std::string& before = seen_[pid];
  const bool stays = before == program;
  before = program;
  if (!stays || runs_under_checker(pid) || program_of(pid) != program) return;
  told_.insert(program);
  if (told_.size() <= kMostTold) say("not checked: {} ({})", story::printable(program), why_unchecked(program));
  if (told_.size() == kMostTold) say("further programs that are not checked are not told");
}

}  // namespace quarl
