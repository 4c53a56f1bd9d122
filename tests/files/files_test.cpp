#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../store/store_fixture.h"
#include "files/firmware.h"
#include "files/safe_name.h"
#include "files/voice.h"

namespace camrelay::test {
namespace {

using store::SaveMessaggiWave;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

class VoiceTest : public StoreTest {
 protected:
  std::filesystem::path Audio() const { return dir / "Audio"; }
  void Wave(const std::string& name, const std::string& bytes) {
    std::filesystem::create_directories(Audio());
    WriteFileBytes(Audio() / name, bytes);
  }
  std::vector<std::string> Upload() {
    std::vector<std::string> Dati;
    store::LoadMessaggiWave(Dati, db, &form, "C", Audio());
    return Dati;
  }
};

// Names come from the inputs, then the power events, Null and empty ones
// left out: a name in both tables goes twice, a missing file leaves a gap.
TEST_F(VoiceTest, FilesKeepTheirNumbersAndMissingOnesLeaveAGap) {
  Sql("INSERT INTO Ingressi (NumeroIngresso, FoniaFileWav) VALUES (1, ' porta.wav '), (2, ''), (3, 'manca.wav');"
      "INSERT INTO Alimentazione (Evento, FoniaFileWav) VALUES (1, NULL), (2, 'porta.wav')");
  Wave("porta.wav", "RIFF");
  EXPECT_THAT(Upload(), ElementsAre("AA{}5{}05{}C", "{}1{}1{}porta.wav\r\n", "{}1{}1{}4{}RIFF",
                                    "{}3{}1{}porta.wav\r\n", "{}3{}1{}4{}RIFF", "{}"));
  EXPECT_TRUE(form.lines.empty());
}

TEST_F(VoiceTest, NameThatLeavesTheFolderIsNeitherReadNorWritten) {
  Sql("INSERT INTO Ingressi (NumeroIngresso, FoniaFileWav) VALUES (1, '../segreto.wav')");
  WriteFileBytes(dir / "segreto.wav", "secret");
  Wave("ok.wav", "x");
  EXPECT_THAT(Upload(), ElementsAre("AA{}1{}05{}C", "{}"));
  EXPECT_THAT(form.lines, ElementsAre(HasSubstr("LoadMessaggiWave: the file name \"../segreto.wav\" is refused")));

  std::vector<std::string> Dati{"AA{}3{}06", "{}1{}1{}../fuori.wav\r\n", "{}1{}1{}1{}x", "{}"};
  SaveMessaggiWave(Dati, Audio(), &form);
  EXPECT_FALSE(std::filesystem::exists(dir / "fuori.wav"));
  EXPECT_THAT(form.lines.back(), HasSubstr("SaveMessaggiWave: the file name \"../fuori.wav\" is refused"));
}

// What goes up comes back as sent, with the one zero byte that the receiving
// buffer always ends with; the folder is made when missing and a file of the
// same name replaced.
TEST_F(VoiceTest, DownloadWritesEachFileWithOneMoreZeroByte) {
  std::string big = std::string(3072, 'a') + 'b', small("RIFF\x80\xFF\0\r\n{}", 11);
  Sql("INSERT INTO Ingressi (NumeroIngresso, FoniaFileWav) VALUES (1, 'grande.wav'), (2, 'Città.wav')");
  Wave("grande.wav", big);
  Wave("Città.wav", small);
  std::vector<std::string> Dati = Upload();
  ASSERT_EQ(Dati.size(), 7u);
  const std::filesystem::path target = dir / "ricevuti" / "nuova";
  for (int time = 0; time < 2; ++time) {
    if (time == 1) WriteFileBytes(target / "grande.wav", std::string(5000, 'o'));
    SaveMessaggiWave(Dati, target, &form);
    EXPECT_EQ(ReadFileBytes(target / "grande.wav"), big + '\0');
    EXPECT_EQ(ReadFileBytes(target / "Città.wav"), small + '\0');
  }
  EXPECT_TRUE(form.lines.empty());
}

// A chunk of another length than announced, or out of its place, stops its
// file from being written. The opening's count bounds what is read,
// whichever side falls short: a file whose last chunk lies past the count is
// not written; a count above the elements received reads only those.
TEST_F(VoiceTest, DamagedChunksStoreNothingAndTheCountBoundsTheElementsRead) {
  std::vector<std::string> Dati{"AA{}6{}06", "{}1{}2{}corto.wav\r\n", "{}1{}1{}5{}abc", "{}1{}2{}1{}d",
                                "{}2{}2{}salto.wav\r\n", "{}2{}2{}1{}e", "{}"};
  SaveMessaggiWave(Dati, Audio(), &form);
  EXPECT_FALSE(std::filesystem::exists(Audio() / "corto.wav"));
  EXPECT_FALSE(std::filesystem::exists(Audio() / "salto.wav"));
  EXPECT_THAT(form.lines, ElementsAre(HasSubstr("\"corto.wav\" is not written: chunk 1"),
                                      HasSubstr("\"salto.wav\" is not written: chunk 1")));
  std::vector<std::string> cut{"AA{}2{}06", "{}1{}1{}oltre.wav\r\n", "{}1{}1{}1{}x", "{}"};
  SaveMessaggiWave(cut, Audio(), &form);
  EXPECT_FALSE(std::filesystem::exists(Audio() / "oltre.wav"));
  std::vector<std::string> fewer{"AA{}9{}06", "{}1{}1{}breve.wav\r\n", "{}1{}1{}1{}y"};
  SaveMessaggiWave(fewer, Audio(), &form);
  EXPECT_EQ(ReadFileBytes(Audio() / "breve.wav"), std::string("y\0", 2));
}

// The file travels in chunks of 3072 bytes and the rest, none for an empty
// file; its name goes without the folder, in Windows-1252.
TEST(LoadFileAgg, ChunksHold3072BytesAndTheRest) {
  TempDir dir;
  const std::pair<std::size_t, std::vector<std::size_t>> cases[] = {{3073, {3072, 1}}, {6144, {3072, 3072}}, {0, {}}};
  for (const auto& [size, chunks] : cases) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>((i * 7 + i / 256) % 256);
    WriteFileBytes(dir / "Città fw.bin", bytes);
    std::vector<std::string> expected{"", "{}1{}" + std::to_string(chunks.size()) + "{}Citt\xE0 fw.bin\r\n"};
    for (std::size_t j = 0; j < chunks.size(); ++j)
      expected.push_back("{}1{}" + std::to_string(j + 1) + "{}" + std::to_string(chunks[j]) + "{}" +
                         bytes.substr(j * 3072, chunks[j]));
    expected.push_back("{}");
    expected[0] = "AA{}" + std::to_string(expected.size() - 1) + "{}10{}C";
    std::vector<std::string> Dati;
    store::LoadFileAgg(Dati, nullptr, "C", (dir / "Città fw.bin").string());
    EXPECT_EQ(Dati, expected) << size;
  }
  RecordingSink form;
  std::vector<std::string> Dati{"old", "old"};
  store::LoadFileAgg(Dati, &form, "CODE", (dir / "none.bin").string());
  EXPECT_THAT(Dati, ElementsAre("AA{}1{}10{}CODE", "{}"));
  EXPECT_TRUE(form.lines.empty());
  // A file that ends before the size it reports (the kernel's files do)
  // sends none of its elements, and says why.
  const std::filesystem::path shorter = "/sys/devices/system/cpu/online";
  std::error_code error;
  const auto size = std::filesystem::file_size(shorter, error);
  ASSERT_FALSE(error) << shorter << " is needed as a file shorter than its size: " << error.message();
  ASSERT_GT(size, ReadFileBytes(shorter).size()) << shorter << " is not shorter than its size here";
  store::LoadFileAgg(Dati, &form, "CODE", shorter.string());
  EXPECT_THAT(Dati, ElementsAre("AA{}1{}10{}CODE", "{}"));
  EXPECT_THAT(form.lines, ElementsAre(HasSubstr("ended before its " + std::to_string(size) + " bytes were read")));
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
