// The preview as a host drives it through clsClient.
#include <gtest/gtest.h>

#include "camrelay/clsClient.h"
#include "env_guard.h"
#include "link/frmClient.h"
#include "preview_support.h"

using namespace camrelay;
using camrelay::test::ConfigHomeGuard;
using camrelay::test::FakePlatform;
using camrelay::test::TempDir;
using camrelay::test::TwoPieceImage;
using camrelay::test::UdpUnit;

namespace {

using Texts = std::vector<std::string>;

struct ClientPreview : ::testing::Test {
  ConfigHomeGuard home;
  TempDir dir;
  std::shared_ptr<FakePlatform> platform = std::make_shared<FakePlatform>();
  clsClient client{platform};
  std::vector<int> states;

  ClientPreview() {
    client.CambioStatoConnessione = [this](StatoConnessioneEnum s) { states.push_back(s); };
    client.Connetti("127.0.0.1", 19201, 14400, false, sckUDPProtocol, dir.str());
  }
  UdpUnit unit() { return UdpUnit(*platform->socket); }
};

}  // namespace

TEST_F(ClientPreview, WritingZeroToVideoCicleStopsTheCycle) {
  client.VideoCicle(5);
  const std::string image = TwoPieceImage('1');
  unit().answers(image);
  EXPECT_EQ(client.ImagePreview(), image);
  EXPECT_EQ(client.CameraPreview(), 3) << "the next camera of the cycle is asked for";

  client.VideoCicle(0);  // waits behind the request for camera 3
  unit().answers(TwoPieceImage('3'));
  unit().answers("");  // the unit confirms the stop
  EXPECT_EQ(unit().asked(), (Texts{"1", "3", "0"}));
  EXPECT_EQ(client.CameraPreview(), 0);
  EXPECT_EQ(client.RichiesteInCoda(), 0);
  EXPECT_EQ(client.StatoCorrente(), cNoOperation);
}
