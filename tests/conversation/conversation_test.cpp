// The conversation with the unit: cutting messages out of the TCP stream, the
// acceptance of each transfer type, the login's answers, the end-of-transfer
// wait; silence, retries and the give-up; the unit's "BS" and "OK".
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "link/codes.h"
#include "link_fixture.h"

namespace camrelay::test {
namespace {

using Strings = std::vector<std::string>;
using Ints = std::vector<int>;
constexpr std::size_t kLimit = 4 * 1024 * 1024;

int Count(const Ints& states, int stato) { return static_cast<int>(std::count(states.begin(), states.end(), stato)); }

// Queues the requests (a TCP link then connects and serves the first), the
// unit accepting the first when told how; then forgets what was sent and raised.
void Serve(LinkFixture& t, const Strings& tipi, const std::string& parametro = "",
           const std::string& acceptance = "") {
  for (const auto& tipo : tipi) t.form().AddRichiesta(tipo, parametro);
  if (t.socket().protocol() == sckTCPProtocol) t.connect();
  if (!acceptance.empty()) t.unitSends(acceptance);
  t.clearRecords();
}

// Fires the reply timer for as long as a request of this type is at the head.
int FireWhileServing(LinkFixture& t, const std::string& tipo) {
  int fires = 0;
  while (fires < 100 && t.form().QueueLength() > 0 && t.form().Richieste[1].Tipo == tipo && t.timer().fire()) ++fires;
  return fires;
}

// Garbage, with the start of a marker in it, then the login answer and the
// download's acceptance: in one read, or in two split anywhere.
TEST(TcpFrames, FramesAreHandledInOrderHoweverTheStreamIsCut) {
  const std::string stream = "xLN{LN" + Frame("AA{}0{}00{}1") + Frame("AA{}2{}02");
  for (std::size_t cut = 0; cut < stream.size(); ++cut) {
    SCOPED_TRACE(cut);
    LinkFixture t(sckTCPProtocol);
    Serve(t, {"AA", "02"});
    t.socket().deliver(stream.substr(0, cut));
    t.socket().deliver(stream.substr(cut));
    EXPECT_EQ(t.messages(), (Strings{"AA{}0{}02{}123456", "OK{}02"}));
    EXPECT_TRUE(t.form().sBufferRicezione.empty());
  }
}

// A length that is no number gives an empty message, which like any message
// of no known code ends the event, the reply timer on; a length above the
// limit has its header skipped; a header that never ends is dropped; a frame
// of exactly the limit goes through in pieces, the timer restarted while it
// is incomplete.
TEST(TcpFrames, BadLengthsAreSkippedAndNothingPastTheLimitIsHeld) {
  LinkFixture t(sckTCPProtocol);
  Serve(t, {"AA"});
  t.timer().setEnabled(false);
  t.socket().deliver("LN{}xy{}" + Frame("BS"));
  EXPECT_TRUE(t.timer().enabled());
  EXPECT_TRUE(t.socket().sent.empty());
  t.socket().deliver("LN{}" + std::to_string(kLimit + 1) + "{}BS" + Frame("BS"));
  EXPECT_EQ(t.messages(), Strings(2, "BS{}00"));
  EXPECT_TRUE(t.debugContains("frame of 4194305 bytes"));

  t.clearRecords();
  t.socket().deliver("LN{}" + std::string(kLimit - 4, '7'));
  EXPECT_TRUE(t.debug.empty());
  t.socket().deliver("77");
  EXPECT_TRUE(t.debugContains("without a complete frame header"));
  EXPECT_TRUE(t.form().sBufferRicezione.empty());

  t.clearRecords();
  const std::string big = Frame("BS" + std::string(kLimit - 2, 'x'));
  for (std::size_t at = 0; at < big.size(); at += big.size() / 4 + 1) {
    t.timer().setEnabled(false);
    t.socket().deliver(big.substr(at, big.size() / 4 + 1));
    EXPECT_TRUE(t.timer().enabled());
  }
  EXPECT_EQ(t.messages(), Strings{"BS{}00"});
}

TEST(TcpFrames, AFrameCutShortByTheUnitClosingIsForgottenOnReconnect) {
  LinkFixture t(sckTCPProtocol);
  Serve(t, {"AA"});
  t.socket().deliver(Frame("AA{}0{}00{}1").substr(0, 9));
  t.socket().peerClose();
  Serve(t, {"AA"});  // the closing emptied the queue
  t.unitSends("AA{}0{}00{}2");
  EXPECT_EQ(t.form().RemotePasswordType, 2);
  EXPECT_EQ(t.form().QueueLength(), 0);
}

// Every row of the type table: an upload sends its next packet, a download
// sizes its array and asks for the packets; then a data packet of the type.
TEST(Acceptance, EachTypeEntersItsStateAndStartsItsTransfer) {
  for (const auto& row : link::kTransferTypes) {
    if (row.direction == link::Direction::Neither) continue;
    const std::string tipo(row.tipo);
    SCOPED_TRACE(tipo);
    LinkFixture t(sckUDPProtocol);
    auto& f = t.form();
    f.StringaPar = {"opening", "first", "second"};
    f.StringaInviata = 1;
    f.ProgressoMultimedia = 40;
    const std::string acceptance = "AA{}3{}" + tipo + "{}S{}x";
    t.unitSends(acceptance);
    EXPECT_EQ(f.Stato, row.accepted);
    EXPECT_EQ(t.states, Ints{cConnessioneOK});
    const bool packetZero = tipo == "09" || tipo == "51" || tipo == "58";  // the acceptance itself
    const bool briefly = packetZero || tipo == "50" || tipo == "52" || tipo == "08" || tipo == "57";
    EXPECT_EQ(t.timer().interval(), briefly ? 750 : 1000);
    if (row.direction == link::Direction::Upload) {
      EXPECT_EQ(t.messages(), Strings{"first"});
    } else {
      EXPECT_EQ(t.messages(), Strings{"OK{}" + tipo});
      ASSERT_EQ(f.StringaPar.size(), 4u);
      EXPECT_EQ(f.StringaPar[0], packetZero ? acceptance : tipo == "06" ? "S{}x" : "");
      EXPECT_EQ(f.nPacchetti, packetZero || tipo == "06" || tipo == "56" ? 1 : 0);
      EXPECT_EQ(f.ProgressoMultimedia, tipo == "56" ? 0 : 40);
    }
    t.unitSends("{}1{}1\r\nx");
    EXPECT_EQ(t.timer().interval(), tipo == "09" || tipo == "50" || tipo == "51" || tipo == "57" ? 750 : 1000);
  }
}

TEST(Acceptance, OfAStringWithNoPacketsCompletesAtOnce) {
  LinkFixture t(sckUDPProtocol);
  Serve(t, {"52", "53"});
  t.unitSends("AA{}0{}51");
  EXPECT_EQ(t.states, (Ints{cConnessioneOK, cRicezioneStringaOK, cRichiestaCamEvents}));
  EXPECT_EQ(t.messages(), Strings{"AA{}0{}53{}123456"});
}

// A count the link could never hold is not believed: nothing is allocated for
// it, and the reply timer stays armed so that the retries take over.
TEST(Acceptance, AnAbsurdPacketCountIsIgnored) {
  LinkFixture t(sckUDPProtocol);
  Serve(t, {"04"});
  t.unitSends("AA{}4000000000{}04");
  EXPECT_LE(t.form().StringaPar.size(), 1u);
  EXPECT_TRUE(t.timer().enabled());
  EXPECT_TRUE(t.debugContains("packets announced"));
}

// An answer of an unknown type answers the login too: the login leaves the
// queue and the next request is served in its own state. Once a scrambled code
// is accepted, a refusal is final.
TEST(Login, TheAnswerEndsTheLoginAndARefusalAfterItIsFinal) {
  LinkFixture t(sckUDPProtocol);
  auto& f = t.form();
  f.PwdCrypted = true;
  Serve(t, {"AA", "02"});
  t.unitSends("AA{}0{}99{}1");
  EXPECT_EQ(f.RemotePasswordType, 1);
  EXPECT_EQ(t.lastMessage().substr(0, 11), "AA{}0{}02{}");
  EXPECT_EQ(f.Stato, cRichiestaProg);
  t.unitSends("PW");
  EXPECT_TRUE(f.PwdCrypted);
  EXPECT_EQ(Count(t.states, cConnessioneRifiutata), 1);
  EXPECT_EQ(f.RemotePasswordType, 0);
  EXPECT_EQ(f.QueueLength(), 0);
}

TEST(Login, AScrambledCodeRefusedIsSentAsTypedAndASecondRefusalIsFinal) {
  LinkFixture t(sckUDPProtocol);
  t.form().PwdCrypted = true;
  Serve(t, {"AA"});
  t.unitSends("PW");
  EXPECT_EQ(t.messages(), Strings{"AA{}0{}00{}123456"});
  t.unitSends("PW");
  EXPECT_EQ(Count(t.states, cConnessioneRifiutata), 1);
  EXPECT_EQ(t.form().StringaErroreConnessione, "Password di accesso errata!");
  EXPECT_EQ(t.form().QueueLength(), 0);
}

// A download of the programming, accepted, whose reply timer has fired: the
// link now takes only the unit's "13" of that transfer.
struct AwaitingEnd : LinkFixture {
  AwaitingEnd() : LinkFixture(sckUDPProtocol) {
    Serve(*this, {"02"}, "", "AA{}2{}02");
    timer().fire();
    clearRecords();
  }
};

TEST(EndOfTransfer, OnlyAMatchingThirteenEndsTheWait) {
  AwaitingEnd t;
  for (const char* m : {"OK", "{}1{}3\r\nabc", "BS", "13{}02{}5{}BS", "13{}04{}0{}BS"}) t.unitSends(m);
  EXPECT_TRUE(t.socket().sent.empty());
  EXPECT_TRUE(t.states.empty());
  EXPECT_TRUE(t.timer().enabled());
  t.unitSends("13{}02{}0{}BS");  // the wait is over: the rest of the message is handled
  EXPECT_EQ(t.states, Ints{cRichiestaOKAndBusy});
  for (const char* m : {"13{}00{}7{}", "13{}02{}0{}"}) {  // type zero, or nothing after: start again
    AwaitingEnd again;
    again.unitSends(m);
    EXPECT_EQ(again.messages(), Strings{"AA{}0{}02{}123456"}) << m;
  }
}

// The resends, then the give-up and the next request served. Not accepted
// yet, the probe names no transfer; the login asks for a repeat three times; a
// media file goes on well past the UDP limit of 15.
TEST(Retries, EachRequestIsTriedUpToItsLimitThenGivenUp) {
  const struct {
    int protocol;
    const char *tipo, *parametro, *acceptance, *probe;
    int attempts;
  } rows[] = {
      {sckTCPProtocol, "02", "", "", "13{}00{}0{}", 10}, {sckUDPProtocol, "02", "", "", "13{}00{}0{}", 15},
      {sckTCPProtocol, "AA", "", "", "12", 4},           {sckUDPProtocol, "AA", "", "", "12", 4},
      {sckUDPProtocol, "56", "clip.avi", "AA{}3{}56", "13{}56{}1{}", 25},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.tipo) + " on " + std::to_string(row.protocol));
    LinkFixture t(row.protocol);
    Serve(t, {row.tipo, "53"}, row.parametro, row.acceptance);
    EXPECT_EQ(FireWhileServing(t, row.tipo), row.attempts);
    Strings expected(row.attempts - 1, row.probe);
    expected.push_back("AA{}0{}53{}123456");
    EXPECT_EQ(t.messages(), expected);
    EXPECT_EQ(Count(t.states, cTimeOutConnessione), row.attempts - 1);
    EXPECT_EQ(Count(t.states, cErroreConnessione), 1);
    EXPECT_EQ(t.form().StringaErroreConnessione, "Raggiunto il numero massimo di tentativi.");
  }
  LinkFixture preview(sckUDPProtocol);  // a lost preview image is given up silently
  Serve(preview, {"08"}, "1", "AA{}2{}09{}100");
  EXPECT_EQ(FireWhileServing(preview, "08"), 25);
  EXPECT_EQ(Count(preview.states, cErroreConnessione), 0);
}

