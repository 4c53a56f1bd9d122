// The rows a command returns, walked forward, and the table they come from,
// which new records are added to: what the data procedures use of a
// recordset.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "store/backend.h"
#include "store/values.h"

namespace camrelay::store {

class Recordset {
 public:
  // Stands on the first of rows; new records go to table.
  Recordset(Backend& backend, std::unique_ptr<Rows> rows, std::string table);
  Recordset(Recordset&&) noexcept = default;
  Recordset& operator=(Recordset&&) noexcept = default;

  const std::string& Table() const { return table_; }
  long RecordCount() const;
  void MoveFirst();
  void MoveNext();
  bool Eof() const { return eof_; }

  int FieldCount() const { return static_cast<int>(columns_.size()); }
  const std::string& FieldName(int k) const { return columns_.at(k).name; }
  // The field's ADO type number, from the column's type.
  int FieldType(int k) const { return columns_.at(k).adoType; }
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
  Insert& InsertFor(const std::vector<bool>& fieldsSet);
  Rows& rows() const;

  Backend* backend_;
  std::unique_ptr<Rows> rows_;
  std::string table_;
  std::vector<Column> columns_;
  bool eof_ = true;
  bool adding_ = false;
  std::vector<std::optional<DbValue>> pending_;
  std::vector<bool> fieldsSet_;
  // One prepared insert per set of fields given: a download writes the same
  // fields record after record, so this stays at one or two entries.
  std::vector<std::pair<std::vector<bool>, std::unique_ptr<Insert>>> inserts_;
};

}  // namespace camrelay::store
