#include "store/Recordset.h"

#include <stdexcept>
#include <strings.h>

#include "store/text.h"

namespace camrelay::store {
namespace {

void Bind(sqlite3* db, sqlite3_stmt* statement, int index, const DbValue& value) {
  int result = SQLITE_OK;
  if (auto n = std::get_if<std::int64_t>(&value)) {
    result = sqlite3_bind_int64(statement, index, *n);
  } else if (auto r = std::get_if<double>(&value)) {
    result = sqlite3_bind_double(statement, index, *r);
  } else if (auto text = std::get_if<std::string>(&value)) {
    // The text stays in the pending record until the insert has run.
    result = sqlite3_bind_text(statement, index, text->data(), static_cast<int>(text->size()), SQLITE_STATIC);
  } else {
    result = sqlite3_bind_null(statement, index);
  }
  if (result != SQLITE_OK) ThrowSqliteError(db);
}

}  // namespace

Recordset::Recordset(sqlite3* db, std::string select, std::string table)
    : db_(db), select_(std::move(select)), table_(std::move(table)), cursor_(Prepare(db, select_)) {
  int count = sqlite3_column_count(cursor_.get());
  for (int k = 0; k < count; ++k) {
    names_.emplace_back(sqlite3_column_name(cursor_.get(), k));
    const char* declared = sqlite3_column_decltype(cursor_.get(), k);
    types_.push_back(AdoTypeFromDeclared(declared ? declared : ""));
  }
  Step();
}

long Recordset::RecordCount() const {
  Statement count = Prepare(db_, "SELECT count(*) FROM (" + select_ + ")");
  if (sqlite3_step(count.get()) != SQLITE_ROW) ThrowSqliteError(db_);
  return static_cast<long>(sqlite3_column_int64(count.get(), 0));
}

void Recordset::Step() {
  int result = sqlite3_step(cursor_.get());
  if (result != SQLITE_ROW && result != SQLITE_DONE) ThrowSqliteError(db_);
  eof_ = result != SQLITE_ROW;
}

void Recordset::MoveFirst() {
  sqlite3_reset(cursor_.get());
  Step();
}

void Recordset::MoveNext() {
  if (eof_) throw std::logic_error("the recordset of " + table_ + " is past its last record");
  Step();
}

int Recordset::FieldIndex(std::string_view name) const {
  for (int k = 0; k < FieldCount(); ++k)
    if (names_[k].size() == name.size() && strncasecmp(names_[k].data(), name.data(), name.size()) == 0) return k;
  return -1;
}

DbValue Recordset::Value(int k) const {
  if (eof_) throw std::logic_error("the recordset of " + table_ + " has no current record");
  sqlite3_stmt* row = cursor_.get();
  switch (sqlite3_column_type(row, k)) {
    case SQLITE_NULL:
      return std::monostate{};
    case SQLITE_INTEGER:
      return static_cast<std::int64_t>(sqlite3_column_int64(row, k));
    case SQLITE_FLOAT:
      return sqlite3_column_double(row, k);
    default: {
      auto text = reinterpret_cast<const char*>(sqlite3_column_text(row, k));
      return std::string(text, static_cast<std::size_t>(sqlite3_column_bytes(row, k)));
    }
  }
}

void Recordset::AddNew() {
  // The rows read so far are left behind: a read still open on the table
  // would make the database save and restore its place around every insert.
  sqlite3_reset(cursor_.get());
  eof_ = true;
  pending_.assign(names_.size(), std::nullopt);
  fieldsSet_.assign(names_.size(), false);
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

sqlite3_stmt* Recordset::InsertFor(const std::vector<bool>& fieldsSet) {
  for (auto& [fields, statement] : inserts_)
    if (fields == fieldsSet) return statement.get();
  std::string columns, values;
  for (int k = 0; k < FieldCount(); ++k) {
    if (!fieldsSet[k]) continue;
    columns += (columns.empty() ? "" : ", ") + QuoteIdentifier(names_[k]);
    values += values.empty() ? "?" : ", ?";
  }
  std::string sql = "INSERT INTO " + QuoteIdentifier(table_) +
                    (columns.empty() ? " DEFAULT VALUES" : " (" + columns + ") VALUES (" + values + ")");
  inserts_.emplace_back(fieldsSet, Prepare(db_, sql));
  return inserts_.back().second.get();
}

void Recordset::Update() {
  if (!adding_) throw std::logic_error("no new record of " + table_ + " to write");
  adding_ = false;
  sqlite3_stmt* insert = InsertFor(fieldsSet_);
  int index = 0;
  for (const auto& value : pending_)
    if (value) Bind(db_, insert, ++index, *value);
  int result = sqlite3_step(insert);
  std::string error = result == SQLITE_DONE ? "" : sqlite3_errmsg(db_);
  sqlite3_reset(insert);
  sqlite3_clear_bindings(insert);
  if (result != SQLITE_DONE) throw std::runtime_error(table_ + ": " + error);
}

void Recordset::Close() {
  inserts_.clear();
  cursor_.reset();
  eof_ = true;
  adding_ = false;
}

}  // namespace camrelay::store
