// A clip held open by hand, as the console plays it, and the preview's
// images saved only while the user records.
#include <gtest/gtest.h>

#include <filesystem>

#include "client_fixture.h"
#include "host/actions.h"

using namespace camrelay;
namespace fs = std::filesystem;
using Order = host::PlaybackOrder;

namespace {

struct HeldClip : test::ClientOnFakePlatform {
  host::Captured captured;
  host::Console console{host::OutputOptions{}};
  host::Context ctx{client, console, dir.path()};
  std::unique_ptr<host::Action> action;

  HeldClip() {
    console.Capture(&captured, "");
    client.CambioStatoConnessione = [this](StatoConnessioneEnum s) {
      if (action) action->OnState(ctx, s);
    };
    client.Connetti("10.0.0.7", 19201, 14400, false, sckUDPProtocol, dir.path().string());
    client.StringaCodiceAccesso("123456");
  }

  void Start(host::Op op, const std::string& argument, int images, bool record) {
    host::Command command{op, op == host::Op::Playback ? "playback" : "preview", argument, images};
    host::CheckCommand(command);
    action = host::MakeAction(command);
    action->Record(record);
    action->Start(ctx);
  }

  // The unit takes the "08" just sent and answers with `image`, or with
  // `status` alone when it is empty.
  void Answer(const std::string& image, const std::string& status = "OK") {
    platform->socket->deliver("AA{}2{}08");
    platform->socket->deliver("OK");
    if (image.empty()) {
      platform->socket->deliver("AA{}0{}09{}" + status);
      return;
    }
    platform->socket->deliver("AA{}1{}09{}" + std::to_string(image.size()));
    platform->socket->deliver("{}1{}" + std::to_string(image.size()) + "{}" + image);
  }

  // What the last "08" request sent asked for.
  std::string LastAsked() const {
    for (auto it = platform->socket->sent.rbegin(); it != platform->socket->sent.rend(); ++it)
      if (it->starts_with("{}") && it->ends_with("\r\n")) return it->substr(2, it->size() - 4);
    return "";
  }

  int Saved(const std::string& prefix) const {
    int count = 0;
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator(dir.path() / "Snapshot", ec))
      count += entry.path().filename().string().starts_with(prefix);
    return count;
  }
};

}  // namespace

// The link sends what an "08" asks for once the unit has taken it: each
// check of LastAsked follows the unit's answer. An open clip waits for the
// user: nothing is asked for by itself, and only a play steps on.
TEST_F(HeldClip, MovesOnlyOnOrdersPlaysToTheEndAndEndsWhenClosed) {
  Start(host::Op::Playback, "clip1.avi", 0, false);
  Answer("frame-0");
  EXPECT_EQ(LastAsked(), "clip1.avi");
  EXPECT_FALSE(action->HeldOver(ctx));
  EXPECT_EQ(client.RichiesteInCoda(), 0);
  auto step = [&](std::optional<Order> order, double value, const char* image, const char* asked, int queued) {
    SCOPED_TRACE(asked);
    if (order) ASSERT_TRUE(action->Order(ctx, *order, value));
    Answer(image);
    EXPECT_TRUE(LastAsked().starts_with(asked)) << LastAsked();
    EXPECT_EQ(client.RichiesteInCoda(), queued);
  };
  step(Order::Seek, 1.5, "frame-6", "CurrentTimeFileVideo:1.5", 0);
  step(Order::Quality, 40, "", "SetQualityImages:40", 0);
  step(Order::Play, 0, "frame-7", "NEXTFRAME:", 1);
  step(std::nullopt, 0, "frame-7", "NEXTFRAME:", 0);  // the last frame again: the clip's end
  step(Order::Previous, 0, "frame-6", "PREVFRAME:", 0);
  EXPECT_FALSE(fs::exists(dir.path() / "Snapshot")) << "frames saved while not recording";

  action->Record(true);
  ASSERT_TRUE(action->Order(ctx, Order::Next, 0));
  Answer("frame-7");
  EXPECT_EQ(Saved("playback-clip1-"), 1);

  ASSERT_TRUE(action->Order(ctx, Order::Close, 0));
  EXPECT_FALSE(action->HeldOver(ctx)) << "over only once the unit closed it";
  EXPECT_FALSE(action->Order(ctx, Order::Next, 0)) << "a closing clip takes no order";
  Answer("");
  EXPECT_EQ(LastAsked(), "CLOSE:");
  EXPECT_TRUE(action->HeldOver(ctx));
  EXPECT_EQ(action->Finish(ctx, std::nullopt), std::nullopt);
}

TEST_F(HeldClip, APreviewSavesOnlyWhileRecording) {
  Start(host::Op::Preview, "1", 3, false);
  for (bool record : {false, true, false}) {
    action->Record(record);
    Answer("image");
  }
  EXPECT_EQ(Saved("preview-cam1-"), 1);
  const std::vector<QueuedRequest> queue = client.Status().queue;
  ASSERT_EQ(queue.size(), 1u) << "stopped after the images asked for, saved or not";
  EXPECT_EQ(queue[0].argument, "0");
}
