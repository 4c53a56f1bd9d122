// Cutting the unit's messages out of what the socket delivers.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "link_fixture.h"

namespace camrelay::test {
namespace {

using Strings = std::vector<std::string>;
constexpr std::size_t kLimit = 4 * 1024 * 1024;

// A login with a download queued behind it, the unit's two answers in one
// stream: the login answer, then the download's acceptance.
class TwoAnswers : public LinkFixture {
 public:
  TwoAnswers() : LinkFixture(sckTCPProtocol) {
    form().AddRichiesta("AA", "");
    form().AddRichiesta("02", "");
    connect();
    clearRecords();
  }
  static std::string Stream() { return Frame("AA{}0{}00{}1") + Frame("AA{}2{}02"); }
  void ExpectBothHandledInOrder() {
    EXPECT_EQ(messages(), (Strings{"AA{}0{}02{}123456", "OK{}02"}));
    EXPECT_EQ(form().Stato, cRichiestaProg);
    EXPECT_EQ(form().StringaPar.size(), 3u);
    EXPECT_TRUE(form().sBufferRicezione.empty());
  }
};

TEST(TcpFrames, SeveralFramesInOneReadAreAllHandledInOrder) {
  TwoAnswers t;
  t.socket().deliver("noise before the marker" + TwoAnswers::Stream());
  t.ExpectBothHandledInOrder();
}

TEST(TcpFrames, AFrameSplitAnywhereIsHandledOnceWhenComplete) {
  const std::string stream = TwoAnswers::Stream();
  for (std::size_t cut = 1; cut < stream.size(); ++cut) {
    SCOPED_TRACE(cut);
    TwoAnswers t;
    t.socket().deliver(stream.substr(0, cut));
    t.socket().deliver(stream.substr(cut));
    t.ExpectBothHandledInOrder();
  }
  TwoAnswers t;
  for (char byte : stream) t.socket().deliver(std::string(1, byte));
  t.ExpectBothHandledInOrder();
}

TEST(TcpFrames, AnIncompleteFrameRestartsTheReplyTimer) {
  TwoAnswers t;
  t.form().ShowCamRelay = true;
  t.timer().setEnabled(false);
  t.socket().deliver(Frame("AA{}0{}00{}1").substr(0, 10));
  EXPECT_TRUE(t.timer().enabled());
  EXPECT_NE(t.form().Panel.txtRxData.find("MANCA!!!!!!!"), std::string::npos);
  EXPECT_TRUE(t.socket().sent.empty());
}

TEST(TcpFrames, ALengthThatIsNoNumberGivesAnEmptyMessageThatEndsTheEvent) {
  LinkFixture t(sckTCPProtocol);
  t.form().AddRichiesta("02", "");
  t.connect();
  t.clearRecords();
  t.socket().deliver("LN{}xy{}" + Frame("BS"));
  EXPECT_TRUE(t.socket().sent.empty());
  EXPECT_EQ(t.form().sBufferRicezione, Frame("BS"));
  t.socket().deliver("");  // the rest is handled with the next arrival
  EXPECT_EQ(t.messages(), Strings{"BS{}00"});
}

TEST(TcpFrames, APeerCannotMakeTheLinkHoldMoreThanTheLimit) {
  LinkFixture t(sckTCPProtocol);
  t.form().AddRichiesta("02", "");
  t.connect();
  t.clearRecords();

  // A length above the limit: its header is skipped, the next frame is read.
  t.socket().deliver("LN{}" + std::to_string(kLimit + 1) + "{}BS" + Frame("BS"));
  EXPECT_TRUE(t.debugContains("Winsock1_DataArrival: frame of 4194305 bytes"));
  EXPECT_EQ(t.messages(), Strings{"BS{}00"});

  // A length field that never ends.
  t.clearRecords();
  t.socket().deliver("LN{}" + std::string(kLimit - 4, '7'));
  EXPECT_TRUE(t.debug.empty());
  t.socket().deliver("77");
  EXPECT_TRUE(t.debugContains("without a complete frame header"));
  EXPECT_TRUE(t.form().sBufferRicezione.empty());

  // A frame of exactly the limit still goes through, however it travels.
  t.clearRecords();
  const std::string big = Frame("BS" + std::string(kLimit - 2, 'x'));
  for (std::size_t at = 0; at < big.size(); at += big.size() / 4 + 1) t.socket().deliver(big.substr(at, big.size() / 4 + 1));
  EXPECT_EQ(t.messages(), Strings{"BS{}00"});
  EXPECT_TRUE(t.debug.empty());
}

TEST(TcpFrames, AFrameCutShortByTheUnitClosingIsForgottenOnReconnect) {
  LinkFixture t(sckTCPProtocol);
  t.form().AddRichiesta("AA", "");
  t.connect();
  t.socket().deliver(Frame("AA{}0{}00{}1").substr(0, 9));
  t.socket().peerClose();
  t.form().AddRichiesta("AA", "");
  t.connect();
  t.unitSends("AA{}0{}00{}2");
  EXPECT_EQ(t.form().RemotePasswordType, 2);
  EXPECT_EQ(t.form().QueueLength(), 0);
}

TEST(UdpDatagrams, EachDatagramIsOneMessageWithoutAFrame) {
  LinkFixture t(sckUDPProtocol);
  t.form().AddRichiesta("AA", "");
  t.form().AddRichiesta("02", "");
  t.clearRecords();
  t.socket().deliver("AA{}0{}00{}2");
  EXPECT_EQ(t.form().RemotePasswordType, 2);
  EXPECT_EQ(t.messages(), Strings{"AA{}0{}02{}123456"});
  t.socket().deliver(Frame("AA{}2{}02"));  // a frame marker means nothing here
  EXPECT_EQ(t.messages().size(), 1u);
}

}  // namespace
}  // namespace camrelay::test
