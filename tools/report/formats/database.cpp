// SPDX-License-Identifier: Apache-2.0
#include "report/formats/database.h"

#include <fmt/format.h>

#include <stdexcept>

namespace quarl::report {

Database::Database(const std::string& path) : path_(path) {
  if (sqlite3_open(path.c_str(), &handle_) != SQLITE_OK) {
    std::string why = sqlite3_errmsg(handle_);
    sqlite3_close(handle_);
    throw std::runtime_error(fmt::format("{}: {}", path, why));
  }
}

Database::~Database() {
  sqlite3_close(handle_);
}

void Database::fail() const {
  throw std::runtime_error(fmt::format("{}: {}", path_, sqlite3_errmsg(handle_)));
}

void Database::run(const char* sql) {
  if (sqlite3_exec(handle_, sql, nullptr, nullptr, nullptr) != SQLITE_OK) fail();
}

Statement::Statement(Database& database, const char* sql) : database_(database) {
  if (sqlite3_prepare_v2(database.handle(), sql, -1, &statement_, nullptr) != SQLITE_OK) database.fail();
}

Statement::~Statement() {
  sqlite3_finalize(statement_);
}

void Statement::bind(int index, int64_t value) {
  sqlite3_bind_int64(statement_, index, value);
}

void Statement::bind(int index, const std::string& text) {
  if (text.empty()) {
    sqlite3_bind_null(statement_, index);
  } else {
    sqlite3_bind_text(statement_, index, text.c_str(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
  }
}

void Statement::finish() {
  int status = sqlite3_step(statement_);
  sqlite3_reset(statement_);
  if (status != SQLITE_DONE && status != SQLITE_ROW) database_.fail();
}

int64_t Statement::first_number(int64_t otherwise) {
  int status = sqlite3_step(statement_);
  int64_t value = status == SQLITE_ROW ? sqlite3_column_int64(statement_, 0) : otherwise;
  sqlite3_reset(statement_);
  if (status != SQLITE_DONE && status != SQLITE_ROW) database_.fail();
  return value;
}

}  // namespace quarl::report
