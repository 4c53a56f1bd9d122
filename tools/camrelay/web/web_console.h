// camrelay console: one link to the unit, served as a live page.
#pragma once

#include "cli.h"
#include "host/console.h"

namespace camrelay::web {

// Runs until SIGINT or SIGTERM; returns the exit status. Throws
// host::UsageError for a bad --listen.
int RunWebConsole(const cli::Invocation& invocation, host::Console& console);

}  // namespace camrelay::web
