// Camera images, stream images and clip playback, as the preview asks for
// them.
#include "session_fixture.h"

#include "camrelay-unit/avi.h"

namespace camrelay::unit::test {
namespace {

class PreviewTest : public SessionTest {
 protected:
  // A TCP preview request: one packet, the argument after the code.
  Messages Ask(const std::string& what, const std::string& tipo = "08") {
    return Send(Request(tipo) + "{}" + what + "\r\n");
  }
  // The image the pieces carry, each "{}i{}size{}data".
  std::string Collect(const std::string& tipo) {
    std::string image;
    for (Messages got = Send("OK{}" + tipo); got.size() == 1 && got[0].rfind("{}", 0) == 0; got = Send("OK")) {
      const auto data = got[0].find("{}", got[0].find("{}", 2) + 2) + 2;
      image += got[0].substr(data);
    }
    return image;
  }
};

TEST_F(PreviewTest, ACameraImageTravelsInPiecesWithItsSize) {
  std::string image(7000, '\0');
  for (std::size_t i = 0; i < image.size(); ++i) image[i] = static_cast<char>(i % 253);
  content.previews[2] = image;
  Start(true);
  EXPECT_EQ(Ask("2"), Messages{"AA{}3{}09{}7000"});
  EXPECT_EQ(Collect("09"), image);
  EXPECT_EQ(Ask("0"), Messages{"AA{}0{}09{}OK"}) << "camera 0 stops the preview";
  EXPECT_EQ(Ask("5"), Messages{"AA{}0{}09{}Reg Error"});
  // On UDP the argument is an element of its own and the image follows the
  // closing one.
  Start(false);
  EXPECT_EQ(Send(Request("08", 2)), Messages{"AA{}2{}08"});
  EXPECT_EQ(Send("{}2\r\n"), Messages{"OK"});
  EXPECT_EQ(Send("{}"), Messages{"AA{}3{}09{}7000"});
  EXPECT_EQ(Send("13{}08{}2{}{}"), Messages{"13{}08{}2{}AA{}3{}09{}7000"}) << "the image acceptance was lost";
}

TEST_F(PreviewTest, AStreamImageIsAnswered) {
  content.previews[1] = "jpeg";
  Start(false);
  EXPECT_EQ(Ask("1", "57"), Messages{"AA{}1{}58{}4"});
  EXPECT_EQ(Collect("58"), "jpeg");
}

TEST_F(PreviewTest, AClipOpensOnItsFirstFrameAndStepsFrameByFrame) {
  Clip clip{{"frame0", "frame1!", "frame2"}, 160, 120, 4};
  content.media["clip.avi"] = WriteMjpegAvi(clip);
  Start(true);
  EXPECT_EQ(Ask("NEXTFRAME:"), Messages{"AA{}0{}09{}Reg Error"}) << "no clip open";
  Ask("clip.avi");
  EXPECT_EQ(Collect("09"), "frame0");
  Ask("NEXTFRAME:");
  EXPECT_EQ(Collect("09"), "frame1!");
  Ask("NEXTFRAME:");
  Ask("NEXTFRAME:");
  EXPECT_EQ(Collect("09"), "frame2") << "the last frame is as far as it goes";
  Ask("PREVFRAME:");
  EXPECT_EQ(Collect("09"), "frame1!");
  Ask("CurrentTimeFileVideo:0.4");
  EXPECT_EQ(Collect("09"), "frame1!") << "4 frames a second";
  EXPECT_EQ(Ask("PAUSE:"), Messages{"AA{}0{}09{}OK"});
  EXPECT_EQ(Ask("CLOSE:"), Messages{"AA{}0{}09{}OK"});
  EXPECT_EQ(Ask("PREVFRAME:"), Messages{"AA{}0{}09{}Reg Error"});
  EXPECT_EQ(Ask("missing.avi"), Messages{"AA{}0{}09{}Reg Error"});
}

TEST(Avi, FramesOfAnyLengthComeBack) {
  Clip clip{{"odd", std::string(4, '\0'), std::string(1001, 'x')}, 8, 6, 5};
  const auto back = ReadMjpegAvi(WriteMjpegAvi(clip));
  ASSERT_TRUE(back);
  EXPECT_EQ(back->frames, clip.frames);
  EXPECT_EQ(back->fps, 5);
  EXPECT_EQ(back->width, 8);
  EXPECT_FALSE(ReadMjpegAvi(std::string_view("RIFF\0\0\0\0WAVE", 12)));
}

}  // namespace
}  // namespace camrelay::unit::test
