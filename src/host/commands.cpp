// The command table and the checks made before anything is sent.
#include "host/commands.h"

#include <algorithm>
#include <charconv>
#include <filesystem>

#include "files/safe_name.h"
#include "store/DataVideo.h"
#include "store/text.h"

namespace camrelay::host {
namespace fs = std::filesystem;

namespace {

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
    {Op::Playback, "playback", "CLIP",
     "Open a clip recorded on the unit, save the frame it shows as Snapshot/playback-<CLIP>-<NNNN>.jpg, go to "
     "--seek, then save --frames frames in all, moving --step frames between two; close the clip. A clip the "
     "unit does not have (it answers \"Reg Error\") is a failure.",
     "The clip's name on the unit (a .avi file), without any folder"},
};

constexpr std::size_t kMaxCodeLength = 6;
constexpr const char* kSeparator = "{}";

int ParseCamera(const std::string& text, const std::string& what) {
  int camera = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), camera);
  if (error != std::errc() || end != text.data() + text.size() || camera < 1 || camera > 31)
    throw UsageError(what + ": '" + text + "' is not a camera number from 1 to 31");
  return camera;
}

std::string CheckedFirmware(const std::string& file) {
  std::error_code ec;
  const fs::path path = fs::absolute(file, ec);
  if (!fs::is_regular_file(path, ec)) throw UsageError("upload-firmware: no such file: " + file);
  if (fs::file_size(path, ec) == 0) throw UsageError("upload-firmware: the file is empty: " + file);
  return path.string();
}

}  // namespace

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
      // The unit's text is Windows-1252: a character it has no byte for
      // would arrive as "?".
      if (store::Cp1252ToUtf8(store::Utf8ToCp1252(command.argument)) != command.argument)
        throw UsageError(what + ": the command string holds a character the unit cannot take (its text is "
                         "Windows-1252), or text that is not UTF-8");
      break;
    case Op::StreamImage:
      command.cameras = ParseCamera(command.argument, what);
      break;
    case Op::SetInstallerCode:
    case Op::SetUserCode:
      CheckCode(command.argument, what);
      break;
    case Op::Playback:
      // The link tells a clip from a camera or a playback command by ".avi".
      if (!store::IsPlainFileName(command.argument) || command.argument.find(".avi") == std::string::npos ||
          command.argument.find(':') != std::string::npos)
        throw UsageError(what + ": '" + command.argument + "' is not a clip name (a plain file name holding .avi)");
      if (command.step == 0) throw UsageError(what + ": --step 0 would show the same frame again");
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

namespace {

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

// The tables an upload sends from the database.
std::vector<std::string_view> SentTables(Op op) {
  if (op == Op::UploadProgCamEvents) return {"ProgCamEvents", "Festivita"};
  std::vector<std::string_view> tables;
  for (const auto& programming : store::kProgrammingTables) tables.push_back(programming.Table);
  return tables;
}

// An upload of tables that are all empty erases the unit's programming: it
// is sent only when asked for in so many words.
void CheckNotEmpty(const Command& command, const std::string& connection) {
  if (command.allowEmpty) return;
  store::DataVideo db;
  db.SetConnectionString(connection);
  try {
    db.EnsureOpen(nullptr, "camrelay");
    for (std::string_view table : SentTables(command.op))
      if (db.OpenRecordset(table).RecordCount() > 0) return;
  } catch (const std::exception& e) {
    throw UsageError(command.name + ": cannot read the database: " + e.what());
  }
  throw UsageError(command.name + ": the tables to send are all empty, which would erase the unit's own; give "
                   "--allow-empty to send them all the same");
}
}  // namespace

void CheckSource(const Command& command, const std::string& connection, bool haveDatabase,
                 const std::vector<Op>& done) {
  const auto source = SourceOf(command.op);
  const bool filledEarlier = source && std::find(done.begin(), done.end(), *source) != done.end();
  // Sending from a database that is not there would send empty tables and
  // wipe the unit's own, unless an earlier command fills them.
  if (source && !haveDatabase && !filledEarlier)
    throw UsageError(command.name + ": there is no database at " + DatabaseFile(connection) +
                     " (download from the unit first, or run 'camrelay db init')");
  const bool sendsTables = command.op == Op::UploadProg || command.op == Op::UploadProgCamEvents;
  if (sendsTables && !filledEarlier) CheckNotEmpty(command, connection);
}

namespace {

// Edits (insert, delete, replace, swap of neighbours) from a to b.
std::size_t EditDistance(const std::string& a, const std::string& b) {
  std::vector<std::vector<std::size_t>> d(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
  for (std::size_t i = 0; i <= a.size(); ++i) d[i][0] = i;
  for (std::size_t j = 0; j <= b.size(); ++j) d[0][j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i)
    for (std::size_t j = 1; j <= b.size(); ++j) {
      d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + (a[i - 1] != b[j - 1])});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
    }
  return d[a.size()][b.size()];
}

// Words longer than this are not commands anyone meant.
constexpr std::size_t kLongestWord = 64;

}  // namespace

std::string NearestName(const std::string& word, const std::vector<std::string>& names) {
  if (word.empty() || word.size() > kLongestWord) return "";
  std::string best;
  std::size_t bestDistance = 0;
  for (const std::string& name : names) {
    const std::size_t distance = EditDistance(word, name);
    if (best.empty() || distance < bestDistance) {
      best = name;
      bestDistance = distance;
    }
  }
  // Near enough: a third of the name may be wrong, and at least one letter.
  const std::size_t allowed = std::max<std::size_t>(1, best.size() / 3);
  return bestDistance <= allowed ? best : "";
}

std::span<const CommandInfo> Commands() { return kCommands; }

std::string DatabaseFile(const std::string& connection) {
  try {
    const store::DatabaseLocation location = store::ParseConnection(connection);
    const auto* file = std::get_if<fs::path>(&location);
    return file ? file->string() : "";
  } catch (const std::exception& e) {
    throw UsageError(std::string("--db: ") + e.what());
  }
}

std::string DefaultConnection(const std::string& dir) {
  const std::string file = (fs::path(dir) / "VideoSentrova.db").string();
  const bool needsQuotes = file.find(';') != std::string::npos;
  return "Provider=SQLite;Data Source=" + (needsQuotes ? "\"" + file + "\"" : file);
}

void CheckCode(const std::string& code, const std::string& what) {
  if (code.empty() || code.size() > kMaxCodeLength)
    throw UsageError(what + ": an access code has 1 to " + std::to_string(kMaxCodeLength) + " characters");
  if (code.find(kSeparator) != std::string::npos)
    throw UsageError(what + ": an access code cannot contain \"{}\"");
}

void CheckUploadSources(const std::vector<Command>& commands, const std::string& connection) {
  std::error_code ec;
  const std::string file = DatabaseFile(connection);
  // A server schema is checked by opening it, in CheckNotEmpty.
  const bool haveDatabase = file.empty() || fs::exists(file, ec);
  std::vector<Op> done;
  for (const Command& command : commands) {
    CheckSource(command, connection, haveDatabase, done);
    done.push_back(command.op);
  }
}

}  // namespace camrelay::host
