// A clip held open by hand, as the console plays it, and the preview's
// images saved only while the user records.
#include <gtest/gtest.h>

#include <filesystem>

#include "client_fixture.h"
#include "host/actions.h"

using namespace camrelay;
namespace fs = std::filesystem;

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

  // What the "08" requests sent so far asked for, the last first.
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
// check of LastAsked follows the unit's answer.
TEST_F(HeldClip, MovesOnlyOnOrdersPlaysToTheEndAndEndsWhenClosed) {
  Start(host::Op::Playback, "clip1.avi", 0, false);
  Answer("frame-0");
  EXPECT_EQ(LastAsked(), "clip1.avi");
  EXPECT_FALSE(action->HeldOver(ctx)) << "an open clip waits for the user";
  EXPECT_EQ(client.RichiesteInCoda(), 0) << "nothing is asked for by itself";

  ASSERT_TRUE(action->Order(ctx, host::PlaybackOrder::Seek, 1.5));
  Answer("frame-6");
  EXPECT_EQ(LastAsked().rfind("CurrentTimeFileVideo:1.5", 0), 0u) << LastAsked();
  ASSERT_TRUE(action->Order(ctx, host::PlaybackOrder::Quality, 40));
  Answer("");
  EXPECT_EQ(LastAsked(), "SetQualityImages:40");

  // Played, each frame asks for the next; the last frame again is the end.
  ASSERT_TRUE(action->Order(ctx, host::PlaybackOrder::Play, 0));
  Answer("frame-7");
  EXPECT_EQ(LastAsked(), "NEXTFRAME:");
  EXPECT_EQ(client.RichiesteInCoda(), 1) << "the play does not step on";
  Answer("frame-7");
  EXPECT_EQ(client.RichiesteInCoda(), 0) << "the play goes on past the clip's end";
  ASSERT_TRUE(action->Order(ctx, host::PlaybackOrder::Previous, 0));
  Answer("frame-6");
  EXPECT_EQ(LastAsked(), "PREVFRAME:");
  EXPECT_EQ(client.RichiesteInCoda(), 0) << "a step is one frame, not a play";
  EXPECT_FALSE(fs::exists(dir.path() / "Snapshot")) << "frames saved while not recording";

  action->Record(true);
  ASSERT_TRUE(action->Order(ctx, host::PlaybackOrder::Next, 0));
  Answer("frame-7");
  EXPECT_EQ(LastAsked(), "NEXTFRAME:");
  EXPECT_EQ(Saved("playback-clip1-"), 1);

  ASSERT_TRUE(action->Order(ctx, host::PlaybackOrder::Close, 0));
  EXPECT_FALSE(action->HeldOver(ctx)) << "over only once the unit closed it";
  EXPECT_FALSE(action->Order(ctx, host::PlaybackOrder::Next, 0)) << "a closing clip takes no order";
  Answer("");
  EXPECT_EQ(LastAsked(), "CLOSE:");
  EXPECT_TRUE(action->HeldOver(ctx));
  EXPECT_EQ(action->Finish(ctx, std::nullopt), std::nullopt);
}

TEST_F(HeldClip, AClipTheUnitRefusesIsOverWithItsReason) {
  Start(host::Op::Playback, "nosuch.avi", 0, true);
  Answer("", "Reg Error");
  EXPECT_TRUE(action->HeldOver(ctx));
  EXPECT_FALSE(action->Order(ctx, host::PlaybackOrder::Next, 0));
  EXPECT_EQ(action->Finish(ctx, std::nullopt),
            "the unit answered \"Reg Error\": it has no clip nosuch.avi, or cannot play it");
}

TEST_F(HeldClip, APreviewSavesOnlyWhileRecording) {
  Start(host::Op::Preview, "1", 3, false);
  Answer("image-a");
  action->Record(true);
  Answer("image-b");
  action->Record(false);
  Answer("image-c");
  EXPECT_EQ(Saved("preview-cam1-"), 1);
  const std::vector<QueuedRequest> queue = client.Status().queue;
  ASSERT_EQ(queue.size(), 1u) << "stopped after the images asked for, saved or not";
  EXPECT_EQ(queue[0].argument, "0");
}
