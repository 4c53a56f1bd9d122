// TCP frames arrive glued together, split anywhere, and with garbage.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "camrelay-unit/frames.h"

namespace camrelay::unit {
namespace {

using Messages = std::vector<std::string>;

TEST(Frames, AFrameSplitAnywhereComesOutOnceAndGarbageIsDropped) {
  // The body holds a frame marker of its own: only the length tells.
  const std::string message = std::string("{}1{}LN{}9{}\r\n\0\xff", 16);
  const std::string stream = Frame(message) + Frame("") + Frame("OK");
  for (std::size_t a = 0; a <= stream.size(); ++a) {
    for (std::size_t b = a; b <= stream.size(); ++b) {
      FrameReader reader;
      Messages got = reader.Feed(stream.substr(0, a));
      for (auto& m : reader.Feed(stream.substr(a, b - a))) got.push_back(m);
      for (auto& m : reader.Feed(stream.substr(b))) got.push_back(m);
      ASSERT_EQ(got, (Messages{message, "", "OK"})) << "split at " << a << " and " << b;
    }
  }
  // Garbage and oversized lengths are dropped, and the next frame counts.
  FrameReader reader;
  EXPECT_EQ(reader.Feed("xyzL"), Messages{});
  EXPECT_EQ(reader.Feed("N{}2{}OK"), Messages{"OK"});
  EXPECT_EQ(reader.Feed("LN{}99999999{}abc"), Messages{});
  EXPECT_EQ(reader.Dropped(), 1);
  EXPECT_EQ(reader.Feed(Frame("OK")), Messages{"OK"});
}

}  // namespace
}  // namespace camrelay::unit
