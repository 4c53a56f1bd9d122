// What the user asked for on the command line, checked and ready to run.
#pragma once

#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/commands.h"
#include "host/console.h"

namespace camrelay::cli {

// The command line speaks the host layer's vocabulary: its commands, options,
// checks and console.
using namespace host;

enum class DbOp { Init, Dump, ExportLog };

struct DbCommand {
  DbOp op;
  std::string table;   // dump only
  std::string output;  // export-log: a file, "" for standard output
};

// camrelay fleet UNITS.csv [OPTIONS] COMMAND...: the commands run against
// every unit the file lists.
struct FleetOptions {
  std::string file;
  int parallel = 64;  // links in flight at once
  bool json = false;  // one JSON object a line instead of text
  std::string claim;  // the round shared with other machines through the server; "" for none
  int lease = 60;     // seconds a claimed unit stays this machine's without renewal
  int dbConnections = 8;  // server connections the run opens at most, with a server --db
  std::string report;  // a file to write every unit's outcome to, as JSON lines; "" for none
  std::string retry;   // a report of an earlier run: only its failed units run; "" for all
};

// camrelay console: the page's server.
struct WebConsoleOptions {
  std::string listen;        // ADDR:PORT; "" = 127.0.0.1 on a free port
  bool allowRemote = false;  // a non-loopback --listen was allowed
  bool open = false;         // open the page in the default browser
};

struct Invocation {
  LinkOptions link;
  OutputOptions output;
  std::vector<Command> commands;
  std::optional<FleetOptions> fleet;
  std::optional<WebConsoleOptions> webConsole;
  std::optional<DbCommand> db;
  // Set when --help, --version or --completion was asked for: the text is
  // printed and nothing runs.
  std::optional<std::string> help;
};

// Parses and checks argv. Throws UsageError.
Invocation Parse(int argc, char** argv);

}  // namespace camrelay::cli
