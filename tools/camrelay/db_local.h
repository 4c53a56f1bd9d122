// The commands on the local database that need no link: create it, print a
// table, export the event log.
#pragma once

#include <ostream>

#include "cli.h"
#include "host/console.h"
#include "store/dump.h"

namespace camrelay::cli {

// Whether the name is one of the standard tables.
bool IsTable(const std::string& name);
void WriteCsv(const store::TableDump& dump, std::ostream& out);

// Returns the exit status. Throws UsageError for bad input.
int RunDb(const Invocation& invocation, host::Console& console);

}  // namespace camrelay::cli
