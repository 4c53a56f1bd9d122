// The unit's half of the conversation: logins, stop-and-wait downloads with
// injected copies, swaps and resets, and the answers to the component's
// silence probes.
#include "session_fixture.h"

#include <algorithm>

namespace camrelay::unit::test {
namespace {

std::string Packet(int i) { return Elements(6)[static_cast<std::size_t>(i)]; }

// The index of a "{}i{}..." packet.
int IndexOf(const std::string& packet) { return std::stoi(packet.substr(2)); }

TEST_F(SessionTest, LoginTellsWhichCodeWasGiven) {
  Start(false);
  EXPECT_EQ(Send(Request("00")), Messages{"AA{}0{}00{}1"});
  EXPECT_EQ(Send("AA{}0{}00{}" + requests::CryptData("654321")), Messages{"AA{}0{}00{}2"});
}

TEST_F(SessionTest, ARefusedScrambledCodeIsFollowedByAnAcceptedPlainOne) {
  Start(false);
  EXPECT_EQ(Send("AA{}0{}00{}" + requests::CryptData("999999")), Messages{"PW"});
  EXPECT_EQ(Send("AA{}0{}00{}123456"), Messages{"AA{}0{}00{}1"});
  // Any request with a wrong code is refused, and nothing is sent for it.
  EXPECT_EQ(Send("AA{}0{}04{}999999"), Messages{"PW"});
  EXPECT_EQ(Send("OK{}04"), Messages{});
}

TEST_F(SessionTest, TheLastAnswerIsRepeatedOnRequest) {
  Start(false);
  EXPECT_EQ(Send("12"), Messages{});
  Send(Request("00"));
  EXPECT_EQ(Send("12"), Messages{"AA{}0{}00{}1"});
}

TEST_F(SessionTest, ANewCodeReplacesTheOldOneWhenItsUploadEnds) {
  Start(false);
  EXPECT_EQ(Send("AA{}2{}07{}999999"), Messages{"PW"});
  EXPECT_EQ(Send(Request("07", 2)), Messages{"AA{}2{}07"});
  EXPECT_EQ(Send("{}777777\r\n"), Messages{"OK"});
  EXPECT_EQ(codes.installer, "123456") << "the change waits for the end of the upload";
  EXPECT_EQ(Send("{}"), Messages{"OK"});
  EXPECT_EQ(Send(Request("00")), Messages{"PW"});
  EXPECT_EQ(Send("AA{}0{}00{}777777"), Messages{"AA{}0{}00{}1"});
  EXPECT_EQ(Send("AA{}2{}14{}654321"), Messages{"AA{}2{}14"});
  Send("{}111111\r\n");
  Send("{}");
  EXPECT_EQ(codes.user, "111111");
}

TEST_F(SessionTest, DownloadGoesStopAndWaitAndEndsByTransport) {
  for (bool tcp : {false, true}) {
    content.log = Elements(3);
    Start(tcp);
    EXPECT_EQ(Send(Request("04")), Messages{"AA{}3{}04"});
    EXPECT_EQ(Send("OK"), Messages{}) << "no packet before the component takes the acceptance";
    EXPECT_EQ(Send("OK{}04"), Messages{Packet(1)});
    EXPECT_EQ(Send("OK"), Messages{Packet(2)});
    EXPECT_EQ(Send("OK"), Messages{Packet(3)});
    EXPECT_EQ(Send("OK"), tcp ? Messages{"12{}04"} : Messages{});
    EXPECT_EQ(Send("OK"), Messages{}) << "an acknowledgement beyond the end";
  }
}

TEST_F(SessionTest, ACopiedPacketWaitsForBothAcknowledgementsAndTheLastIsNeverCopied) {
  content.log = Elements(3);
  settings.dupPct = 100;
  Start(true);
  Send(Request("04"));
  EXPECT_EQ(Send("OK{}04"), (Messages{Packet(1), Packet(1)}));
  EXPECT_EQ(Send("OK"), Messages{});
  EXPECT_EQ(Send("OK"), (Messages{Packet(2), Packet(2)}));
  Send("OK");
  EXPECT_EQ(Send("OK"), Messages{Packet(3)});
  EXPECT_EQ(Send("OK"), Messages{"12{}04"});
}

TEST_F(SessionTest, SwapsKeepTheLastPacketLastAndSendOneAtATime) {
  content.log = Elements(6);
  settings.reorderPct = 100;
  Start(false);
  Send(Request("04"));
  std::vector<int> order;
  for (Messages got = Send("OK{}04"); !got.empty(); got = Send("OK")) {
    ASSERT_EQ(got.size(), 1u);
    order.push_back(IndexOf(got[0]));
  }
  EXPECT_EQ(order, (std::vector<int>{2, 1, 4, 3, 5, 6}));
}

TEST_F(SessionTest, ProbesAreAnsweredWithTheirOwnTypeAndCount) {
  content.log = Elements(3);
  Start(false);
  EXPECT_EQ(Send("13{}02{}0{}"), Messages{"13{}00{}0{}"}) << "nothing in progress: start again";
  Send(Request("04"));
  // The acceptance was lost: the probe carries the previous transfer's type.
  EXPECT_EQ(Send("13{}02{}5{}"), Messages{"13{}02{}5{}AA{}3{}04"});
  Send("OK{}04");
  EXPECT_EQ(Send("13{}04{}0{}"), Messages{"13{}04{}0{}" + Packet(1)});
  EXPECT_EQ(Send("OK"), Messages{Packet(2)});
  // The request itself was lost after a finished transfer.
  Send("OK");
  Send("OK");
  EXPECT_EQ(Send("13{}04{}0{}"), Messages{"13{}00{}0{}"});
}

TEST_F(SessionTest, ACountedTransferResumesAtThePacketTheProbeCounts) {
  content.media["clip.avi"] = std::string(3072 * 2 + 5, 'v');
  Start(false);
  EXPECT_EQ(Send(Request("56") + "{}clip.avi"), Messages{"AA{}4{}56"});
  Send("OK{}56");
  // Packets 1 and 2 arrived, the acknowledgement of 2 was lost.
  EXPECT_EQ(Send("13{}56{}3{}"), Messages{"13{}56{}3{}{}vvvvv"});
  EXPECT_EQ(Send("OK"), Messages{"{}"}) << "the closing packet ends a media file";
  EXPECT_EQ(Send("OK"), Messages{}) << "nothing follows the closing packet";
}

TEST_F(SessionTest, EraseAnswersWithOneEmptyPacket) {
  content.log = Elements(3);
  Start(false);
  EXPECT_EQ(Send(Request("11")), Messages{"AA{}1{}11"});
  EXPECT_EQ(content.erasures, 1);
  EXPECT_EQ(Send("OK{}11"), Messages{"{}1{}0\r\n"});
}

TEST_F(SessionTest, DownloadAndEraseForgetsTheLogOnlyOnceItsLastPacketIsOut) {
  content.log = Elements(2);
  Start(false);
  Send(Request("03"));
  Send("OK{}03");
  EXPECT_EQ(content.erasures, 0);
  EXPECT_EQ(Send("OK"), Messages{Packet(2)});
  EXPECT_EQ(content.erasures, 1);
}

TEST_F(SessionTest, BusyPrecedesDownloadsButNotLogins) {
  settings.busyPct = 100;
  settings.busyDelayMs = 250;
  Start(false);
  EXPECT_EQ(Send(Request("00")), Messages{"AA{}0{}00{}1"});
  EXPECT_EQ(Send(Request("04")), (Messages{"BS", "AA{}1{}04"}));
  EXPECT_EQ(last[0].delayMs, 0);
  EXPECT_EQ(last[1].delayMs, 250);
}

TEST_F(SessionTest, TheResetComesOnceAfterTheNthPacket) {
  content.log = Elements(3);
  settings.resetAfter = 2;
  Start(true);
  Send(Request("04"));
  Send("OK{}04");
  Send("OK");
  ASSERT_EQ(last.size(), 2u);
  EXPECT_EQ(last[0].message, Packet(2));
  EXPECT_TRUE(last[1].reset);
  // The component reconnects and asks again: no second reset.
  Send(Request("04"));
  Send("OK{}04");
  for (int i = 0; i < 3; ++i) {
    Send("OK");
    EXPECT_TRUE(std::none_of(last.begin(), last.end(), [](const Outgoing& o) { return o.reset; }));
  }
}

TEST_F(SessionTest, VoiceAcceptanceCarriesTheOpeningOfTheVoiceLayout) {
  content.voice = {"AA{}3{}05{}", "{}1{}1{}a.wav\r\n", "{}1{}1{}2{}xy", "{}"};
  Start(false);
  EXPECT_EQ(Send(Request("06")), Messages{"AA{}3{}06{}AA{}3{}06{}"});
  EXPECT_EQ(Send("OK{}06"), Messages{"{}1{}1{}a.wav\r\n"});
}

}  // namespace
}  // namespace camrelay::unit::test
