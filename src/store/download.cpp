#include "store/download.h"

#include <algorithm>
#include <optional>
#include <span>
#include <stdexcept>
#include <utility>

#include "store/dump.h"
#include "store/report.h"
#include "store/text.h"
#include "store/wire.h"

namespace camrelay::store {
namespace {

struct WireField {
  std::string_view value;
  std::string_view type;
};

struct RecordLine {
  std::string_view table;
  std::vector<WireField> fields;
};

// Reads "{}<table>{}<N>{}<value>{}<type>..." into record, whose field list
// is reused from line to line; false for a line that is not a record (it
// does not start with a separator), std::invalid_argument for a record that
// is cut short.
bool ParseLine(std::string_view line, RecordLine& record) {
  if (!line.starts_with(kSeparator)) return false;
  std::string_view rest = line.substr(kSeparator.size());
  auto table = TakeItem(rest);
  if (!table) throw std::invalid_argument("a record line without a field count: " + Excerpt(line));
  std::string_view count = rest;
  if (auto item = TakeItem(rest)) {
    count = *item;
  } else {
    rest = {};
  }
  long last = WholeNumber(TrimSpaces(count)).value_or(-1);
  if (last < 0)
    throw std::invalid_argument("the field count " + Excerpt(count) + " of a record of " + std::string(*table) +
                                " is not a number");
  record.table = *table;
  record.fields.clear();
  for (long k = 0; k <= last; ++k) {
    auto value = TakeItem(rest);
    if (!value)
      throw std::invalid_argument("a record of " + std::string(*table) + " ends after " + std::to_string(k) +
                                  " of its " + std::to_string(last + 1) + " fields: " + Excerpt(line));
    // The type runs to the next separator, or to the end of the line when
    // none follows (the separator after the last type is optional).
    std::size_t end = rest.find(kSeparator);
    std::string_view type = rest;
    rest = {};
    if (end != std::string_view::npos && end > 0) {
      rest = type.substr(end + kSeparator.size());
      type = type.substr(0, end);
    }
    record.fields.push_back({*value, type});
  }
  return true;
}

// Thrown past every Attempt once the database has ended the transaction by
// itself: nothing more may be written, since it would land outside it.
struct TransactionLost {};

// Writes record lines into the tables they name, keeping each table's
// recordset open for the whole download, and reports each failure with the
// step reached.
class RecordWriter {
 public:
  RecordWriter(DataVideo& db, DebugSink* form, std::string_view procedure)
      : db_(db), form_(form), procedure_(procedure) {}
  ~RecordWriter() {
    try {
      EmitReports();
    } catch (const std::exception&) {
      // A form that cannot take a line has nothing to show it on.
    }
  }
  RecordWriter(const RecordWriter&) = delete;
  RecordWriter& operator=(const RecordWriter&) = delete;

  // 0 on entry, 1 once there is something to store, then per stage.
  int step = 0;
  int stored = 0;
  // Records of this table to pass over before any is stored: those a
  // repeated download holds already.
  std::string_view skipTable;
  int skip = 0;

  // Runs body and reports its failure. Before the database is touched
  // (steps 0 and 1) a failure ends the procedure: returns false then.
  template <class Body>
  bool Attempt(Body&& body) {
    try {
      body();
      return true;
    } catch (const std::exception& e) {
      ReportStep(e.what());
      CheckTransaction();
      return step > 1;
    }
  }

  // A full disk or an I/O error can make SQLite roll the whole transaction
  // back on its own, and a server ends it when the connection is lost.
  // Going on would write the rest outside it, committed row by row on top
  // of the old content: stop instead, and report it.
  void CheckTransaction() {
    if (!inTransaction_ || db_.Handle().InTransaction()) return;
    ReportStep("the database ended the transaction by itself; nothing of this download was stored and the "
               "previous content is kept");
    EmitReports();
    throw TransactionLost{};
  }

  // From here on every write belongs to the store's transaction.
  void TransactionStarted() { inTransaction_ = true; }

  void Open(std::string_view command) { open_.emplace_back(std::string(command), db_.OpenRecordset(command)); }

  void Close(std::string_view command) {
    for (auto& [name, records] : open_)
      if (name == command) records.Close();
  }

  void CloseAll() {
    SendHeld();
    for (auto& entry : open_) entry.second.Close();
  }

  // Cuts the elements into lines and stores each (Dati[0] is not record
  // text). An element without CR LF waits for the next one.
  void StoreElements(const std::vector<std::string>& Dati) {
    std::string buffer;
    for (std::size_t i = 1; i < Dati.size(); ++i) {
      step = 20 + static_cast<int>(i);
      buffer += Dati[i];
      if (Dati[i].find(kLineEnd) == std::string::npos) continue;
      StoreLines(buffer);
      buffer.clear();
    }
  }

  // Closes what is still open and makes the store permanent.
  bool Finish(Transaction& transaction) {
    CloseAll();
    try {
      transaction.Commit();
      return true;
    } catch (const std::exception& e) {
      ReportStep(e.what());
      CheckTransaction();
      return false;
    }
  }

