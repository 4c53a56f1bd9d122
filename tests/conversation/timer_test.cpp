// Silence, retries and the give-up; the unit's "BS" and "OK".
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "link_fixture.h"

namespace camrelay::test {
namespace {

using Strings = std::vector<std::string>;

// Fires the reply timer for as long as a request of this type is at the head.
int FireWhileServing(LinkFixture& t, const std::string& tipo) {
  int fires = 0;
  while (fires < 100 && t.form().QueueLength() > 0 && t.form().Richieste[1].Tipo == tipo && t.timer().fire()) ++fires;
  return fires;
}

int Count(const std::vector<int>& states, int stato) { return static_cast<int>(std::count(states.begin(), states.end(), stato)); }

// A link serving one request of the given type, its opening already sent.
class Serving : public LinkFixture {
 public:
  Serving(int protocol, const std::string& tipo, const std::string& parametro = "") : LinkFixture(protocol) {
    form().AddRichiesta(tipo, parametro);
    if (protocol == sckTCPProtocol) connect();
    clearRecords();
  }
};

TEST(Retries, AnOrdinaryRequestIsTriedUpToTheTransportLimitThenGivenUp) {
  for (const auto& [protocol, limit] : {std::pair{sckTCPProtocol, 10}, std::pair{sckUDPProtocol, 15}}) {
    LinkFixture t(protocol);
    t.form().ShowCamRelay = true;
    t.form().AddRichiesta("02", "");
    t.form().AddRichiesta("53", "");
    if (protocol == sckTCPProtocol) t.connect();
    t.clearRecords();
    EXPECT_EQ(FireWhileServing(t, "02"), limit);
    Strings expected(limit - 1, "13{}00{}0{}");  // not accepted yet: the probe names no transfer
    expected.push_back("AA{}0{}53{}123456");        // the next request is served
    EXPECT_EQ(t.messages(), expected);
    EXPECT_EQ(Count(t.states, cTimeOutConnessione), limit - 1);
    EXPECT_EQ(Count(t.states, cErroreConnessione), 1);
    EXPECT_EQ(t.form().StringaErroreConnessione, "Raggiunto il numero massimo di tentativi.");
    EXPECT_EQ(t.form().Panel.pct, "Stato connessione: Non connesso");
  }
}

TEST(Retries, TheLoginAsksForARepeatThreeTimes) {
  for (int protocol : {sckTCPProtocol, sckUDPProtocol}) {
    Serving t(protocol, "AA");
    EXPECT_EQ(FireWhileServing(t, "AA"), 4);
    EXPECT_EQ(t.messages(), Strings(3, "12"));
    EXPECT_EQ(t.states.back(), cErroreConnessione);
  }
}

TEST(Retries, MediaAndPreviewImagesGoOnToTwentyFiveAttempts) {
  Serving media(sckUDPProtocol, "56", "clip.avi");
  media.unitSends("AA{}3{}56");
  media.clearRecords();
  EXPECT_EQ(FireWhileServing(media, "56"), 25);
  EXPECT_EQ(media.messages(), Strings(24, "13{}56{}1{}"));
  EXPECT_EQ(media.states.back(), cErroreConnessione);

  Serving preview(sckUDPProtocol, "08", "1");
  preview.unitSends("AA{}2{}09{}100");
  preview.clearRecords();
  EXPECT_EQ(FireWhileServing(preview, "08"), 25);
  EXPECT_EQ(Count(preview.states, cErroreConnessione), 0);  // given up silently
  EXPECT_EQ(preview.form().StringaErroreConnessione, "");
  EXPECT_EQ(preview.form().Stato, cNoOperation);
}

TEST(Retries, WithTheQueueEmptiedTheLinkJustGoesIdle) {
  LinkFixture t(sckUDPProtocol);
  t.form().Stato = cRichiestaLog;
  t.timer().setEnabled(true);
  t.timer().fire();
  EXPECT_EQ(t.form().Stato, cNoOperation);
  EXPECT_TRUE(t.socket().sent.empty());
}

TEST(Upload, PacedByOkWithASilenceResentAsThirteenAndCarriedOnByItsAnswer) {
  LinkFixture t(sckTCPProtocol);
  auto& f = t.form();
  f.NewStringaPassWord = "NEW";
  f.AddRichiesta("07", "");
  t.connect();
  t.unitSends("AA{}2{}07");
  EXPECT_EQ(t.lastMessage(), "{}NEW\r\n");
  t.timer().fire();
  EXPECT_EQ(t.lastMessage(), "13{}07{}1{}{}NEW\r\n");
  EXPECT_EQ(t.states.back(), cTimeOutConnessione);
  t.unitSends("13{}07{}1{}OK");
  EXPECT_EQ(t.lastMessage(), "{}");
  t.unitSends("OK");
  EXPECT_EQ(t.states.back(), cTrasmissioneOK);
  EXPECT_EQ(f.sStringaPassword, "NEW");
  EXPECT_EQ(f.Stato, cNoOperation);
  EXPECT_EQ(f.QueueLength(), 0);

  const auto sent = t.socket().sent.size();
  const auto raised = t.states.size();
  t.unitSends("OK");  // a repeated final acknowledgement
  EXPECT_EQ(t.socket().sent.size(), sent);
  EXPECT_EQ(t.states.size(), raised);
}

TEST(Upload, ExchangesAnsweredByTheUnitEndWithoutTransmissionOk) {
  for (int stato : {cTrasmettiPreviewEnable, cRichiestaPreView, cRicezionePreViewOK, cTrasmettiStringa,
                    cTrasmettiStringaReq, cTrasmettiStreamImageReq, cTrasmettiProg}) {
    LinkFixture t(sckUDPProtocol);
    auto& f = t.form();
    f.Stato = stato;
    f.AddRichiesta("50", "x");
    f.StringaPar = {"opening", "last"};
    f.StringaInviata = 2;
    t.clearRecords();
    t.unitSends("OK");
    EXPECT_EQ(t.states, stato == cTrasmettiProg ? std::vector<int>{cTrasmissioneOK} : std::vector<int>{}) << stato;
    EXPECT_EQ(f.QueueLength(), 0) << stato;
  }
}

TEST(Busy, EachStateWaitsAsLongAsItShould) {
  constexpr int kNone = -1;
  const struct {
    int before, after, raised, interval;  // interval 0: the timer stays off
  } rows[] = {
      {cTrasmettiPreviewEnable, cRichiestaPreView, kNone, 500},
      {cRichiestaPreView, cRichiestaPreView, kNone, 500},
      {cTrasmettiStringaReq, cRichiestaStringa, kNone, 500},
      {cTrasmettiStreamImageReq, cRichiestaStreamImage, kNone, 500},
      {cRichiestaProg, cRichiestaProg, cRichiestaOKAndBusy, 60000},
      {cTrasmettiStringa, cTrasmettiStringa, cRichiestaOKAndBusy, 500},
      {cRichiestaWave, cRichiestaWave, cRichiestaOKAndBusy, 0},
      {cTrasmettiProg, cTrasmettiProg, cTrasmissioneOKAndBusy, 60000},
      {cTrasmettiAggiornamento, cTrasmettiAggiornamento, cTrasmissioneOKAndBusy, 0},
      {cTrasmettiWave, cTrasmettiWave, cTrasmissioneOKAndBusy, 0},
      {cNoOperation, cNoOperation, kNone, 60000},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.before);
    LinkFixture t(sckTCPProtocol);
    auto& f = t.form();
    t.connect();
    f.TimeOutBreve = 500;
    f.Stato = row.before;
    f.sTipoArrivo = "05";
    t.unitSends("BS");
    EXPECT_EQ(t.messages(), Strings{"BS{}05"});
    EXPECT_EQ(f.Stato, row.after);
    EXPECT_EQ(t.states, row.raised == kNone ? std::vector<int>{} : std::vector<int>{row.raised});
    EXPECT_EQ(t.timer().enabled(), row.interval != 0);
    if (row.interval != 0) {
      EXPECT_EQ(t.timer().interval(), row.interval);
    }
  }
  LinkFixture udp(sckUDPProtocol);
  udp.form().Stato = cRichiestaProg;
  udp.unitSends("BS");
  EXPECT_TRUE(udp.socket().sent.empty());  // no echo on UDP
}

}  // namespace
}  // namespace camrelay::test
