#include <gtest/gtest.h>

#include <set>
#include <string>

#include "requests/crypt.h"
#include "unscramble.h"

namespace camrelay::test {
namespace {

using requests::CryptData;

std::string Normalised(std::string code) {
  code.resize(6, '\0');
  return code;
}

TEST(CryptData, EveryCallDiffersAndDecodesToTheNormalisedCodeInAllFourLayouts) {
  const std::string codes[] = {"", "123456", "12", "1234567890", std::string("\xff\x00\x80{}", 5), "{}{}{}"};
  for (const auto& code : codes) {
    std::set<int> layouts;
    std::set<std::string> seen;
    for (int call = 0; call < 400; ++call) {
      const std::string r = CryptData(code);
      seen.insert(r);
      ASSERT_EQ(r.size(), 25u);
      ASSERT_EQ(r.find("{}"), std::string::npos) << "code " << code;
      ASSERT_EQ(Unscramble(r), Normalised(code.substr(0, 6)));
      layouts.insert(Layout(r));
    }
    EXPECT_EQ(layouts.size(), 4u) << "code " << code;
    EXPECT_EQ(seen.size(), 400u) << "code " << code;  // calls in the same instant differ too
  }
}

// The key rounds to the nearest integer, so it reaches 255; the other
// random characters take the integer part and never do.
TEST(CryptData, KeyReachesBothEndsWhileFillCharactersStopAt254) {
  bool keyZero = false, keyTop = false;
  for (int call = 0; call < 10000; ++call) {
    const std::string r = CryptData("abcdef");
    const auto key = static_cast<unsigned char>(r[0]);
    keyZero |= key == 0;
    keyTop |= key == 255;
    for (int i = 1; i < 25; ++i) {
      if ((i - 1) % 4 == Layout(r)) continue;  // a slot
      ASSERT_NE(static_cast<unsigned char>(r[i]), 255) << "position " << i + 1;
    }
  }
  EXPECT_TRUE(keyZero);
  EXPECT_TRUE(keyTop);
}

}  // namespace
}  // namespace camrelay::test
