// What the unit takes from its peer, whoever that is: TCP frames glued
// together, split anywhere or garbage; access codes scrambled in any layout
// or typed; file names that try to leave the unit's folder.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "camrelay-unit/folder_content.h"
#include "camrelay-unit/frames.h"
#include "camrelay-unit/unscramble.h"
#include "requests/crypt.h"
#include "temp_dir.h"

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

// Every code the component scrambles reads back, in all four layouts: a
// layout misread would go unseen end to end, where the host then sends the
// code as typed. A code is judged on its first six characters, scrambled or
// typed; a scrambled code of the wrong length reads as none.
TEST(Codes, AreReadBackInEveryLayoutAndTellTheInstallerFromTheUser) {
  const std::string codes[] = {"123456", "12", std::string("\xff\x80{\x01}z", 6)};
  std::set<int> layouts;
  for (int round = 0; round < 100; ++round) {
    for (const auto& code : codes) {
      const std::string scrambled = requests::CryptData(code);
      layouts.insert(static_cast<unsigned char>(scrambled[0]) & 3);
      ASSERT_EQ(Unscramble(scrambled), Normalized(code)) << "code " << code << " round " << round;
    }
  }
  EXPECT_EQ(layouts.size(), 4u) << "every layout should have been exercised";
  EXPECT_EQ(Unscramble("123456"), "");
  const std::tuple<std::string, std::string, CodeKind> cases[] = {
      {"654321", "123456", CodeKind::User},         {"1234569", "123456", CodeKind::Installer},
      {requests::CryptData("12"), "12", CodeKind::Installer}, {"12", "123456", CodeKind::None},
      {"", "123456", CodeKind::None},
  };
  for (const auto& [given, installer, kind] : cases) EXPECT_EQ(CheckCode(given, installer, "654321"), kind) << given;
}

TEST(FolderContent, ReceivedFilesKeepTheirBytesAndStayInTheirFolder) {
  Log log{Log::Quiet};
  camrelay::test::TempDir dir;
  FolderContent folder{dir.path(), log};
  const std::string bytes("\0\xff\r\n{}", 6);
  EXPECT_TRUE(folder.StoreVoiceMessage("Citt\xe0.wav", bytes));
  EXPECT_EQ(camrelay::test::ReadFileBytes(dir / "Audio" / "Città.wav"), bytes);
  EXPECT_FALSE(folder.StoreFirmware("../escape.bin", bytes));
  EXPECT_FALSE(std::filesystem::exists(dir.path() / "escape.bin"));
  EXPECT_FALSE(folder.MediaFile("../VideoSentrova.db"));
}

}  // namespace
}  // namespace camrelay::unit
