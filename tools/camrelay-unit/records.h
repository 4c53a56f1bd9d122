// Record lines, the text in which tables travel both ways:
//   "{}" table "{}" N, then per field "{}" value "{}" ADO type, then CR LF,
// N being the number of fields less one and "{NULL}" standing for a Null.
// Tables go out in data elements of at most a little over 3 KB of whole
// lines, each table starting an element of its own.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "database.h"
#include "log.h"

namespace camrelay::unit {

// A table of a transfer and the query that reads it in the order it goes out.
struct TableQuery {
  std::string_view table;
  std::string select;  // empty: every row in the order it was added
};

// The transfer array of the tables: element 0 the opening
// "AA{}n{}tipo{}", elements 1..n "{}" i "{}" length CR LF + record lines. A
// row holding a text that would cut its line short is left out and logged.
std::vector<std::string> TablePayload(Database& db, std::string_view tipo, const std::vector<TableQuery>& tables,
                                      const Log& log);

// The record line of one row, CR LF included; nullopt when a value holds
// the separator or a line end.
std::optional<std::string> RecordLine(std::string_view table, const std::vector<Column>& columns, const Row& row);

struct WireField {
  std::string_view value;
  std::string_view type;
};
struct ParsedLine {
  std::string_view table;
  std::vector<WireField> fields;
};
// A record line without its CR LF; nullopt when it is not one. A separator
// after the last type is allowed.
std::optional<ParsedLine> ParseRecordLine(std::string_view line);

// Stores the record lines of a received transfer array (element 0 the
// opening, 1..n whole lines in order) into the tables they name, which must be among `tables`; returns how many records
// were stored. A field that cannot be read, like a Null, leaves its column at
// its default; what is skipped is logged.
int StoreRecordLines(Database& db, const std::vector<std::string>& dati, const std::vector<std::string_view>& tables,
                     const Log& log);

}  // namespace camrelay::unit
