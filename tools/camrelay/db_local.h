// The commands on the local database that need no link: create it, print a
// table, export the event log.
#pragma once

#include "cli.h"
#include "console.h"

namespace camrelay::cli {

// Returns the exit status. Throws UsageError for bad input.
int RunDb(const Invocation& invocation, Console& console);

}  // namespace camrelay::cli
