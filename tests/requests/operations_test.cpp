#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "link_fixture.h"
#include "unscramble.h"

namespace camrelay::test {
namespace {

using link::frmClient;
using Strings = std::vector<std::string>;

TEST(DeviceOperations, TheCodeTravelsAsTypedOrScrambledAfreshEachTime) {
  LinkFixture t(sckUDPProtocol);
  auto& f = t.form();
  f.DownLoadProgrammazione();
  EXPECT_EQ(t.lastMessage(), "AA{}0{}02{}123456");

  f.PwdCrypted = true;
  const std::string prefix = "AA{}0{}02{}";
  std::string previous;
  for (int call = 0; call < 3; ++call) {
    f.DownLoadProgrammazione();
    const std::string sent = t.lastMessage();
    ASSERT_EQ(sent.substr(0, prefix.size()), prefix);
    const std::string scrambled = sent.substr(prefix.size());
    ASSERT_EQ(scrambled.size(), 25u);
    EXPECT_EQ(Unscramble(scrambled), "123456");
    EXPECT_NE(scrambled, previous);
    previous = scrambled;
  }
}

TEST(DeviceOperations, TheStateIsRaisedOnlyWhenItChanges) {
  LinkFixture t(sckUDPProtocol);
  auto& f = t.form();
  f.DownLoadProgrammazione();
  f.DownLoadProgrammazione();
  f.RichiestaDiConnessione();
  f.RichiestaDiConnessione();
  EXPECT_EQ(t.states, (std::vector<int>{cRichiestaProg, cNoOperation}));
  EXPECT_EQ(t.messages().size(), 4u);
}

TEST(DeviceOperations, EachSetsItsStateAndInterval) {
  const struct {
    std::function<void(frmClient&)> call;
    int stato;
    bool quick;
  } rows[] = {
      {[](frmClient& f) { f.DownLoadProgrammazione(); }, cRichiestaProg, false},
      {[](frmClient& f) { f.DownloadLog("04"); }, cRichiestaLog, false},
      {[](frmClient& f) { f.CancellazioneDelLog(""); }, cRichiestaLog, false},
      {[](frmClient& f) { f.CancellazioneDelLog("03"); }, cRichiestaCancellaLog, false},
      {[](frmClient& f) { f.CancellaPrimaIlLog(); }, cRichiestaCancellaPrimaLog, false},
      {[](frmClient& f) { f.DownloadCamEvents(); }, cRichiestaCamEvents, false},
      {[](frmClient& f) { f.DownloadProgCamEvents(); }, cRichiestaProgCamEvents, false},
      {[](frmClient& f) { f.DownloadMultimediaFile("a.avi"); }, cRichiestaMultimedia, false},
      {[](frmClient& f) { f.DownLoadMessaggiWave(); }, cRichiestaWave, false},
      {[](frmClient& f) { f.DownLoadStreamImage("1"); }, cTrasmettiStreamImageReq, true},
      {[](frmClient& f) { f.DownLoadStrCommand("x"); }, cTrasmettiStringaReq, true},
      {[](frmClient& f) { f.UploadStrCommand("x"); }, cTrasmettiStringa, true},
      {[](frmClient& f) { f.UpLoadProgrammazione(); }, cTrasmettiProg, false},
      {[](frmClient& f) { f.UpLoadProgCamEvents(); }, cTrasmettiProgCamEvents, true},
      {[](frmClient& f) { f.UploadCodInstallatore(); }, cTrasmettiInstallCode, false},
      {[](frmClient& f) { f.UploadCodUtente(); }, cTrasmettiUserCode, false},
      {[](frmClient& f) { f.UpLoadMessaggiWave(""); }, cTrasmettiWave, false},
      {[](frmClient& f) { f.UpLoadAggiornamento("missing.bin"); }, cTrasmettiAggiornamento, false},
  };
  for (const auto& row : rows) {
    LinkFixture t(sckUDPProtocol);
    auto& f = t.form();
    f.NewStringaPassWord = "654321";
    f.StringaInviata = 9;
    row.call(f);
    SCOPED_TRACE(row.stato);
    EXPECT_EQ(f.Stato, row.stato);
    EXPECT_EQ(t.states, std::vector<int>{row.stato});
    EXPECT_EQ(t.timer().interval(), row.quick ? 750 : 1000);
    EXPECT_TRUE(t.timer().enabled());
    EXPECT_TRUE(f.bAttesaRisposta);
    EXPECT_EQ(f.StringaInviata, 1);
    EXPECT_EQ(t.lastMessage(), f.StringaPar[0]);
  }
}

// What the unit does with the chunks: the receiving side's joiner must give
// the command back whole.
TEST(DeviceOperations, CommandStringsAreChunkedSoTheReceiverJoinsThemBack) {
  const std::string longCommand = std::string(2 * 3069, 'a') + "tail1" + std::string(51197 - 2 * 3069, 'b') + "z";
  {
    LinkFixture t(sckUDPProtocol);
    t.form().UploadStrCommand(longCommand);
    auto packets = t.form().StringaPar;  // 17 chunks of at most 3069, then the lone "{}"
    ASSERT_EQ(packets.size(), 17u + 2u);
    EXPECT_EQ(packets[0], "AA{}18{}50{}123456");
    EXPECT_EQ(packets.back(), "{}");
    EXPECT_EQ(link::CreaStringaComando(packets, sckUDPProtocol), longCommand);
  }
  {
    LinkFixture t(sckTCPProtocol);
    t.connect();
    t.form().DownLoadStrCommand(longCommand);
    auto packets = t.form().StringaPar;
    ASSERT_EQ(packets.size(), 2u);
    const std::string opening = "AA{}1{}52{}123456";
    ASSERT_EQ(packets[0].substr(0, opening.size()), opening);
    packets[0].erase(0, opening.size());  // the unit takes the first chunk from after the code
    EXPECT_EQ(link::CreaStringaComando(packets, sckTCPProtocol), longCommand);
  }
  LinkFixture t(sckUDPProtocol);
  t.form().UploadStrCommand("");
  EXPECT_EQ(t.form().StringaPar, (Strings{"AA{}2{}50{}123456", "{}\r\n", "{}"}));
}

TEST(DeviceOperations, CodeUploadsCarryTheNewCodeAndNeverAnEmptyOne) {
  LinkFixture t(sckUDPProtocol);
  auto& f = t.form();
  f.UploadCodUtente();
  EXPECT_TRUE(t.socket().sent.empty());
  EXPECT_TRUE(t.debugContains("UploadCodUtente: "));

  f.AddRichiesta("07", "");
  f.AddRichiesta("02", "");  // the empty code change is dropped and the queue goes on
  EXPECT_EQ(t.lastMessage(), "AA{}0{}02{}123456");
  EXPECT_EQ(f.QueueLength(), 1);

  f.NewStringaPassWord = "654321";
  f.UploadCodInstallatore();
  EXPECT_EQ(f.StringaPar, (Strings{"AA{}2{}07{}123456", "{}654321\r\n", "{}"}));
}

TEST(DeviceOperations, MediaAndVoiceNamesMustStayInTheirFolder) {
  LinkFixture t(sckUDPProtocol);
  auto& f = t.form();
  f.AddRichiesta("56", "../escape.avi");
  f.AddRichiesta("05", "/etc");
  EXPECT_TRUE(t.socket().sent.empty());
  EXPECT_TRUE(t.debugContains("DownloadMultimediaFile: "));
  EXPECT_TRUE(t.debugContains("UpLoadMessaggiWave: "));
  EXPECT_EQ(f.QueueLength(), 0);

  f.AddRichiesta("56", "clip.avi");
  EXPECT_EQ(t.lastMessage(), "AA{}0{}56{}123456{}clip.avi");
  EXPECT_EQ(f.NomeFileMultimedia, "clip.avi");
}

TEST(DeviceOperations, AStreamImageLeavesTheQueueBeforeItIsSent) {
  LinkFixture t(sckUDPProtocol);
  auto& f = t.form();
  f.Stato = cRichiestaProg;
  f.AddRichiesta("57", "3");
  f.AddRichiesta("53", "");
  f.Stato = cNoOperation;
  f.ReadRichiesta();
  EXPECT_EQ(t.messages(), Strings{"AA{}0{}57{}123456{}3\r\n"});
  EXPECT_EQ(f.QueueLength(), 1);
  EXPECT_EQ(f.Richieste[1].Tipo, "53");
}

TEST(DeviceOperations, TheUpdateFileIsTakenFromThePathGiven) {
  LinkFixture t(sckUDPProtocol);
  WriteFileBytes(t.dir() / "update.bin", std::string(3073, '\x5a'));
  t.form().UpLoadAggiornamento((t.dir() / "update.bin").string());
  EXPECT_EQ(t.lastMessage(), "AA{}4{}10{}123456");  // header, two chunks, terminator
}

}  // namespace
}  // namespace camrelay::test
