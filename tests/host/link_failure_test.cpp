// How the host layer judges the end of a request: by the state and the
// status view's outcome, never by the library's words.
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

  void GiveUp() {
    for (int i = 0; i < 10 && platform->timer->enabled(); ++i) platform->timer->fire();
  }
};

std::string Packet(int index, const std::string& body) {
  return "{}" + std::to_string(index) + "{}" + std::to_string(body.size()) + "\r\n" + body;
}

}  // namespace

TEST_F(HostLink, AGiveUpNamesTheUnitTheAttemptsAndHowFarTheTransferGot) {
  client.ScaricaLog();
  platform->socket->deliver("AA{}3{}04");
  platform->socket->deliver(Packet(2, "x\r\n"));
  GiveUp();
  EXPECT_EQ(Failure(), "no answer from 10.0.0.7:19201 udp after 2 attempts, 1 of 3 packets received; nothing "
                       "stored (Raggiunto il numero massimo di tentativi.)");
}

TEST_F(HostLink, AGiveUpBeforeAnyTransferSaysJustThat) {
  client.RichiestaDiConnessione();
  GiveUp();
  ASSERT_TRUE(Failure());
  EXPECT_TRUE(Failure()->starts_with("no answer from 10.0.0.7:19201 udp after ")) << *Failure();
  EXPECT_EQ(Failure()->find("packets"), std::string::npos) << *Failure();
}

TEST_F(HostLink, ARefusedCodeIsAFailureAndABrokenLinkIsNot) {
  client.RichiestaDiConnessione();
  platform->socket->deliver("PW");
  platform->socket->deliver("PW");
  EXPECT_EQ(Failure(), "the unit refused the access code (Password di accesso errata!)");

  failures.clear();
  // The library rebuilds a broken link and serves the request again: the
  // watchdogs judge that, not this.
  client.Connetti("10.0.0.7", 19201, 0, false, sckTCPProtocol, dir.path().string());
  client.ScaricaLog();
  platform->socket->acceptConnect();
  platform->socket->fail(10054, "reset");
  EXPECT_FALSE(failures.empty()) << "the error was raised";
  EXPECT_EQ(client.Status().lastOutcome, RequestOutcome::LinkError);
  EXPECT_FALSE(Failure());
}
