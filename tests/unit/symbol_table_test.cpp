// SPDX-License-Identifier: Apache-2.0
#include "symbols/symbol_table.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "platform/print.h"
#include "symbols/elf_image.h"

// The application's own table takes the place of the library's weak one; it counts only while its size is not 0.
extern "C" {
quarl::TaSymbol taSymTbl[3] = {};
uint32_t ulSymTblSize = 0;
}

namespace quarl {
namespace {

constexpr char kStrings[] = "\0.symtab\0.strtab\0.dynsym\0.dynstr\0.shstrtab\0main\0clone\0both";
uint32_t text(const char* name) {
  const char* at = kStrings;
  while (strcmp(at, name) != 0) at += strlen(at) + 1;
  return static_cast<uint32_t>(at - kStrings);
}

struct Symbol {
  const char* name;
  uint32_t value, size;
};

// A file with the two symbol tables, all names in one string table.
class ElfFile {
 public:
  ElfFile(const std::vector<Symbol>& fixed, const std::vector<Symbol>& dynamic) : bytes(sizeof(Elf32_Ehdr)) {
    const uint32_t strings = put(kStrings, sizeof kStrings);
    add(SHT_STRTAB, ".shstrtab", strings, sizeof kStrings);
    add(SHT_STRTAB, ".strtab", strings, sizeof kStrings);
    add(SHT_STRTAB, ".dynstr", strings, sizeof kStrings);
    add_symbols(SHT_SYMTAB, ".symtab", fixed);
    add_symbols(SHT_DYNSYM, ".dynsym", dynamic);
    Elf32_Ehdr header{};
    memcpy(header.e_ident, ELFMAG, SELFMAG);
    header.e_ident[EI_CLASS] = ELFCLASS32;
    header.e_ident[EI_DATA] = ELFDATA2LSB;
    header.e_shoff = put(sections.data(), sections.size() * sizeof(Elf32_Shdr));
    header.e_shnum = static_cast<Elf32_Half>(sections.size());
    memcpy(bytes.data(), &header, sizeof header);
  }
  Elf32_Ehdr& header() { return *reinterpret_cast<Elf32_Ehdr*>(bytes.data()); }
  Elf32_Shdr& section(int index) { return reinterpret_cast<Elf32_Shdr*>(bytes.data() + header().e_shoff)[index]; }

  std::vector<uint8_t> bytes;
  std::vector<Elf32_Shdr> sections;

