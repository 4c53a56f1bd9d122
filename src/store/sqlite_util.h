// Small ownership and error helpers over the sqlite3 C API, for the SQLite
// engine and the benchmarks that compare with plain SQLite.
#pragma once

#include <sqlite3.h>

#include <memory>
#include <string>
#include <string_view>

namespace camrelay::store {

struct StatementDeleter {
  void operator()(sqlite3_stmt* statement) const;
};
using Statement = std::unique_ptr<sqlite3_stmt, StatementDeleter>;

// Throws std::runtime_error with the connection's last error message.
[[noreturn]] void ThrowSqliteError(sqlite3* db);
Statement Prepare(sqlite3* db, std::string_view sql);
// Runs statements that return no rows.
void Exec(sqlite3* db, const std::string& sql);

}  // namespace camrelay::store
