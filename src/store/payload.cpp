#include "store/payload.h"

#include "store/report.h"

namespace camrelay::store {
namespace {

constexpr std::size_t kElementLimit = 3072;

// Appends the table's record lines to the last element of Dati, opening a
// new element whenever one grows past the limit.
void EncodeTable(std::vector<std::string>& Dati, Recordset& records, std::string_view name) {
  if (records.RecordCount() <= 0) return;
  std::string prefix = "{}" + std::string(name) + "{}" + std::to_string(records.FieldCount() - 1);
  std::vector<std::string> typeTexts;
  for (int k = 0; k < records.FieldCount(); ++k) typeTexts.push_back(std::to_string(records.FieldType(k)));
  for (records.MoveFirst(); !records.Eof(); records.MoveNext()) {
    std::string& element = Dati.back();
    element += prefix;
    for (int k = 0; k < records.FieldCount(); ++k) {
      element += "{}";
      element += ToWireText(records.FieldType(k), records.Value(k));
      element += "{}";
      element += typeTexts[k];
    }
    element += "\r\n";
    if (element.size() > kElementLimit) Dati.emplace_back();
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
      EncodeTable(Dati, records, command);
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
