// The command line: global options, the commands in the order given, and
// every check that can be made before the unit is contacted.
#include "cli.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <filesystem>
#include <memory>

#include "files/safe_name.h"
#include "store/DataVideo.h"

namespace camrelay::cli {
namespace fs = std::filesystem;

namespace {

constexpr const char* kDescription =
    "camrelay drives a video alarm communicator (a unit) over TCP or UDP.\n"
    "Commands run in the order given, one after the other, on one link:\n"
    "  camrelay [OPTIONS] COMMAND [ARGS] [COMMAND [ARGS]]...\n"
    "Link options left out are taken from the settings file\n"
    "(${XDG_CONFIG_HOME:-~/.config}/CamRelay/settings.ini), and the values used are\n"
    "written back to it.";

constexpr const char* kFooter =
    "Exit status: 0 when every command succeeded; 1 when the unit refused one or it\n"
    "failed (the reason on standard error); 2 for bad usage or bad input, before\n"
    "anything is sent.\n"
    "Examples:\n"
    "  camrelay --host 10.0.0.7 --code 123456 login download-prog download-log\n"
    "  camrelay --tcp download-media 20240101-120000.jpg\n"
    "  camrelay db export-log > log.csv\n"
    "Run 'camrelay COMMAND --help' for the details of a command.";

struct CommandInfo {
  Op op;
  const char* name;
  const char* argument;  // the positional's name, nullptr for none
  const char* help;
  const char* argumentHelp = "";
};

constexpr CommandInfo kCommands[] = {
    {Op::Login, "login", nullptr, "Log in to the unit with the access code and report whether it was accepted."},
    {Op::DownloadProg, "download-prog", nullptr,
     "Fetch the unit's programming and store it in the database, replacing the six programming tables "
     "(Ingressi, MMS, NumTel, CanaliVideo, Alimentazione, ImpostazioniVideo)."},
    {Op::UploadProg, "upload-prog", nullptr,
     "Send the programming held in the database's six programming tables to the unit."},
    {Op::DownloadLog, "download-log", nullptr,
     "Fetch the unit's event log and append its records to the Registro_eventi table."},
    {Op::EraseLog, "erase-log", nullptr, "Ask the unit to erase its event log."},
    {Op::DownloadCamEvents, "download-cam-events", nullptr,
     "Fetch the unit's camera events and append them to the CamEvents table."},
    {Op::DownloadProgCamEvents, "download-prog-cam-events", nullptr,
     "Fetch the unit's camera-event programming and store it, replacing the ProgCamEvents and Festivita "
     "tables."},
    {Op::UploadProgCamEvents, "upload-prog-cam-events", nullptr,
     "Send the camera-event programming (ProgCamEvents and Festivita tables) to the unit."},
    {Op::DownloadWave, "download-wave", nullptr,
     "Fetch the unit's voice messages into Audio/ below the working folder (each file arrives with one "
     "zero byte added at its end)."},
    {Op::UploadWave, "upload-wave", nullptr,
     "Send the voice messages that the FoniaFileWav fields of Ingressi and Alimentazione name, read from "
     "Audio/ below the working folder."},
    {Op::UploadFirmware, "upload-firmware", "FILE", "Send a firmware update file to the unit.",
     "The firmware file; the unit receives it under its name without the folder"},
    {Op::DownloadMedia, "download-media", "NAME",
     "Fetch a snapshot or clip by its file name: a name ending in .jpg goes to Snapshot/, any other to "
     "VideoAvi/ below the working folder. A file of that name already there is replaced once the download "
     "has completed, and kept if it fails.",
     "The file's name on the unit, without any folder"},
    {Op::SendCommand, "send-command", "TEXT", "Send a command string to the unit.",
     "The command string (it cannot contain \"{}\")"},
    {Op::RequestCommand, "request-command", "TEXT",
     "Send a command string and print the unit's answer on standard output, alone on a line. No answer "
     "within the reply time-outs and retries is a failure.",
     "The command string (it cannot contain \"{}\")"},
    {Op::StreamImage, "stream-image", "CAMERA",
     "Fetch one image of a camera and save it as Snapshot/stream-cam<C>-<NNNN>.jpg.", "The camera, 1 to 31"},
    {Op::SetInstallerCode, "set-installer-code", "NEW",
     "Change the installer code; later commands log in with the new one.", "The new code, 1 to 6 characters"},
    {Op::SetUserCode, "set-user-code", "NEW",
     "Change the user code; later commands log in with the new one.", "The new code, 1 to 6 characters"},
    {Op::Preview, "preview", "CAMERAS",
     "Cycle the live preview over the cameras given as a list (1,3) and save each image as "
     "Snapshot/preview-cam<C>-<NNNN>.jpg, numbered on from the images already there; stop the preview "
     "after --images images.",
     "The cameras, 1 to 31, separated by commas"},
};

constexpr int kDefaultPreviewImages = 5;
constexpr std::size_t kMaxCodeLength = 6;
constexpr const char* kSeparator = "{}";

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
                 "The unit's address (default: the last one used; 192.168.0.1 the first time)");
  app.add_option("--port", link.port, "The unit's port (default: the last one used; 19201 the first time)")
      ->check(CLI::Range(1, 65535));
  app.add_option("--local-port", link.localPort,
                 "The local UDP port to bind (default: the last one used; 14400 the first time)")
      ->check(CLI::Range(1, 65535));
  auto* tcp = app.add_flag("--tcp", link.tcp, "Talk over TCP");
  auto* udp = app.add_flag("--udp", c.udp, "Talk over UDP (the default)");
  tcp->excludes(udp);
  app.add_option("--code", link.code, "The access code, 1 to 6 characters; never printed")
      ->envname("CAMRELAY_CODE");
  app.add_option("--dir", c.dir,
                 "Working folder: the database and the Audio/, Snapshot/, VideoAvi/ folders (default: the "
                 "current folder)");
  app.add_option("--db", c.database,
                 "The database: a file or a connection string \"Provider=SQLite;Data Source=FILE\" (default: "
                 "VideoSentrova.db in the working folder)");
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
  if (info.argument) sub->add_option(info.argument, *argument, info.argumentHelp)->required();
  if (info.op == Op::Preview)
    sub->add_option("--images", *images, "How many images to save before stopping")
        ->check(CLI::Range(1, 100000))
        ->capture_default_str();
  sub->callback([&c, info, argument, images] {
    c.invocation.commands.push_back(Command{info.op, info.name, *argument, *images});
    argument->clear();
    *images = kDefaultPreviewImages;
  });
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
  exportLog->add_option("-o,--output", *output, "Write to this file instead of standard output");
  exportLog->callback([&c, output] { c.invocation.db = DbCommand{DbOp::ExportLog, "", *output}; });
}

