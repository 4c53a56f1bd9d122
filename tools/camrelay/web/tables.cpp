#include "web/tables.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

#include "db_local.h"
#include "store/Recordset.h"
#include "store/schema.h"
#include "store/backend.h"
#include "store/dump.h"
#include "store/values.h"

namespace camrelay::web {

using nlohmann::json;

namespace {

constexpr int kMaxLimit = 1000;

std::vector<std::string> Columns(store::Backend& db, const std::string& table) {
  const auto none = db.Query("SELECT * FROM " + store::QuoteIdentifier(table) + " LIMIT 0");
  std::vector<std::string> columns;
  for (const store::Column& column : none->Columns()) columns.push_back(column.name);
  return columns;
}

std::string Literal(const std::string& text) {
  std::string quoted = "'";
  for (char c : text) {
    if (c == '\'') quoted += '\'';
    quoted += c;
  }
  return quoted + "'";
}

// Any field containing the text, with LIKE's own wildcards taken literally.
std::string Where(const std::vector<std::string>& columns, const std::string& filter) {
  if (filter.empty()) return "";
  std::string pattern = "%";
  for (char c : filter) {
    if (c == '%' || c == '_' || c == '\\') pattern += '\\';
    pattern += c;
  }
  pattern += '%';
  std::string where;
  for (const std::string& column : columns)
    where += (where.empty() ? " WHERE " : " OR ") + std::string("CAST(") + store::QuoteIdentifier(column) +
             " AS TEXT) LIKE " + Literal(pattern) + " ESCAPE '\\'";
  return where;
}

// What a query selects: the table's columns, and the FROM, WHERE and ORDER
// BY the database runs, so that a page and an export show the same rows in
// the same order.
struct Selection {
  std::vector<std::string> columns;
  std::string from;
  std::string order;
};

Selection Select(store::DataVideo& db, const TableQuery& query, const char* member) {
  if (!cli::IsTable(query.table)) throw std::invalid_argument("'" + query.table + "' is not a table");
  db.EnsureOpen(nullptr, member);
  store::Backend& handle = db.Handle();
  Selection selection;
  selection.columns = Columns(handle, query.table);
  const auto& columns = selection.columns;
  if (!query.sort.empty() && std::find(columns.begin(), columns.end(), query.sort) == columns.end())
    throw std::invalid_argument("'" + query.sort + "' is not a column of " + query.table);
  selection.from = " FROM " + store::QuoteIdentifier(query.table) + Where(columns, query.filter);
  selection.order = " ORDER BY ";
  if (!query.sort.empty())
    selection.order += store::QuoteIdentifier(query.sort) + (query.descending ? " DESC, " : ", ");
  selection.order += handle.InsertionOrder();
  return selection;
}

// Runs the selection with `limit` (a LIMIT clause, or "" for every row).
store::TableDump Rows(store::DataVideo& db, const TableQuery& query, const Selection& selection,
                      const std::string& limit) {
  store::Backend& handle = db.Handle();
  store::Recordset records(handle, handle.Query("SELECT *" + selection.from + selection.order + limit), query.table);
  store::TableDump dump{selection.columns, {}};
  for (; !records.Eof(); records.MoveNext()) {
    auto& row = dump.rows.emplace_back();
    for (int k = 0; k < records.FieldCount(); ++k) {
      const store::DbValue value = records.Value(k);
      if (std::holds_alternative<std::monostate>(value))
        row.push_back(std::nullopt);
      else
        row.push_back(store::DbText(value));
    }
  }
  return dump;
}

}  // namespace

json TablePage(store::DataVideo& db, const TableQuery& query) {
  const Selection selection = Select(db, query, "TablePage");
  const auto count = db.Handle().Query("SELECT count(*)" + selection.from);
  const long long total = count->Next() ? std::get<std::int64_t>(count->Value(0)) : 0;
  const int limit = std::clamp(query.limit, 1, kMaxLimit);
  const long offset = std::max(0L, query.offset);
  const store::TableDump page =
      Rows(db, query, selection, " LIMIT " + std::to_string(limit) + " OFFSET " + std::to_string(offset));
  json rows = json::array();
  for (const auto& fields : page.rows) {
    json row = json::array();
    for (const auto& field : fields) row.push_back(field ? json(*field) : json(nullptr));
    rows.push_back(std::move(row));
  }
  return json{{"table", query.table}, {"columns", selection.columns}, {"total", total}, {"offset", offset},
              {"rows", rows}};
}

json TableNames() {
  json names = json::array();
  for (const store::Command& c : store::kCommands)
    if (!c.Table.empty() && std::find(names.begin(), names.end(), c.Table) == names.end())
      names.push_back(std::string(c.Table));
  return names;
}

std::string TableCsv(store::DataVideo& db, const TableQuery& query) {
  const Selection selection = Select(db, query, "TableCsv");
  std::ostringstream out;
  cli::WriteCsv(Rows(db, query, selection, ""), out);
  return out.str();
}

}  // namespace camrelay::web