 private:
  // Reports wait, in the order of the lines they are about, for the
  // records the engine held back: a record it refuses is reported after
  // whatever else went wrong with its line, before the next line's.
  void ReportStep(std::string_view description) { Hold(line_, step, std::string(description)); }

  void Hold(long line, int atStep, std::string description) {
    reports_.push_back({line, atStep, std::move(description)});
    if (reports_.size() >= kMaxHeldReports) SendHeld();
  }

  // Sends the records held back, reports those refused, then every report
  // waiting. A lost connection shows here as the transaction ended.
  void SendHeld() {
    if (inTransaction_ && !sending_) {
      sending_ = true;
      try {
        for (RefusedRecord& refused : db_.Handle().Flush()) {
          Hold(refused.tag, stepOfLine_.at(static_cast<std::size_t>(refused.tag)), std::move(refused.reason));
          --stored;
        }
      } catch (const std::exception& e) {
        Hold(line_, step, e.what());
      }
      sending_ = false;
      CheckTransaction();
    }
    EmitReports();
  }

  void EmitReports() {
    std::stable_sort(reports_.begin(), reports_.end(),
                     [](const HeldReport& a, const HeldReport& b) { return a.line < b.line; });
    for (const HeldReport& report : std::exchange(reports_, {}))
      Report(form_, procedure_ + " on line " + std::to_string(report.step), report.description);
  }

  // The search for a line end starts at the second character, so a buffer
  // that starts with CR LF does not yield an empty line: its first line
  // then starts with CR LF and is not a record.
  void StoreLines(std::string_view text) {
    while (!text.empty()) {
      std::size_t end = text.find(kLineEnd, 1);
      if (end == std::string_view::npos) {
        ReportStep("the text after the last line end was not stored: " + Excerpt(text));
        return;
      }
      Attempt([&] { StoreLine(text.substr(0, end)); });
      text.remove_prefix(end + kLineEnd.size());
    }
  }

  // The recordset of the command named like the table, or nullptr when no
  // command but a delete one has that name.
  Recordset* RecordsetFor(std::string_view table) {
    for (auto& [name, records] : open_)
      if (name == table) return &records;
    const Command* command = FindCommand(table);
    if (!command || table.find("Del_") != std::string_view::npos) return nullptr;
    Open(table);
    return &open_.back().second;
  }

  void StoreLine(std::string_view line) {
    line_ = static_cast<long>(stepOfLine_.size());
    stepOfLine_.push_back(step);
    if (inTransaction_) db_.Handle().TagInserts(line_);
    if (!ParseLine(line, record_)) return;
    if (skip > 0 && record_.table == skipTable) {
      --skip;
      return;
    }
    Recordset* records = RecordsetFor(record_.table);
    if (!records) return;
    bool isLog = record_.table == "Registro_eventi";
    records->AddNew();
    for (int f = 0; f < static_cast<int>(record_.fields.size()); ++f) {
      const WireField& field = record_.fields[f];
      // The log's counter is numbered by the database, and a Null leaves the
      // field at its default.
      if (isLog && f < records->FieldCount() && records->FieldName(f) == "IdRegistro") continue;
      if (field.value == kNullText) continue;
      Attempt([&] { records->SetValue(f, Converted(*records, f, field)); });
    }
    records->Update();
    ++stored;
  }

  static DbValue Converted(const Recordset& records, int f, const WireField& field) {
    try {
      return FromWireText(field.type, field.value);
    } catch (const std::invalid_argument& e) {
      std::string name = f < records.FieldCount() ? " (" + records.FieldName(f) + ")" : "";
      throw std::runtime_error(records.Table() + " field " + std::to_string(f) + name + ": " + e.what());
    }
  }

  DataVideo& db_;
  DebugSink* form_;
  std::string procedure_;
  std::vector<std::pair<std::string, Recordset>> open_;
  RecordLine record_;
  bool inTransaction_ = false;