int ParseCamera(const std::string& text, const std::string& what) {
  int camera = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), camera);
  if (error != std::errc() || end != text.data() + text.size() || camera < 1 || camera > 31)
    throw UsageError(what + ": '" + text + "' is not a camera number from 1 to 31");
  return camera;
}

void CheckCode(const std::string& code, const std::string& what) {
  if (code.empty() || code.size() > kMaxCodeLength)
    throw UsageError(what + ": an access code has 1 to " + std::to_string(kMaxCodeLength) + " characters");
  if (code.find(kSeparator) != std::string::npos)
    throw UsageError(what + ": an access code cannot contain \"{}\"");
}

std::string CheckedFirmware(const std::string& file) {
  std::error_code ec;
  const fs::path path = fs::absolute(file, ec);
  if (!fs::is_regular_file(path, ec)) throw UsageError("upload-firmware: no such file: " + file);
  if (fs::file_size(path, ec) == 0) throw UsageError("upload-firmware: the file is empty: " + file);
  return path.string();
}

void CheckCommand(Command& command) {
  const std::string& what = command.name;
  switch (command.op) {
    case Op::UploadFirmware:
      command.argument = CheckedFirmware(command.argument);
      break;
    case Op::DownloadMedia:
      if (!store::IsPlainFileName(command.argument))
        throw UsageError(what + ": '" + command.argument + "' is not a plain file name (no folder, no '..')");
      break;
    case Op::SendCommand:
    case Op::RequestCommand:
      if (command.argument.find(kSeparator) != std::string::npos)
        throw UsageError(what + ": a command string cannot contain \"{}\"");
      break;
    case Op::StreamImage:
      command.cameras = ParseCamera(command.argument, what);
      break;
    case Op::SetInstallerCode:
    case Op::SetUserCode:
      CheckCode(command.argument, what);
      break;
    case Op::Preview: {
      std::string_view rest = command.argument;
      while (true) {
        const auto comma = rest.find(',');
        command.cameras |= 1 << (ParseCamera(std::string(rest.substr(0, comma)), what) - 1);
        if (comma == std::string_view::npos) break;
        rest.remove_prefix(comma + 1);
      }
      break;
    }
    default:
      break;
  }
}

