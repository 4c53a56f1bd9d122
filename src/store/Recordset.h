// The rows a command returns, walked forward, and the table they come from,
// which new records are added to: what the data procedures use of a
// recordset.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "store/sqlite_util.h"
#include "store/values.h"

namespace camrelay::store {

class Recordset {
 public:
  // Runs select on db and stands on its first row; new records go to table.
  Recordset(sqlite3* db, std::string select, std::string table);
  Recordset(Recordset&&) noexcept = default;
  Recordset& operator=(Recordset&&) noexcept = default;

  const std::string& Table() const { return table_; }
  long RecordCount() const;
  void MoveFirst();
  void MoveNext();
  bool Eof() const { return eof_; }

  int FieldCount() const { return static_cast<int>(names_.size()); }
  const std::string& FieldName(int k) const { return names_.at(k); }
  // The field's ADO type number, from the column's declared type.
  int FieldType(int k) const { return types_.at(k); }
  // Index of the field of that name (case as the database ignores it), or -1.
  int FieldIndex(std::string_view name) const;
  // The current row's value of field k.
  DbValue Value(int k) const;

  // Starts a new record with every field at its default and leaves the rows
  // (Eof until MoveFirst); SetValue sets one field (std::out_of_range beyond
  // the fields), Update writes the record.
  void AddNew();
  void SetValue(int k, DbValue value);
  void Update();

  void Close();

 private:
  void Step();
  sqlite3_stmt* InsertFor(const std::vector<bool>& fieldsSet);

  sqlite3* db_;
  std::string select_;
  std::string table_;
  Statement cursor_;
  bool eof_ = true;
  std::vector<std::string> names_;
  std::vector<int> types_;
  bool adding_ = false;
  std::vector<std::optional<DbValue>> pending_;
  std::vector<bool> fieldsSet_;
  // One prepared insert per set of fields given: a download writes the same
  // fields record after record, so this stays at one or two entries.
  std::vector<std::pair<std::vector<bool>, Statement>> inserts_;
};

}  // namespace camrelay::store
