// SPDX-License-Identifier: Apache-2.0
// Rows and columns that every format can show.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <variant>
#include <vector>

#include "report/formats/output.h"

namespace quarl::report {

using Json = nlohmann::ordered_json;

// std::monostate: nothing is known; an empty field, null in JSON.
using Cell = std::variant<std::monostate, uint64_t, int64_t, double, std::string>;

struct Column {
  std::string key;     // in JSON and CSV
  std::string title;   // in text
  bool plain = false;  // its numbers are names, not grouped by thousands
};

struct Table {
  std::vector<Column> columns;
  std::vector<std::vector<Cell>> rows;
};

// The table less one column, which its neighbours make superfluous for a reader.
Table without_column(Table table, const std::string& key);

// The last column is cut to fit a terminal. Numbers are right-aligned and grouped by thousands.
void write_text(Output& output, const Table& table);
// As RFC 4180 has it, with a line of keys first.
void write_csv(Output& output, const Table& table);
void write_csv_keys(Output& output, const std::vector<Column>& columns);
void write_csv_row(Output& output, const std::vector<Cell>& row);
// An array of objects.
Json to_json(const Table& table);
Json to_json(const Cell& cell);

// "1,234,567".
std::string grouped(uint64_t number);
// "+1,234" or "-1,234".
std::string grouped_sign(int64_t number);
// "1,234 bytes in 5 blocks" and the like: `noun` in the singular, an "s" is put behind for other counts.
std::string counted(uint64_t number, const std::string& noun);
// "2026-01-31 12:00:00 UTC", "not recorded" for 0.
std::string clock_time(uint64_t seconds);

}  // namespace quarl::report
