// The unit's acceptance of each transfer type, the end-of-transfer wait, and
// the routing of the other codes.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "link/codes.h"
#include "link_fixture.h"

namespace camrelay::test {
namespace {

using Strings = std::vector<std::string>;

bool QuickUpload(std::string_view t) { return t == "50" || t == "52" || t == "08" || t == "57"; }
bool QuickDownload(std::string_view t) { return t == "09" || t == "51" || t == "58"; }
bool AcceptanceIsPacketZero(std::string_view t) { return t == "09" || t == "51" || t == "58"; }

TEST(Acceptance, OfAnUploadSendsTheFirstPacketAfterTheOpening) {
  for (const auto& row : link::kTipiInOrdine) {
    if (!row.upload) continue;
    SCOPED_TRACE(std::string(row.tipo));
    LinkFixture t(sckUDPProtocol);
    auto& f = t.form();
    f.StringaPar = {"opening", "first", "second"};
    f.StringaInviata = 1;
    t.unitSends("AA{}2{}" + std::string(row.tipo));
    EXPECT_EQ(f.Stato, row.stato);
    EXPECT_EQ(f.sTipoArrivo, row.tipo);
    EXPECT_EQ(t.states, std::vector<int>{cConnessioneOK});
    EXPECT_EQ(t.messages(), Strings{"first"});
    EXPECT_EQ(f.StringaInviata, 2);
    EXPECT_EQ(t.timer().interval(), QuickUpload(row.tipo) ? 750 : 1000);
  }
}

TEST(Acceptance, OfADownloadSizesTheArrayAndAsksForThePackets) {
  for (const auto& row : link::kTipiInOrdine) {
    if (row.upload) continue;
    SCOPED_TRACE(std::string(row.tipo));
    LinkFixture t(sckUDPProtocol);
    auto& f = t.form();
    f.ProgressoMultimedia = 40;
    const std::string acceptance = "AA{}3{}" + std::string(row.tipo) + "{}S{}x";
    t.unitSends(acceptance);
    EXPECT_EQ(f.Stato, row.stato);
    EXPECT_EQ(t.messages(), Strings{"OK{}" + std::string(row.tipo)});
    ASSERT_EQ(f.StringaPar.size(), 4u);
    const std::string packetZero = AcceptanceIsPacketZero(row.tipo) ? acceptance : row.tipo == "06" ? "S{}x" : "";
    EXPECT_EQ(f.StringaPar[0], packetZero);
    const bool counted = AcceptanceIsPacketZero(row.tipo) || row.tipo == "06" || row.tipo == "56";
    EXPECT_EQ(f.nPacchetti, counted ? 1 : 0);
    EXPECT_EQ(t.timer().interval(), QuickDownload(row.tipo) ? 750 : 1000);
    if (row.tipo == "56") {
      EXPECT_EQ(f.ProgressoMultimedia, 0);
    }
  }
}

TEST(Acceptance, OfAStringWithNoPacketsCompletesAtOnce) {
  LinkFixture t(sckUDPProtocol);
  auto& f = t.form();
  f.AddRichiesta("52", "ask");
  f.AddRichiesta("53", "");
  t.clearRecords();
  t.unitSends("AA{}0{}51");
  EXPECT_EQ(t.states, (std::vector<int>{cConnessioneOK, cRicezioneStringaOK, cRichiestaCamEvents}));
  EXPECT_EQ(f.StringaRicevuta, "");
  EXPECT_EQ(t.messages(), Strings{"AA{}0{}53{}123456"});
  EXPECT_EQ(f.QueueLength(), 1);
}

TEST(Acceptance, OfAnUnknownTypeIsTakenAsTheLoginAnswer) {
  LinkFixture t(sckUDPProtocol);
  auto& f = t.form();
  f.AddRichiesta("AA", "");
  t.unitSends("AA{}0{}99{}2");
  EXPECT_EQ(f.sTipoArrivo, "00");
  EXPECT_EQ(f.RemotePasswordType, 2);
  EXPECT_EQ(f.Stato, cNoOperation);
  EXPECT_EQ(f.QueueLength(), 0);
}

TEST(Acceptance, AnnouncingAnAbsurdCountIsNotBelieved) {
  LinkFixture t(sckUDPProtocol);
  auto& f = t.form();
  f.AddRichiesta("02", "");
  t.clearRecords();
  t.unitSends("AA{}999999999999{}02");
  EXPECT_TRUE(t.debugContains("Winsock_Cisei: 999999999999 packets announced"));
  EXPECT_LE(f.StringaPar.size(), 1u);
  EXPECT_TRUE(t.socket().sent.empty());
  EXPECT_TRUE(t.timer().enabled());  // the unit is asked again when it fires
}

// A download of the programming, accepted, whose reply timer has fired: the
// link now takes only the unit's "13".
class AwaitingEnd : public LinkFixture {
 public:
  AwaitingEnd() : LinkFixture(sckUDPProtocol) {
    form().AddRichiesta("02", "");
    unitSends("AA{}2{}02");
    timer().fire();
    clearRecords();
    timer().setInterval(4321);
  }
};

TEST(EndOfTransfer, WhileAwaitedEverythingButAMatchingThirteenIsDropped) {
  AwaitingEnd t;
  for (const char* m : {"OK", "{}1{}3\r\nabc", "BS", "13{}02{}5{}BS", "13{}04{}0{}BS"}) {
    t.unitSends(m);
    EXPECT_TRUE(t.form().bAttesaFine) << m;
  }
  EXPECT_TRUE(t.socket().sent.empty());
  EXPECT_TRUE(t.states.empty());
  EXPECT_EQ(t.timer().interval(), 4321);
  EXPECT_TRUE(t.timer().enabled());
}

TEST(EndOfTransfer, AMatchingThirteenLetsTheRestOfItsMessageThrough) {
  AwaitingEnd t;
  t.unitSends("13{}02{}0{}BS");
  EXPECT_FALSE(t.form().bAttesaFine);
  EXPECT_EQ(t.states, std::vector<int>{cRichiestaOKAndBusy});
}

TEST(EndOfTransfer, TypeZeroOrABareMatchStartsTheRequestAgain) {
  for (const char* m : {"13{}00{}7{}", "13{}02{}0{}"}) {
    AwaitingEnd t;
    t.unitSends(m);
    EXPECT_FALSE(t.form().bAttesaFine) << m;
    EXPECT_EQ(t.messages(), Strings{"AA{}0{}02{}123456"}) << m;
    EXPECT_EQ(t.form().TentativiTimeOut, 1) << m;
  }
}

TEST(Routing, DataPacketsSetTheIntervalByTransferAndOtherCodesEndTheEvent) {
  LinkFixture t(sckUDPProtocol);
  auto& f = t.form();
  for (const char* tipo : {"09", "50", "51", "57", "02", "56"}) {
    f.sTipoArrivo = tipo;
    t.unitSends("{}1{}1\r\nx");
    EXPECT_EQ(t.timer().interval(), QuickUpload(tipo) || QuickDownload(tipo) ? 750 : 1000) << tipo;
  }
  t.clearRecords();
  t.timer().setEnabled(false);
  t.unitSends("13{}02{}0{}");  // not awaited: ignored
  EXPECT_FALSE(t.timer().enabled());
  t.unitSends("ZZ");
  EXPECT_TRUE(t.timer().enabled());
  EXPECT_TRUE(t.socket().sent.empty());
}

}  // namespace
}  // namespace camrelay::test