// The download that fills the tables an upload sends, if the upload sends
// from the database.
std::optional<Op> SourceOf(Op op) {
  switch (op) {
    case Op::UploadProg:
    case Op::UploadWave:  // the programming names the voice messages
      return Op::DownloadProg;
    case Op::UploadProgCamEvents:
      return Op::DownloadProgCamEvents;
    default:
      return std::nullopt;
  }
}

void CheckLinkInvocation(Invocation& inv) {
  CheckCode(inv.link.code, "--code (or CAMRELAY_CODE)");
  std::error_code ec;
  if (!fs::is_directory(inv.link.dir, ec)) throw UsageError("--dir: no such folder: " + inv.link.dir);
  const std::string file = DatabaseFile(inv.link.database);
  const bool haveDatabase = fs::exists(file, ec);
  std::vector<Op> done;
  for (Command& command : inv.commands) {
    CheckCommand(command);
    // Sending from a database that is not there would send empty tables and
    // wipe the unit's own, unless an earlier command fills them.
    const auto source = SourceOf(command.op);
    if (source && !haveDatabase && std::find(done.begin(), done.end(), *source) == done.end())
      throw UsageError(command.name + ": there is no database at " + file +
                       " (download from the unit first, or run 'camrelay db init')");
    done.push_back(command.op);
  }
}

std::string DefaultConnection(const std::string& dir) {
  const std::string file = (fs::path(dir) / "VideoSentrova.db").string();
  const bool needsQuotes = file.find(';') != std::string::npos;
  return "Provider=SQLite;Data Source=" + (needsQuotes ? "\"" + file + "\"" : file);
}

void ResolveAndCheck(Collected& c) {
  Invocation& inv = c.invocation;
  std::error_code ec;
  inv.link.dir = fs::absolute(c.dir.empty() ? fs::current_path(ec) : fs::path(c.dir), ec).lexically_normal().string();
  inv.link.database = c.database.empty() ? DefaultConnection(inv.link.dir) : c.database;
  if (inv.db && !inv.commands.empty()) throw UsageError("db commands run alone, without link commands");
  if (!inv.db && inv.commands.empty()) throw UsageError("no command given (see camrelay --help)");
  if (inv.db) {
    DatabaseFile(inv.link.database);
    return;
  }
  CheckLinkInvocation(inv);
}

// CLI11 checks that a command was given before it looks at the words it
// could not place: a mistyped command reads as no command at all.
std::string MissingWhat(CLI::App& app, const CLI::RequiredError& error) {
  if (std::string(error.what()) != "A subcommand is required") return error.what();
  if (app.got_subcommand("db")) return "db: give one of init, dump TABLE, export-log";
  const std::vector<std::string> left = app.remaining();
  if (!left.empty()) return "unknown command '" + left.front() + "' (see camrelay --help)";
  return "no command given (see camrelay --help)";
}

}  // namespace

std::string DatabaseFile(const std::string& connection) {
  try {
    return store::DatabasePath(connection).string();
  } catch (const std::exception& e) {
    throw UsageError(std::string("--db: ") + e.what());
  }
}

Invocation Parse(int argc, char** argv) {
  Collected c;
  CLI::App app(kDescription, "camrelay");
  app.get_formatter()->label("SUBCOMMAND", "COMMAND [ARGS]...");
  app.get_formatter()->label("SUBCOMMANDS", "COMMANDS");
  app.get_formatter()->label("Subcommands", "Commands");
  app.get_formatter()->label("Positionals", "Arguments");
  app.require_subcommand(1, 0);
  AddLinkOptions(app, c);
  AddOutputOptions(app, c.invocation.output);
  for (const CommandInfo& info : kCommands) AddCommand(app, info, c);
  AddDbCommands(app, c);
  // Set last, so that the commands' own help does not repeat it.
  app.footer(kFooter);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    c.invocation.help = app.help();
    return c.invocation;
  } catch (const CLI::CallForAllHelp&) {
    c.invocation.help = app.help("", CLI::AppFormatMode::All);
    return c.invocation;
  } catch (const CLI::RequiredError& e) {
    throw UsageError(MissingWhat(app, e));
  } catch (const CLI::ParseError& e) {
    throw UsageError(e.what());
  }
  ResolveAndCheck(c);
  return c.invocation;
}

}  // namespace camrelay::cli
