// The database as the page shows it: one page of a table at a time, sorted
// and filtered by the database itself, so that a log of 100 000 events
// costs the page only the rows it shows.
#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include "store/DataVideo.h"

namespace camrelay::web {

struct TableQuery {
  std::string table;
  long offset = 0;
  int limit = 100;
  std::string sort;  // a column, "" for the order the rows were added
  bool descending = false;
  std::string filter;  // rows with a field containing this text; "" for all
};

// {"table", "columns", "total", "offset", "rows"}; throws
// std::invalid_argument for an unknown table or column.
nlohmann::json TablePage(store::DataVideo& db, const TableQuery& query);

// The standard tables' names.
nlohmann::json TableNames();

// Every row the query selects (its offset and limit aside), in its order,
// as the command line's dump writes a table.
std::string TableCsv(store::DataVideo& db, const TableQuery& query);

}  // namespace camrelay::web
