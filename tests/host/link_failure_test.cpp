// How the host layer judges the end of a request: by the state and the
// status view's outcome, never by the library's words. A broken link, which
// the library rebuilds, the give-up that counts packets and the refused code
// are judged end to end by the command line's tests.
#include <gtest/gtest.h>

#include "client_fixture.h"
#include "host/session.h"

using namespace camrelay;

using HostLink = test::ClientOnFakePlatform;

TEST_F(HostLink, AGiveUpBeforeAnyTransferSaysJustThat) {
  std::vector<std::string> failures;
  client.CambioStatoConnessione = [&](StatoConnessioneEnum s) {
    if (auto failure = host::LinkFailure(client, s)) failures.push_back(*failure);
  };
  client.ImpostaTempiRisposta(0, 0, 2);
  client.Connetti("10.0.0.7", 19201, 14400, false, sckUDPProtocol, dir.path().string());
  client.StringaCodiceAccesso("123456");
  client.RichiestaDiConnessione();
  for (int i = 0; i < 10 && platform->timer->enabled(); ++i) platform->timer->fire();
  ASSERT_EQ(failures.size(), 1u);
  EXPECT_TRUE(failures[0].starts_with("no answer from 10.0.0.7:19201 udp after 2 attempts")) << failures[0];
  EXPECT_EQ(failures[0].find("packets"), std::string::npos) << failures[0];
}
