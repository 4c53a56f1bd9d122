// Framing, sending and joining of packets.
#include <gtest/gtest.h>

#include "link_fixture.h"

using namespace camrelay;
using camrelay::link::CreaStringaComando;
using camrelay::test::LinkFixture;

TEST(Transmit, AFailedSendIsReportedNotThrown) {
  LinkFixture f(0);  // not connected
  f.form().TrasmettiStringa("X");
  ASSERT_EQ(f.debug.size(), 1u);
  EXPECT_EQ(f.debug[0].rfind("TrasmettiStringa: ", 0), 0u);
  EXPECT_FALSE(f.timer().enabled());
}

// On UDP the header's count must match the elements, the closing element is
// skipped, and a data element needs more than three characters after "{}".
TEST(Join, UdpNeedsTheHeaderCountToMatchAndSkipsTheClosingElement) {
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{"AA{}3{}51", "{}one\r\n", "{}two\r\n", "{}"}, "onetwo"},
      {{"AA{}4{}51", "{}one\r\n", "{}two\r\n", "{}"}, ""},
      {{"AA{}3{}51", "{}x\r\n", "{}xy\r\n", "{}"}, "xy"},
      {{"AA{}3"}, ""},
      {{}, ""},
  };
  for (auto [par, expected] : cases) {
    SCOPED_TRACE(par.empty() ? "no elements" : par[0]);
    EXPECT_EQ(CreaStringaComando(par, 1), expected);
  }
}

// Counts and lengths are read as the digits at the start of a field, after
// blanks and a sign; anything else reads as 0.
TEST(Numbers, ALeadingNumberTakesBlanksAndASignBeforeItsDigits) {
  using link::LeadingNumber;
  EXPECT_EQ(LeadingNumber(" \t-12x"), -12);
  EXPECT_EQ(LeadingNumber("+7{}9"), 7);
  EXPECT_EQ(LeadingNumber("  "), 0);
  EXPECT_EQ(LeadingNumber("x5"), 0);
}
