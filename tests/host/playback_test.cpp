// A clip held open by hand, as the console plays it. The text each order
// becomes at the unit, and frames saved only while recording, are the
// browser console's tests.
#include <gtest/gtest.h>

#include <algorithm>

#include "client_fixture.h"
#include "host/actions.h"

using namespace camrelay;
using Order = host::PlaybackOrder;

namespace {

struct HeldClip : test::ClientOnFakePlatform {
  host::Captured captured;
  host::Console console{host::OutputOptions{}};
  host::Context ctx{client, console, dir.path()};
  std::unique_ptr<host::Action> action = host::MakeAction(host::Command{host::Op::Playback, "playback", "clip1.avi"});

  HeldClip() {
    console.Capture(&captured, "");
    client.CambioStatoConnessione = [this](StatoConnessioneEnum s) { action->OnState(ctx, s); };
    client.Connetti("10.0.0.7", 19201, 14400, false, sckUDPProtocol, dir.path().string());
    client.StringaCodiceAccesso("123456");
    action->Record(false);
    action->Start(ctx);
  }

  // The unit takes the "08" just sent and answers with `image`, or with an
  // "OK" alone when it is empty; returns what the "08" asked for.
  std::string Answer(const std::string& image) {
    platform->socket->deliver("AA{}2{}08");
    platform->socket->deliver("OK");
    const auto& sent = platform->socket->sent;
    const auto asked = std::find_if(sent.rbegin(), sent.rend(),
                                    [](auto& m) { return m.starts_with("{}") && m.ends_with("\r\n"); });
    const std::string argument = asked == sent.rend() ? "" : asked->substr(2, asked->size() - 4);
    const std::string size = std::to_string(image.size());
    platform->socket->deliver(image.empty() ? "AA{}0{}09{}OK" : "AA{}1{}09{}" + size);
    if (!image.empty()) platform->socket->deliver("{}1{}" + size + "{}" + image);
    return argument;
  }
};

}  // namespace

// An open clip waits for the user: nothing is asked for by itself, and only
// a play steps on, up to the clip's end.
TEST_F(HeldClip, MovesOnlyOnOrdersPlaysToTheEndAndEndsWhenClosed) {
  EXPECT_EQ(Answer("frame-0"), "clip1.avi");
  EXPECT_FALSE(action->HeldOver(ctx));
  EXPECT_EQ(client.RichiesteInCoda(), 0);
  ASSERT_TRUE(action->Order(ctx, Order::Play, 0));
  EXPECT_EQ(Answer("frame-1"), "NEXTFRAME:");
  EXPECT_EQ(client.RichiesteInCoda(), 1);
  EXPECT_EQ(Answer("frame-1"), "NEXTFRAME:");  // the last frame again: the clip's end
  EXPECT_EQ(client.RichiesteInCoda(), 0);

  ASSERT_TRUE(action->Order(ctx, Order::Close, 0));
  EXPECT_FALSE(action->HeldOver(ctx)) << "over only once the unit closed it";
  EXPECT_FALSE(action->Order(ctx, Order::Next, 0)) << "a closing clip takes no order";
  EXPECT_EQ(Answer(""), "CLOSE:");
  EXPECT_TRUE(action->HeldOver(ctx));
  EXPECT_EQ(action->Finish(ctx, std::nullopt), std::nullopt);
}
