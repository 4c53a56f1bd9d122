#include "files/file_chunks.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>

namespace camrelay::store {
namespace fs = std::filesystem;

namespace {

void ReadChunks(std::vector<std::string>& Dati, int fileNumber, const fs::path& file, std::uintmax_t size,
                std::uintmax_t chunks) {
  std::ifstream in(file, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read \"" + file.string() + "\"");
  std::string prefix = "{}" + std::to_string(fileNumber) + "{}";
  for (std::uintmax_t j = 1; j <= chunks; ++j) {
    std::uintmax_t bytes = std::min(kChunkBytes, size - (j - 1) * kChunkBytes);
    std::string& element = Dati.emplace_back(prefix + std::to_string(j) + "{}" + std::to_string(bytes) + "{}");
    std::size_t start = element.size();
    element.resize(start + bytes);
    if (!in.read(element.data() + start, static_cast<std::streamsize>(bytes)))
      throw std::runtime_error("\"" + file.string() + "\" ended before its " + std::to_string(size) +
                               " bytes were read");
  }
}

}  // namespace

void AppendFileElements(std::vector<std::string>& Dati, int fileNumber, const fs::path& file,
                        std::string_view wireName) {
  std::uintmax_t size = fs::file_size(file);
  std::uintmax_t chunks = size / kChunkBytes + (size % kChunkBytes != 0 ? 1 : 0);
  std::size_t before = Dati.size();
  Dati.reserve(before + 1 + chunks + 1);
  Dati.push_back("{}" + std::to_string(fileNumber) + "{}" + std::to_string(chunks) + "{}" + std::string(wireName) +
                 "\r\n");
  try {
    ReadChunks(Dati, fileNumber, file, size, chunks);
  } catch (...) {
    Dati.resize(before);
    throw;
  }
}

}  // namespace camrelay::store
