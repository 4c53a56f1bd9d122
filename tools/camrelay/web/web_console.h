// camrelay console: one link to the unit, served as a live page.
#pragma once

#include "cli.h"
#include "console.h"

namespace camrelay::web {

// Runs until SIGINT or SIGTERM; returns the exit status. Throws
// cli::UsageError for a bad --listen.
int RunWebConsole(const cli::Invocation& invocation, cli::Console& console);

}  // namespace camrelay::web
