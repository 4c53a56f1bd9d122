// The unit must read back every code the component scrambles, in all four
// layouts, and accept a code scrambled or as typed.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "camrelay-unit/unscramble.h"
#include "requests/crypt.h"

namespace camrelay::unit {
namespace {

TEST(Unscramble, ReadsBackWhatTheComponentScrambledInEveryLayout) {
  const std::string codes[] = {"123456", "12", "", "1234567890", std::string("\xff\x80{\x01}z", 6),
                               std::string(6, '\0')};
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
}

TEST(CheckCode, TellsTheInstallerFromTheUserScrambledOrPlainOnTheFirstSixCharacters) {
  using requests::CryptData;
  // Scrambled codes of six digits, and a wrong one, are the session's tests.
  const std::tuple<std::string, std::string, CodeKind> cases[] = {
      {"654321", "123456", CodeKind::User},         {"1234569", "123456", CodeKind::Installer},
      {CryptData("12"), "12", CodeKind::Installer}, {"12", "123456", CodeKind::None},
      {"", "123456", CodeKind::None},
  };
  for (const auto& [given, installer, kind] : cases) EXPECT_EQ(CheckCode(given, installer, "654321"), kind) << given;
}

}  // namespace
}  // namespace camrelay::unit