// No unit behaviour and no retry limit keeps a request for ever: a unit that
// answers every probe with "start again" still brings the give-up, each
// restart counting as an attempt; and a login that follows a media transfer
// (whose type it still carries) stops at a limit above the media one.
TEST(Retries, EveryRequestEnds) {
  LinkFixture restarted(sckUDPProtocol);
  Serve(restarted, {"02"});
  int fires = 0;
  while (fires < 100 && restarted.form().QueueLength() > 0 && restarted.timer().fire()) {
    ++fires;
    if (restarted.form().QueueLength() > 0) restarted.unitSends("13{}00{}0{}");
  }
  EXPECT_EQ(fires, 15);
  EXPECT_EQ(Count(restarted.states, cErroreConnessione), 1);

  LinkFixture login(sckUDPProtocol);
  login.form().TentativiTimeOutMax = 40;
  login.form().sTipoArrivo = "56";
  Serve(login, {"AA"});
  EXPECT_EQ(FireWhileServing(login, "AA"), 4);
  EXPECT_EQ(Count(login.states, cErroreConnessione), 1);
}

TEST(Upload, PacedByOkWithASilenceResentAsThirteenAndCarriedOnByItsAnswer) {
  LinkFixture t(sckTCPProtocol);
  t.form().NewStringaPassWord = "NEW";
  Serve(t, {"07"});
  t.unitSends("AA{}2{}07");
  EXPECT_EQ(t.lastMessage(), "{}NEW\r\n");
  t.timer().fire();
  EXPECT_EQ(t.lastMessage(), "13{}07{}1{}{}NEW\r\n");
  t.unitSends("13{}07{}1{}OK");
  EXPECT_EQ(t.lastMessage(), "{}");
  t.unitSends("OK");
  EXPECT_EQ(t.states.back(), cTrasmissioneOK);
  EXPECT_EQ(t.form().sStringaPassword, "NEW");
  EXPECT_EQ(t.form().QueueLength(), 0);
  t.clearRecords();
  t.unitSends("OK");  // a repeated final acknowledgement changes nothing
  EXPECT_TRUE(t.socket().sent.empty());
  EXPECT_TRUE(t.states.empty());
}

