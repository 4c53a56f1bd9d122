// The seam between DataVideo and the database engine under it: an embedded
// SQLite file, or a schema in a PostgreSQL server. Everything above this
// header (recordsets, the download store, the payload builders) is the same
// for both; each engine translates its own column types into the transfer
// type numbers and its own values into DbValue.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "store/values.h"

namespace camrelay::store {

struct Column {
  std::string name;
  // The transfer (ADO) type number the column's values travel with.
  int adoType;
};

// The rows of a query, walked forward from before the first one.
class Rows {
 public:
  virtual ~Rows() = default;
  virtual const std::vector<Column>& Columns() const = 0;
  // Moves to the next row; false past the last one.
  virtual bool Next() = 0;
  // Back to before the first row.
  virtual void Rewind() = 0;
  // The current row's value of column k, in the form SQLite would give it:
  // whole numbers and Booleans (0/1) as integers, dates as ISO text.
  virtual DbValue Value(int k) const = 0;
  // How many rows the query returns in all.
  virtual long Count() = 0;
};

// One INSERT of a fixed set of columns, run again and again.
class Insert {
 public:
  virtual ~Insert() = default;
  // values[i] goes to the i-th column the insert was prepared with. A
  // failure throws std::runtime_error and leaves nothing of the record; the
  // transaction around it goes on. Inside a transaction a server engine may
  // hold the record back and send it with the next ones: its failure is
  // then known only when Backend::Flush sends it.
  virtual void Run(const std::vector<const DbValue*>& values) = 0;
};

// A record held back that the engine would not store, with the tag that
// was current when its insert ran.
struct RefusedRecord {
  long tag;
  std::string reason;
};

class Backend {
 public:
  virtual ~Backend() = default;
  // Runs statements that return no rows. A failing statement throws
  // std::runtime_error and is undone alone: an open transaction goes on.
  virtual void Exec(const std::string& sql) = 0;
  // Runs a query; the same failure rule.
  virtual std::unique_ptr<Rows> Query(const std::string& select) = 0;
  // Every row of a table, in the order the rows were added.
  virtual std::unique_ptr<Rows> ReadTable(std::string_view table) = 0;
  // The SQL expression that orders a table's rows as they were added.
  virtual std::string InsertionOrder() const = 0;
  // text as an SQL string literal, escaped the way this engine and its
  // current settings read it (a server may read backslashes as escapes).
  virtual std::string Literal(std::string_view text) const = 0;
  // An insert into table giving the named columns (none: every default).
  virtual std::unique_ptr<Insert> PrepareInsert(std::string_view table, const std::vector<std::string>& columns) = 0;

  // Transactions nest: the outermost one is the engine's transaction, the
  // inner ones savepoints inside it.
  virtual void Begin() = 0;
  virtual void Commit() = 0;
  virtual void Rollback() = 0;
  // Whether a transaction is open and can still be committed: false once
  // the engine ended it by itself (a full disk, a lost connection).
  virtual bool InTransaction() const = 0;

  // Sends the records held back and returns those refused since the last
  // call, each undone alone while the others are kept. Any other statement
  // sends them first too, keeping their refusals for this call.
  virtual std::vector<RefusedRecord> Flush() { return {}; }
  // The tag the records inserted from now on are refused with.
  virtual void TagInserts(long) {}
  // How many exchanges with a server the engine has had: what a distant
  // server makes slow. Always 0 for an embedded engine.
  virtual long RoundTrips() const { return 0; }
};

// A name quoted as an SQL identifier, which both engines read the same way:
// "name", inner quotes doubled.
std::string QuoteIdentifier(std::string_view name);

// One atomic unit of writes: everything since the constructor is undone by
// the destructor unless Commit ran. Nests inside an outer transaction.
class Transaction {
 public:
  explicit Transaction(Backend& backend) : backend_(backend) { backend_.Begin(); }
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  void Commit();

 private:
  Backend& backend_;
  bool done_ = false;
};

}  // namespace camrelay::store