 private:
  uint32_t put(const void* data, size_t size) {
    while (bytes.size() % 4 != 0) bytes.push_back(0);
    const auto* from = static_cast<const uint8_t*>(data);
    bytes.insert(bytes.end(), from, from + size);
    return static_cast<uint32_t>(bytes.size() - size);
  }
  void add(uint32_t type, const char* name, uint32_t offset, size_t size) {
    Elf32_Shdr section{};
    section.sh_type = type;
    section.sh_name = text(name);
    section.sh_offset = offset;
    section.sh_size = static_cast<uint32_t>(size);
    section.sh_entsize = sizeof(Elf32_Sym);
    sections.push_back(section);
  }
  void add_symbols(uint32_t type, const char* name, const std::vector<Symbol>& symbols) {
    std::vector<Elf32_Sym> table;
    table.reserve(symbols.size());
    for (const Symbol& symbol : symbols)
      table.push_back({text(symbol.name), symbol.value, symbol.size, STT_FUNC, 0, 1});
    add(type, name, put(table.data(), table.size() * sizeof(Elf32_Sym)), table.size() * sizeof(Elf32_Sym));
  }
};

TEST(ElfImage, FindsInTheTablesInTheirOrder) {
  ElfFile file({{"both", 0, 9}, {"main", 0x100, 0x20}}, {{"both", 0x300, 4}, {"main", 0x999, 1}, {"clone", 0x400, 8}});
  ElfImage image;
  ASSERT_TRUE(image.parse(file.bytes.data(), file.bytes.size()));
  EXPECT_EQ(image.find("main")->st_value, 0x100U);
  EXPECT_EQ(image.find("both")->st_value, 0x300U) << "without a value in the first table";
  EXPECT_EQ(image.find("clone")->st_size, 8U);
  EXPECT_EQ(image.find("mai"), nullptr);
}

TEST(ElfImage, TrustsNothing) {
  const ElfFile good({{"main", 0x100, 0x20}}, {});
  for (size_t size = 0; size < good.bytes.size(); ++size) {  // cut short anywhere
    const std::vector<uint8_t> part(good.bytes.begin(), good.bytes.begin() + static_cast<long>(size));
    ElfImage image;
    if (image.parse(part.data(), part.size())) image.find("main");
  }
  const std::vector<void (*)(ElfFile&)> damages = {
      [](ElfFile& file) { file.header().e_ident[EI_CLASS] = ELFCLASS64; },
      [](ElfFile& file) { file.header().e_ident[EI_DATA] = ELFDATA2MSB; },
      [](ElfFile& file) { file.header().e_shoff = 0xFFFFFFF0; },
      [](ElfFile& file) { file.header().e_shstrndx = 77; },
      [](ElfFile& file) { file.section(3).sh_offset = 0xFFFFFFF0; },
      [](ElfFile& file) { file.section(3).sh_size = 0xFFFFFFFF; },
      [](ElfFile& file) { file.section(1).sh_size = text("main") + 4; },  // the name without its NUL
  };
  for (size_t i = 0; i < damages.size(); ++i) {
    ElfFile file = good;
    damages[i](file);
    ElfImage image;
    EXPECT_TRUE(!image.parse(file.bytes.data(), file.bytes.size()) || image.find("main") == nullptr) << i;
  }
}

// What is left of a program whose section headers were stripped: a dynamic segment with the tables and one of the
// hashes that give their length. Everything is loaded at 0x1000 above its offset.
std::vector<uint8_t> without_sections(bool gnu_hash) {
  constexpr uint32_t kBias = 0x1000;
  ElfFile file({}, {{"both", 0, 0}, {"main", 0x100, 0x20}, {"clone", 0x400, 8}});
  std::vector<uint8_t> bytes = file.bytes;
  const auto put = [&bytes](const std::vector<uint32_t>& words) {
    while (bytes.size() % 4 != 0) bytes.push_back(0);
    const auto at = static_cast<uint32_t>(bytes.size());
    const auto* from = reinterpret_cast<const uint8_t*>(words.data());
    bytes.insert(bytes.end(), from, from + words.size() * 4);
    return at;
  };
  // One bucket whose chain is symbols 1 and 2, one word of filter; or one bucket, three symbols.
  const uint32_t hash = gnu_hash ? put({1, 1, 1, 0, 0, 1, 8, 9}) : put({1, 3, 1, 0, 2, 0});
  const uint32_t symbols = file.sections[4].sh_offset;
  const uint32_t strings = file.sections[2].sh_offset;
  const uint32_t dynamic = put({DT_SYMTAB, symbols + kBias, DT_STRTAB, strings + kBias, DT_STRSZ, sizeof kStrings,
                                gnu_hash ? static_cast<uint32_t>(DT_GNU_HASH) : DT_HASH, hash + kBias, DT_NULL, 0});
  const auto size = static_cast<uint32_t>(bytes.size());
  const uint32_t segments =
      put({PT_LOAD, 0, kBias, 0, size, size, 0, 0, PT_DYNAMIC, dynamic, dynamic + kBias, 0, 40, 40, 0, 0});
  auto& header = *reinterpret_cast<Elf32_Ehdr*>(bytes.data());
  header.e_shoff = header.e_shnum = header.e_shstrndx = 0;
  header.e_phoff = segments;
  header.e_phnum = 2;
  header.e_phentsize = sizeof(Elf32_Phdr);
  return bytes;
}

TEST(ElfImage, WithoutSectionHeadersTheDynamicSegmentNamesTheSymbols) {
  for (const bool gnu_hash : {false, true}) {
    const std::vector<uint8_t> good = without_sections(gnu_hash);
    ElfImage image;
    ASSERT_TRUE(image.parse(good.data(), good.size()));
    ASSERT_NE(image.find("main"), nullptr) << gnu_hash;
    EXPECT_EQ(image.find("main")->st_value, 0x100U);
    ASSERT_NE(image.find("clone"), nullptr) << gnu_hash;
    EXPECT_EQ(image.find("clone")->st_size, 8U);
    EXPECT_EQ(image.find("none"), nullptr);
    for (size_t size = 0; size < good.size(); ++size) {  // cut short anywhere
      const std::vector<uint8_t> part(good.begin(), good.begin() + static_cast<long>(size));
      if (image.parse(part.data(), part.size())) image.find("none");
    }
    for (size_t at = sizeof(Elf32_Ehdr); at + 4 <= good.size(); at += 4) {  // any word as large, or as odd, as can be
      for (const uint32_t wild : {0xFFFFFFFFU, 0x7FFFFFF1U, 0U}) {
        std::vector<uint8_t> bad = good;
        memcpy(bad.data() + at, &wild, sizeof wild);
        if (image.parse(bad.data(), bad.size())) image.find("none");
      }
    }
  }
  ElfFile empty({}, {});
  empty.header().e_shoff = 0;
  ElfImage image;
  EXPECT_TRUE(image.parse(empty.bytes.data(), empty.bytes.size())) << "no segments either: no noise about it";
  EXPECT_EQ(image.find("main"), nullptr);
}

TEST(SymbolTable, ApplicationTableComesFirst) {
  taSymTbl[0] = {static_cast<uint32_t>(reinterpret_cast<uintptr_t>("main")), 0x8000, 2, {}, 1};
  taSymTbl[1] = {static_cast<uint32_t>(reinterpret_cast<uintptr_t>("data")), 0x8040, 1, {}, 0};
  taSymTbl[2].value = 0x8050;
  ulSymTblSize = 2;
  int type = 0;
  uint32_t size = 77;
  EXPECT_EQ(load_symbols(nullptr), 0);
  EXPECT_EQ(look_up_symbol("main", &type, &size), 0x8000U);
  EXPECT_EQ(std::make_pair(type, size), std::make_pair(1, 0x40U));
  EXPECT_EQ(look_up_symbol("data", &type, &size), 0x8040U);
  EXPECT_EQ(std::make_pair(type, size), std::make_pair(2, 0x10U));
  EXPECT_EQ(look_up_symbol("none", &type, &size), 0U);
  EXPECT_EQ(size, 0x10U);
  EXPECT_FALSE(symbols_are_link_time());
  ulSymTblSize = 0;
}

TEST(SymbolTable, OwnProgramAndFilesThatAreNone) {
  uint32_t size = 0;
  ASSERT_EQ(load_symbols(nullptr), 0);
  EXPECT_NE(look_up_symbol("main", nullptr, &size), 0U);
  EXPECT_GT(size, 0U);
  EXPECT_EQ(unload_symbols(), 0);
  EXPECT_EQ(load_symbols("/nonexistent"), -1);
  static std::string message;
  const MessageWriter before = message_writer;
  message_writer = [](int, const char* data, size_t length) { message.assign(data, length); };
  const std::string path = testing::TempDir() + "no_program";
  std::ofstream(path) << "text, and enough of it to be no header of anything that could be run at all";
  EXPECT_EQ(load_symbols(path.c_str()), -1);
  message_writer = before;
  EXPECT_EQ(message.rfind("srcs/quarl/quarlheap:", 0), 0U) << message;
  EXPECT_NE(message.find(": unsupported file type;\n"), std::string::npos);
  EXPECT_EQ(look_up_symbol("main", nullptr, nullptr), 0U);
}

}  // namespace
}  // namespace quarl
