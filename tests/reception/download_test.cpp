// Collection of downloads into StringaPar, their acknowledgement and their
// completion, driven directly as the dispatcher drives them.
#include <gtest/gtest.h>

#include "link_fixture.h"
#include "reception_support.h"

using namespace camrelay;
using camrelay::test::Accepted;
using camrelay::test::LinkFixture;
using camrelay::test::Packet;

namespace {

constexpr int kUDP = 1;

using Texts = std::vector<std::string>;

}  // namespace

TEST(Download, MalformedPacketsAreDroppedButStillAcknowledged) {
  LinkFixture f(kUDP);
  auto& form = f.form();
  Accepted(form, "53", 3, "53");
  const Texts malformed = {
      "{}3{}10\r\n123456789",   // the body is one short of its length field
      "{}3{}9123456789",        // no line end after the length
      "{}3",                    // no second separator
      "{}0{}3\r\nabc",          // index 0 is the acceptance's slot
      "{}4{}3\r\nabc",          // beyond the announced count
  };
  for (const auto& packet : malformed) {
    f.clearRecords();
    form.WinSock_Download(packet);
    EXPECT_EQ(f.messages(), Texts{"OK"}) << packet;
    EXPECT_EQ(form.StringaPar, Texts(4)) << packet;
    EXPECT_TRUE(f.states.empty()) << packet;
  }
  EXPECT_EQ(form.Stato, cRichiestaCamEvents);

  f.clearRecords();
  form.WinSock_Download("OK{}53");
  EXPECT_TRUE(f.messages().empty()) << "only data packets are collected and acknowledged";
}

TEST(Download, EachTypeEndsWithItsOwnState) {
  const struct {
    std::string tipo;
    std::vector<int> states;
  } cases[] = {{"03", {cRicezioneLogOK}},
               {"53", {cRicezioneCamEventsOK}},
               {"54", {cRicezioneProgCamEventsOK}},
               {"11", {}}};  // the erase of the first log reports nothing
  for (const auto& c : cases) {
    LinkFixture f(kUDP);
    Accepted(f.form(), c.tipo, 1, c.tipo == "03" ? "04" : c.tipo);
    f.form().WinSock_Download(Packet(1, "x"));
    EXPECT_EQ(f.states, c.states) << c.tipo;
    EXPECT_EQ(f.form().Stato, cNoOperation) << c.tipo;
    EXPECT_EQ(f.form().QueueLength(), 0) << c.tipo;
  }
}

TEST(Download, ARepeatedLastPacketDoesNotEndTheTransferTwice) {
  LinkFixture f(kUDP);
  auto& form = f.form();
  Accepted(form, "54", 1, "54");
  // The next request, waiting: it must survive the repeated packet.
  form.Richieste.push_back({"03", "03"});
  form.WinSock_Download(Packet(1, "x"));
  ASSERT_EQ(f.states.front(), cRicezioneProgCamEventsOK);
  const auto queued = form.Richieste;
  const auto raised = f.states.size();

  form.WinSock_Download(Packet(1, "x"));
  EXPECT_EQ(form.Richieste, queued);
  EXPECT_EQ(f.states.size(), raised);
}

TEST(Download, CommandStringIsJoinedWhenItsCountIsReached) {
  // UDP: the acceptance is element 0 and counts the closing "{}" element.
  LinkFixture f(kUDP);
  auto& form = f.form();
  Accepted(form, "51", 3, "52");
  form.StringaPar[0] = "AA{}3{}51";
  form.nPacchetti = 1;
  form.WinSock_Download("{}STATO:\r\n");
  form.WinSock_Download("{}ARMATO\r\n");
  EXPECT_TRUE(f.states.empty());
  form.WinSock_Download("{}");
  EXPECT_EQ(form.StringaRicevuta, "STATO:ARMATO");
  EXPECT_EQ(f.states, std::vector<int>{cRicezioneStringaOK});
  EXPECT_EQ(form.Stato, cNoOperation);
  EXPECT_EQ(f.messages(), (Texts{"OK", "OK", "OK"}));

  f.clearRecords();
  form.WinSock_Download("{}late\r\n");
  EXPECT_TRUE(f.states.empty()) << "a packet beyond the count has no slot";
  EXPECT_EQ(form.StringaRicevuta, "STATO:ARMATO");
}
