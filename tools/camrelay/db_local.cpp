#include "db_local.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "store/DataVideo.h"
#include "store/dump.h"

namespace camrelay::cli {
namespace fs = std::filesystem;

namespace {

std::string CsvField(const std::optional<std::string>& value) {
  if (!value) return "";
  if (!value->empty() && value->find_first_of(",\"\r\n") == std::string::npos) return *value;
  std::string quoted = "\"";
  for (char c : *value) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  return quoted + "\"";
}

}  // namespace

// A Null is an empty field, an empty text a quoted empty field (""), so
// that the two stay apart.
void WriteCsv(const store::TableDump& dump, std::ostream& out) {
  auto line = [&out](const auto& fields, auto&& text) {
    for (std::size_t k = 0; k < fields.size(); ++k) out << (k ? "," : "") << text(fields[k]);
    out << "\r\n";
  };
  line(dump.columns, [](const std::string& name) { return CsvField(name); });
  for (const auto& row : dump.rows) line(row, [](const std::optional<std::string>& v) { return CsvField(v); });
}

bool IsTable(const std::string& name) {
  return std::any_of(store::kCommands.begin(), store::kCommands.end(),
                     [&](const store::Command& c) { return !c.Table.empty() && c.Table == name; });
}

namespace {

std::string TableList() {
  std::string list;
  for (const store::Command& c : store::kCommands)
    if (!c.Table.empty()) list += (list.empty() ? "" : ", ") + std::string(c.Table);
  return list;
}

// Opens an existing database only: reading must never create one.
store::TableDump Dump(const std::string& connection, const std::string& table) {
  const std::string file = DatabaseFile(connection);
  std::error_code ec;
  if (!file.empty() && !fs::is_regular_file(file, ec))
    throw UsageError("there is no database at " + file + " (run 'camrelay db init' or download from the unit)");
  if (!IsTable(table)) throw UsageError("'" + table + "' is not a table; the tables are " + TableList());
  store::DataVideo db;
  db.SetConnectionString(connection);
  db.EnsureOpen(nullptr, "camrelay");
  return store::DumpTable(db, table);
}

// The connection string may hold a password: the schema alone is named.
int InitServer(const std::string& connection, host::Console& console) {
  const auto server = std::get<store::ServerDatabase>(store::ParseConnection(connection));
  const std::string schema = server.schema.empty() ? "the default schema" : "schema " + server.schema;
  if (store::InitDatabase(connection)) {
    console.Note("db init: created the standard tables in " + schema);
  } else {
    console.Note("db init: " + schema + " already has its tables; left as it is");
  }
  return 0;
}

int Init(const Invocation& inv, host::Console& console) {
  const fs::path file = DatabaseFile(inv.link.database);
  if (file.empty()) return InitServer(inv.link.database, console);
  std::error_code ec;
  if (fs::exists(file, ec)) {
    console.Note("db init: " + file.string() + " already exists; left as it is");
    return 0;
  }
  if (file.has_parent_path()) fs::create_directories(file.parent_path());
  store::CreateDatabase(file);
  console.Note("db init: created " + file.string());
  return 0;
}

int ExportLog(const Invocation& inv, const std::string& output) {
  store::TableDump dump = Dump(inv.link.database, "Registro_eventi");
  // Dates are held in a form that sorts in time order; events without a
  // date come first, and events of one moment keep the order they arrived.
  const auto column = std::find(dump.columns.begin(), dump.columns.end(), "DataOra") - dump.columns.begin();
  std::stable_sort(dump.rows.begin(), dump.rows.end(),
                   [column](const auto& a, const auto& b) { return a[column] < b[column]; });
  if (output.empty()) {
    WriteCsv(dump, std::cout);
    return std::cout.flush() ? 0 : 1;
  }
  std::ofstream out(output, std::ios::binary);
  if (!out) throw UsageError("export-log: cannot write " + output);
  WriteCsv(dump, out);
  return out.flush() ? 0 : 1;
}

}  // namespace

int RunDb(const Invocation& inv, host::Console& console) {
  switch (inv.db->op) {
    case DbOp::Init:
      return Init(inv, console);
    case DbOp::Dump:
      WriteCsv(Dump(inv.link.database, inv.db->table), std::cout);
      return std::cout.flush() ? 0 : 1;
    case DbOp::ExportLog:
      return ExportLog(inv, inv.db->output);
  }
  return 2;
}

}  // namespace camrelay::cli
