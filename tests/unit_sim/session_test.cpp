// Logins, stop-and-wait downloads with injected copies and swaps, and the
// answers to the component's silence probes.
#include "session_fixture.h"

namespace camrelay::unit::test {
namespace {

std::string Packet(int i) { return Elements(6)[static_cast<std::size_t>(i)]; }

TEST_F(SessionTest, LoginsRefusalsAndCodeChanges) {
  Start(false);
  EXPECT_EQ(Send("12"), Messages{}) << "nothing to repeat yet";
  EXPECT_EQ(Send(Request("00")), Messages{"AA{}0{}00{}1"});
  EXPECT_EQ(Send("12"), Messages{"AA{}0{}00{}1"});
  EXPECT_EQ(Send("AA{}0{}00{}" + requests::CryptData("654321")), Messages{"AA{}0{}00{}2"});
  EXPECT_EQ(Send("AA{}0{}00{}" + requests::CryptData("999999")), Messages{"PW"});
  EXPECT_EQ(Send("AA{}0{}00{}123456"), Messages{"AA{}0{}00{}1"}) << "the plain code after PW";
  EXPECT_EQ(Send("AA{}0{}04{}999999"), Messages{"PW"});
  EXPECT_EQ(Send("OK{}04"), Messages{}) << "nothing sent for a refused request";
  EXPECT_EQ(Send(Request("07", 2)), Messages{"AA{}2{}07"});
  EXPECT_EQ(Send("{}777777\r\n"), Messages{"OK"});
  EXPECT_EQ(codes.installer, "123456") << "the change waits for the end of the upload";
  EXPECT_EQ(Send("{}"), Messages{"OK"});
  EXPECT_EQ(codes.installer, "777777");
  EXPECT_EQ(Send(Request("00")), Messages{"PW"});
}

TEST_F(SessionTest, DownloadGoesStopAndWaitAndEndsByTransport) {
  for (bool tcp : {false, true}) {
    content.log = Elements(3);
    Start(tcp);
    EXPECT_EQ(Send(Request("04")), Messages{"AA{}3{}04"});
    EXPECT_EQ(Send("OK"), Messages{}) << "no packet before the acceptance is taken";
    EXPECT_EQ(Send("OK{}04"), Messages{Packet(1)});
    EXPECT_EQ(Send("OK"), Messages{Packet(2)});
    EXPECT_EQ(Send("OK"), Messages{Packet(3)});
    EXPECT_EQ(Send("OK"), tcp ? Messages{"12{}04"} : Messages{});
    EXPECT_EQ(Send("OK"), Messages{}) << "an acknowledgement beyond the end";
  }
}

// A unit slow to read one kind of data holds only that kind's packets back.
TEST_F(SessionTest, ASlowTypeHoldsBackItsDataPacketsOnly) {
  for (const auto& [slowType, delay] : {std::pair{"04", 700}, std::pair{"02", 0}}) {
    content.log = Elements(2);
    settings.slowType = slowType;
    settings.slowMs = 700;
    Start(false);
    Send(Request("04"));
    EXPECT_EQ(last.at(0).delayMs, 0) << "the acceptance";
    Send("OK{}04");
    EXPECT_EQ(last.at(0).delayMs, delay) << "packets while " << slowType << " is slow";
  }
}

// A copied packet waits for both acknowledgements and the last is never
// copied; swaps keep the last packet last and send one at a time.
TEST_F(SessionTest, InjectedCopiesAndSwapsKeepTheTransferWhole) {
  content.log = Elements(3);
  settings.dupPct = 100;
  Start(true);
  Send(Request("04"));
  const Messages expected[] = {{Packet(1), Packet(1)}, {}, {Packet(2), Packet(2)}, {}, {Packet(3)}, {"12{}04"}};
  for (std::size_t i = 0; i < std::size(expected); ++i) EXPECT_EQ(Send(i ? "OK" : "OK{}04"), expected[i]) << i;

  content.log = Elements(6);
  settings.dupPct = 0;
  settings.reorderPct = 100;
  Start(false);
  Send(Request("04"));
  std::vector<int> order;
  for (Messages got = Send("OK{}04"); !got.empty() && order.size() < 10; got = Send("OK")) {
    ASSERT_EQ(got.size(), 1u);
    order.push_back(std::stoi(got[0].substr(2)));
  }
  EXPECT_EQ(order, (std::vector<int>{2, 1, 4, 3, 5, 6}));
}

TEST_F(SessionTest, ProbesAreAnsweredWithTheirOwnTypeAndCount) {
  content.log = Elements(3);
  Start(false);
  EXPECT_EQ(Send("13{}02{}0{}"), Messages{"13{}00{}0{}"}) << "idle: start again";
  Send(Request("04"));
  EXPECT_EQ(Send("13{}02{}5{}"), Messages{"13{}02{}5{}AA{}3{}04"}) << "the acceptance was lost";
  Send("OK{}04");
  EXPECT_EQ(Send("13{}04{}0{}"), Messages{"13{}04{}0{}" + Packet(1)});
  EXPECT_EQ(Send("OK"), Messages{Packet(2)});
  Send("OK");
  Send("OK");
  EXPECT_EQ(Send("13{}04{}0{}"), Messages{"13{}00{}0{}"}) << "the request was lost after a finished transfer";
  // A counted media transfer resumes at the packet the probe counts.
  content.media["clip.avi"] = std::string(3072 * 2 + 5, 'v');
  Start(false);
  EXPECT_EQ(Send(Request("56") + "{}clip.avi"), Messages{"AA{}4{}56"});
  Send("OK{}56");
  EXPECT_EQ(Send("13{}56{}3{}"), Messages{"13{}56{}3{}{}vvvvv"});
  EXPECT_EQ(Send("OK"), Messages{"{}"});
  EXPECT_EQ(Send("OK"), Messages{});
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

}  // namespace
}  // namespace camrelay::unit::test
