#include "web/tables.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

#include "db_local.h"
#include "store/Recordset.h"
#include "store/schema.h"
#include "store/backend.h"
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

}  // namespace

json TablePage(store::DataVideo& db, const TableQuery& query) {
  if (!cli::IsTable(query.table)) throw std::invalid_argument("'" + query.table + "' is not a table");
  db.EnsureOpen(nullptr, "TablePage");
  store::Backend& handle = db.Handle();
  const std::vector<std::string> columns = Columns(handle, query.table);
  if (!query.sort.empty() && std::find(columns.begin(), columns.end(), query.sort) == columns.end())
    throw std::invalid_argument("'" + query.sort + "' is not a column of " + query.table);
  const std::string from = " FROM " + store::QuoteIdentifier(query.table) + Where(columns, query.filter);

  const auto count = handle.Query("SELECT count(*)" + from);
  const long long total = count->Next() ? std::get<std::int64_t>(count->Value(0)) : 0;

  std::string order = " ORDER BY ";
  if (!query.sort.empty()) order += store::QuoteIdentifier(query.sort) + (query.descending ? " DESC, " : ", ");
  order += handle.InsertionOrder();
  const int limit = std::clamp(query.limit, 1, kMaxLimit);
  const long offset = std::max(0L, query.offset);
  store::Recordset records(handle,
                           handle.Query("SELECT *" + from + order + " LIMIT " + std::to_string(limit) + " OFFSET " +
                                        std::to_string(offset)),
                           query.table);
  json rows = json::array();
  for (; !records.Eof(); records.MoveNext()) {
    json row = json::array();
    for (int k = 0; k < records.FieldCount(); ++k) {
      const store::DbValue value = records.Value(k);
      if (std::holds_alternative<std::monostate>(value))
        row.push_back(nullptr);
      else
        row.push_back(store::DbText(value));
    }
    rows.push_back(std::move(row));
  }
  return json{{"table", query.table}, {"columns", columns}, {"total", total}, {"offset", offset}, {"rows", rows}};
}

json TableNames() {
  json names = json::array();
  for (const store::Command& c : store::kCommands)
    if (!c.Table.empty() && std::find(names.begin(), names.end(), c.Table) == names.end())
      names.push_back(std::string(c.Table));
  return names;
}

std::string TableCsv(store::DataVideo& db, const std::string& table) {
  if (!cli::IsTable(table)) throw std::invalid_argument("'" + table + "' is not a table");
  std::ostringstream out;
  cli::WriteCsv(store::DumpTable(db, table), out);
  return out.str();
}

}  // namespace camrelay::web
