#include "database.h"

#include <sqlite3.h>

#include <memory>
#include <stdexcept>
#include <system_error>

namespace camrelay::unit {

namespace fs = std::filesystem;

namespace {

using Statement = std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)>;

[[noreturn]] void Fail(sqlite3* db, std::string_view what) {
  throw std::runtime_error(std::string(what) + ": " + sqlite3_errmsg(db));
}

Statement Prepare(sqlite3* db, const std::string& sql) {
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(db, sql.c_str(), static_cast<int>(sql.size()), &statement, nullptr) != SQLITE_OK)
    Fail(db, sql.substr(0, 80));
  return Statement(statement, &sqlite3_finalize);
}

Value ColumnValue(sqlite3_stmt* row, int k) {
  switch (sqlite3_column_type(row, k)) {
    case SQLITE_NULL:
      return std::monostate{};
    case SQLITE_INTEGER:
      return static_cast<std::int64_t>(sqlite3_column_int64(row, k));
    case SQLITE_FLOAT:
      return sqlite3_column_double(row, k);
    default:
      return std::string(reinterpret_cast<const char*>(sqlite3_column_text(row, k)),
                         static_cast<std::size_t>(sqlite3_column_bytes(row, k)));
  }
}

void Bind(sqlite3* db, sqlite3_stmt* statement, int index, const Value& value) {
  int result = SQLITE_OK;
  if (const auto* n = std::get_if<std::int64_t>(&value))
    result = sqlite3_bind_int64(statement, index, *n);
  else if (const auto* r = std::get_if<double>(&value))
    result = sqlite3_bind_double(statement, index, *r);
  else if (const auto* text = std::get_if<std::string>(&value))
    result = sqlite3_bind_text(statement, index, text->data(), static_cast<int>(text->size()), SQLITE_TRANSIENT);
  if (result != SQLITE_OK) Fail(db, "bind");
}

}  // namespace

std::string QuotedName(std::string_view name) {
  std::string quoted = "\"";
  for (char c : name) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
  return quoted + "\"";
}

Database::Database(const fs::path& file) {
  std::error_code error;
  const bool fresh = !fs::exists(file, error) || fs::file_size(file, error) == 0;
  if (sqlite3_open_v2(file.string().c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) !=
      SQLITE_OK) {
    const std::string detail = db_ ? sqlite3_errmsg(db_) : "out of memory";
    sqlite3_close_v2(db_);
    throw std::runtime_error("cannot open the database " + file.string() + ": " + detail);
  }
  // The tests read and change the file while the unit runs.
  sqlite3_busy_timeout(db_, 5000);
  try {
    if (fresh) {
      Transaction transaction(*this);
      Exec(std::string(StandardTables()));
      transaction.Commit();
    }
    Exec("SELECT count(*) FROM sqlite_master");
  } catch (const std::exception& e) {
    sqlite3_close_v2(db_);
    throw std::runtime_error("the database " + file.string() + " cannot be used: " + e.what());
  }
}

Database::~Database() { sqlite3_close_v2(db_); }

void Database::Exec(const std::string& sql) {
  char* message = nullptr;
  if (sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &message) == SQLITE_OK) return;
  const std::string detail = message ? message : sqlite3_errmsg(db_);
  sqlite3_free(message);
  throw std::runtime_error(detail);
}

TableRows Database::Read(const std::string& select) {
  const Statement statement = Prepare(db_, select);
  sqlite3_stmt* row = statement.get();
  TableRows table;
  const int count = sqlite3_column_count(row);
  for (int k = 0; k < count; ++k) {
    const char* declared = sqlite3_column_decltype(row, k);
    table.columns.push_back({sqlite3_column_name(row, k), AdoType(declared ? declared : "")});
  }
  int result;
  while ((result = sqlite3_step(row)) == SQLITE_ROW) {
    Row& values = table.rows.emplace_back();
    for (int k = 0; k < count; ++k) values.push_back(ColumnValue(row, k));
  }
  if (result != SQLITE_DONE) Fail(db_, "read");
  return table;
}

TableRows Database::ReadTable(std::string_view table) {
  return Read("SELECT * FROM " + QuotedName(table) + " ORDER BY rowid");
}

std::vector<std::string> Database::ColumnNames(std::string_view table) {
  std::vector<std::string> names;
  for (const Column& column : Read("SELECT * FROM " + QuotedName(table) + " LIMIT 0").columns)
    names.push_back(column.name);
  return names;
}

long long Database::Count(std::string_view table) {
  const Statement statement = Prepare(db_, "SELECT count(*) FROM " + QuotedName(table));
  if (sqlite3_step(statement.get()) != SQLITE_ROW) Fail(db_, "count");
  return sqlite3_column_int64(statement.get(), 0);
}

void Database::Insert(std::string_view table, const std::vector<std::string>& columns, const Row& row) {
  std::string names, marks;
  std::vector<const Value*> values;
  for (std::size_t k = 0; k < columns.size() && k < row.size(); ++k) {
    if (std::holds_alternative<std::monostate>(row[k])) continue;
    names += (names.empty() ? "" : ", ") + QuotedName(columns[k]);
    marks += marks.empty() ? "?" : ", ?";
    values.push_back(&row[k]);
  }
  const Statement statement = Prepare(db_, "INSERT INTO " + QuotedName(table) +
                                               (names.empty() ? " DEFAULT VALUES"
                                                              : " (" + names + ") VALUES (" + marks + ")"));
  for (std::size_t i = 0; i < values.size(); ++i) Bind(db_, statement.get(), static_cast<int>(i) + 1, *values[i]);
  if (sqlite3_step(statement.get()) != SQLITE_DONE) Fail(db_, std::string(table));
}

Database::Transaction::Transaction(Database& db) : db_(db) { db_.Exec("BEGIN"); }

Database::Transaction::~Transaction() {
  if (done_) return;
  try {
    db_.Exec("ROLLBACK");
  } catch (const std::exception&) {
    // SQLite rolled back by itself already.
  }
}

void Database::Transaction::Commit() {
  db_.Exec("COMMIT");
  done_ = true;
}

}  // namespace camrelay::unit
