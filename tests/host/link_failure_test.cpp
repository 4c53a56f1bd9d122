// How the host layer judges the end of a request: by the state and the
// status view's outcome, never by the library's words. The give-up that
// counts packets and the refused code are judged end to end by the command
// line's tests.
#include <gtest/gtest.h>

#include "client_fixture.h"
#include "host/session.h"

using namespace camrelay;

namespace {

struct HostLink : test::ClientOnFakePlatform {
  std::vector<std::optional<std::string>> failures;

  HostLink() {
    client.CambioStatoConnessione = [this](StatoConnessioneEnum s) {
      failures.push_back(host::LinkFailure(client, s));
    };
    client.ImpostaTempiRisposta(0, 0, 2);
    client.Connetti("10.0.0.7", 19201, 14400, false, sckUDPProtocol, dir.path().string());
    client.StringaCodiceAccesso("123456");
  }

  std::optional<std::string> Failure() const {
    for (const auto& failure : failures)
      if (failure) return failure;
    return std::nullopt;
  }
};

}  // namespace

TEST_F(HostLink, AGiveUpBeforeAnyTransferSaysJustThat) {
  client.RichiestaDiConnessione();
  for (int i = 0; i < 10 && platform->timer->enabled(); ++i) platform->timer->fire();
  ASSERT_TRUE(Failure());
  EXPECT_TRUE(Failure()->starts_with("no answer from 10.0.0.7:19201 udp after 2 attempts")) << *Failure();
  EXPECT_EQ(Failure()->find("packets"), std::string::npos) << *Failure();
}

// The library rebuilds a broken link and serves the request again: the
// watchdogs judge that, not this.
TEST_F(HostLink, ABrokenLinkIsNotAFailure) {
  client.Connetti("10.0.0.7", 19201, 0, false, sckTCPProtocol, dir.path().string());
  client.ScaricaLog();
  platform->socket->acceptConnect();
  platform->socket->fail(10054, "reset");
  EXPECT_FALSE(failures.empty()) << "the error was raised";
  EXPECT_EQ(client.Status().lastOutcome, RequestOutcome::LinkError);
  EXPECT_FALSE(Failure());
}
