// A table's whole content as text, for the command-line host's dump and log
// export and for tests that compare two databases.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "store/DataVideo.h"

namespace camrelay::store {

struct TableDump {
  std::vector<std::string> columns;
  // UTF-8 text in the database's own form (see DbText); nullopt for Null.
  std::vector<std::vector<std::optional<std::string>>> rows;
};

// Every row of the table in the order the rows were added. Opens a closed
// database silently; throws std::runtime_error (an unknown table, a database
// that cannot be opened).
TableDump DumpTable(DataVideo& db, std::string_view table);

}  // namespace camrelay::store
