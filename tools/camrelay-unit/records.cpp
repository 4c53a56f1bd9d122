#include "records.h"

#include <map>
#include <stdexcept>

#include "protocol.h"

namespace camrelay::unit {

namespace {

// A data element is closed once it grows past this after a whole line.
constexpr std::size_t kElementLimit = 3072;

// The text before the next separator, which is consumed; nullopt when no
// separator follows.
std::optional<std::string_view> Item(std::string_view& rest) {
  const auto end = rest.find(kSep);
  if (end == std::string_view::npos) return std::nullopt;
  const std::string_view item = rest.substr(0, end);
  rest.remove_prefix(end + kSep.size());
  return item;
}

std::optional<int> FieldCount(std::string_view text) {
  int last = 0;
  for (char c : text) {
    if (c < '0' || c > '9' || last > 100000) return std::nullopt;
    last = last * 10 + (c - '0');
  }
  if (text.empty()) return std::nullopt;
  return last + 1;
}

class RecordStore {
 public:
  RecordStore(Database& db, const std::vector<std::string_view>& tables, const Log& log) : db_(db), log_(log) {
    for (std::string_view table : tables) columns_[std::string(table)] = db.ColumnNames(table);
  }

  bool Store(std::string_view line) {
    const auto record = ParseRecordLine(line);
    if (!record) {
      if (line.substr(0, kSep.size()) == kSep) log_.Info("a record line cut short was ignored: " + Printable(line));
      return false;
    }
    const auto table = columns_.find(std::string(record->table));
    if (table == columns_.end()) {
      log_.Info("a record of " + Printable(record->table) + ", a table this transfer does not carry, was ignored");
      return false;
    }
    try {
      db_.Insert(table->first, table->second, Values(*record, table->first, table->second));
      return true;
    } catch (const std::runtime_error& e) {
      log_.Info(std::string("a record was not stored: ") + e.what());
      return false;
    }
  }

 private:
  // The row to add; a Null, or a value that is not of its type, leaves its
  // column at its default.
  Row Values(const ParsedLine& record, const std::string& table, const std::vector<std::string>& names) const {
    Row row(names.size());
    for (std::size_t k = 0; k < record.fields.size(); ++k) {
      const WireField& field = record.fields[k];
      if (k >= names.size()) {
        log_.Info(table + " has no field " + std::to_string(k) + ": its value was ignored");
      } else if (field.value != kNullText) {
        try {
          row[k] = StoredValue(field.type, field.value);
        } catch (const std::invalid_argument& e) {
          log_.Info(table + " field " + names[k] + ": " + e.what() + "; left at its default");
        }
      }
    }
    return row;
  }

  Database& db_;
  const Log& log_;
  std::map<std::string, std::vector<std::string>> columns_;
};

}  // namespace

std::optional<std::string> RecordLine(std::string_view table, const std::vector<Column>& columns, const Row& row) {
  std::string line = std::string(kSep) + std::string(table) + std::string(kSep) + std::to_string(columns.size() - 1);
  for (std::size_t k = 0; k < columns.size(); ++k) {
    const std::string value = WireText(columns[k].adoType, row[k]);
    if (value.find(kSep) != std::string::npos || value.find(kCrLf) != std::string::npos) return std::nullopt;
    line += std::string(kSep) + value + std::string(kSep) + std::to_string(columns[k].adoType);
  }
  return line + std::string(kCrLf);
}

std::vector<std::string> TablePayload(Database& db, std::string_view tipo, const std::vector<TableQuery>& tables,
                                      const Log& log) {
  std::vector<std::string> dati{""};
  for (const TableQuery& query : tables) {
    dati.emplace_back();
    const TableRows rows = query.select.empty() ? db.ReadTable(query.table) : db.Read(query.select);
    for (const Row& row : rows.rows) {
      const auto line = RecordLine(query.table, rows.columns, row);
      if (!line) {
        log.Info("a record of " + std::string(query.table) +
                  " holds a text with a separator or a line end and was left out");
        continue;
      }
      dati.back() += *line;
      if (dati.back().size() > kElementLimit) dati.emplace_back();
    }
  }
  for (std::size_t i = 1; i < dati.size(); ++i)
    dati[i] = std::string(kSep) + std::to_string(i) + std::string(kSep) + std::to_string(dati[i].size()) +
              std::string(kCrLf) + dati[i];
  dati[0] = "AA{}" + std::to_string(dati.size() - 1) + "{}" + std::string(tipo) + "{}";
  return dati;
}

std::optional<ParsedLine> ParseRecordLine(std::string_view line) {
  if (line.substr(0, kSep.size()) != kSep) return std::nullopt;
  std::string_view rest = line.substr(kSep.size());
  ParsedLine record;
  const auto table = Item(rest);
  if (!table) return std::nullopt;
  record.table = *table;
  const auto count = Item(rest);
  const auto fields = count ? FieldCount(*count) : std::nullopt;
  if (!fields) return std::nullopt;
  for (int k = 0; k < *fields; ++k) {
    const auto value = Item(rest);
    if (!value) return std::nullopt;
    // The type runs to the next separator or to the end of the line.
    const auto end = rest.find(kSep);
    record.fields.push_back({*value, rest.substr(0, end)});
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + kSep.size());
  }
  return record;
}

int StoreRecordLines(Database& db, const std::vector<std::string>& dati, const std::vector<std::string_view>& tables,
                     const Log& log) {
  RecordStore store(db, tables, log);
  std::string text;
  for (std::size_t i = 1; i < dati.size(); ++i) text += dati[i];
  int stored = 0;
  std::string_view rest = text;
  for (auto end = rest.find(kCrLf); end != std::string_view::npos; end = rest.find(kCrLf)) {
    if (store.Store(rest.substr(0, end))) ++stored;
    rest.remove_prefix(end + kCrLf.size());
  }
  if (!rest.empty()) log.Info("text after the last line end was not stored: " + Printable(rest));
  return stored;
}

}  // namespace camrelay::unit
