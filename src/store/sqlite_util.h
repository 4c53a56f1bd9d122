// Small ownership and error helpers over the sqlite3 C API, for the store's
// own files.
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
// A name quoted as an SQL identifier: "name", inner quotes doubled.
std::string QuoteIdentifier(std::string_view name);

// One atomic unit of writes: everything since the constructor is undone by
// the destructor unless Commit ran. Nests inside an outer transaction.
class Transaction {
 public:
  explicit Transaction(sqlite3* db);
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  void Commit();

 private:
  sqlite3* db_;
  bool done_ = false;
};

}  // namespace camrelay::store
