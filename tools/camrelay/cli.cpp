// The command line: global options, the commands in the order given, and
// every check that can be made before the unit is contacted.
#include "cli.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <filesystem>
#include <memory>

#include "cli_docs/completion.h"
#include "files/safe_name.h"
#include "host/site.h"
#include "store/DataVideo.h"
#include "system.h"

namespace camrelay::cli {
namespace fs = std::filesystem;

namespace {

std::string Description() {
  return std::string(
             "camrelay drives a video alarm communicator (a unit) over TCP or UDP.\n"
             "Commands run in the order given, one after the other, on one link:\n"
             "  camrelay [OPTIONS] COMMAND [ARGS] [COMMAND [ARGS]]...\n"
             "Link options left out are taken from the unit the working folder remembers\n"
             "(DIR/camrelay-site.ini, written by a run that reached a unit), else from the\n"
             "settings (") +
         kSettingsStoreHelp +
         "), and the values used are written back\n"
         "to them. A command that changes a unit goes only to a unit named with --host\n"
         "or remembered by the folder.";
}

std::string Footer() {
  return std::string("Files:\n  ") + kSettingsStoreHelp +
         "\n"
         "                              The settings: the link used last ([AppSetting] RemoteHost, RemotePort,\n"
         "                              LocalPort), read for the link options left out and written back\n"
         "  DIR/camrelay-site.ini       The unit this folder's runs reach when --host and --port are left out\n"
         "  DIR/VideoSentrova.db        The database (DIR is the working folder, --dir)\n"
         "  DIR/Audio/                  Voice messages\n"
         "  DIR/Snapshot/               Snapshots, preview and stream images\n"
         "  DIR/VideoAvi/               Clips\n"
         "\n"
         "Environment:\n"
         "  CAMRELAY_CODE               The access code when --code is not given; it keeps the code off the command\n"
         "                              line\n" +
         kSettingsEnvironmentHelp +
         "\n"
         "Exit status:\n"
         "  0                           Every command succeeded\n"
         "  1                           The unit refused a command or it failed (the reason on standard error)\n"
         "  2                           Bad usage or bad input, reported before anything is sent\n"
         "  130                         Interrupted with Ctrl-C (128 + the signal)\n"
         "\n"
         "Examples:\n"
         "  $ camrelay --host 10.0.0.7 --code 123456 login download-prog download-log\n"
         "  $ camrelay --tcp download-media 20240101-120000.jpg\n"
         "  $ camrelay db export-log > log.csv\n"
         "\n"
         "Run 'camrelay COMMAND --help' for the details of a command, 'camrelay --help-all' for all of them.";
}

constexpr int kDefaultPreviewImages = 5;
// What the callbacks of the commands fill as CLI11 meets them.
struct Collected {
  Invocation invocation;
  std::string dir;
  std::string database;
  bool udp = false;
};

void AddLinkOptions(CLI::App& app, Collected& c) {
  LinkOptions& link = c.invocation.link;
  app.add_option("--host", link.host,
                 "The unit's address (default: the one the working folder remembers, else the last one used; "
                 "192.168.0.1 the first time)");
  app.add_option("--port", link.port,
                 "The unit's port (default: the one the working folder remembers, else the last one used; 19201 "
                 "the first time)")
      ->check(CLI::Range(1, 65535));
  app.add_option("--local-port", link.localPort,
                 "The local UDP port to bind; 0 lets the system pick a free one (default: the site's, else the "
                 "last one used; 14400 the first time)")
      ->check(CLI::Range(0, 65535));
  auto* tcp = app.add_flag("--tcp", link.tcp, "Talk over TCP");
  auto* udp = app.add_flag("--udp", c.udp, "Talk over UDP (the default)");
  tcp->excludes(udp);
  app.add_option("--code", link.code, "The access code, 1 to 6 characters; never printed")
      ->envname("CAMRELAY_CODE");
  app.add_option("--dir", c.dir,
                 "Working folder: the database and the Audio/, Snapshot/, VideoAvi/ folders (default: the "
                 "current folder)")
      ->type_name("DIR");
  app.add_option("--db", c.database,
                 "The database: a file or a connection string \"Provider=SQLite;Data Source=FILE\" (default: "
                 "VideoSentrova.db in the working folder)")
      ->type_name("FILE");
  app.add_option("--timeout-long", link.timeoutLong,
                 "Reply time-out in ms for data transfers (default: 60000 on TCP, 1000 on UDP)")
      ->check(CLI::Range(1, 3600000));
  app.add_option("--timeout-short", link.timeoutShort,
                 "Reply time-out in ms for short exchanges: strings, preview, images (default: 60000 on TCP, "
                 "750 on UDP)")
      ->check(CLI::Range(1, 3600000));
  app.add_option("--retries", link.retries,
                 "Attempts of an exchange before giving up (default: 10 on TCP, 15 on UDP)")
      ->check(CLI::Range(1, 1000));
}

void AddOutputOptions(CLI::App& app, OutputOptions& output) {
  app.add_flag("--events", output.events,
               "Print each state change on standard output as 'STATE <number> <name>'");
  app.add_flag("-v,--verbose", output.verbose, "Print the library's diagnostic lines on standard error");
  app.add_flag("-q,--quiet", output.quiet, "No progress bars (they only ever show on a terminal)");
}

void AddCommand(CLI::App& app, const CommandInfo& info, Collected& c) {
  CLI::App* sub = app.add_subcommand(info.name, info.help);
  sub->fallthrough();
  // Each command may be given more than once: its callback runs as soon as
  // its own arguments are read, so the commands keep the order given.
  sub->immediate_callback();
  auto argument = std::make_shared<std::string>();
  auto images = std::make_shared<int>(kDefaultPreviewImages);
  auto allowEmpty = std::make_shared<bool>(false);
  if (info.argument) sub->add_option(info.argument, *argument, info.argumentHelp)->required();
  if (info.op == Op::Preview)
    sub->add_option("--images", *images, "How many images to save before stopping")
        ->check(CLI::Range(1, 100000))
        ->capture_default_str();
  auto seek = std::make_shared<double>(-1);
  auto step = std::make_shared<int>(1);
  if (info.op == Op::Playback) {
    *images = 1;
    sub->add_option("--frames", *images, "How many frames to save")->check(CLI::Range(1, 100000))->capture_default_str();
    sub->add_option("--seek", *seek, "Go to this time of the clip, in seconds, before the first frame is saved")
        ->check(CLI::Range(0.0, 86400.0));
    sub->add_option("--step", *step, "Frames to move between two saved frames; negative moves back")
        ->check(CLI::Range(-10000, 10000))
        ->capture_default_str();
  }
  if (info.op == Op::UploadProg || info.op == Op::UploadProgCamEvents)
    sub->add_flag("--allow-empty", *allowEmpty,
                  "Send the tables even when they are all empty (that erases the unit's own)");
  sub->callback([&c, info, argument, images, allowEmpty, seek, step] {
    c.invocation.commands.push_back(Command{info.op, info.name, *argument, *images, 0, *allowEmpty, *seek, *step});
    argument->clear();
    *images = info.op == Op::Playback ? 1 : kDefaultPreviewImages;
    *allowEmpty = false;
    *seek = -1;
    *step = 1;
  });
}

void AddWebConsoleCommand(CLI::App& app, Collected& c) {
  CLI::App* sub = app.add_subcommand(
      "console", "Hold one link to the unit and serve a live page for it on this machine: the diagnostic "
                 "panel, every command a click away, the preview, the database. The page's address, with "
                 "its access token, is printed on standard output; the program runs until interrupted.");
  auto options = std::make_shared<WebConsoleOptions>();
  sub->add_option("--listen", options->listen, "Serve the page on ADDR:PORT (default: 127.0.0.1, a free port)");
  sub->add_flag("--allow-remote", options->allowRemote,
                "Allow a --listen address other than loopback (anyone who learns the address and token can "
                "drive the unit)");
  sub->add_flag("--open", options->open, "Open the page in the default browser");
  sub->callback([&c, options] { c.invocation.webConsole = *options; });
}

void AddDbCommands(CLI::App& app, Collected& c) {
  CLI::App* db = app.add_subcommand("db", "Local database commands; they need no link and run alone.");
  db->require_subcommand(1, 1);
  db->add_subcommand("init", "Create the database with the standard tables (an existing one is left alone)")
      ->callback([&c] { c.invocation.db = DbCommand{DbOp::Init, "", ""}; });
  auto* dump = db->add_subcommand(
      "dump", "Print a table as CSV on standard output: a header line, then one line per row in the order the "
              "rows were added; a Null is an empty field, an empty text is \"\"");
  auto table = std::make_shared<std::string>();
  dump->add_option("TABLE", *table, "The table's name, e.g. Registro_eventi")->required();
  dump->callback([&c, table] { c.invocation.db = DbCommand{DbOp::Dump, *table, ""}; });
  auto* exportLog = db->add_subcommand(
      "export-log", "Write the event log (Registro_eventi) as CSV, oldest event first, as db dump does");
  auto output = std::make_shared<std::string>();
  exportLog->add_option("-o,--output", *output, "Write to this file instead of standard output")->type_name("FILE");
  exportLog->callback([&c, output] { c.invocation.db = DbCommand{DbOp::ExportLog, "", *output}; });
}

void AddFleetCommand(CLI::App& app, Collected& c) {
  CLI::App* fleet = app.add_subcommand(
      "fleet",
      "Run the commands that follow against every unit of a fleet file, many links at once on one loop: "
      "camrelay fleet UNITS.csv [OPTIONS] COMMAND.... The file is CSV with the header "
      "name,host,port,transport,code,dir (transport udp or tcp; code the access code or env:VAR; dir the "
      "unit's working folder, relative to the file's folder, created when missing). One line per unit as it "
      "ends, then a summary; exit status 0 when every unit succeeded, 1 when any failed. The settings file is "
      "neither read nor written; --timeout-long, --timeout-short, --retries and -v apply to every unit.");
  fleet->fallthrough();
  auto options = std::make_shared<FleetOptions>();
  fleet->add_option("UNITS.csv", options->file, "The fleet file")->required()->check(CLI::ExistingFile);
  fleet->add_option("--parallel", options->parallel, "Links in flight at once")
      ->capture_default_str()
      ->check(CLI::Range(1, 100000));
  fleet->add_flag("--json", options->json,
                  "Print one JSON object a line: {\"unit\",\"ok\",\"seconds\",\"errors\",\"notes\"} per unit "
                  "as it ends, then {\"summary\":{\"units\",\"succeeded\",\"failed\",\"seconds\"}}");
  fleet->add_option("--claim", options->claim,
                    "Share the fleet with other machines running the same command: units are claimed from a work "
                    "list named ROUND in the PostgreSQL server of --db, each served by one machine only; a new "
                    "ROUND serves every unit again")
      ->option_text("ROUND")
      ->check(CLI::Validator(
          [](std::string& round) {
            // An unset shell variable must not turn sharing off unseen.
            return round.empty() ? std::string("the round is empty (an unset variable?); give it a name") : "";
          },
          "ROUND"));
  fleet->add_option("--db-connections", options->dbConnections,
                    "With a server --db: connections to the server the run opens at most, whatever --parallel is (the "
                    "work list of --claim counts as one); a link whose store finds them all in use waits for one")
      ->capture_default_str()
      ->check(CLI::Range(1, 10000));
  fleet->add_option("--report", options->report,
                    "Write the outcome of every unit to FILE, one JSON object a line as with --json, as each "
                    "unit ends")
      ->option_text("FILE");
  fleet->add_option("--retry", options->retry,
                    "Run only the units that failed in the --report FILE of an earlier run")
      ->option_text("FILE")
      ->check(CLI::ExistingFile);
  fleet->add_option("--lease", options->lease,
                    "With --claim: seconds a claimed unit stays this machine's; renewed while it runs, so a "
                    "machine that dies leaves its units to the others once its leases end")
      ->capture_default_str()
      ->check(CLI::Range(3, 86400));
  fleet->callback([&c, options] { c.invocation.fleet = *options; });
}

}  // namespace

namespace {

void CheckLinkInvocation(CLI::App& app, Invocation& inv) {
  CheckCode(inv.link.code, "--code (or CAMRELAY_CODE)");
  std::error_code ec;
  if (!fs::is_directory(inv.link.dir, ec)) throw UsageError("--dir: no such folder: " + inv.link.dir);
  const GivenOptions given{app.count("--host") > 0, app.count("--port") > 0, app.count("--local-port") > 0,
                           app.count("--tcp") + app.count("--udp") > 0};
  inv.link.anyLocalPort = given.localPort && inv.link.localPort == 0;
  ApplySite(inv.link, given, inv.commands);
  for (Command& command : inv.commands) CheckCommand(command);
  CheckUploadSources(inv.commands, inv.link.database);
}

// The options that a fleet file gives per unit.
constexpr const char* kPerUnitOptions[] = {"--host", "--port", "--local-port", "--tcp", "--udp", "--dir", "--db"};

// A server --db holds the whole fleet, a schema per unit named after it.
void CheckFleetInvocation(CLI::App& app, Invocation& inv) {
  const bool server = app.count("--db") > 0 && DatabaseFile(inv.link.database).empty();
  for (const char* option : kPerUnitOptions)
    if (app.count(option) > 0 && !(server && std::string_view(option) == "--db"))
      throw UsageError(std::string("fleet: ") + option + " is given per unit in the fleet file" +
                       (std::string_view(option) == "--db" ? " (or names a PostgreSQL server for all)" : ""));
  if (!inv.fleet->claim.empty() && !server)
    throw UsageError("fleet: --claim needs --db naming the PostgreSQL server that shares the work");
  for (Command& command : inv.commands) CheckCommand(command);
}

void ResolveAndCheck(CLI::App& app, Collected& c) {
  Invocation& inv = c.invocation;
  std::error_code ec;
  inv.link.dir = fs::absolute(c.dir.empty() ? fs::current_path(ec) : fs::path(c.dir), ec).lexically_normal().string();
  inv.link.database = c.database.empty() ? DefaultConnection(inv.link.dir) : c.database;
  if (inv.db && !inv.commands.empty()) throw UsageError("db commands run alone, without link commands");
  if (inv.webConsole && (inv.db || !inv.commands.empty()))
    throw UsageError("console runs alone: its page offers the commands");
  if (!inv.db && !inv.webConsole && inv.commands.empty()) throw UsageError("no command given (see camrelay --help)");
  if (inv.db && inv.fleet) throw UsageError("db commands run alone, not in a fleet");
  if (inv.db) {
    DatabaseFile(inv.link.database);
    return;
  }
  if (inv.fleet) return CheckFleetInvocation(app, inv);
  CheckLinkInvocation(app, inv);
}

// What a bare "camrelay" prints: enough to get going, and where to read on.
std::string ShortUsage(const CLI::App& app) {
  std::string names;
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
    names += (names.empty() ? "" : ", ") + command->get_name();
  return "Usage: camrelay [OPTIONS] COMMAND [ARGS] [COMMAND [ARGS]]...\n"
         "Commands: " + names + "\n"
         "Run 'camrelay --help' for the options and what each command does.";
}

// CLI11 heads the list "Subcommands": here they are commands.
void GroupAsCommands(CLI::App& app) {
  for (CLI::App* command : app.get_subcommands([](CLI::App*) { return true; })) {
    command->group("Commands");
    GroupAsCommands(*command);
  }
}

std::string UnknownCommand(CLI::App& app, const std::string& word) {
  std::vector<std::string> names;
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
    names.push_back(command->get_name());
  const std::string nearest = NearestName(word, names);
  return "unknown command '" + word + "'" + (nearest.empty() ? "" : "; did you mean '" + nearest + "'?") +
         " (see camrelay --help)";
}

// CLI11 checks that a command was given before it looks at the words it
// could not place: a mistyped command reads as no command at all.
std::string MissingWhat(CLI::App& app, const CLI::RequiredError& error) {
  if (std::string(error.what()) != "A subcommand is required") return error.what();
  if (app.got_subcommand("db")) return "db: give one of init, dump TABLE, export-log";
  const std::vector<std::string> left = app.remaining();
  if (!left.empty()) return UnknownCommand(app, left.front());
  return "no command given\n" + ShortUsage(app);
}

// The words CLI11 could not place: a mistyped command after a good one.
std::string NotExpected(CLI::App& app, const CLI::ExtrasError& error) {
  for (const std::string& word : app.remaining())
    if (!word.starts_with("-")) return UnknownCommand(app, word);
  return error.what();
}

}  // namespace

Invocation Parse(int argc, char** argv) {
  Collected c;
  CLI::App app(Description(), "camrelay");
  app.get_formatter()->label("SUBCOMMAND", "COMMAND [ARGS]...");
  app.get_formatter()->label("SUBCOMMANDS", "COMMANDS");
  app.get_formatter()->label("Positionals", "Arguments");
  app.require_subcommand(1, 0);
  AddLinkOptions(app, c);
  AddOutputOptions(app, c.invocation.output);
  for (const CommandInfo& info : Commands()) AddCommand(app, info, c);
  AddDbCommands(app, c);
  AddFleetCommand(app, c);
  AddWebConsoleCommand(app, c);
  // Set last, so that the commands' own help does not repeat it.
  app.footer(Footer());
  // Once every command is defined: they all show under one heading.
  GroupAsCommands(app);
  app.set_help_all_flag("--help-all", "Print the help of every command and exit");
  app.set_version_flag("--version", "camrelay " CAMRELAY_VERSION);
  cli_docs::AddCompletionOption(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    c.invocation.help = WrapHelp(app.help(), HelpWidth());
    return c.invocation;
  } catch (const CLI::CallForAllHelp&) {
    c.invocation.help = WrapHelp(app.help("", CLI::AppFormatMode::All), HelpWidth());
    return c.invocation;
  } catch (const CLI::CallForVersion& e) {
    c.invocation.help = std::string(e.what()) + "\n";
    return c.invocation;
  } catch (const CLI::RequiredError& e) {
    throw UsageError(MissingWhat(app, e));
  } catch (const CLI::ExtrasError& e) {
    throw UsageError(NotExpected(app, e));
  } catch (const CLI::ParseError& e) {
    throw UsageError(e.what());
  }
  ResolveAndCheck(app, c);
  return c.invocation;
}

}  // namespace camrelay::cli
