// SPDX-License-Identifier: Apache-2.0
// A SQLite database and its prepared statements, closed at the end of their scope.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <string>

namespace quarl::report {

class Database {
 public:
  // Opens or makes the database at `path`. Throws std::runtime_error, as all that follows does.
  explicit Database(const std::string& path);
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  void run(const char* sql);
  int64_t last_id() const { return sqlite3_last_insert_rowid(handle_); }
  sqlite3* handle() const { return handle_; }
  [[noreturn]] void fail() const;

 private:
  std::string path_;
  sqlite3* handle_ = nullptr;
};

class Statement {
 public:
  Statement(Database& database, const char* sql);
  ~Statement();
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  // Binds the parameters in their order and runs the statement to its end.
  template <typename... Values>
  void run(const Values&... values) {
    int index = 0;
    (bind(++index, values), ...);
    finish();
  }
  // Binds and takes the first column of the first row; `otherwise` when there is no row.
  template <typename... Values>
  int64_t find(int64_t otherwise, const Values&... values) {
    int index = 0;
    (bind(++index, values), ...);
    return first_number(otherwise);
  }

 private:
  void bind(int index, int64_t value);
  void bind(int index, const std::string& text);  // NULL when empty
  void finish();
  int64_t first_number(int64_t otherwise);

  Database& database_;
  sqlite3_stmt* statement_ = nullptr;
};

}  // namespace quarl::report
