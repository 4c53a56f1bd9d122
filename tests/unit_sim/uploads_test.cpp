// What the component uploads must come out of the unit exactly as it went
// in, and the unit's string answers must survive the component's join.
#include "session_fixture.h"

#include "camrelay-unit/folder_content.h"
#include "link/frmClient.h"
#include "temp_dir.h"

namespace camrelay::unit::test {
namespace {

using Stored = std::vector<std::string>;

TEST_F(SessionTest, UploadedRecordsArePlacedByTheirOwnIndexAndStoredOnce) {
  const auto upload = Elements(3);
  Stored bodies{""};
  for (int i = 1; i <= 3; ++i) bodies.push_back(upload[i].substr(upload[i].find("\r\n") + 2));
  const auto records = [](const Stored& dati) { return Stored(dati.begin() + 1, dati.end()); };
  Start(false);
  EXPECT_EQ(Send(Request("01", 3)), Messages{"AA{}3{}01"});
  for (int i : {3, 1, 2}) EXPECT_EQ(Send(upload[i]), Messages{"OK"}) << "element " << i;
  ASSERT_EQ(content.storedProgrammazione.size(), 1u);
  EXPECT_EQ(records(content.storedProgrammazione[0]), records(bodies));
  EXPECT_EQ(Send("13{}01{}3{}" + upload[2]), Messages{"13{}01{}3{}OK"}) << "the last acknowledgement was lost";
  EXPECT_EQ(content.storedProgrammazione.size(), 1u);
  // Element 2 never arrived and comes again with a probe.
  Send(Request("55", 3));
  Send(upload[1]);
  EXPECT_EQ(Send("13{}55{}2{}" + upload[2]), Messages{"13{}55{}2{}OK"});
  EXPECT_EQ(Send(upload[3]), Messages{"OK"});
  ASSERT_EQ(content.storedProgCamEvents.size(), 1u);
  EXPECT_EQ(records(content.storedProgCamEvents[0]), records(bodies));
}

// Firmware cut by the component's own builder is joined end to end.
TEST_F(SessionTest, FilesAreJoinedByFileAndChunkNumbers) {
  Start(false);
  for (const char* element : {"AA{}6{}05{}123456", "{}3{}2{}2{}\r\n", "{}1{}1{}a.wav\r\n", "{}3{}1{}1{}x",
                              "{}1{}1{}3{}abc", "{}3{}2{}b.wav\r\n", "{}"})
    Send(element);
  EXPECT_EQ(content.voiceFiles, (std::map<std::string, std::string>{{"a.wav", "abc"}, {"b.wav", "x\r\n"}}));
}

TEST(FolderContent, ReceivedFilesKeepTheirBytesAndStayInTheirFolder) {
  Log log{Log::Quiet};
  camrelay::test::TempDir dir;
  FolderContent folder{dir.path(), log};
  const std::string bytes("\0\xff\r\n{}", 6);
  EXPECT_TRUE(folder.StoreVoiceMessage("Citt\xe0.wav", bytes));
  EXPECT_EQ(camrelay::test::ReadFileBytes(dir / "Audio" / "Città.wav"), bytes);
  EXPECT_FALSE(folder.StoreFirmware("../escape.bin", bytes));
  EXPECT_FALSE(std::filesystem::exists(dir.path() / "escape.bin"));
  EXPECT_FALSE(folder.MediaFile("../VideoSentrova.db"));
}

TEST(StringTransfer, LongAnswersSurviveTheComponentsJoin) {
  // Lengths that leave a last chunk of one character, which the component's
  // UDP join would drop.
  for (bool tcp : {false, true}) {
    const std::size_t chunk = tcp ? kStringChunkTcp : kStringChunkUdp;
    for (std::size_t length : {chunk + 1, 2 * chunk + 1, 2 * chunk, std::size_t{2}}) {
      std::string text;
      for (std::size_t i = 0; i < length; ++i) text.push_back(static_cast<char>('a' + i % 26));
      const Transfer t = StringTransfer(text, tcp);
      Stored collected{t.acceptance};
      collected.insert(collected.end(), t.packets.begin(), t.packets.end());
      EXPECT_EQ(link::CreaStringaComando(collected, tcp ? sckTCPProtocol : sckUDPProtocol), text)
          << length << (tcp ? " TCP" : " UDP");
    }
  }
}

}  // namespace
}  // namespace camrelay::unit::test
