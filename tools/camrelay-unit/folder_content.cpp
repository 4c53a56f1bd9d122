#include "folder_content.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

#include "protocol.h"
#include "transfers.h"

namespace camrelay::unit {

namespace fs = std::filesystem;

std::optional<std::string> ReadBytes(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) return std::nullopt;
  return std::string(std::istreambuf_iterator<char>(in), {});
}

void WriteBytes(const fs::path& file, const std::string& bytes) {
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!out) throw std::runtime_error("cannot write " + file.string());
}

bool IsPlainFileName(std::string_view name) {
  if (name.empty() || name == "." || name == "..") return false;
  return name.find_first_of(std::string_view("/\\:\0", 4)) == std::string_view::npos;
}

namespace {

const std::vector<std::string_view> kProgrammingTables = {"Ingressi",    "MMS",           "NumTel",
                                                          "CanaliVideo", "Alimentazione", "ImpostazioniVideo"};
const std::vector<std::string_view> kCamEventTables = {"ProgCamEvents", "Festivita"};

std::vector<TableQuery> Queries(const std::vector<std::string_view>& tables) {
  std::vector<TableQuery> queries;
  for (std::string_view table : tables) queries.push_back({table, ""});
  return queries;
}

// The unit's folders, made where missing, and the path of its database.
fs::path MakeFolders(const fs::path& dir) {
  for (const char* folder : kFolders) fs::create_directories(dir / folder);
  return dir / kDatabaseFile;
}

std::string_view TrimSpaces(std::string_view text) {
  const auto first = text.find_first_not_of(' ');
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

}  // namespace

FolderContent::FolderContent(fs::path dir, const unit::Log& log)
    : dir_(std::move(dir)), log_(log), db_(MakeFolders(dir_)) {}

std::vector<std::string> FolderContent::Programmazione() {
  return TablePayload(db_, type::Prog, Queries(kProgrammingTables), log_);
}

// Events of one moment keep the order they were logged in.
std::vector<std::string> FolderContent::Log() {
  return TablePayload(db_, type::Log,
                      {{"Registro_eventi", "SELECT * FROM Registro_eventi ORDER BY DataOra, IdRegistro"}}, log_);
}

std::vector<std::string> FolderContent::CamEvents() {
  return TablePayload(db_, type::CamEvents, Queries({"CamEvents"}), log_);
}

std::vector<std::string> FolderContent::ProgCamEvents() {
  return TablePayload(db_, type::ProgCamEvents, Queries(kCamEventTables), log_);
}

// The files the inputs and the power-supply events name, in their rows'
// order; a name used twice goes twice. A file that is missing keeps its
// number but takes no element.
std::vector<std::string> FolderContent::VoiceMessages() {
  std::vector<std::string> dati{""};
  int number = 0;
  for (std::string_view table : {"Ingressi", "Alimentazione"}) {
    for (const Row& row : db_.Read("SELECT FoniaFileWav FROM " + QuotedName(table) + " ORDER BY rowid").rows) {
      const auto* value = std::get_if<std::string>(&row[0]);
      if (!value || value->empty()) continue;
      ++number;
      const std::string name(TrimSpaces(*value));
      const fs::path file = dir_ / "Audio" / name;
      std::error_code error;
      if (!IsPlainFileName(name)) {
        log_.Info("the voice message name " + Printable(name) + " is refused: it is not a plain file name");
      } else if (fs::is_regular_file(file, error)) {
        for (auto& element : FileElements(number, Utf8ToCp1252(name), ReadBytes(file).value_or("")))
          dati.push_back(std::move(element));
      }
    }
  }
  dati.emplace_back(kSep);
  dati[0] = "AA{}" + std::to_string(dati.size() - 1) + "{}" + std::string(type::WaveUpload) + "{}";
  return dati;
}

// A name is looked up where the component would write it: snapshots and
// clips both, whatever the extension says.
std::optional<std::string> FolderContent::MediaFile(const std::string& name) {
  if (!IsPlainFileName(name)) return std::nullopt;
  for (const char* folder : {"Snapshot", "VideoAvi"})
    if (auto bytes = ReadBytes(dir_ / folder / name)) return bytes;
  return std::nullopt;
}

std::optional<std::string> FolderContent::PreviewImage(int camera) {
  if (camera < 1) return std::nullopt;
  return ReadBytes(dir_ / "Preview" / ("cam" + std::to_string(camera) + ".jpg"));
}

int FolderContent::LogSize() { return static_cast<int>(db_.Count("Registro_eventi")); }

void FolderContent::EraseLog() { db_.Exec("DELETE FROM Registro_eventi"); }

// The tables are replaced together, or not at all when the database fails.
void FolderContent::ReplaceTables(const std::vector<std::string>& dati, const std::vector<std::string_view>& tables) {
  if (dati.size() <= 1) return;
  try {
    Database::Transaction transaction(db_);
    for (std::string_view table : tables) db_.Exec("DELETE FROM " + QuotedName(table));
    const int stored = StoreRecordLines(db_, dati, tables, log_);
    transaction.Commit();
    log_.Info(std::to_string(stored) + " records stored");
  } catch (const std::runtime_error& e) {
    log_.Error(std::string("the tables were not replaced: ") + e.what());
  }
}

void FolderContent::StoreProgrammazione(std::vector<std::string>& dati) { ReplaceTables(dati, kProgrammingTables); }

// The holidays belong to the programming that refers to them.
void FolderContent::StoreProgCamEvents(std::vector<std::string>& dati) { ReplaceTables(dati, kCamEventTables); }

// Names travel in Windows-1252; on disk they are UTF-8, as the component
// keeps them.
bool FolderContent::StoreFile(const std::string& folder, const std::string& wireName, const std::string& bytes) {
  const std::string name = Cp1252ToUtf8(wireName);
  if (!IsPlainFileName(name)) return false;
  WriteBytes(dir_ / folder / name, bytes);
  return true;
}

bool FolderContent::StoreVoiceMessage(const std::string& name, const std::string& bytes) {
  return StoreFile("Audio", name, bytes);
}

bool FolderContent::StoreFirmware(const std::string& name, const std::string& bytes) {
  return StoreFile("Firmware", name, bytes);
}

void FolderContent::StoreLastCommand(const std::string& command) { WriteBytes(dir_ / "last-command.txt", command); }

std::string FolderContent::LastCommand() { return ReadBytes(dir_ / "last-command.txt").value_or(""); }

}  // namespace camrelay::unit
