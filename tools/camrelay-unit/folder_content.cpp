#include "folder_content.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

#include "files/safe_name.h"
#include "files/voice.h"
#include "store/download.h"
#include "store/payload.h"
#include "store/backend.h"
#include "store/text.h"

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

FolderContent::FolderContent(fs::path dir, const unit::Log& log) : dir_(std::move(dir)), reports_(log) {
  for (const char* folder : kFolders) fs::create_directories(dir_ / folder);
  db_.SetConnectionString("Provider=SQLite;Data Source=" + (dir_ / kDatabaseFile).string());
  db_.Open();
  db_.StatoDB = cDbAperto;
}

std::vector<std::string> FolderContent::Tables(std::string_view tipo,
                                               std::initializer_list<std::string_view> commands) {
  std::vector<std::string> dati;
  store::EncodeTables(dati, db_, &reports_, tipo, "", commands, "camrelay-unit");
  return dati;
}

std::vector<std::string> FolderContent::Programmazione() {
  std::vector<std::string> dati;
  store::LoadDataFromDB(dati, db_, &reports_, "");
  return dati;
}

// The log query sorts by DataOra.
std::vector<std::string> FolderContent::Log() { return Tables("04", {"Registro_eventi"}); }

std::vector<std::string> FolderContent::CamEvents() { return Tables("53", {"CamEvents"}); }

std::vector<std::string> FolderContent::ProgCamEvents() {
  std::vector<std::string> dati;
  store::LoadProgCamEventsFromDB(dati, db_, &reports_, "");
  return dati;
}

std::vector<std::string> FolderContent::VoiceMessages() {
  std::vector<std::string> dati;
  store::LoadMessaggiWave(dati, db_, &reports_, "", dir_ / "Audio");
  return dati;
}

// A name is looked up where the component would write it: snapshots and
// clips both, whatever the extension says.
std::optional<std::string> FolderContent::MediaFile(const std::string& name) {
  if (!store::IsPlainFileName(name)) return std::nullopt;
  for (const char* folder : {"Snapshot", "VideoAvi"})
    if (auto bytes = ReadBytes(dir_ / folder / name)) return bytes;
  return std::nullopt;
}

std::optional<std::string> FolderContent::PreviewImage(int camera) {
  if (camera < 1) return std::nullopt;
  return ReadBytes(dir_ / "Preview" / ("cam" + std::to_string(camera) + ".jpg"));
}

int FolderContent::LogSize() { return static_cast<int>(db_.OpenTable("Registro_eventi").RecordCount()); }

void FolderContent::EraseLog() { db_.Execute("Del_Registro_eventi"); }

void FolderContent::StoreProgrammazione(std::vector<std::string>& dati) {
  store::SaveVideoSentrovaDB(dati, db_, &reports_);
}

// Both tables are replaced together: the holidays belong to the programming
// that refers to them. There is no delete command for Festivita.
void FolderContent::StoreProgCamEvents(std::vector<std::string>& dati) {
  store::Transaction transaction(db_.Handle());
  db_.Execute("Del_ProgCamEvents");
  db_.Handle().Exec("DELETE FROM \"Festivita\"");
  store::AppendRecordLines(dati, db_, &reports_);
  transaction.Commit();
}

// Names travel in Windows-1252; on disk they are UTF-8, as the component
// keeps them.
bool FolderContent::StoreFile(const std::string& folder, const std::string& wireName, const std::string& bytes) {
  const std::string name = store::Cp1252ToUtf8(wireName);
  if (!store::IsPlainFileName(name)) return false;
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
