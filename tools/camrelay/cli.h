// What the user asked for on the command line, checked and ready to run.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace camrelay::cli {

// Bad usage or bad input: the program says why in one line and exits 2,
// before anything is sent to the unit.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct LinkOptions {
  std::string host;       // "" = from the settings file
  int port = 0;           // 0 = from the settings file
  int localPort = 0;      // 0 = from the settings file
  bool tcp = false;       // UDP unless --tcp
  std::string code;       // the access code, from --code or CAMRELAY_CODE
  std::string dir;        // the working folder, absolute
  std::string database;   // a connection string for StringaConnDB
  int timeoutLong = 0;    // 0 = the transport's own
  int timeoutShort = 0;
  int retries = 0;
};

struct OutputOptions {
  bool events = false;
  bool verbose = false;
  bool quiet = false;
};

enum class Op {
  Login,
  DownloadProg,
  UploadProg,
  DownloadLog,
  EraseLog,
  DownloadCamEvents,
  DownloadProgCamEvents,
  UploadProgCamEvents,
  DownloadWave,
  UploadWave,
  UploadFirmware,
  DownloadMedia,
  SendCommand,
  RequestCommand,
  StreamImage,
  SetInstallerCode,
  SetUserCode,
  Preview,
};

struct Command {
  Op op;
  std::string name;      // as typed, for messages
  std::string argument;  // file, name, text, camera(s) or code; "" when none
  int images = 0;        // preview: how many images to save
  int cameras = 0;       // stream-image: the camera; preview: the cameras' mask
};

enum class DbOp { Init, Dump, ExportLog };

struct DbCommand {
  DbOp op;
  std::string table;   // dump only
  std::string output;  // export-log: a file, "" for standard output
};

struct Invocation {
  LinkOptions link;
  OutputOptions output;
  std::vector<Command> commands;
  std::optional<DbCommand> db;
  // Set when --help was asked for: the text is printed and nothing runs.
  std::optional<std::string> help;
};

// Parses and checks argv. Throws UsageError.
Invocation Parse(int argc, char** argv);

// The database file a connection string names, for the checks made before
// it is opened.
std::string DatabaseFile(const std::string& connection);

}  // namespace camrelay::cli
