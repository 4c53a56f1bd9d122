// Logins, stop-and-wait downloads with injected copies and swaps, the
// answers to the component's silence probes, and the preview's images and
// clips.
#include "session_fixture.h"

#include "camrelay-unit/avi.h"

namespace camrelay::unit::test {
namespace {

std::string Packet(int i) { return Elements(6)[static_cast<std::size_t>(i)]; }

// A refused code or changed codes are also judged end to end; here, the
// answers the protocol words.
TEST_F(SessionTest, LoginsRefusalsAndCodeChanges) {
  Start(false);
  EXPECT_EQ(Send("12"), Messages{}) << "nothing to repeat yet";
  EXPECT_EQ(Send(Request("00")), Messages{"AA{}0{}00{}1"});
  EXPECT_EQ(Send("12"), Messages{"AA{}0{}00{}1"});
  EXPECT_EQ(Send("AA{}0{}00{}" + requests::CryptData("654321")), Messages{"AA{}0{}00{}2"});
  EXPECT_EQ(Send("AA{}0{}04{}999999"), Messages{"PW"});
  EXPECT_EQ(Send("OK{}04"), Messages{}) << "nothing sent for a refused request";
  EXPECT_EQ(Send("AA{}0{}00{}123456"), Messages{"AA{}0{}00{}1"}) << "the plain code after PW";
  EXPECT_EQ(Send(Request("07", 2)), Messages{"AA{}2{}07"});
  EXPECT_EQ(Send("{}777777\r\n"), Messages{"OK"});
  EXPECT_EQ(codes.installer, "123456") << "the change waits for the end of the upload";
  EXPECT_EQ(Send("{}"), Messages{"OK"});
  EXPECT_EQ(codes.installer, "777777");
}

// A download ends with the last packet on UDP and with "12" on TCP; a
// download-and-erase forgets the log only once its last packet is out.
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
  content.log = Elements(2);
  Start(false);
  Send(Request("03"));
  Send("OK{}03");
  EXPECT_EQ(content.erasures, 0);
  EXPECT_EQ(Send("OK"), Messages{Packet(2)});
  EXPECT_EQ(content.erasures, 1);
}

// A unit slow to read one kind of data holds only that kind's packets back.
// A copied packet waits for both acknowledgements and the last is never
// copied; swaps keep the last packet last and send one at a time.
TEST_F(SessionTest, InjectedDelaysCopiesAndSwapsKeepTheTransferWhole) {
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
  settings.slowMs = 0;
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

// A TCP preview request is one packet, the argument after the code; the
// image comes in pieces "{}i{}size{}data". Images over UDP, and a clip the
// unit lacks, are checked end to end against the component.
TEST_F(SessionTest, ACameraImageTravelsInPiecesAndAClipStepsFrameByFrame) {
  const auto ask = [&](const std::string& what) { return Send(Request("08") + "{}" + what + "\r\n"); };
  const auto collect = [&] {
    std::string image;
    for (Messages got = Send("OK{}09"); got.size() == 1 && got[0].starts_with("{}"); got = Send("OK"))
      image += got[0].substr(got[0].find("{}", got[0].find("{}", 2) + 2) + 2);
    return image;
  };
  content.previews[2] = std::string(7000, '\xD8');
  content.media["clip.avi"] = WriteMjpegAvi(Clip{{"frame0", "frame1!", "frame2"}, 160, 120, 4});
  Start(true);
  EXPECT_EQ(ask("2"), Messages{"AA{}3{}09{}7000"});
  EXPECT_EQ(collect(), content.previews[2]);
  EXPECT_EQ(ask("0"), Messages{"AA{}0{}09{}OK"}) << "camera 0 stops the preview";
  EXPECT_EQ(ask("NEXTFRAME:"), Messages{"AA{}0{}09{}Reg Error"}) << "no clip open";
  const std::pair<const char*, const char*> steps[] = {
      {"clip.avi", "frame0"},   {"NEXTFRAME:", "frame1!"}, {"NEXTFRAME:", "frame2"},
      {"NEXTFRAME:", "frame2"}, {"PREVFRAME:", "frame1!"}, {"CurrentTimeFileVideo:0.4", "frame1!"},
  };
  for (const auto& [what, frame] : steps) {
    ask(what);
    EXPECT_EQ(collect(), frame) << what;
  }
  EXPECT_EQ(ask("CLOSE:"), Messages{"AA{}0{}09{}OK"});
  EXPECT_EQ(ask("PREVFRAME:"), Messages{"AA{}0{}09{}Reg Error"});
}

}  // namespace
}  // namespace camrelay::unit::test
