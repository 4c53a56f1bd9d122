#include "temp_dir.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace camrelay::test {

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "camrelay-test-XXXXXX").string();
  if (!mkdtemp(pattern.data())) throw std::runtime_error("cannot create a temporary folder");
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string ReadFileBytes(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void WriteFileBytes(const std::filesystem::path& file, const std::string& bytes) {
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

}  // namespace camrelay::test
