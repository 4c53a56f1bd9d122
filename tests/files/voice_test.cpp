#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../store/store_fixture.h"
#include "files/voice.h"

namespace camrelay::test {
namespace {

using store::LoadMessaggiWave;
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
    LoadMessaggiWave(Dati, db, &form, "C", Audio());
    return Dati;
  }
};

TEST_F(VoiceTest, NamesComeFromInputsThenPowerEvents) {
  Sql("INSERT INTO Alimentazione (Evento, FoniaFileWav) VALUES (1, 'rete.wav'), (2, NULL), (3, 'porta.wav');"
      "INSERT INTO Ingressi (NumeroIngresso, FoniaFileWav) VALUES (1, 'porta.wav'), (2, ''), (3, 'Città.wav')");
  std::vector<std::string> names{"stale"};
  store::RicavaWaveName(names, db, &form);
  EXPECT_THAT(names, ElementsAre("", "porta.wav", "Città.wav", "rete.wav", "porta.wav"));
}

TEST_F(VoiceTest, NoNamesGiveTheOpeningAndTheTerminator) {
  EXPECT_THAT(Upload(), ElementsAre("AA{}1{}05{}C", "{}"));
}

TEST_F(VoiceTest, FilesKeepTheirNumbersAndMissingOnesLeaveAGap) {
  Sql("INSERT INTO Ingressi (NumeroIngresso, FoniaFileWav) VALUES (1, ' porta.wav '), (2, 'manca.wav');"
      "INSERT INTO Alimentazione (Evento, FoniaFileWav) VALUES (1, 'porta.wav')");
  Wave("porta.wav", "RIFF");
  EXPECT_THAT(Upload(), ElementsAre("AA{}5{}05{}C", "{}1{}1{}porta.wav\r\n", "{}1{}1{}4{}RIFF",
                                    "{}3{}1{}porta.wav\r\n", "{}3{}1{}4{}RIFF", "{}"));
}

TEST_F(VoiceTest, NameThatLeavesTheFolderIsNeitherReadNorWritten) {
  Sql("INSERT INTO Ingressi (NumeroIngresso, FoniaFileWav) VALUES (1, '../segreto.wav')");
  WriteFileBytes(dir / "segreto.wav", "secret");
  Wave("ok.wav", "x");
  EXPECT_THAT(Upload(), ElementsAre("AA{}1{}05{}C", "{}"));
  ASSERT_EQ(form.lines.size(), 1u);
  EXPECT_THAT(form.lines[0], HasSubstr("LoadMessaggiWave: the file name \"../segreto.wav\" is refused"));

  std::vector<std::string> Dati{"AA{}3{}06", "{}1{}1{}../fuori.wav\r\n", "{}1{}1{}1{}x", "{}"};
  SaveMessaggiWave(Dati, Audio(), &form);
  EXPECT_FALSE(std::filesystem::exists(dir / "fuori.wav"));
  EXPECT_THAT(form.lines.back(), HasSubstr("SaveMessaggiWave: the file name \"../fuori.wav\" is refused"));
}

// What goes up comes back as sent, with the one zero byte that the receiving
// buffer always ends with; the folder is made when missing and a file of the
// same name replaced.
TEST_F(VoiceTest, DownloadWritesEachFileWithOneMoreZeroByte) {
  std::string big(3073, '\0'), small("RIFF\x80\xFF\0\r\n{}", 11);
  for (std::size_t i = 0; i < big.size(); ++i) big[i] = static_cast<char>(i % 251);
  Sql("INSERT INTO Ingressi (NumeroIngresso, FoniaFileWav) VALUES (1, 'grande.wav'), (2, 'Città.wav')");
  Wave("grande.wav", big);
  Wave("Città.wav", small);
  std::vector<std::string> Dati = Upload();
  ASSERT_EQ(Dati.size(), 7u);

  std::filesystem::path target = dir / "ricevuti";
  std::filesystem::create_directories(target);
  WriteFileBytes(target / "grande.wav", "old content");
  SaveMessaggiWave(Dati, target, &form);
  EXPECT_EQ(ReadFileBytes(target / "grande.wav"), big + '\0');
  EXPECT_EQ(ReadFileBytes(target / "Città.wav"), small + '\0');
  EXPECT_EQ(ReadFileBytes(target / "grande.wav").size(), 3074u);

  SaveMessaggiWave(Dati, dir / "nuova", &form);
  EXPECT_EQ(ReadFileBytes(dir / "nuova" / "Città.wav"), small + '\0');
  EXPECT_TRUE(form.lines.empty());
}

TEST_F(VoiceTest, OpeningWithoutACountStoresNothing) {
  for (std::string opening : {"AA{}", "AA{}5", "AA{}{}5", "AA", "AA{}x{}"}) {
    std::vector<std::string> Dati{opening, "{}1{}1{}a.wav\r\n", "{}1{}1{}1{}x", "{}"};
    SaveMessaggiWave(Dati, Audio(), &form);
    EXPECT_FALSE(std::filesystem::exists(Audio() / "a.wav")) << opening;
  }
}

TEST_F(VoiceTest, DamagedChunksAreReportedAndTheFileNotWritten) {
  std::vector<std::string> Dati{"AA{}6{}06",        "{}1{}2{}corto.wav\r\n", "{}1{}1{}5{}abc",
                                "{}1{}2{}1{}d",     "{}2{}2{}salto.wav\r\n", "{}2{}2{}1{}e",
                                "{}"};
  SaveMessaggiWave(Dati, Audio(), &form);
  EXPECT_FALSE(std::filesystem::exists(Audio() / "corto.wav"));
  EXPECT_FALSE(std::filesystem::exists(Audio() / "salto.wav"));
  EXPECT_EQ(form.lines.size(), 2u);
}

}  // namespace
}  // namespace camrelay::test
