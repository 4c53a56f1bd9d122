// The unit's folder is the ground truth the end-to-end tests compare with:
// its demo must be the same every time, and what it serves must be what the
// component's store turns back into the same rows and files.
#include <gtest/gtest.h>

#include <algorithm>

#include "camrelay-unit/demo_content.h"
#include "camrelay-unit/folder_content.h"
#include "camrelay-unit/transfers.h"
#include "files/voice.h"
#include "store/download.h"
#include "store/dump.h"
#include "temp_dir.h"

namespace camrelay::unit {
namespace {

using camrelay::test::TempDir;

constexpr const char* kTables[] = {"Ingressi",        "MMS",       "NumTel",        "CanaliVideo",
                                   "Alimentazione",   "ImpostazioniVideo", "Registro_eventi",
                                   "CamEvents",       "ProgCamEvents",     "Festivita"};

// What the component collects of a transfer: each packet's body, after its
// "{}i{}length" line; element 0 unused.
std::vector<std::string> Bodies(const Transfer& sent) {
  std::vector<std::string> received{""};
  for (const auto& packet : sent.packets) received.push_back(packet.substr(packet.find("\r\n") + 2));
  return received;
}

class FolderContentTest : public ::testing::Test {
 protected:
  Log log{Log::Quiet};
  TempDir demoDir, emptyDir;
  FolderContent demo{demoDir.path(), log};
  FolderContent empty{emptyDir.path(), log};
  void SetUp() override { FillDemoTables(demo.Database()); }
};

TEST_F(FolderContentTest, TheDemoIsTheSameEveryTime) {
  FillDemoTables(empty.Database());
  for (const char* table : kTables) {
    const auto a = store::DumpTable(demo.Database(), table), b = store::DumpTable(empty.Database(), table);
    EXPECT_FALSE(a.rows.empty()) << table;
    EXPECT_EQ(a.rows, b.rows) << table;
  }
  EXPECT_EQ(demo.LogSize(), 3000);
}

TEST_F(FolderContentTest, TheProgrammingSentIsStoredBackAsTheSameRows) {
  auto received = Bodies(TableTransfer("02", demo.Programmazione()));
  store::SaveVideoSentrovaDB(received, empty.Database(), nullptr);
  for (const char* table : {"Ingressi", "MMS", "NumTel", "CanaliVideo", "Alimentazione", "ImpostazioniVideo"})
    EXPECT_EQ(store::DumpTable(empty.Database(), table).rows, store::DumpTable(demo.Database(), table).rows)
        << table;
}

TEST_F(FolderContentTest, TheCameraEventProgrammingReplacesBothTables) {
  auto dati = demo.ProgCamEvents();
  empty.StoreProgCamEvents(dati);
  empty.StoreProgCamEvents(dati);
  for (const char* table : {"ProgCamEvents", "Festivita"})
    EXPECT_EQ(store::DumpTable(empty.Database(), table).rows, store::DumpTable(demo.Database(), table).rows)
        << table;
}

TEST_F(FolderContentTest, TheLogIsSentInTimeOrderAndErased) {
  EXPECT_EQ(store::AppendRecordLines(Bodies(TableTransfer("04", demo.Log())), empty.Database(), nullptr), 3000);
  const auto dates = store::DumpTable(empty.Database(), "Registro_eventi").rows;
  EXPECT_TRUE(std::is_sorted(dates.begin(), dates.end(), [](const auto& a, const auto& b) { return a[1] < b[1]; }));
  demo.EraseLog();
  EXPECT_EQ(demo.LogSize(), 0);
  EXPECT_EQ(TableTransfer("04", demo.Log()).packets, std::vector<std::string>{"{}1{}0\r\n"});
}

TEST_F(FolderContentTest, ReceivedFilesKeepTheirBytesAndStayInTheirFolder) {
  const std::string bytes("\0\xff\r\n{}", 6);
  EXPECT_TRUE(empty.StoreVoiceMessage("Citt\xe0.wav", bytes));
  EXPECT_EQ(camrelay::test::ReadFileBytes(emptyDir / "Audio" / "Città.wav"), bytes);
  EXPECT_FALSE(empty.StoreFirmware("../escape.bin", bytes));
  EXPECT_FALSE(std::filesystem::exists(emptyDir.path() / "escape.bin"));
  EXPECT_FALSE(empty.MediaFile("../VideoSentrova.db"));
}

TEST_F(FolderContentTest, VoiceMessagesReachTheComponentsStore) {
  WriteBytes(demoDir / "Audio" / demo::kIntrusionWav, std::string(5000, 's'));
  WriteBytes(demoDir / "Audio" / demo::kMainsWav, "m");
  const Transfer sent = VoiceTransfer(demo.VoiceMessages());
  // The component keeps what follows the acceptance's header as element 0.
  const std::string header = sent.acceptance.substr(0, sent.acceptance.size() / 2);
  std::vector<std::string> received{sent.acceptance.substr(header.size())};
  received.insert(received.end(), sent.packets.begin(), sent.packets.end());
  TempDir folder;
  store::SaveMessaggiWave(received, folder.path(), nullptr);
  // The component's store adds its one zero byte.
  EXPECT_EQ(camrelay::test::ReadFileBytes(folder / demo::kIntrusionWav), std::string(5000, 's') + '\0');
  EXPECT_EQ(camrelay::test::ReadFileBytes(folder / demo::kMainsWav), std::string("m") + '\0');
}

}  // namespace
}  // namespace camrelay::unit
