// The console server's gate: tokens, request targets, listen addresses, and
// the codes kept from the page.
#include <gtest/gtest.h>

#include <regex>
#include <stdexcept>

#include "requests/crypt.h"
#include "web/access.h"

namespace camrelay::web {
namespace {

TEST(Token, IsLongRandomHexAndOnlyTheWholeTokenInTheFirstParameterMatches) {
  const std::string token = MakeToken();
  EXPECT_TRUE(std::regex_match(token, std::regex("[0-9a-f]{64}"))) << token;
  EXPECT_NE(MakeToken(), token);
  std::string lastChanged = token;
  lastChanged.back() = lastChanged.back() == '0' ? '1' : '0';
  EXPECT_TRUE(SameToken(token, token));
  for (const std::string& wrong : {std::string(), token.substr(0, 63), token + "0", lastChanged})
    EXPECT_FALSE(SameToken(wrong, token)) << wrong;
  // A server without a token admits nobody.
  EXPECT_FALSE(SameToken("", ""));

  const auto target = ParseTarget("/api/media/file?name=..%2Fa%20b+c.jpg&token=ab");
  ASSERT_TRUE(target);
  EXPECT_EQ(target->path, "/api/media/file");
  // Escapes that hide a folder are decoded, for the name rule to see them.
  EXPECT_EQ(target->Param("name"), "../a b c.jpg");
  EXPECT_TRUE(Authorised(*target, "ab"));
  EXPECT_FALSE(Authorised(*target, "abc"));
  // The first of a repeated name counts: a second token cannot override it.
  EXPECT_FALSE(Authorised(*ParseTarget("/?token=bad&token=ab"), "ab"));
  EXPECT_FALSE(Authorised(*ParseTarget("/"), "ab"));
  for (const char* malformed : {"/?a=%", "/?a=%4", "/?a=%zz", "/%g0"})
    EXPECT_FALSE(ParseTarget(malformed)) << malformed;
}

TEST(Listen, DefaultsToLoopbackAndReadsAddressAndPort) {
  EXPECT_EQ(ParseListen("").host, "127.0.0.1");
  EXPECT_EQ(ParseListen("192.168.1.20:8080").port, 8080);
  EXPECT_EQ(ParseListen("[::1]:9000").host, "::1");
  for (const char* bad : {"8080", "127.0.0.1:", "127.0.0.1:65536", "127.0.0.1:80x", "localhost:80", "300.1.1.1:80"})
    EXPECT_THROW(ParseListen(bad), std::invalid_argument) << bad;
  for (const char* loopback : {"127.9.9.9", "::1"}) EXPECT_TRUE(IsLoopback(loopback)) << loopback;
  for (const char* remote : {"0.0.0.0", "192.168.1.20", "::", "not-an-address"})
    EXPECT_FALSE(IsLoopback(remote)) << remote;
}

TEST(Codes, AScrambledCodeInAnOpeningMessageIsHiddenWhateverBytesItHolds) {
  // Any byte may be in a scrambled code, a CR, an LF or a separator among
  // them: the whole field goes, and the text after it stays.
  int withLineBreak = 0;
  for (int i = 0; i < 2000; ++i) {
    const std::string scrambled = requests::CryptData(i % 2 ? "123456" : "9");
    withLineBreak += scrambled.find_first_of("\r\n") != std::string::npos;
    EXPECT_EQ(HideScrambledCodes("10:00:00.1 - AA{}0{}02{}" + scrambled + "\r\n10:00:01.0 - OK{}02"),
              "10:00:00.1 - AA{}0{}02{}******\r\n10:00:01.0 - OK{}02");
    EXPECT_EQ(HideScrambledCodes("LN{}30{}AA{}3{}01{}" + scrambled + "AA{}0{}04{}" + scrambled),
              "LN{}30{}AA{}3{}01{}******AA{}0{}04{}******");
    // A message cut short still shows none of it.
    EXPECT_EQ(HideScrambledCodes("AA{}0{}08{}" + scrambled.substr(0, 10)), "AA{}0{}08{}******");
  }
  EXPECT_GT(withLineBreak, 0) << "no code with a line break in it was tried";
  // The unit's own acceptance carries a one-digit figure there, and its
  // refusal of a camera or a clip a reason: both stay.
  for (const std::string kept : {"AA{}0{}00{}1\r\nOK{}00", "AA{}0{}00", "AA{}0{}09{}Reg Error\r\n"})
    EXPECT_EQ(HideScrambledCodes(kept), kept);
}

}  // namespace
}  // namespace camrelay::web
