// A folder of its own for one test, removed with everything in it afterwards.
#pragma once

#include <filesystem>
#include <string>

namespace camrelay::test {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(const std::string& name) const { return path_ / name; }
  std::string str() const { return path_.string(); }

 private:
  std::filesystem::path path_;
};

// Whole contents of a file as bytes; empty when it cannot be read.
std::string ReadFileBytes(const std::filesystem::path& file);
void WriteFileBytes(const std::filesystem::path& file, const std::string& bytes);

}  // namespace camrelay::test
