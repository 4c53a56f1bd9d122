// The commands every face offers, the options of a link, and every check
// that can be made before the unit is contacted.
#pragma once

#include <functional>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace camrelay::host {

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
  bool anyLocalPort = false;  // bind a local port the system picks
  bool tcp = false;       // UDP unless --tcp
  std::string code;       // the access code, from --code or CAMRELAY_CODE
  std::string dir;        // the working folder, absolute
  std::string database;   // a connection string for StringaConnDB
  int timeoutLong = 0;    // 0 = the transport's own
  int timeoutShort = 0;
  int retries = 0;
  bool settingsFile = true;  // false: the settings file is neither read nor written
  // Where the link's downloads are stored (clsClient::RunStoresWith);
  // unset: on the loop.
  std::function<void(std::function<void()> work, std::function<void()> then)> storeRunner;
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
  Playback,
};

struct Command {
  Op op;
  std::string name;      // as typed, for messages
  std::string argument;  // file, name, text, camera(s) or code; "" when none
  int images = 0;        // preview: how many images to save
  int cameras = 0;       // stream-image: the camera; preview: the cameras' mask
  bool allowEmpty = false;  // upload-prog, upload-prog-cam-events: send tables that are all empty
  // playback: images = the frames to save, seek = where to go first in
  // seconds (negative: stay at the start), step = frames moved between two
  // saved frames (negative: backwards).
  double seek = -1;
  int step = 1;
};

// One row of the command table: every face offers the same commands.
struct CommandInfo {
  Op op;
  const char* name;
  const char* argument;  // the positional's name, nullptr for none
  const char* help;
  const char* argumentHelp = "";
};

std::span<const CommandInfo> Commands();

// The name nearest to a mistyped word (by edit distance, letters swapped
// counting once), when it is near enough to be what was meant; "" otherwise.
std::string NearestName(const std::string& word, const std::vector<std::string>& names);

// Checks a command's argument as the command line does, filling in what the
// argument means (a camera mask, an absolute file). Throws UsageError.
void CheckCommand(Command& command);

// Refuses an upload from a database file that was not there before the run
// (haveDatabase false), or of tables that are all empty without
// --allow-empty, unless a download in `done` has filled its tables.
void CheckSource(const Command& command, const std::string& connection, bool haveDatabase,
                 const std::vector<Op>& done);

// The database file a connection string names, for the checks made before
// it is opened; "" for a schema of a server. Throws UsageError for a bad
// connection string.
std::string DatabaseFile(const std::string& connection);

// The connection string of VideoSentrova.db in a working folder.
std::string DefaultConnection(const std::string& dir);

// Throws UsageError when an access code is empty, too long or holds "{}";
// `what` says whose code it is.
void CheckCode(const std::string& code, const std::string& what);

// Throws UsageError when an upload would send from a database that is not
// there, or tables that are all empty without --allow-empty (and no earlier
// command fills them): either would wipe the unit's own.
void CheckUploadSources(const std::vector<Command>& commands, const std::string& connection);

}  // namespace camrelay::host
