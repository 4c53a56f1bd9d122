#include "files/firmware.h"

#include <filesystem>

#include "files/file_chunks.h"
#include "store/payload.h"
#include "store/report.h"
#include "store/text.h"

namespace camrelay::store {
namespace fs = std::filesystem;

void LoadFileAgg(std::vector<std::string>& Dati, DebugSink* Form, const std::string& Code, const std::string& path) {
  Dati.assign(1, "");
  fs::path file(path);
  std::error_code error;
  if (fs::is_regular_file(file, error)) {
    std::string name = Utf8ToCp1252(TrimSpaces(file.filename().string()));
    Attempt(Form, "LoadFileAgg", [&] { AppendFileElements(Dati, 1, file, name); });
  }
  Dati.emplace_back("{}");
  CompleteOpening(Dati, "10", Code);
}

}  // namespace camrelay::store
