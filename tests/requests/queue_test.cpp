#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "link_fixture.h"

namespace camrelay::test {
namespace {

std::vector<std::string> Queue(const link::frmClient& f) {
  std::vector<std::string> out;
  for (std::size_t i = 1; i < f.Richieste.size(); ++i) out.push_back(f.Richieste[i].Tipo + ":" + f.Richieste[i].Parametro);
  return out;
}

using Strings = std::vector<std::string>;

TEST(AddRichiesta, AnIdleLinkServesTheNewRequestAtOnceAndKeepsItAtTheHead) {
  LinkFixture t(sckUDPProtocol);
  t.form().AddRichiesta("02", "");
  EXPECT_EQ(t.lastMessage(), "AA{}0{}02{}123456");
  EXPECT_EQ(Queue(t.form()), Strings{"02:"});
  EXPECT_EQ(t.form().sTipoRichiesta, "02");
}

TEST(AddRichiesta, WaitingDuplicatesAreRefusedButTheHeadIsNeverCompared) {
  LinkFixture t(sckUDPProtocol);
  auto& f = t.form();
  f.Stato = cRichiestaProg;  // busy: nothing is served
  f.AddRichiesta("08", "1");
  f.AddRichiesta("08", "2");  // the only other "08" is the head
  f.AddRichiesta("08", "3");  // any camera: one "08" already waits
  f.AddRichiesta("09", "a");
  f.AddRichiesta("09", "b");
  f.AddRichiesta("05", "a.wav");
  f.AddRichiesta("05", "a.wav");
  f.AddRichiesta("05", "b.wav");
  EXPECT_EQ(Queue(f), (Strings{"08:1", "08:2", "09:a", "05:a.wav", "05:b.wav"}));
  f.AddRichiesta("05", "a.wav", true);
  f.AddRichiesta("05", "a.wav", true);
  EXPECT_EQ(Queue(f).size(), 7u);
  EXPECT_TRUE(t.socket().sent.empty());
}

TEST(AddRichiesta, ServesDuringAStreamImageExchangeButNotDuringOtherWork) {
  for (int stato : {cRichiestaStreamImage, cRicezioneStreamImageOK, cRichiestaLog}) {
    LinkFixture t(sckUDPProtocol);
    t.form().Stato = stato;
    t.form().AddRichiesta("53", "");
    EXPECT_EQ(t.socket().sent.size(), stato == cRichiestaLog ? 0u : 1u) << "state " << stato;
  }
}

TEST(RemoveRichiesta, DropsTheIndexGivenOrTheLastWhenOutsideTheQueue) {
  LinkFixture t(sckUDPProtocol);
  auto& f = t.form();
  f.Stato = cRichiestaProg;
  for (const char* tipo : {"02", "53", "54", "06", "11"}) f.AddRichiesta(tipo, "");
  f.RemoveRichiesta(2);
  EXPECT_EQ(Queue(f), (Strings{"02:", "54:", "06:", "11:"}));
  f.RemoveRichiesta(0);
  f.RemoveRichiesta(9);
  EXPECT_EQ(Queue(f), (Strings{"02:", "54:"}));
  f.RemoveRichiesta(1);
  f.RemoveRichiesta(5);  // a single request goes whatever the index
  EXPECT_TRUE(Queue(f).empty());
  f.RemoveRichiesta(1);  // nothing to remove
  EXPECT_TRUE(Queue(f).empty());
  EXPECT_TRUE(t.socket().sent.empty());
}

TEST(RemoveRichiesta, AnIdleLinkGoesOnWithTheNextRequest) {
  LinkFixture t(sckUDPProtocol);
  auto& f = t.form();
  f.AddRichiesta("02", "");
  f.AddRichiesta("53", "");
  f.Stato = cNoOperation;
  f.RemoveRichiesta(1);
  EXPECT_EQ(t.lastMessage(), "AA{}0{}53{}123456");
  EXPECT_EQ(f.Stato, cRichiestaCamEvents);
}

TEST(ReadRichiesta, OnTcpConnectsFirstWaitsWhileConnectingAndServesOnceConnected) {
  LinkFixture t(sckTCPProtocol);
  auto& f = t.form();
  f.AddRichiesta("02", "");
  EXPECT_EQ(t.socket().connects, 1);
  EXPECT_EQ(t.socket().state(), link::sckConnecting);
  f.ReadRichiesta();
  EXPECT_EQ(t.socket().connects, 1);
  EXPECT_TRUE(t.socket().sent.empty());
  t.connect();
  EXPECT_EQ(t.lastMessage(), "AA{}0{}02{}123456");

  // A link in any other state is closed and connected again.
  t.socket().state_ = link::sckError;
  const int closes = t.socket().closes;
  f.Stato = cNoOperation;
  f.ReadRichiesta();
  EXPECT_EQ(t.socket().closes, closes + 1);
  EXPECT_EQ(t.socket().connects, 2);
  EXPECT_FALSE(t.timer().enabled());
}

// Which operation a request type reaches shows in the code its opening packet
// carries. Login and code changes start with only three retries left.
TEST(ReadRichiesta, EachTypeReachesItsOperation) {
  const struct {
    const char *tipo, *parametro, *opening;
    int retriesUsed;
  } rows[] = {
      {"AA", "", "AA{}0{}00{}123456", 12},         {"02", "", "AA{}0{}02{}123456", 1},
      {"04", "", "AA{}0{}04{}123456", 1},          {"04", "03", "AA{}0{}03{}123456", 1},
      {"11", "", "AA{}0{}11{}123456", 1},          {"52", "x", "AA{}2{}52{}123456", 1},
      {"53", "", "AA{}0{}53{}123456", 1},          {"54", "", "AA{}0{}54{}123456", 1},
      {"56", "a.jpg", "AA{}0{}56{}123456{}a.jpg", 1}, {"50", "x", "AA{}2{}50{}123456", 1},
      {"57", "2", "AA{}0{}57{}123456{}2\r\n", 1},  {"06", "", "AA{}0{}06{}123456", 1},
      {"07", "", "AA{}2{}07{}123456", 12},         {"14", "", "AA{}2{}14{}123456", 12},
  };
  for (const auto& row : rows) {
    LinkFixture t(sckUDPProtocol);
    t.form().NewStringaPassWord = "654321";
    t.form().AddRichiesta(row.tipo, row.parametro);
    EXPECT_EQ(t.lastMessage(), row.opening) << row.tipo;
    EXPECT_EQ(t.form().TentativiTimeOut, row.retriesUsed) << row.tipo;
  }
}

TEST(ReadRichiesta, ATypeNoOperationServesStaysAtTheHeadAndNothingIsSent) {
  LinkFixture t(sckUDPProtocol);
  t.form().AddRichiesta("03", "");
  t.form().AddRichiesta("02", "");
  EXPECT_TRUE(t.socket().sent.empty());
  EXPECT_EQ(Queue(t.form()), (Strings{"03:", "02:"}));
}

}  // namespace
}  // namespace camrelay::test
