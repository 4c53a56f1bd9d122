// clsClient on the fake platform: settings, guards, the life of the link and
// its rebuild after a link error.
#include <gtest/gtest.h>

#include "client_fixture.h"
#include "link_fixture.h"
#include "link/frmClient.h"

using namespace camrelay;
using camrelay::test::ReadFileBytes;
using camrelay::test::WriteFileBytes;

namespace {

struct ClientFixture : test::ClientOnFakePlatform {
  std::vector<int> states;
  std::vector<std::string> debug;

  ClientFixture() {
    client.CambioStatoConnessione = [this](StatoConnessioneEnum s) { states.push_back(s); };
    client.OnDebug = [this](const std::string& m) { debug.push_back(m); };
  }
  void writeSettings(const std::string& text) {
    std::filesystem::create_directories(home.settingsFile().parent_path());
    WriteFileBytes(home.settingsFile(), "[AppSetting]\n" + text);
  }
  std::string settings() { return ReadFileBytes(home.settingsFile()); }
};

}  // namespace

TEST_F(ClientFixture, FirstRunWritesTheDefaultsArgumentsBecomeTheNextAndABadDelayIsTheDefault) {
  client.Connetti("", 0, 0);
  EXPECT_EQ(settings(),
            "[AppSetting]\nRemoteHost=192.168.0.1\nRemotePort=19201\nLocalPort=14400\nDelayLoadDataFromDB=50\n");
  EXPECT_EQ(platform->socket->remoteHost(), "192.168.0.1");
  EXPECT_EQ(platform->socket->remotePort(), 19201);
  EXPECT_EQ(client.LocalPort(), 14400);
  EXPECT_EQ(client.Protocol(), sckUDPProtocol);  // a host that omits the protocol gets UDP
  EXPECT_TRUE(client.Connesso());                // bound, nothing received: state 1 counts
  EXPECT_TRUE(client.PwdCrypted());
  EXPECT_TRUE(states.empty());

  client.Connetti("10.0.0.7", 2000, 3000, false, sckTCPProtocol);
  client.Connetti("", 0, 0, false, sckTCPProtocol);
  EXPECT_EQ(client.RemoteHost(), "10.0.0.7");
  EXPECT_EQ(client.RemotePort(), 2000);
  EXPECT_NE(settings().find("LocalPort=3000\n"), std::string::npos);
  // A delay the file holds outside its bounds is taken, and written back, as the default.
  writeSettings("DelayLoadDataFromDB=1801\n");
  client.Connetti("h", 1, 1, false, sckTCPProtocol);
  EXPECT_EQ(client.Form()->DelayLoadDataFromDB, 50);
  EXPECT_NE(settings().find("DelayLoadDataFromDB=50\n"), std::string::npos);
}

// Many clients in one process must neither rewrite the shared file per unit
// nor be handed the ports it holds: each keeps what it was given, survives a
// rebuild without the file, and a local port left out is the system's pick.
TEST_F(ClientFixture, WithoutTheSettingsFileNothingIsReadOrWritten) {
  writeSettings("RemoteHost=10.9.9.9\nRemotePort=7\nLocalPort=14400\nDelayLoadDataFromDB=1800\n");
  const std::string before = settings();
  client.UsaFileImpostazioni(false);
  client.Connetti("", 0, 0);
  EXPECT_EQ(platform->socket->remoteHost(), "192.168.0.1");
  EXPECT_EQ(platform->socket->remotePort(), 19201);
  EXPECT_EQ(client.LocalPort(), 50000);  // what the fake system picks for port 0
  EXPECT_EQ(client.Form()->DelayLoadDataFromDB, 50);
  client.Connetti("127.0.0.1", 2000, 0, false, sckTCPProtocol);
  client.Protocol(sckUDPProtocol);  // the rebuild runs Connetti again
  EXPECT_EQ(client.RemotePort(), 2000);
  EXPECT_EQ(settings(), before);
}

// A port a socket cannot take is refused rather than cut to 16 bits, which
// would bind or send somewhere else than the settings then say; a protocol
// that is none is refused too. Each leaves no link and only reports.
TEST_F(ClientFixture, APortASocketCannotTakeOrNoProtocolIsRefusedAndNothingIsSetUp) {
  client.Connetti("h", 1, 1, false, sckProtocolError);
  client.Connetti("127.0.0.1", 65536, 14400);
  client.Connetti("127.0.0.1", 19201, 65536);
  ASSERT_EQ(debug.size(), 3u);
  EXPECT_EQ(debug[0].rfind("Connetti: ", 0), 0u);
  EXPECT_EQ(debug[1], "Connetti: the remote port 65536 is outside 1 to 65535");
  EXPECT_EQ(debug[2], "Connetti: the local port 65536 is outside 0 to 65535");
  EXPECT_EQ(client.Form(), nullptr);
  EXPECT_TRUE(states.empty());
}

TEST_F(ClientFixture, WithoutALinkGettersAreEmptyAndOnlyThePreviewOnesAndMethodsRaise) {
  EXPECT_EQ(client.RemotePort(), 0);
  EXPECT_FALSE(client.Connesso());
  client.StringaCodiceAccesso("ignored");
  client.Disconnetti();
  EXPECT_TRUE(states.empty());

  EXPECT_EQ(client.CameraPreview(), 0);
  client.DownLoadProgrammazione();
  EXPECT_EQ(states, (std::vector<int>{cNoOperation, cNoOperation}));
  EXPECT_TRUE(debug.empty());
}

