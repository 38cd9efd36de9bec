// SPDX-License-Identifier: Apache-2.0
// Tables of many files at once, on all processors.
#pragma once

#include <string>
#include <vector>

#include "frames/batch/elf_files.h"
#include "frames/table/module_table.h"

namespace quarl::frames {

struct Outcome {
  ElfPath file;
  std::string table;    // name of its file in the folder; empty when there is none
  std::string refusal;  // why there is none; empty too when the file needs none (it holds no code)
  ModuleTable made;     // without its bytes
};

// Writes the tables into `folder`, which exists. A file that gets none is told in its outcome. In the order of `files`.
// Throws std::runtime_error when the folder cannot be written.
std::vector<Outcome> make_tables(const std::vector<ElfPath>& files, const std::string& folder,
                                 const TableOptions& options);

}  // namespace quarl::frames