// Each state's answer to "BS" (echoed on TCP only): the state it moves to
// (kSame: it stays), what is raised, the wait (0: the timer is off); and
// whether the last "OK" of an upload in that state is reported as one.
TEST(FlowControl, EachStateMeetsBusyAndTheLastOk) {
  constexpr int kNone = -1, kSame = -2;
  const struct {
    Ints states;
    int after, raised, interval;
    bool reported;
  } rows[] = {
      {{cTrasmettiPreviewEnable, cRichiestaPreView}, cRichiestaPreView, kNone, 500, false},
      {{cTrasmettiStringaReq}, cRichiestaStringa, kNone, 500, false},
      {{cTrasmettiStreamImageReq}, cRichiestaStreamImage, kNone, 500, false},
      {{cRicezionePreViewOK}, kSame, cRichiestaOKAndBusy, 60000, false},
      {{cRichiestaProg, cRichiestaLog, cRichiestaCancellaLog, cRichiestaCancellaPrimaLog, cRichiestaCamEvents,
        cRichiestaProgCamEvents}, kSame, cRichiestaOKAndBusy, 60000, true},
      {{cTrasmettiStringa}, kSame, cRichiestaOKAndBusy, 500, false},
      {{cRichiestaWave}, kSame, cRichiestaOKAndBusy, 0, true},
      {{cTrasmettiProg, cTrasmettiProgCamEvents, cTrasmettiInstallCode, cTrasmettiUserCode, cRichiestaMultimedia},
       kSame, cTrasmissioneOKAndBusy, 60000, true},
      {{cRichiestaStringa, cRichiestaStreamImage}, kSame, cTrasmissioneOKAndBusy, 500, true},
      {{cTrasmettiAggiornamento, cTrasmettiWave}, kSame, cTrasmissioneOKAndBusy, 0, true},
      {{cNoOperation}, kSame, kNone, 60000, true},
  };
  for (const auto& row : rows) {
    for (int stato : row.states) {
      for (int protocol : {sckTCPProtocol, sckUDPProtocol}) {
        SCOPED_TRACE(std::to_string(stato) + " on " + std::to_string(protocol));
        LinkFixture t(protocol);
        if (protocol == sckTCPProtocol) t.connect();
        t.form().TimeOutBreve = 500;
        t.form().Stato = stato;
        t.form().sTipoArrivo = "05";
        t.unitSends("BS");
        EXPECT_EQ(t.messages(), protocol == sckTCPProtocol ? Strings{"BS{}05"} : Strings{});
        EXPECT_EQ(t.form().Stato, row.after == kSame ? stato : row.after);
        EXPECT_EQ(t.states, row.raised == kNone ? Ints{} : Ints{row.raised});
        EXPECT_EQ(t.timer().enabled() ? t.timer().interval() : 0, row.interval);
      }
      LinkFixture t(sckUDPProtocol);
      t.form().Stato = stato;
      t.form().StringaPar = {"opening", "last"};
      t.form().StringaInviata = 2;
      t.unitSends("OK");
      EXPECT_EQ(t.states, row.reported ? Ints{cTrasmissioneOK} : Ints{}) << stato;
    }
  }
}

}  // namespace
}  // namespace camrelay::test
