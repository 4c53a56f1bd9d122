// The unit's content in its folder: the database with the standard tables,
// and the files below it.
//   VideoSentrova.db   programming, log, camera events, their programming
//   Audio/             voice messages named by Ingressi and Alimentazione
//   Snapshot/          snapshots (.jpg) served by name
//   VideoAvi/          clips (.avi) served by name and played back
//   Preview/cam<N>.jpg what camera N shows now
//   Firmware/          firmware updates received
//   last-command.txt   the last command string received, as received
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "content.h"
#include "database.h"
#include "log.h"
#include "records.h"

namespace camrelay::unit {

inline constexpr const char* kDatabaseFile = "VideoSentrova.db";

class FolderContent : public Content {
 public:
  // Opens the folder's database, creating the folders and an empty database
  // with the standard tables where they are missing. Throws
  // std::runtime_error when the database cannot be opened.
  FolderContent(std::filesystem::path dir, const unit::Log& log);

  Database& Db() { return db_; }

  std::vector<std::string> Programmazione() override;
  std::vector<std::string> Log() override;
  std::vector<std::string> CamEvents() override;
  std::vector<std::string> ProgCamEvents() override;
  std::vector<std::string> VoiceMessages() override;
  std::optional<std::string> MediaFile(const std::string& name) override;
  std::optional<std::string> PreviewImage(int camera) override;
  int LogSize() override;

  void EraseLog() override;
  void StoreProgrammazione(std::vector<std::string>& dati) override;
  void StoreProgCamEvents(std::vector<std::string>& dati) override;
  bool StoreVoiceMessage(const std::string& name, const std::string& bytes) override;
  bool StoreFirmware(const std::string& name, const std::string& bytes) override;
  void StoreLastCommand(const std::string& command) override;
  std::string LastCommand() override;

 private:
  // Replaces the tables by the record lines of a transfer.
  void ReplaceTables(const std::vector<std::string>& dati, const std::vector<std::string_view>& tables);
  bool StoreFile(const std::string& folder, const std::string& wireName, const std::string& bytes);

  std::filesystem::path dir_;
  const unit::Log& log_;
  Database db_;
};

// The folders the unit keeps its files in, below its own folder.
inline constexpr const char* kFolders[] = {"Audio", "Snapshot", "VideoAvi", "Preview", "Firmware"};

// A name that stays in its folder: no path separator, no drive, no NUL byte,
// neither "." nor "..".
bool IsPlainFileName(std::string_view name);

// Whole file as bytes; nullopt when it cannot be read.
std::optional<std::string> ReadBytes(const std::filesystem::path& file);
void WriteBytes(const std::filesystem::path& file, const std::string& bytes);

}  // namespace camrelay::unit
