// SPDX-License-Identifier: Apache-2.0
#include "frames/batch/elf_files.h"

#include <elf.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>

namespace quarl::frames {
namespace {

namespace fs = std::filesystem;

bool is_wanted(const fs::path& path) {
  Elf32_Ehdr header = {};
  std::ifstream file(path, std::ios::binary);
  file.read(reinterpret_cast<char*>(&header), sizeof header);
  if (file.gcount() < EI_NIDENT || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0) return false;
  if (header.e_ident[EI_CLASS] != ELFCLASS32 || header.e_ident[EI_DATA] != ELFDATA2LSB) return false;
  // One that ends within its header is broken, and is to be told as such.
  if (file.gcount() < static_cast<std::streamsize>(sizeof header)) return true;
  bool machine = header.e_machine == EM_ARM || header.e_machine == EM_386;
  return machine && (header.e_type == ET_EXEC || header.e_type == ET_DYN);
}

// The path below the first of `roots` that holds it.
std::string below(const fs::path& path, const std::vector<fs::path>& roots) {
  fs::path whole = fs::weakly_canonical(path);
  for (const fs::path& root : roots) {
    fs::path rest = whole.lexically_relative(fs::weakly_canonical(root));
    if (!rest.empty() && *rest.begin() != "..") return (fs::path("/") / rest).string();
  }
  return whole.string();
}

void add_folder(const fs::path& folder, std::vector<ElfPath>& files) {
  fs::recursive_directory_iterator each(folder, fs::directory_options::skip_permission_denied), end;
  for (std::error_code error; each != end; each.increment(error)) {
    if (error) break;
    bool regular = each->symlink_status(error).type() == fs::file_type::regular;
    if (regular && is_wanted(each->path())) files.push_back({each->path().string(), below(each->path(), {folder})});
  }
}

fs::path find(const std::string& name, const std::vector<std::string>& sysroots) {
  if (fs::exists(name)) return name;
  for (const std::string& root : sysroots) {
    fs::path below = fs::path(root) / fs::path(name).relative_path();
    if (fs::exists(below)) return below;
  }
  throw std::runtime_error(fmt::format("{}: no such file", name));
}

}  // namespace

std::vector<ElfPath> elf_files(const std::vector<std::string>& names, const std::vector<std::string>& sysroots) {
  std::vector<ElfPath> files;
  std::vector<fs::path> roots(sysroots.begin(), sysroots.end());
  for (const std::string& name : names) {
    fs::path path = find(name, sysroots);
    if (fs::is_directory(path))
      add_folder(path, files);
    else
      files.push_back({path.string(), below(path, roots), true});
  }
  std::ranges::sort(files, {}, &ElfPath::path);
  auto same = [](const ElfPath& one, const ElfPath& other) { return one.path == other.path; };
  files.erase(std::unique(files.begin(), files.end(), same), files.end());
  return files;
}

}  // namespace quarl::frames
