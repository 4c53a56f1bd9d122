#include <gtest/gtest.h>

#include "store/text.h"
#include "store/values.h"

namespace camrelay::store {
namespace {

TEST(Cp1252, EveryByteSurvivesTheDatabaseAndBack) {
  std::string all;
  for (int b = 0; b < 256; ++b) all += static_cast<char>(b);
  std::string utf8 = Cp1252ToUtf8(all);
  EXPECT_NE(utf8, all);
  EXPECT_EQ(Utf8ToCp1252(utf8), all);
}

TEST(Cp1252, ItalianAndEuroTextConverts) {
  EXPECT_EQ(Cp1252ToUtf8("Citt\xE0 perch\xE9 \x80 5"), "Città perché € 5");
  EXPECT_EQ(Utf8ToCp1252("Città perché € 5"), "Citt\xE0 perch\xE9 \x80 5");
}

TEST(Cp1252, WhatTheUnitCannotShowBecomesQuestionMarks) {
  EXPECT_EQ(Utf8ToCp1252("Łódź"), "?\xF3" "d?");
  EXPECT_EQ(Utf8ToCp1252("a\xFF" "b"), "a?b");  // not UTF-8 at all
  EXPECT_EQ(Utf8ToCp1252("end\xC3"), "end?");    // cut inside a character
}

TEST(ItalianDate, FormatShowsDateAloneAtMidnightAndTimeAloneOnTheZeroDate) {
  EXPECT_EQ(FormatItalianDate({2024, 3, 5, 14, 5, 9}), "05/03/2024 14:05:09");
  EXPECT_EQ(FormatItalianDate({2024, 3, 5, 0, 0, 0}), "05/03/2024");
  EXPECT_EQ(FormatItalianDate({1899, 12, 30, 7, 30, 0}), "07:30:00");
  EXPECT_EQ(FormatItalianDate({1899, 12, 30, 0, 0, 0}), "00:00:00");
}

TEST(ItalianDate, ParseAcceptsTheFormsPeopleAndUnitsWrite) {
  EXPECT_EQ(ParseItalianDate("05/03/2024 14:05:09"), (DateTime{2024, 3, 5, 14, 5, 9}));
  EXPECT_EQ(ParseItalianDate("5/3/2024"), (DateTime{2024, 3, 5}));
  EXPECT_EQ(ParseItalianDate(" 5/3/24 9:05 "), (DateTime{2024, 3, 5, 9, 5, 0}));
  EXPECT_EQ(ParseItalianDate("1/1/95"), (DateTime{1995, 1, 1}));
  EXPECT_EQ(ParseItalianDate("07:30:00"), (DateTime{1899, 12, 30, 7, 30, 0}));
  EXPECT_EQ(ParseItalianDate("29/02/2024"), (DateTime{2024, 2, 29}));
}

TEST(ItalianDate, ParseRefusesWhatIsNoDate) {
  for (const char* text : {"", "29/02/2023", "31/04/2024", "05/13/2024", "05/03/2024 24:00", "05/03/2024 10:60",
                           "2024-03-05", "05/03/2024x", "05/03/2024 14:05 pm", "5/3/202", "05/03/202414:05",
                           "Vero"})
    EXPECT_FALSE(ParseItalianDate(text)) << text;
}

TEST(IsoDate, DatabaseFormSortsAndReadsBack) {
  EXPECT_EQ(FormatIsoDate({2024, 3, 5, 14, 5, 9}), "2024-03-05 14:05:09");
  EXPECT_EQ(FormatIsoDate({2024, 3, 5}), "2024-03-05");
  EXPECT_EQ(ParseIsoDate("2024-03-05T14:05:09.250"), (DateTime{2024, 3, 5, 14, 5, 9}));
  EXPECT_EQ(ParseIsoDate("2024-03-05 14:05"), (DateTime{2024, 3, 5, 14, 5, 0}));
  EXPECT_EQ(ParseIsoDate("07:30:00"), (DateTime{1899, 12, 30, 7, 30, 0}));
  EXPECT_FALSE(ParseIsoDate("2024-02-30"));
  EXPECT_FALSE(ParseIsoDate("05/03/2024"));
}

TEST(AdoType, DeclaredTypesGiveTheTransferNumbers) {
  const std::pair<const char*, int> cases[] = {
      {"LONG", 3},       {"INTEGER", 3},   {"COUNTER", 3},  {"SHORT", 2},     {"SMALLINT", 2}, {"BYTE", 17},
      {"SINGLE", 4},     {"DOUBLE", 5},    {"CURRENCY", 6}, {"DATETIME", 7},  {"BIT", 11},     {"YESNO", 11},
      {"TEXT(50)", 202}, {"varchar(10)", 202}, {"MEMO", 203}, {"LONGTEXT", 203}, {"", 202},     {"BLOB", 202},
      {"TEXT (255)", 202}};
  for (auto [declared, type] : cases) EXPECT_EQ(AdoTypeFromDeclared(declared), type) << declared;
}

TEST(WireValues, OutgoingTextByType) {
  EXPECT_EQ(ToWireText(kAdoBoolean, std::int64_t{0}), "Falso");
  EXPECT_EQ(ToWireText(kAdoBoolean, std::int64_t{1}), "Vero");
  EXPECT_EQ(ToWireText(kAdoBoolean, std::int64_t{-1}), "Vero");
  EXPECT_EQ(ToWireText(kAdoDate, std::string("2024-03-05 14:05:09")), "05/03/2024 14:05:09");
  EXPECT_EQ(ToWireText(kAdoDate, std::string("not a date")), "not a date");
  EXPECT_EQ(ToWireText(5, 0.1), "0.1");
  EXPECT_EQ(ToWireText(kAdoInteger, std::int64_t{-42}), "-42");
  EXPECT_EQ(ToWireText(kAdoText, std::string("Città")), "Citt\xE0");
  EXPECT_EQ(ToWireText(kAdoText, DbValue{}), "{NULL}");
}

TEST(WireValues, OnlyFalsoIsFalse) {
  EXPECT_EQ(FromWireText("11", "Falso"), DbValue(std::int64_t{0}));
  for (const char* text : {"Vero", "True", "False", "0", "", "falso"})
    EXPECT_EQ(FromWireText("11", text), DbValue(std::int64_t{1})) << text;
}

TEST(WireValues, IncomingTextByType) {
  EXPECT_EQ(FromWireText("3", " -7 "), DbValue(std::int64_t{-7}));
  EXPECT_EQ(FromWireText("3", "12.5"), DbValue(std::int64_t{12}));  // half to even
  EXPECT_EQ(FromWireText("3", "13.5"), DbValue(std::int64_t{14}));
  EXPECT_THROW(FromWireText("3", "abc"), std::invalid_argument);
  EXPECT_THROW(FromWireText("3", ""), std::invalid_argument);
  EXPECT_THROW(FromWireText("3", "3000000000"), std::invalid_argument);
  EXPECT_EQ(FromWireText("7", "5/3/2024 9:05"), DbValue(std::string("2024-03-05 09:05:00")));
  EXPECT_THROW(FromWireText("7", "32/01/2024"), std::invalid_argument);
  EXPECT_EQ(FromWireText("202", "Citt\xE0"), DbValue(std::string("Città")));
  EXPECT_EQ(FromWireText("5", "1.5"), DbValue(std::string("1.5")));
}

}  // namespace
}  // namespace camrelay::store