  struct HeldReport {
    long line;
    int step;
    std::string description;
  };
  // Enough to keep a batch of records whole, few enough that a unit
  // sending nothing but bad lines cannot make them grow without end.
  static constexpr std::size_t kMaxHeldReports = 1000;
  std::vector<HeldReport> reports_;
  // The line being stored, counted from 0, and the step of each line.
  long line_ = 0;
  std::vector<int> stepOfLine_;
  bool sending_ = false;
};

// Opens the database when needed and starts the transaction of the whole
// store; false (reported) when either fails.
bool Begin(RecordWriter& writer, DataVideo& db, DebugSink* Form, std::string_view procedure,
           std::optional<Transaction>& transaction) {
  return writer.Attempt([&] {
    db.EnsureOpen(Form, procedure);
    transaction.emplace(db.Handle());
    writer.TransactionStarted();
  });
}

// A row as the log compares it: every field but the database's own counter.
using HeldRow = std::vector<std::optional<std::string>>;

std::vector<HeldRow> HeldRows(DataVideo& db, std::string_view table) {
  TableDump dump = DumpTable(db, table);
  std::vector<HeldRow> rows;
  rows.reserve(dump.rows.size());
  for (auto& row : dump.rows) {
    HeldRow held;
    for (std::size_t c = 0; c < row.size() && c < dump.columns.size(); ++c)
      if (dump.columns[c] != "IdRegistro") held.push_back(std::move(row[c]));
    rows.push_back(std::move(held));
  }
  return rows;
}

// Stores the elements in a transaction of its own; commits it when `commit`.
// Returns the rows of `table` once stored, or nullopt when the store failed.
std::optional<std::vector<HeldRow>> StoreOnce(const std::vector<std::string>& Dati, DataVideo& db,
                                              std::string_view table, int skip, bool commit, DebugSink* Form) {
  RecordWriter writer(db, Form, "AddNewRecords");
  writer.step = 1;
  writer.skipTable = table;
  writer.skip = skip;
  std::optional<Transaction> transaction;
  if (!Begin(writer, db, Form, "AddNewRecords", transaction)) return std::nullopt;
  try {
    writer.StoreElements(Dati);
    if (commit) {
      if (!writer.Finish(*transaction)) return std::nullopt;
      return std::vector<HeldRow>{};
    }
    writer.CloseAll();
    return HeldRows(db, table);
  } catch (const TransactionLost&) {
    return std::nullopt;
  }
}

std::size_t Overlap(std::span<const HeldRow> held, std::span<const HeldRow> received) {
  // The longest prefix of `received` that ends `held`: a prefix function of
  // `received` run over the tail of `held`, so a long log costs one pass.
  const std::size_t m = received.size();
  if (m == 0 || held.empty()) return 0;
  std::vector<std::size_t> border(m, 0);
  for (std::size_t i = 1, k = 0; i < m; ++i) {
    while (k > 0 && !(received[i] == received[k])) k = border[k - 1];
    if (received[i] == received[k]) ++k;
    border[i] = k;
  }
  std::size_t matched = 0;
  for (std::size_t i = held.size() > m ? held.size() - m : 0; i < held.size(); ++i) {
    if (matched == m) matched = border[m - 1];
    while (matched > 0 && !(held[i] == received[matched])) matched = border[matched - 1];
    if (held[i] == received[matched]) ++matched;
  }
  return matched;
}

}  // namespace

void SaveVideoSentrovaDB(std::vector<std::string>& Dati, DataVideo& db, DebugSink* Form) {
  if (Dati.size() <= 1) return;
  RecordWriter writer(db, Form, "SaveVideoSentrovaDB");
  writer.step = 1;
  std::optional<Transaction> transaction;
  if (!Begin(writer, db, Form, "SaveVideoSentrovaDB", transaction)) return;
  try {
    for (const auto& programming : kProgrammingTables) {
      if (!writer.Attempt([&] { db.Execute(programming.DeleteCommand); })) return;
      ++writer.step;
      writer.Attempt([&] { writer.Open(programming.Table); });
      ++writer.step;
    }
    writer.StoreElements(Dati);
    writer.step = 13;
    for (const auto& programming : kProgrammingTables) {
      writer.Close(programming.Table);
      ++writer.step;
    }
    writer.Finish(*transaction);
  } catch (const TransactionLost&) {
  }
}

int AppendRecordLines(const std::vector<std::string>& Dati, DataVideo& db, DebugSink* Form) {
  if (Dati.size() <= 1) return 0;
  RecordWriter writer(db, Form, "AppendRecordLines");
  writer.step = 1;
  std::optional<Transaction> transaction;
  if (!Begin(writer, db, Form, "AppendRecordLines", transaction)) return 0;
  try {
    writer.StoreElements(Dati);
    return writer.Finish(*transaction) ? writer.stored : 0;
  } catch (const TransactionLost&) {
    return 0;
  }
}

int AddNewRecords(const std::vector<std::string>& Dati, DataVideo& db, std::string_view table, DebugSink* Form) {
  if (Dati.size() <= 1) return 0;
  std::vector<HeldRow> held;
  try {
    db.EnsureOpen(Form, "AddNewRecords");
    held = HeldRows(db, table);
  } catch (const std::exception& e) {
    Report(Form, "AddNewRecords", e.what());
    return 0;
  }
  // A trial store tells how the records arrive once converted, compared as
  // the table holds them; it is rolled back, and the store proper passes
  // over the records already held.
  // Its reports are told only when it fails as a whole (the database lost
  // on the way): the store proper reports each record again otherwise.
  struct : DebugSink {
    std::vector<std::string> lines;
    void CreateEventOnDebug(const std::string& Message) override { lines.push_back(Message); }
  } trialReports;
  const auto trial = StoreOnce(Dati, db, table, 0, false, &trialReports);
  if (!trial && Form)
    for (const std::string& line : trialReports.lines) Form->CreateEventOnDebug(line);
  if (!trial || trial->size() < held.size()) return 0;
  const std::span<const HeldRow> received = std::span<const HeldRow>(*trial).subspan(held.size());
  const std::size_t already = Overlap(std::span<const HeldRow>(held), received);
  if (!StoreOnce(Dati, db, table, static_cast<int>(already), true, Form)) return 0;
  return static_cast<int>(received.size() - already);
}

}  // namespace camrelay::store
