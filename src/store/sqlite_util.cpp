#include "store/sqlite_util.h"

#include <stdexcept>

namespace camrelay::store {

void StatementDeleter::operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }

void ThrowSqliteError(sqlite3* db) { throw std::runtime_error(sqlite3_errmsg(db)); }

Statement Prepare(sqlite3* db, std::string_view sql) {
  sqlite3_stmt* raw = nullptr;
  if (sqlite3_prepare_v2(db, sql.data(), static_cast<int>(sql.size()), &raw, nullptr) != SQLITE_OK)
    ThrowSqliteError(db);
  return Statement(raw);
}

void Exec(sqlite3* db, const std::string& sql) {
  if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) ThrowSqliteError(db);
}

std::string QuoteIdentifier(std::string_view name) {
  std::string quoted = "\"";
  for (char c : name) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  return quoted + "\"";
}

Transaction::Transaction(sqlite3* db) : db_(db) { Exec(db_, "SAVEPOINT camrelay_store"); }

Transaction::~Transaction() {
  if (done_) return;
  sqlite3_exec(db_, "ROLLBACK TO camrelay_store; RELEASE camrelay_store", nullptr, nullptr, nullptr);
}

void Transaction::Commit() {
  Exec(db_, "RELEASE camrelay_store");
  done_ = true;
}

}  // namespace camrelay::store
