// SPDX-License-Identifier: Apache-2.0
#include "report/formats/table.h"

#include <algorithm>
#include <ctime>

namespace quarl::report {
namespace {

std::string text_of(const Cell& cell, bool plain) {
  if (auto number = std::get_if<uint64_t>(&cell)) return plain ? fmt::format("{}", *number) : grouped(*number);
  if (auto number = std::get_if<int64_t>(&cell)) return grouped_sign(*number);
  if (auto number = std::get_if<double>(&cell)) return fmt::format("{:.1f}", *number);
  if (auto text = std::get_if<std::string>(&cell)) return without_controls(*text);
  return "-";
}

bool is_text_column(const Table& table, size_t column) {
  return std::any_of(table.rows.begin(), table.rows.end(),
                     [&](const auto& row) { return std::holds_alternative<std::string>(row[column]); });
}

size_t width_of(const Table& table, size_t column) {
  size_t width = table.columns[column].title.size();
  for (const auto& row : table.rows) width = std::max(width, text_of(row[column], table.columns[column].plain).size());
  return width;
}

std::string cut(const std::string& text, size_t width) {
  return text.size() <= width || width < 4 ? text : text.substr(0, width - 3) + "...";
}

struct Layout {
  std::vector<size_t> widths;
  std::vector<bool> left;
  size_t last_width;
};

Layout layout_of(const Output& output, const Table& table) {
  Layout layout;
  size_t used = 2;
  for (size_t column = 0; column < table.columns.size(); ++column) {
    layout.widths.push_back(width_of(table, column));
    layout.left.push_back(is_text_column(table, column));
    if (column + 1 < table.columns.size()) used += layout.widths.back() + 2;
  }
  layout.last_width = output.width() > used ? output.width() - used : 20;
  return layout;
}

std::string aligned(const Layout& layout, size_t column, const std::string& text) {
  bool last = column + 1 == layout.widths.size();
  if (last && layout.left[column]) return cut(text, layout.last_width);
  return layout.left[column] ? fmt::format("{:<{}}", text, layout.widths[column])
                             : fmt::format("{:>{}}", text, layout.widths[column]);
}

std::string csv_field(const Cell& cell) {
  if (std::holds_alternative<std::monostate>(cell)) return "";
  if (auto number = std::get_if<uint64_t>(&cell)) return fmt::format("{}", *number);
  if (auto number = std::get_if<int64_t>(&cell)) return fmt::format("{}", *number);
  if (auto number = std::get_if<double>(&cell)) return fmt::format("{}", *number);
  std::string text = std::get<std::string>(cell);
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  for (size_t at = 0; (at = text.find('"', at)) != std::string::npos; at += 2) text.insert(at, 1, '"');
  return '"' + text + '"';
}

}  // namespace

Table without_column(Table table, const std::string& key) {
  auto named = [&](const Column& column) { return column.key == key; };
  auto index = std::find_if(table.columns.begin(), table.columns.end(), named) - table.columns.begin();
  table.columns.erase(table.columns.begin() + index);
  for (auto& row : table.rows) row.erase(row.begin() + index);
  return table;
}

void write_text(Output& output, const Table& table) {
  Layout layout = layout_of(output, table);
  auto write_row = [&](auto text_at, bool title) {
    std::string line = "  ";
    for (size_t column = 0; column < table.columns.size(); ++column) {
      line += (column == 0 ? "" : "  ") + aligned(layout, column, text_at(column));
    }
    line.erase(line.find_last_not_of(' ') + 1);
    output.print("{}\n", title ? output.bold(line) : line);
  };
  write_row([&](size_t column) { return table.columns[column].title; }, true);
  for (const auto& row : table.rows)
    write_row([&](size_t column) { return text_of(row[column], table.columns[column].plain); }, false);
}

void write_csv_keys(Output& output, const std::vector<Column>& columns) {
  for (size_t column = 0; column < columns.size(); ++column)
    output.print("{}{}", column == 0 ? "" : ",", columns[column].key);
  output.print("\r\n");
}

void write_csv_row(Output& output, const std::vector<Cell>& row) {
  for (size_t column = 0; column < row.size(); ++column)
    output.print("{}{}", column == 0 ? "" : ",", csv_field(row[column]));
  output.print("\r\n");
}

void write_csv(Output& output, const Table& table) {
  write_csv_keys(output, table.columns);
  for (const auto& row : table.rows) write_csv_row(output, row);
}

Json to_json(const Cell& cell) {
  return std::visit(
      [](const auto& value) -> Json {
        if constexpr (std::is_same_v<std::decay_t<decltype(value)>, std::monostate>)
          return nullptr;
        else
          return value;
      },
      cell);
}

Json to_json(const Table& table) {
  Json rows = Json::array();
  for (const auto& row : table.rows) {
    Json object = Json::object();
    for (size_t column = 0; column < row.size(); ++column) object[table.columns[column].key] = to_json(row[column]);
    rows.push_back(std::move(object));
  }
  return rows;
}

std::string grouped(uint64_t number) {
  std::string text = fmt::format("{}", number);
  for (size_t at = text.size(); at > 3;) text.insert(at -= 3, 1, ',');
  return text;
}

std::string grouped_sign(int64_t number) {
  uint64_t size = number < 0 ? 0 - static_cast<uint64_t>(number) : static_cast<uint64_t>(number);
  return (number < 0 ? "-" : "+") + grouped(size);
}

std::string counted(uint64_t number, const std::string& noun) {
  return fmt::format("{} {}{}", grouped(number), noun, number == 1 ? "" : "s");
}

std::string clock_time(uint64_t seconds) {
  if (seconds == 0) return "not recorded";
  time_t value = static_cast<time_t>(seconds);
  tm parts = {};
  char text[64] = "";
  if (gmtime_r(&value, &parts) != nullptr) strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S UTC", &parts);
  return text;
}

}  // namespace quarl::report
