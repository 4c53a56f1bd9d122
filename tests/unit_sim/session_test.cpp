// What the end-to-end runs cannot tell from a unit that ignores them: the
// fault options really copy and swap packets; each silence probe is
// answered with the type and count it asked about (a lossy run may end
// failed, so a wrong answer there would pass unseen); uploads out of order
// are stored once.
#include "session_fixture.h"

namespace camrelay::unit::test {
namespace {

std::string Packet(int i) { return Elements(6)[static_cast<std::size_t>(i)]; }

// A copied packet waits for both acknowledgements and the last is never
// copied; swaps keep the last packet last and send one at a time. (A unit
// slow to read one kind of data is the browser console's: its cancels need
// a download still running.)
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

// An upload whose elements arrive out of order, or come again with a
// probe, is stored once and in order.
TEST_F(SessionTest, UploadedRecordsArePlacedByTheirOwnIndexAndStoredOnce) {
  const auto upload = Elements(3);
  Messages bodies;  // the elements as stored: without their headers
  for (int i = 1; i <= 3; ++i) bodies.push_back(upload[i].substr(upload[i].find("\r\n") + 2));
  const auto records = [](const Messages& dati) { return Messages(dati.begin() + 1, dati.end()); };
  Start(false);
  EXPECT_EQ(Send(Request("01", 3)), Messages{"AA{}3{}01"});
  for (int i : {3, 1, 2}) EXPECT_EQ(Send(upload[i]), Messages{"OK"}) << "element " << i;
  ASSERT_EQ(content.storedProgrammazione.size(), 1u);
  EXPECT_EQ(records(content.storedProgrammazione[0]), bodies);
  EXPECT_EQ(Send("13{}01{}3{}" + upload[2]), Messages{"13{}01{}3{}OK"}) << "the last acknowledgement was lost";
  EXPECT_EQ(content.storedProgrammazione.size(), 1u);
  // Element 2 never arrived and comes again with a probe.
  Send(Request("55", 3));
  Send(upload[1]);
  EXPECT_EQ(Send("13{}55{}2{}" + upload[2]), Messages{"13{}55{}2{}OK"});
  EXPECT_EQ(Send(upload[3]), Messages{"OK"});
  ASSERT_EQ(content.storedProgCamEvents.size(), 1u);
  EXPECT_EQ(records(content.storedProgCamEvents[0]), bodies);
}

}  // namespace
}  // namespace camrelay::unit::test
