#include "store/dump.h"

namespace camrelay::store {

TableDump DumpTable(DataVideo& db, std::string_view table) {
  db.EnsureOpen(nullptr, "DumpTable");
  Recordset records = db.OpenTable(table);
  TableDump dump;
  for (int k = 0; k < records.FieldCount(); ++k) dump.columns.push_back(records.FieldName(k));
  for (; !records.Eof(); records.MoveNext()) {
    auto& row = dump.rows.emplace_back();
    for (int k = 0; k < records.FieldCount(); ++k) {
      DbValue value = records.Value(k);
      if (std::holds_alternative<std::monostate>(value)) {
        row.emplace_back(std::nullopt);
      } else {
        row.emplace_back(DbText(value));
      }
    }
  }
  return dump;
}

}  // namespace camrelay::store
