#include "store/payload.h"

#include <optional>

#include "store/report.h"

namespace camrelay::store {
namespace {

constexpr std::size_t kElementLimit = 3072;

// A separator or a line end inside a value would cut the record line in the
// wrong place on the other side.
bool FitsTheLine(std::string_view text) {
  return text.find("{}") == std::string_view::npos && text.find("\r\n") == std::string_view::npos;
}

// The record line of the current row; nullopt, reported, for a row with a
// value the line format cannot carry.
std::optional<std::string> RecordLine(Recordset& records, std::string_view prefix, long row,
                                      const std::vector<std::string>& typeTexts, DebugSink* Form,
                                      std::string_view procedure) {
  std::string line(prefix);
  for (int k = 0; k < records.FieldCount(); ++k) {
    std::string text = ToWireText(records.FieldType(k), records.Value(k));
    if (!FitsTheLine(text)) {
      Report(Form, procedure,
             records.Table() + " record " + std::to_string(row) + ", field " + std::to_string(k) + " (" +
                 records.FieldName(k) + "): a text holding \"{}\" or a line end cannot be sent; the record was left out");
      return std::nullopt;
    }
    line += "{}" + text + "{}" + typeTexts[k];
  }
  return line + "\r\n";
}

// Appends the table's record lines to the last element of Dati, opening a
// new element whenever one grows past the limit.
void EncodeTable(std::vector<std::string>& Dati, Recordset& records, std::string_view name, DebugSink* Form,
                 std::string_view procedure) {
  if (records.RecordCount() <= 0) return;
  std::string prefix = "{}" + std::string(name) + "{}" + std::to_string(records.FieldCount() - 1);
  std::vector<std::string> typeTexts;
  for (int k = 0; k < records.FieldCount(); ++k) typeTexts.push_back(std::to_string(records.FieldType(k)));
  long row = 1;
  for (records.MoveFirst(); !records.Eof(); records.MoveNext(), ++row) {
    auto line = RecordLine(records, prefix, row, typeTexts, Form, procedure);
    if (!line) continue;
    Dati.back() += *line;
    if (Dati.back().size() > kElementLimit) Dati.emplace_back();
  }
}

void AddHeaders(std::vector<std::string>& Dati) {
  for (std::size_t i = 1; i < Dati.size(); ++i)
    Dati[i] = "{}" + std::to_string(i) + "{}" + std::to_string(Dati[i].size()) + "\r\n" + Dati[i];
}

}  // namespace

void CompleteOpening(std::vector<std::string>& Dati, std::string_view typeCode, const std::string& Code) {
  Dati[0] = "AA{}" + std::to_string(Dati.size() - 1) + "{}" + std::string(typeCode) + "{}" + Code;
}

void EncodeTables(std::vector<std::string>& Dati, DataVideo& db, DebugSink* Form, std::string_view typeCode,
                  const std::string& Code, std::initializer_list<std::string_view> commands,
                  std::string_view procedure) {
  Dati.assign(1, "AA");
  if (!Attempt(Form, procedure, [&] { db.EnsureOpen(Form, procedure); })) return;
  for (std::string_view command : commands) {
    Dati.emplace_back();
    Attempt(Form, procedure, [&] {
      Recordset records = db.OpenRecordset(command);
      EncodeTable(Dati, records, command, Form, procedure);
    });
  }
  CompleteOpening(Dati, typeCode, Code);
  AddHeaders(Dati);
}

void LoadDataFromDB(std::vector<std::string>& Dati, DataVideo& db, DebugSink* Form, const std::string& Code) {
  EncodeTables(Dati, db, Form, "01", Code,
               {kProgrammingTables[0].Table, kProgrammingTables[1].Table, kProgrammingTables[2].Table,
                kProgrammingTables[3].Table, kProgrammingTables[4].Table, kProgrammingTables[5].Table},
               "LoadDataFromDB");
}

void LoadProgCamEventsFromDB(std::vector<std::string>& Dati, DataVideo& db, DebugSink* Form,
                             const std::string& Code) {
  EncodeTables(Dati, db, Form, "55", Code, {"ProgCamEvents", "Festivita"}, "LoadProgCamEventsFromDB");
}

}  // namespace camrelay::store
