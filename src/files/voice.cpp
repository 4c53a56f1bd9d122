#include "files/voice.h"

#include <algorithm>
#include <fstream>
#include <optional>
#include <stdexcept>

#include "files/file_chunks.h"
#include "files/safe_name.h"
#include "store/payload.h"
#include "store/report.h"
#include "store/text.h"
#include "store/wire.h"

namespace camrelay::store {
namespace fs = std::filesystem;

namespace {

std::string RefusedName(std::string_view name) {
  return "the file name \"" + std::string(name) + "\" is refused: a voice message is named without a folder";
}

void AddWaveNames(std::vector<std::string>& names, DataVideo& db, std::string_view command) {
  Recordset records = db.OpenRecordset(command);
  int field = records.FieldIndex("FoniaFileWav");
  if (field < 0) throw std::runtime_error("the table " + std::string(command) + " has no field FoniaFileWav");
  if (records.RecordCount() <= 0) return;
  for (records.MoveFirst(); !records.Eof(); records.MoveNext()) {
    DbValue value = records.Value(field);
    if (std::holds_alternative<std::monostate>(value)) continue;
    std::string name = DbText(value);
    if (!name.empty()) names.push_back(std::move(name));
  }
}

std::optional<long> Number(std::optional<std::string_view> item) {
  return item ? WholeNumber(*item) : std::nullopt;
}

// The file being received: its bytes start with one that no chunk fills,
// which stays at the end of the file written.
struct IncomingFile {
  long number = 0;
  long chunks = 0;
  std::string name;  // UTF-8
  std::string bytes = std::string(1, '\0');
  long lastChunk = 0;
  bool broken = false;
};

class WaveReceiver {
 public:
  WaveReceiver(const fs::path& folder, DebugSink* form) : folder_(folder), form_(form) {}

  void Element(std::string_view element) {
    if (!element.starts_with(kSeparator)) return;
    std::string_view rest = element.substr(kSeparator.size());
    std::optional<long> number = Number(TakeItem(rest));
    if (!number) return Fail("an element without a file number: " + Excerpt(element));
    if (!file_ || *number != file_->number) return Header(*number, rest);
    Chunk(rest);
  }

 private:
  void Fail(const std::string& description) {
    Report(form_, "SaveMessaggiWave", description);
    if (file_) file_->broken = true;
  }

  void Header(long number, std::string_view rest) {
    file_.emplace();
    file_->number = number;
    std::optional<long> chunks = Number(TakeItem(rest));
    file_->name = Cp1252ToUtf8(rest.substr(0, rest.find("\r\n")));
    if (!chunks) return Fail("the header of file " + std::to_string(number) + " has no chunk count");
    file_->chunks = *chunks;
    if (!IsPlainFileName(file_->name)) Fail(RefusedName(file_->name));
  }

  void Chunk(std::string_view rest) {
    IncomingFile& file = *file_;
    std::optional<long> chunk = Number(TakeItem(rest));
    std::optional<long> size = Number(TakeItem(rest));
    if (file.broken) return;
    if (!chunk || *chunk != file.lastChunk + 1 || !size || *size != static_cast<long>(rest.size()))
      return Fail("\"" + file.name + "\" is not written: chunk " + std::to_string(file.lastChunk + 1) +
                  " did not arrive whole and in its place");
    file.lastChunk = *chunk;
    // The unfilled byte moves to the end as the chunk goes in before it.
    file.bytes.insert(file.bytes.size() - 1, rest);
    if (*chunk == file.chunks) Write(file);
  }

  void Write(const IncomingFile& file) {
    fs::path target = folder_ / file.name;
    std::error_code ignored;
    fs::remove(target, ignored);
    std::ofstream out(target, std::ios::binary | std::ios::trunc);
    out.write(file.bytes.data(), static_cast<std::streamsize>(file.bytes.size()));
    if (!out.flush()) Fail("cannot write \"" + target.string() + "\"");
  }

  fs::path folder_;
  DebugSink* form_;
  std::optional<IncomingFile> file_;
};

// The element count that the unit's opening element announces: the number
// after its first separator; nullopt when there is none.
std::optional<long> AnnouncedCount(std::string_view opening) {
  std::size_t start = opening.find(kSeparator);
  if (start == std::string_view::npos) return std::nullopt;
  std::string_view rest = opening.substr(start + kSeparator.size());
  if (rest.size() <= 1) return std::nullopt;
  std::size_t end = rest.find(kSeparator);
  if (end == 0 || end == std::string_view::npos) return std::nullopt;
  return WholeNumber(TrimSpaces(rest.substr(0, end)));
}

}  // namespace

void RicavaWaveName(std::vector<std::string>& names, DataVideo& db, DebugSink* Form) {
  names.assign(1, "");
  if (!Attempt(Form, "RicavaWaveName", [&] { db.EnsureOpen(Form, "RicavaWaveName"); })) return;
  for (std::string_view command : {"Ingressi", "Alimentazione"})
    Attempt(Form, "RicavaWaveName", [&] { AddWaveNames(names, db, command); });
}

void LoadMessaggiWave(std::vector<std::string>& Dati, DataVideo& db, DebugSink* Form, const std::string& Code,
                      const fs::path& folder) {
  Dati.assign(1, "");
  std::vector<std::string> names;
  RicavaWaveName(names, db, Form);
  for (std::size_t f = 1; f < names.size(); ++f) {
    std::string name(TrimSpaces(names[f]));
    if (!IsPlainFileName(name)) {
      Report(Form, "LoadMessaggiWave", RefusedName(name));
      continue;
    }
    std::error_code error;
    if (!fs::is_regular_file(folder / name, error)) continue;
    Attempt(Form, "LoadMessaggiWave",
            [&] { AppendFileElements(Dati, static_cast<int>(f), folder / name, Utf8ToCp1252(name)); });
  }
  Dati.emplace_back("{}");
  CompleteOpening(Dati, "05", Code);
}

void SaveMessaggiWave(std::vector<std::string>& Dati, const fs::path& folder, DebugSink* Form) {
  if (Dati.empty()) return;
  std::optional<long> count = AnnouncedCount(Dati[0]);
  if (!count) {
    Report(Form, "SaveMessaggiWave",
           "the opening element " + Excerpt(Dati[0]) + " announces no element count; no file was written");
    return;
  }
  if (!Attempt(Form, "SaveMessaggiWave", [&] { fs::create_directories(folder); })) return;
  WaveReceiver receiver(folder, Form);
  long last = std::min<long>(*count - 1, static_cast<long>(Dati.size()) - 1);
  for (long i = 1; i <= last; ++i) receiver.Element(Dati[i]);
}

}  // namespace camrelay::store
