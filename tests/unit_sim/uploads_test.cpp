// What the component uploads, built with its own builders where it has them,
// must come out of the unit exactly as it went in.
#include "session_fixture.h"

#include "files/firmware.h"
#include "link/frmClient.h"
#include "temp_dir.h"

namespace camrelay::unit::test {
namespace {

class UploadTest : public SessionTest {
 protected:
  // Feeds a whole upload as the component sends it, element 0 with the
  // code, and returns the answer to each element.
  std::vector<Messages> Feed(const std::vector<std::string>& elements) {
    std::vector<Messages> answers;
    for (const auto& element : elements) answers.push_back(Send(element));
    return answers;
  }
};

TEST_F(UploadTest, ProgrammingIsPlacedByIndexAndStoredOnce) {
  Start(false);
  std::vector<std::string> upload = Elements(3);
  upload[0] = Request("01", 3);
  const auto answers = Feed(upload);
  EXPECT_EQ(answers, (std::vector<Messages>{{"AA{}3{}01"}, {"OK"}, {"OK"}, {"OK"}}));
  ASSERT_EQ(content.storedProgrammazione.size(), 1u);
  const auto& dati = content.storedProgrammazione[0];
  ASSERT_EQ(dati.size(), 4u);
  EXPECT_EQ(dati[2], "{}Registro_eventi{}0{}2{}3\r\n");
  // The acknowledgement of the last element was lost: the resend is answered
  // again and stores nothing more.
  EXPECT_EQ(Send("13{}01{}3{}" + upload[3]), Messages{"13{}01{}3{}OK"});
  EXPECT_EQ(content.storedProgrammazione.size(), 1u);
}

TEST_F(UploadTest, AResentElementLandsInItsOwnPlace) {
  Start(false);
  std::vector<std::string> upload = Elements(3);
  Send(Request("55", 3));
  Send(upload[1]);
  // Element 2 never reached the unit; the component sends it again.
  EXPECT_EQ(Send("13{}55{}2{}" + upload[2]), Messages{"13{}55{}2{}OK"});
  EXPECT_EQ(Send(upload[3]), Messages{"OK"});
  ASSERT_EQ(content.storedProgCamEvents.size(), 1u);
  EXPECT_EQ(content.storedProgCamEvents[0][2], "{}Registro_eventi{}0{}2{}3\r\n");
}

TEST_F(UploadTest, FirmwareComesOutByteForByte) {
  camrelay::test::TempDir dir;
  for (std::size_t size : {std::size_t{3073}, std::size_t{3072}, std::size_t{0}}) {
    std::string bytes;
    for (std::size_t i = 0; i < size; ++i) bytes.push_back(static_cast<char>(i * 7 % 256));
    camrelay::test::WriteFileBytes(dir / "fw.bin", bytes);
    std::vector<std::string> upload;
    store::LoadFileAgg(upload, nullptr, requests::CryptData("123456"), (dir / "fw.bin").string());
    content.firmware.clear();
    Start(false);
    const auto answers = Feed(upload);
    EXPECT_EQ(answers.front(), Messages{"AA{}" + std::to_string(upload.size() - 1) + "{}10"});
    EXPECT_EQ(answers.back(), Messages{"OK"});
    ASSERT_EQ(content.firmware.count("fw.bin"), 1u) << size << " bytes";
    EXPECT_EQ(content.firmware["fw.bin"], bytes) << size << " bytes";
  }
}

TEST_F(UploadTest, BusyHoldsTheFinalAcknowledgementOfAFirmware) {
  settings.busyPct = 100;
  Start(false);
  const auto answers = Feed({Request("10", 3), "{}1{}1{}fw.bin\r\n", "{}1{}1{}2{}ab", "{}"});
  EXPECT_EQ(answers, (std::vector<Messages>{{"AA{}3{}10"}, {"OK"}, {"OK"}, {"BS", "OK"}}));
  EXPECT_EQ(content.firmware["fw.bin"], "ab");
}

TEST_F(UploadTest, VoiceMessagesKeepTheirFileNumbersAndNames) {
  Start(false);
  Feed({Request("05", 6), "{}1{}1{}a.wav\r\n", "{}1{}1{}3{}abc", "{}3{}2{}b.wav\r\n", "{}3{}1{}1{}x",
        "{}3{}2{}2{}\r\n", "{}"});
  EXPECT_EQ(content.voiceFiles, (std::map<std::string, std::string>{{"a.wav", "abc"}, {"b.wav", "x\r\n"}}));
}

TEST_F(UploadTest, ACommandIsJoinedFromItsChunks) {
  // TCP: the first chunk rides in the opening.
  Start(true);
  EXPECT_EQ(Feed({Request("50", 1) + "{}ACCENDI \r\n", "{}LUCE\r\n"}), (std::vector<Messages>{{"AA{}1{}50"}, {"OK"}}));
  EXPECT_EQ(content.lastCommand, "ACCENDI LUCE");
  EXPECT_EQ(Send(Request("50") + "{}SPEGNI\r\n"), Messages{"OK"}) << "one chunk: nothing follows the opening";
  EXPECT_EQ(content.lastCommand, "SPEGNI");
  // UDP: the opening carries only the code, a lone "{}" closes the chunks.
  Start(false);
  Feed({Request("50", 3), "{}A{}B\r\n", "{}C\r\n", "{}"});
  EXPECT_EQ(content.lastCommand, "A{}BC");
}

// What the component makes of a string answer: its own join of the packets.
std::string Joined(const std::string& acceptance, const std::vector<std::string>& packets, bool tcp) {
  std::vector<std::string> collected{acceptance};
  collected.insert(collected.end(), packets.begin(), packets.end());
  return link::CreaStringaComando(collected, tcp ? sckTCPProtocol : sckUDPProtocol);
}

TEST_F(UploadTest, ACommandRequestIsAnsweredWithAStringTheComponentJoins) {
  for (bool tcp : {false, true}) {
    Start(tcp);
    std::vector<std::string> upload = tcp ? std::vector<std::string>{Request("52") + "{}VERSIONE?\r\n"}
                                          : std::vector<std::string>{Request("52", 2), "{}VERSIONE?\r\n", "{}"};
    const Messages acceptance = Feed(upload).back();
    ASSERT_EQ(acceptance.size(), 1u);
    std::vector<std::string> packets;
    for (Messages got = Send("OK{}51"); !got.empty() && got[0].rfind("{}", 0) == 0; got = Send("OK"))
      packets.push_back(got[0]);
    EXPECT_EQ(Joined(acceptance[0], packets, tcp), "VERSIONE:camrelay-unit 1.0") << (tcp ? "TCP" : "UDP");
  }
}

TEST(StringTransfer, LongAnswersSurviveTheComponentsJoin) {
  // Lengths that leave a last chunk of one character, which the component's
  // UDP join would drop.
  for (bool tcp : {false, true}) {
    const std::size_t chunk = tcp ? kStringChunkTcp : kStringChunkUdp;
    for (std::size_t length : {std::size_t{1} + chunk, 2 * chunk + 1, 2 * chunk, std::size_t{2}}) {
      std::string text;
      for (std::size_t i = 0; i < length; ++i) text.push_back(static_cast<char>('a' + i % 26));
      const Transfer t = StringTransfer(text, tcp);
      EXPECT_EQ(Joined(t.acceptance, t.packets, tcp), text) << length << (tcp ? " TCP" : " UDP");
    }
  }
}

}  // namespace
}  // namespace camrelay::unit::test
