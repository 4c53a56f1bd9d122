#include <gtest/gtest.h>

#include "store/text.h"
#include "store/values.h"

namespace camrelay::store {
namespace {

TEST(Cp1252, EveryByteSurvivesAndWhatTheUnitCannotShowBecomesAQuestionMark) {
  std::string all;
  for (int b = 0; b < 256; ++b) all += static_cast<char>(b);
  EXPECT_EQ(Utf8ToCp1252(Cp1252ToUtf8(all)), all);
  EXPECT_EQ(Cp1252ToUtf8("Citt\xE0 perch\xE9 \x80 \x96"), "Città perché € –");
  EXPECT_EQ(Utf8ToCp1252("Łódź a\xFF" "b end\xC3"), "?\xF3" "d? a?b end?");  // then not UTF-8, then cut short
}

// The formats themselves travel in the payload and log tests.
TEST(ItalianDate, ParseAcceptsTheFormsPeopleAndUnitsWrite) {
  const std::pair<const char*, DateTime> read[] = {
      {" 5/3/24 9:05 ", {2024, 3, 5, 9, 5, 0}}, {"29/02/96", {1996, 2, 29}}, {"07:30:00", {1899, 12, 30, 7, 30, 0}}};
  for (const auto& [text, date] : read) EXPECT_EQ(ParseItalianDate(text), date) << text;
  for (const char* text : {"", "29/02/2023", "31/04/2024", "05/13/2024", "05/03/2024 24:00", "2024-03-05",
                           "05/03/2024x", "5/3/202"})
    EXPECT_FALSE(ParseItalianDate(text)) << text;
}

// What the round trip cannot show: texts only the unit writes, and values
// that travel one way only. Reals go out with the Italian decimal comma and
// come back from it, or from a point sent by a unit on another locale.
TEST(WireValues, OnlyFalsoIsFalseNumbersAreCheckedAndRealsTakeTheDecimalComma) {
  EXPECT_EQ(FromWireText("11", "Falso"), DbValue(std::int64_t{0}));
  for (const char* text : {"False", "0", "falso"})
    EXPECT_EQ(FromWireText("11", text), DbValue(std::int64_t{1})) << text;
  EXPECT_EQ(ToWireText(kAdoDate, std::string("2024-03-05T14:05:09.250")), "05/03/2024 14:05:09");
  EXPECT_EQ(ToWireText(kAdoDate, std::string("2024-02-30")), "2024-02-30");  // not a date: goes as it is
  EXPECT_EQ(FromWireText("3", "12.5"), DbValue(std::int64_t{12}));  // half to even
  EXPECT_EQ(FromWireText("3", "13.5"), DbValue(std::int64_t{14}));
  for (const char* text : {"abc", "", "3000000000"}) EXPECT_THROW(FromWireText("3", text), std::invalid_argument);
  EXPECT_THROW(FromWireText("7", "32/01/2024"), std::invalid_argument);
  EXPECT_EQ(ToWireText(kAdoSingle, -0.25), "-0,25");
  EXPECT_EQ(ToWireText(kAdoCurrency, 1e20), "1E+20");
  EXPECT_EQ(FromWireText("5", ToWireText(kAdoDouble, 0.1 + 0.2)), DbValue(0.1 + 0.2)) << "every digit travels";
  for (const char* type : {"4", "6"}) {
    EXPECT_EQ(FromWireText(type, "12,5"), DbValue(12.5)) << type;
    EXPECT_EQ(FromWireText(type, " 12.5 "), DbValue(12.5)) << type;
    for (const char* text : {"1.234,5", "12,5,1", "inf"})
      EXPECT_THROW(FromWireText(type, text), std::invalid_argument) << type << " " << text;
  }
  EXPECT_EQ(FromWireText("5", "1E+20"), DbValue(1e20));
  EXPECT_EQ(FromWireText("3", "12,5"), DbValue(std::int64_t{12}));
}

}  // namespace
}  // namespace camrelay::store