// A second Connetti retires the first link: its socket is closed and its
// events no longer reach the host. The protocol property switches the
// transport keeping the code; a protocol that is none leaves no link.
TEST_F(ClientFixture, ASwitchOfTransportRetiresTheFirstLinkAndKeepsTheCode) {
  client.Connetti("h", 1, 1, false, sckTCPProtocol);
  auto* first = platform->socket;
  first->state_ = link::sckConnected;
  client.Connetti("h", 1, 1, false, sckUDPProtocol);
  EXPECT_EQ(first->state(), link::sckClosed);
  EXPECT_NE(platform->socket, first);
  first->fail(10054, "reset");
  EXPECT_TRUE(states.empty());
  platform->runPosted();
  EXPECT_EQ(client.Protocol(), sckUDPProtocol);

  client.StringaCodiceAccesso("777777");
  client.Protocol(sckTCPProtocol);
  EXPECT_EQ(client.Protocol(), sckTCPProtocol);
  EXPECT_EQ(client.Form()->Panel.LblTypeCon, "Tipo di connessione: TCP");
  EXPECT_EQ(client.StringaCodiceAccesso(), "777777");
  client.Protocol(sckProtocolError);
  EXPECT_EQ(client.Form(), nullptr);
}

// A reset and an abort both rebuild the link from a later turn of the loop,
// keep what the host set, and serve the queued head again.
class RebuildTest : public ClientFixture, public ::testing::WithParamInterface<int> {};

TEST_P(RebuildTest, KeepsCodeQueueAndSettingsAndServesTheHeadAgain) {
  client.Connetti("127.0.0.1", 19201, 14400, false, sckTCPProtocol, dir.str());
  client.StringaCodiceAccesso("246810");
  client.StringaConnDB("Provider=SQLite;Data Source=" + (dir / "a.db").string());
  client.Show();
  client.VideoCicle(4);
  auto* oldForm = client.Form();
  oldForm->Richieste = {{}, {"AA", ""}, {"02", ""}};
  oldForm->Stato = cRichiestaProg;
  auto* oldSocket = platform->socket;
  oldSocket->state_ = link::sckConnected;
  states.clear();

  oldSocket->fail(GetParam(), "Connection is reset by remote side");
  EXPECT_EQ(states, std::vector<int>{cErroreConnessione});
  EXPECT_EQ(client.Form(), oldForm);  // nothing is torn down inside the handler
  platform->runPosted();

  auto* form = client.Form();
  ASSERT_NE(form, nullptr);
  EXPECT_NE(platform->socket, oldSocket);
  EXPECT_EQ(form->sStringaPassword, "246810");
  EXPECT_EQ(client.StringaConnDB(), "Provider=SQLite;Data Source=" + (dir / "a.db").string());
  EXPECT_TRUE(form->ShowCamRelay);
  EXPECT_EQ(form->CurrDir(), dir.str());
  EXPECT_EQ(client.VideoCicle(), 4);
  ASSERT_GE(form->QueueLength(), 2);
  EXPECT_EQ(form->Richieste[1].Tipo, "AA");
  EXPECT_EQ(form->Richieste[2].Tipo, "02");
  // The new link connects first, then serves the head: the login.
  EXPECT_EQ(platform->socket->connects, 1);
  platform->socket->acceptConnect();
  ASSERT_FALSE(platform->socket->sent.empty());
  // Every new link starts with the scrambled code: 25 characters after the header.
  const std::string login = camrelay::test::Unframe(platform->socket->sent.front());
  EXPECT_EQ(login.substr(0, 11), "AA{}0{}00{}");
  EXPECT_EQ(login.size(), 11u + 25u);
}

INSTANTIATE_TEST_SUITE_P(ResetAndAbort, RebuildTest, ::testing::Values(10054, 10053));

// A handler of the host that throws is reported and the rebuild goes on; no
// cycle on the old link is restored as the property does it, with a stop.
TEST_F(ClientFixture, RebuildGoesOnWhenTheHostsHandlerThrowsAndRestoresNoCycleAsAStop) {
  client.Connetti("127.0.0.1", 19201, 14400, false, sckTCPProtocol, dir.str());
  client.CambioStatoConnessione = [](StatoConnessioneEnum) { throw std::runtime_error("host bug"); };
  auto* oldForm = client.Form();
  platform->socket->state_ = link::sckConnected;
  platform->socket->fail(10054, "Connection is reset by remote side");
  EXPECT_NO_THROW(platform->runPosted());
  ASSERT_NE(client.Form(), nullptr);
  EXPECT_NE(client.Form(), oldForm);
  EXPECT_EQ(client.Form()->Richieste.back(), (link::Richiesta{"08", "0"}));
  ASSERT_FALSE(debug.empty());
  EXPECT_EQ(debug.front(), "CambioStatoConnessione: the host's handler failed: host bug");
}

// A camera converts as a whole number does; a text that is none is refused
// before anything is queued or sent.
TEST_F(ClientFixture, APreviewCameraMustBeANumber) {
  client.Connetti("127.0.0.1", 19201, 14400, false, sckUDPProtocol, dir.str());
  client.AttivaPreview("due");
  EXPECT_EQ(debug, std::vector<std::string>{"cAttivaPreview: \"due\" is not a camera number; nothing sent"});
  EXPECT_TRUE(platform->socket->sent.empty());
  client.AttivaPreview("2.6");
  EXPECT_EQ(client.VideoCicle(), 4);
  EXPECT_EQ(client.Form()->Richieste.back(), (link::Richiesta{"08", "3"}));
}
