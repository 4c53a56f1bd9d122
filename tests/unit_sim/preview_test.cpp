// Camera images and clip playback, as the preview asks for them.
#include "session_fixture.h"

#include "camrelay-unit/avi.h"

namespace camrelay::unit::test {
namespace {

class PreviewTest : public SessionTest {
 protected:
  // A TCP preview request: one packet, the argument after the code.
  Messages Ask(const std::string& what) { return Send(Request("08") + "{}" + what + "\r\n"); }
  // The image the pieces carry, each "{}i{}size{}data".
  std::string Collect() {
    std::string image;
    for (Messages got = Send("OK{}09"); got.size() == 1 && got[0].rfind("{}", 0) == 0; got = Send("OK"))
      image += got[0].substr(got[0].find("{}", got[0].find("{}", 2) + 2) + 2);
    return image;
  }
};

// The image itself, on both transports, and a camera the unit lacks are
// checked end to end against the component; here, the answers the
// component's probes and stop get.
TEST_F(PreviewTest, ACameraImageTravelsInPiecesWithItsSize) {
  content.previews[2] = std::string(7000, '\xD8');
  Start(true);
  EXPECT_EQ(Ask("2"), Messages{"AA{}3{}09{}7000"});
  EXPECT_EQ(Collect(), content.previews[2]);
  EXPECT_EQ(Ask("0"), Messages{"AA{}0{}09{}OK"}) << "camera 0 stops the preview";
  // On UDP the argument is an element of its own and the image follows the
  // closing one.
  Start(false);
  EXPECT_EQ(Send(Request("08", 2)), Messages{"AA{}2{}08"});
  EXPECT_EQ(Send("{}2\r\n"), Messages{"OK"});
  EXPECT_EQ(Send("{}"), Messages{"AA{}3{}09{}7000"});
  EXPECT_EQ(Send("13{}08{}2{}{}"), Messages{"13{}08{}2{}AA{}3{}09{}7000"}) << "the image acceptance was lost";
}

TEST_F(PreviewTest, AClipOpensOnItsFirstFrameAndStepsFrameByFrame) {
  content.media["clip.avi"] = WriteMjpegAvi(Clip{{"frame0", "frame1!", "frame2"}, 160, 120, 4});
  Start(true);
  EXPECT_EQ(Ask("NEXTFRAME:"), Messages{"AA{}0{}09{}Reg Error"}) << "no clip open";
  const std::pair<const char*, const char*> steps[] = {
      {"clip.avi", "frame0"},   {"NEXTFRAME:", "frame1!"}, {"NEXTFRAME:", "frame2"},
      {"NEXTFRAME:", "frame2"}, {"PREVFRAME:", "frame1!"}, {"CurrentTimeFileVideo:0.4", "frame1!"},
  };
  for (const auto& [ask, frame] : steps) {
    Ask(ask);
    EXPECT_EQ(Collect(), frame) << ask;
  }
  EXPECT_EQ(Ask("PAUSE:"), Messages{"AA{}0{}09{}OK"});
  EXPECT_EQ(Ask("CLOSE:"), Messages{"AA{}0{}09{}OK"});
  EXPECT_EQ(Ask("PREVFRAME:"), Messages{"AA{}0{}09{}Reg Error"});
  EXPECT_EQ(Ask("missing.avi"), Messages{"AA{}0{}09{}Reg Error"});
}

}  // namespace
}  // namespace camrelay::unit::test
