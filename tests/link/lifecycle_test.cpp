// The link's set-up, socket handlers and status display, on the fake socket.
#include <gtest/gtest.h>

#include <regex>
#include <tuple>

#include "exchange.h"

using namespace camrelay;
using namespace camrelay::test;

// Each transport brings its retry limit and intervals unless the host set
// its own. A TCP link connects only when a request is served; a UDP one binds
// at once, and a protocol that is neither leaves its socket alone.
TEST(Lifecycle, EachTransportSetsItsLimitsUnlessTheHostSetItsOwn) {
  auto limits = [](const link::frmClient& f) {
    return std::tuple(f.TentativiTimeOutMax, f.TimeOutLungo, f.TimeOutBreve);
  };
  LinkFixture tcp(0);
  EXPECT_EQ(limits(tcp.form()), std::tuple(10, 60000, 60000));
  EXPECT_EQ(tcp.socket().state(), link::sckClosed);

  LinkFixture udp(1);
  auto& u = udp.form();
  EXPECT_EQ(limits(u), std::tuple(15, 1000, 750));
  u.Timing = {300, 200, 4};
  u.WskProtocol(1);
  EXPECT_EQ(limits(u), std::tuple(4, 300, 200));
  u.WskProtocol(sckProtocolError);
  EXPECT_EQ(u.Panel.LblTypeCon, "Tipo di connessione: ERRORE");
  EXPECT_EQ(udp.socket().state(), link::sckOpen);
  u.Timing = {0, 0, 0};
  u.WskProtocol(0);
  EXPECT_EQ(limits(u), std::tuple(10, 60000, 60000));
}

// The panel shows what was sent and where to. The unit closing the connection
// drops the queue and the start of a frame it cut short: the next connection
// begins with a clean stream.
TEST(Lifecycle, TheUnitClosingTheConnectionDropsTheQueueAndAnyFrameCutShort) {
  LinkFixture f(0);
  f.form().ShowCamRelay = true;
  Play(f, {Asks("02"), Asks("04"), Sends("AA{}0{}02{}123456")});
  EXPECT_NE(f.form().Panel.txtTxData.find(" - " + Frame("AA{}0{}02{}123456")), std::string::npos);
  EXPECT_EQ(f.form().Panel.LblStato, "Stato corrente: " + std::to_string(cRichiestaProg));
  f.clearRecords();
  f.socket().deliver(Frame("AA{}0{}02").substr(0, 9));
  f.socket().peerClose();
  EXPECT_EQ(f.form().QueueLength(), 0);
  EXPECT_FALSE(f.form().TrasmissioneInCorso);
  EXPECT_EQ(f.socket().state(), link::sckClosed);
  EXPECT_TRUE(f.states.empty());
  EXPECT_TRUE(std::regex_search(f.form().Panel.Label3,
                                std::regex("\r\n[0-9]{2}:[0-9]{2}:[0-9]{2}\\.-?[0-9]+ - Connessione chiusa\\.")))
      << f.form().Panel.Label3;
  // Idle again: the next request is served, and the unit's answer taken whole.
  Play(f, {Asks("53"), Sends("AA{}0{}53{}123456"), Says("AA{}0{}53"), Sends("OK{}53")});
}

// A reset or an abort raises its own event and leaves the link idle, the
// request still queued; any other error only reports.
TEST(Lifecycle, ResetAndAbortRaiseTheirEventsAndGoIdleOthersOnlyReport) {
  const struct {
    int number, resets, aborts;
    std::vector<int> states;
    bool idle;
  } rows[] = {{10054, 1, 0, {}, true}, {10053, 0, 1, {}, true}, {10061, 0, 0, {cErroreConnessione}, false}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.number);
    LinkFixture f(0);
    Play(f, {Asks("04"), Sends("AA{}0{}04{}123456")});
    f.clearRecords();
    f.socket().fail(row.number, "Connection is reset by remote side");
    EXPECT_EQ(f.connectionErrors, row.resets);
    EXPECT_EQ(f.timeoutErrors, row.aborts);
    EXPECT_EQ(f.states, row.states);
    EXPECT_EQ(f.form().Stato == cNoOperation, row.idle);
    EXPECT_EQ(f.form().StringaErroreConnessione, "Connection is reset by remote side");
    EXPECT_EQ(f.form().Panel.pct,
              "Stato connessione: Winsock1_Error: " + std::to_string(row.number) + " - Connection is reset by remote side");
    EXPECT_EQ(f.form().Panel.pctColour, 255);
    EXPECT_EQ(f.socket().state(), link::sckClosed);
    EXPECT_EQ(f.form().QueueLength(), 1);
  }
}
