// The conversation with the unit: cutting messages out of the TCP stream, the
// opening and acceptance of each transfer type, the login's answers, the
// end-of-transfer wait; silence, retries and the give-up; the unit's "BS" and
// "OK". Each exchange is played as a script (tests/support/exchange.h).
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "exchange.h"

namespace camrelay::test {
namespace {

using Strings = std::vector<std::string>;
using Ints = std::vector<int>;
constexpr std::size_t kLimit = 4 * 1024 * 1024;

// Queues the requests (a TCP link then connects and serves the first), the
// unit accepting the first when told how; then forgets what was sent and raised.
void Serve(LinkFixture& t, const Strings& tipi, const std::string& parametro = "",
           const std::string& acceptance = "") {
  for (const auto& tipo : tipi) t.form().AddRichiesta(tipo, parametro);
  if (t.socket().protocol() == sckTCPProtocol) t.connect();
  if (!acceptance.empty()) t.unitSends(acceptance);
  t.clearRecords();
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

// Every type the host can ask for, served on an idle UDP link (access code
// "123456"): its opening, the state raised, the reply interval; then what a
// "BS" from the unit does (the state raised, the wait: 0 for none); then the
// firings a silence takes to the give-up (the login and the code changes
// start three short of 15, a media file goes on to 25).
struct Opening {
  const char *tipo, *parametro, *opening;
  int stato, interval, busyRaised, busyWait, firings;
};

TEST(Opening, EachTypeOpensInItsStateMeetsBusyAndGivesUpAtItsLimit) {
  constexpr int kNone = -1;
  const Opening rows[] = {
      {"AA", "", "AA{}0{}00{}123456", kNone, 1000, kNone, 60000, 4},
      {"02", "", "AA{}0{}02{}123456", cRichiestaProg, 1000, cRichiestaOKAndBusy, 60000, 15},
      {"04", "", "AA{}0{}04{}123456", cRichiestaLog, 1000, cRichiestaOKAndBusy, 60000, 15},
      {"04", "03", "AA{}0{}03{}123456", cRichiestaCancellaLog, 1000, cRichiestaOKAndBusy, 60000, 15},
      {"11", "", "AA{}0{}11{}123456", cRichiestaCancellaPrimaLog, 1000, cRichiestaOKAndBusy, 60000, 15},
      {"53", "", "AA{}0{}53{}123456", cRichiestaCamEvents, 1000, cRichiestaOKAndBusy, 60000, 15},
      {"54", "", "AA{}0{}54{}123456", cRichiestaProgCamEvents, 1000, cRichiestaOKAndBusy, 60000, 15},
      {"06", "", "AA{}0{}06{}123456", cRichiestaWave, 1000, cRichiestaOKAndBusy, 0, 15},
      {"56", "a.jpg", "AA{}0{}56{}123456{}a.jpg", cRichiestaMultimedia, 1000, cTrasmissioneOKAndBusy, 60000, 15},
      {"57", "2", "AA{}0{}57{}123456{}2\r\n", cTrasmettiStreamImageReq, 750, kNone, 750, 1},
      {"52", "x", "AA{}2{}52{}123456", cTrasmettiStringaReq, 750, kNone, 750, 15},
      {"50", "x", "AA{}2{}50{}123456", cTrasmettiStringa, 750, cRichiestaOKAndBusy, 750, 15},
      {"08", "2", "AA{}2{}08{}123456", kNone, 750, kNone, 750, 15},
      {"01", "", "AA{}6{}01{}123456", cTrasmettiProg, 1000, cTrasmissioneOKAndBusy, 60000, 15},
      {"55", "", "AA{}2{}55{}123456", cTrasmettiProgCamEvents, 750, cTrasmissioneOKAndBusy, 60000, 15},
      {"07", "", "AA{}2{}07{}123456", cTrasmettiInstallCode, 1000, cTrasmissioneOKAndBusy, 60000, 4},
      {"14", "", "AA{}2{}14{}123456", cTrasmettiUserCode, 1000, cTrasmissioneOKAndBusy, 60000, 4},
      {"05", "", "AA{}1{}05{}123456", cTrasmettiWave, 1000, cTrasmissioneOKAndBusy, 0, 15},
      {"10", "", "AA{}4{}10{}123456", cTrasmettiAggiornamento, 1000, cTrasmissioneOKAndBusy, 0, 15},
  };
  for (const auto& row : rows) {
    const std::string tipo = row.tipo;
    SCOPED_TRACE(tipo + " " + row.parametro);
    const Script opening = {Host([&](link::frmClient& f) {
                              f.OpenDB();
                              f.NewStringaPassWord = "654321";
                              const auto update = std::filesystem::path(f.CurrDir()) / "update.bin";
                              WriteFileBytes(update, std::string(3073, 'Z'));
                              f.AddRichiesta(tipo, tipo == "10" ? update.string() : row.parametro);
                            }),
                            Sends(row.opening)};
    LinkFixture t(sckUDPProtocol);
    Play(t, opening);
    EXPECT_EQ(t.states, row.stato == kNone ? Ints{} : Ints{row.stato});
    EXPECT_EQ(t.timer().interval(), row.interval);
    t.clearRecords();
    t.unitSends("BS");
    EXPECT_EQ(t.states, row.busyRaised == kNone ? Ints{} : Ints{row.busyRaised});
    EXPECT_EQ(t.timer().enabled() ? t.timer().interval() : 0, row.busyWait);
    Script silent = opening;
    silent.push_back(Says("AA{}0{}00"));
    EXPECT_EQ(CheckSilence(sckUDPProtocol, silent), Ints{row.firings});
  }
}

// On TCP "BS" is echoed with the type in hand, and the intervals are the
// transport's minute.
TEST(Opening, OnTcpBusyIsEchoed) {
  LinkFixture t(sckTCPProtocol);
  Play(t, {Asks("02"), Sends("AA{}0{}02{}123456"), Says("BS"), Sends("BS{}00"), Says("AA{}1{}02"),
           Sends("OK{}02"), Says("BS"), Sends("BS{}02")});
  EXPECT_EQ(t.timer().interval(), 60000);
}

// The unit's acceptance of each download, after a "BS" stretched the wait:
// the "OK" that asks for the packets, the long interval again, and the
// packets that complete it on UDP.
TEST(Acceptance, EachDownloadAsksForItsPacketsAndCompletesOnItsLast) {
  const struct {
    const char *tipo, *ask;
    int completed;
  } rows[] = {
      {"04", "04", cRicezioneLogOK},       {"03", "04", cRicezioneLogOK}, {"53", "53", cRicezioneCamEventsOK},
      {"54", "54", cRicezioneProgCamEventsOK}, {"11", "11", -1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.tipo);
    LinkFixture t(sckUDPProtocol);
    Play(t, {Asks(row.ask), Sends(std::string("AA{}0{}") + row.ask + "{}123456"), Says("BS"),
             Says(std::string("AA{}2{}") + row.tipo), Sends(std::string("OK{}") + row.tipo)});
    EXPECT_EQ(t.timer().interval(), 1000);
    t.clearRecords();
    Play(t, {Says(Packet(1, "a")), Sends("OK"), Says(Packet(2, "b")), Sends("OK"), Says(Packet(2, "b")), Sends("OK")});
    EXPECT_EQ(t.states, row.completed < 0 ? Ints{} : Ints{row.completed});
    EXPECT_EQ(t.form().QueueLength(), 0);
  }
}

// A string from the unit, a preview image and a stream image: the
// acceptance is their packet 0, and the short interval holds throughout.
TEST(Acceptance, AnswersThatAreTheirOwnFirstPacketWaitBriefly) {
  LinkFixture t(sckUDPProtocol);
  Play(t, {Asks("52", "x"), Sends("AA{}2{}52{}123456"), Says("BS"), Says("AA{}2{}51"), Sends("OK{}51"),
           Says("{}ab\r\n"), Sends("OK")});
  EXPECT_EQ(t.timer().interval(), 750);
  t.clearRecords();
  t.unitSends("BS");
  EXPECT_EQ(t.states, Ints{cTrasmissioneOKAndBusy});
  EXPECT_EQ(t.timer().interval(), 750);
  Play(t, {Says("{}"), Sends("OK")});
  EXPECT_EQ(t.form().StringaRicevuta, "ab");
  EXPECT_EQ(t.raised(cRicezioneStringaOK), 1);
  // With no packet to follow, the acceptance completes the string at once.
  Serve(t, {"52", "53"});
  t.unitSends("AA{}0{}51");
  EXPECT_EQ(t.states, (Ints{cConnessioneOK, cRicezioneStringaOK, cRichiestaCamEvents}));
  EXPECT_EQ(t.messages(), Strings{"AA{}0{}53{}123456"});

  LinkFixture preview(sckUDPProtocol);
  const Script image = {Asks("08", "1"), Sends("AA{}2{}08{}123456"), Says("AA{}2{}08"), Sends("{}1\r\n"),
                        Says("BS"), Says("AA{}1{}09{}3"), Sends("OK{}09"), Says("{}1{}3{}abc"), Sends("OK")};
  Play(preview, image);
  EXPECT_EQ(preview.form().ImagePreview, "abc");
  EXPECT_EQ(CheckSilence(sckUDPProtocol, image), (Ints{15, 15, 15, 25}));
}

// An answer of an unknown type answers the login too: the login leaves the
// queue and the next request is served in its own state. Once a scrambled code
// is accepted, a refusal is final: the type is forgotten, and a host that looks
// during the event sees the refusal as the state in force. A scrambled code
// refused before that is sent once more as typed.
TEST(Login, TheAnswerEndsTheLoginAndOnlyAScrambledCodeNeverAcceptedIsRetried) {
  LinkFixture t(sckUDPProtocol);
  t.form().PwdCrypted = true;
  Serve(t, {"AA", "02"});
  t.unitSends("AA{}0{}99{}3");
  EXPECT_EQ(t.form().RemotePasswordType, 3);
  EXPECT_EQ(t.messages().back().substr(0, 11), "AA{}0{}02{}");
  int stateInEvent = cNoOperation;
  t.form().CambioStatoConnessione = [&](StatoConnessioneEnum s) {
    t.states.push_back(s);
    if (s == cConnessioneRifiutata) stateInEvent = t.form().Stato;
  };
  t.unitSends("PW");
  EXPECT_TRUE(t.form().PwdCrypted);
  EXPECT_EQ(t.states, (Ints{cConnessioneOK, cRichiestaProg, cConnessioneRifiutata}));
  EXPECT_EQ(stateInEvent, cConnessioneRifiutata);
  EXPECT_EQ(t.form().RemotePasswordType, 0);
  EXPECT_EQ(t.form().QueueLength(), 0);

  LinkFixture typed(sckUDPProtocol);
  typed.form().PwdCrypted = true;
  Serve(typed, {"AA"});
  Play(typed, {Says("PW"), Sends("AA{}0{}00{}123456"), Says("PW")});
  EXPECT_EQ(typed.states, Ints{cConnessioneRifiutata});
  EXPECT_EQ(typed.form().StringaErroreConnessione, "Password di accesso errata!");
  EXPECT_EQ(typed.form().QueueLength(), 0);
}

// A download of the programming, accepted, whose reply timer has fired: the
// link now takes only the unit's "13" of that transfer.
const Script kAwaitingEnd = {Asks("02"), Sends("AA{}0{}02{}123456"), Says("AA{}2{}02"), Sends("OK{}02"),
                             Fires(), Sends("13{}02{}0{}")};

TEST(EndOfTransfer, OnlyAMatchingThirteenEndsTheWait) {
  LinkFixture t(sckUDPProtocol);
  Play(t, kAwaitingEnd);
  t.clearRecords();
  for (const char* m : {"OK", "{}1{}3\r\nabc", "BS", "13{}02{}5{}BS", "13{}04{}0{}BS"}) t.unitSends(m);
  EXPECT_TRUE(t.socket().sent.empty());
  EXPECT_TRUE(t.states.empty());
  EXPECT_TRUE(t.timer().enabled());
  t.unitSends("13{}02{}0{}BS");  // the wait is over: the rest of the message is handled
  EXPECT_EQ(t.states, Ints{cRichiestaOKAndBusy});
  for (const char* m : {"13{}00{}7{}", "13{}02{}0{}"}) {  // type zero, or nothing after: start again
    LinkFixture again(sckUDPProtocol);
    Play(again, kAwaitingEnd);
    Play(again, {Says(m), Sends("AA{}0{}02{}123456")});
  }
}

// The probes: not accepted yet, a download names no transfer and a login
// asks for the unit's last answer again; accepted, a download counts what it
// holds; an upload sends its last packet again, numbered.
TEST(Retries, TheProbeSaysHowFarTheTransferGot) {
  for (int protocol : {sckTCPProtocol, sckUDPProtocol}) {
    LinkFixture t(protocol);
    Play(t, {Asks("04"), Sends("AA{}0{}04{}123456"), Fires(), Sends("13{}00{}0{}"), Says("13{}00{}0{}"),
             Sends("AA{}0{}04{}123456"), Says("AA{}2{}04"), Sends("OK{}04"), Says(Packet(1, "a")), Sends("OK"),
             Fires(), Sends("13{}04{}0{}")});
    EXPECT_EQ(t.raised(cTimeOutConnessione), 2);
    LinkFixture login(protocol);
    Play(login, {Asks("AA"), Sends("AA{}0{}00{}123456"), Fires(), Sends("12")});
    EXPECT_EQ(login.states, Ints{cTimeOutConnessione});
    EXPECT_EQ(CheckSilence(protocol, {Asks("AA"), Sends("AA{}0{}00{}123456"), Says("x")}), Ints{4});
  }
  LinkFixture upload(sckTCPProtocol);
  Play(upload, {Host([](link::frmClient& f) { f.NewStringaPassWord = "NEW"; }), Asks("07"),
                Sends("AA{}2{}07{}123456"), Says("AA{}2{}07"), Sends("{}NEW\r\n"), Fires(),
                Sends("13{}07{}1{}{}NEW\r\n"), Says("13{}07{}1{}OK"), Sends("{}"), Says("OK"), Says("OK")});
  EXPECT_EQ(upload.states.back(), cTrasmissioneOK);
  EXPECT_EQ(upload.raised(cTrasmissioneOK), 1) << "a repeated final acknowledgement changes nothing";
  EXPECT_EQ(upload.form().sStringaPassword, "NEW");
  EXPECT_EQ(upload.form().QueueLength(), 0);
  // An acceptance repeated once every packet is out is no acknowledgement.
  // The next upload's opening, unanswered, is the last packet sent: it goes
  // again as packet 0 of the transfer in hand.
  Play(upload, {Host([](link::frmClient& f) { f.NewStringaPassWord = "NUOVO"; }), Asks("14"),
                Sends("AA{}2{}14{}NEW"), Says("AA{}2{}14"), Sends("{}NUOVO\r\n"), Says("OK"), Sends("{}"),
                Says("AA{}2{}14")});
  EXPECT_EQ(upload.raised(cTrasmissioneOK), 1);
  Play(upload, {Says("OK"), Asks("07"), Sends("AA{}2{}07{}NUOVO"), Fires(), Sends("13{}14{}0{}AA{}2{}07{}NUOVO")});
  EXPECT_EQ(upload.raised(cTrasmissioneOK), 2);
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
  EXPECT_EQ(restarted.raised(cErroreConnessione), 1);

  LinkFixture login(sckUDPProtocol);
  login.form().Timing.retries = 40;
  login.form().WskProtocol(sckUDPProtocol);
  Play(login, {Asks("56", "a.avi"), Sends("AA{}0{}56{}123456{}a.avi"), Says("AA{}2{}56"), Sends("OK{}56"),
               Says("{}x"), Sends("OK"), Says("{}"), Sends("OK"), Asks("AA"), Sends("AA{}0{}00{}123456")});
  int loginFires = 0;
  while (loginFires < 100 && login.form().QueueLength() > 0 && login.timer().fire()) ++loginFires;
  EXPECT_EQ(loginFires, 4);
}

}  // namespace
}  // namespace camrelay::test
