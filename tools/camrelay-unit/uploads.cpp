#include "uploads.h"

#include <optional>
#include <string_view>

#include "message.h"
#include "protocol.h"

namespace camrelay::unit {

Upload::Upload(std::string tipo, int count, std::string rest)
    : tipo_(std::move(tipo)), count_(count), rest_(std::move(rest)) {}

bool Upload::Store(int ordinal, std::string element) {
  if (ordinal < 1 || ordinal > count_) return false;
  elements_[ordinal] = std::move(element);
  if (ordinal >= next_) next_ = ordinal + 1;
  return true;
}

bool Upload::Complete() const { return static_cast<int>(elements_.size()) == count_; }

std::vector<std::string> Upload::RecordTexts() const {
  std::vector<std::string> dati(static_cast<std::size_t>(count_) + 1);
  for (const auto& [ordinal, element] : elements_) {
    // "{}" index "{}" length CR LF body
    std::string_view text = element;
    if (text.substr(0, kSep.size()) != kSep) continue;
    text.remove_prefix(kSep.size());
    const auto index = ParseNumber(TakeField(text));
    const auto lineEnd = text.find(kCrLf);
    if (!index || lineEnd == std::string_view::npos) continue;
    const auto length = ParseNumber(text.substr(0, lineEnd));
    const std::string_view body = text.substr(lineEnd + kCrLf.size());
    if (!length || *length != static_cast<long long>(body.size()) || *index < 1 || *index > count_) continue;
    dati[static_cast<std::size_t>(*index)] = std::string(body);
  }
  return dati;
}

std::string Upload::Text() const {
  std::string text = ChunkText(rest_);
  for (const auto& entry : elements_) text += ChunkText(entry.second);
  return text;
}

namespace {

// "{}" f "{}" k "{}" name CR LF, or "{}" f "{}" j "{}" b "{}" data.
struct FileElement {
  long long file = 0;
  long long number = 0;  // chunk count of a header, chunk number of a chunk
  bool header = false;
  std::string text;      // the name, or the chunk's bytes
};

std::optional<FileElement> ParseFileElement(std::string_view text) {
  if (text.substr(0, kSep.size()) != kSep) return std::nullopt;
  text.remove_prefix(kSep.size());
  FileElement e;
  const auto file = ParseNumber(TakeField(text));
  const auto number = ParseNumber(TakeField(text));
  if (!file || !number) return std::nullopt;
  e.file = *file;
  e.number = *number;
  // A chunk says how many bytes follow; a header's name holds no separator
  // and ends with the line break.
  std::string_view data = text;
  const auto bytes = ParseNumber(TakeField(data));
  if (bytes && text.find(kSep) != std::string_view::npos && *bytes == static_cast<long long>(data.size())) {
    e.text = std::string(data);
    return e;
  }
  if (text.size() < kCrLf.size() || text.substr(text.size() - kCrLf.size()) != kCrLf) return std::nullopt;
  e.header = true;
  e.text = std::string(text.substr(0, text.size() - kCrLf.size()));
  return e;
}

struct FileParts {
  std::string name;
  long long chunks = -1;
  std::map<long long, std::string> data;
};

}  // namespace

std::vector<ReceivedFile> Upload::Files() const {
  std::map<long long, FileParts> files;
  for (const auto& entry : elements_) {
    const auto e = ParseFileElement(entry.second);
    if (!e) continue;
    FileParts& parts = files[e->file];
    if (e->header) {
      parts.name = e->text;
      parts.chunks = e->number;
    } else {
      parts.data[e->number] = e->text;
    }
  }
  std::vector<ReceivedFile> result;
  for (const auto& [number, parts] : files) {
    if (parts.chunks < 0) continue;
    ReceivedFile file{parts.name, {}};
    long long j = 1;
    for (; j <= parts.chunks && parts.data.count(j); ++j) file.bytes += parts.data.at(j);
    if (j > parts.chunks) result.push_back(std::move(file));
  }
  return result;
}

}  // namespace camrelay::unit
