#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../store/store_fixture.h"
#include "files/firmware.h"
#include "files/safe_name.h"

namespace camrelay::test {
namespace {

using store::LoadFileAgg;
using ::testing::ElementsAre;

std::string Bytes(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>((i * 7 + i / 256) % 256);
  return bytes;
}

std::string Chunk(int j, const std::string& data) {
  return "{}1{}" + std::to_string(j) + "{}" + std::to_string(data.size()) + "{}" + data;
}

TEST(LoadFileAgg, MissingFileGivesTheOpeningAndTheTerminator) {
  TempDir dir;
  RecordingSink form;
  std::vector<std::string> Dati{"old", "old"};
  LoadFileAgg(Dati, &form, "CODE", (dir / "none.bin").string());
  EXPECT_THAT(Dati, ElementsAre("AA{}1{}10{}CODE", "{}"));
  EXPECT_TRUE(form.lines.empty());
}

TEST(LoadFileAgg, ChunksHold3072BytesAndTheRest) {
  TempDir dir;
  std::string bytes = Bytes(3073);
  WriteFileBytes(dir / "fw.bin", bytes);
  std::vector<std::string> Dati;
  LoadFileAgg(Dati, nullptr, "C", (dir / "fw.bin").string());
  EXPECT_THAT(Dati, ElementsAre("AA{}4{}10{}C", "{}1{}2{}fw.bin\r\n", Chunk(1, bytes.substr(0, 3072)),
                                Chunk(2, bytes.substr(3072)), "{}"));
}

TEST(LoadFileAgg, ExactMultipleHasNoEmptyChunkAndEveryByteTravels) {
  TempDir dir;
  std::string bytes = Bytes(2 * 3072);
  WriteFileBytes(dir / "Città fw.bin", bytes);
  std::vector<std::string> Dati;
  LoadFileAgg(Dati, nullptr, "C", (dir / "Città fw.bin").string());
  EXPECT_THAT(Dati, ElementsAre("AA{}4{}10{}C", "{}1{}2{}Citt\xE0 fw.bin\r\n", Chunk(1, bytes.substr(0, 3072)),
                                Chunk(2, bytes.substr(3072)), "{}"));
}

// An empty file is announced with no chunk: nothing to carry, and the chunk
// count stays the size divided by 3072.
TEST(LoadFileAgg, EmptyFileIsAnnouncedWithoutAChunk) {
  TempDir dir;
  WriteFileBytes(dir / "empty.bin", "");
  std::vector<std::string> Dati;
  LoadFileAgg(Dati, nullptr, "C", (dir / "empty.bin").string());
  EXPECT_THAT(Dati, ElementsAre("AA{}2{}10{}C", "{}1{}0{}empty.bin\r\n", "{}"));
}

TEST(IsPlainFileName, RefusesEverythingThatLeavesTheFolder) {
  for (const char* name : {"allarme.wav", "Città.wav", "a..b.wav", ".wav", "nome con spazi.wav"})
    EXPECT_TRUE(store::IsPlainFileName(name)) << name;
  for (const char* name : {"", ".", "..", "../x.wav", "..\\x.wav", "a/b.wav", "a\\b.wav", "/etc/passwd",
                           "\\\\server\\share\\x.wav", "C:x.wav", "C:\\x.wav", "x.wav:stream"})
    EXPECT_FALSE(store::IsPlainFileName(name)) << name;
  EXPECT_FALSE(store::IsPlainFileName(std::string_view("a\0b", 3)));
}

}  // namespace
}  // namespace camrelay::test
