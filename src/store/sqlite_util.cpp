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

}  // namespace camrelay::store
