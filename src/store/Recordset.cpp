#include "store/Recordset.h"

#include <stdexcept>
#include <strings.h>

namespace camrelay::store {

Recordset::Recordset(Backend& backend, std::unique_ptr<Rows> rows, std::string table)
    : backend_(&backend), rows_(std::move(rows)), table_(std::move(table)), columns_(rows_->Columns()) {
  eof_ = !rows_->Next();
}

Rows& Recordset::rows() const {
  if (!rows_) throw std::logic_error("the recordset of " + table_ + " is closed");
  return *rows_;
}

long Recordset::RecordCount() const { return rows().Count(); }

void Recordset::MoveFirst() {
  rows().Rewind();
  eof_ = !rows().Next();
}

void Recordset::MoveNext() {
  if (eof_) throw std::logic_error("the recordset of " + table_ + " is past its last record");
  eof_ = !rows().Next();
}

int Recordset::FieldIndex(std::string_view name) const {
  for (int k = 0; k < FieldCount(); ++k) {
    const std::string& field = columns_[k].name;
    if (field.size() == name.size() && strncasecmp(field.data(), name.data(), name.size()) == 0) return k;
  }
  return -1;
}

DbValue Recordset::Value(int k) const {
  if (eof_) throw std::logic_error("the recordset of " + table_ + " has no current record");
  return rows().Value(k);
}

void Recordset::AddNew() {
  rows().Rewind();
  eof_ = true;
  pending_.assign(columns_.size(), std::nullopt);
  fieldsSet_.assign(columns_.size(), false);
  adding_ = true;
}

void Recordset::SetValue(int k, DbValue value) {
  if (!adding_) throw std::logic_error("a value was set on " + table_ + " without a new record");
  if (k < 0 || k >= FieldCount())
    throw std::out_of_range("field " + std::to_string(k) + " is beyond the " + std::to_string(FieldCount()) +
                            " fields of " + table_);
  pending_[k] = std::move(value);
  fieldsSet_[k] = true;
}

Insert& Recordset::InsertFor(const std::vector<bool>& fieldsSet) {
  for (auto& [fields, insert] : inserts_)
    if (fields == fieldsSet) return *insert;
  std::vector<std::string> columns;
  for (int k = 0; k < FieldCount(); ++k)
    if (fieldsSet[k]) columns.push_back(columns_[k].name);
  inserts_.emplace_back(fieldsSet, backend_->PrepareInsert(table_, columns));
  return *inserts_.back().second;
}

void Recordset::Update() {
  if (!adding_) throw std::logic_error("no new record of " + table_ + " to write");
  adding_ = false;
  std::vector<const DbValue*> values;
  for (const auto& value : pending_)
    if (value) values.push_back(&*value);
  InsertFor(fieldsSet_).Run(values);
}

void Recordset::Close() {
  inserts_.clear();
  rows_.reset();
  eof_ = true;
  adding_ = false;
}

}  // namespace camrelay::store
