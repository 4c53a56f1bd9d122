// The unit's own record lines and values, read against the protocol's
// wording: what the component sends must land in the unit's tables, and what
// the unit holds must go out as the component reads it.
#include <gtest/gtest.h>

#include "camrelay-unit/demo_content.h"
#include "camrelay-unit/folder_content.h"
#include "temp_dir.h"

namespace camrelay::unit {
namespace {

TEST(Values, TextDatesBooleansAndRealsTravelTheUnitsWay) {
  std::string every;
  for (int b = 0; b < 256; ++b) every.push_back(static_cast<char>(b));
  EXPECT_EQ(Utf8ToCp1252(Cp1252ToUtf8(every)), every);
  EXPECT_EQ(Cp1252ToUtf8("Citt\xe0 \x80"), "Città €");
  EXPECT_EQ(Utf8ToCp1252("Ω"), "?");

  EXPECT_EQ(WireText(3, std::monostate{}), "{NULL}");
  EXPECT_EQ(WireText(11, std::int64_t{0}), "Falso");
  EXPECT_EQ(WireText(11, std::int64_t{1}), "Vero");
  EXPECT_EQ(WireText(4, 12.5), "12,5");
  EXPECT_EQ(WireText(7, std::string("2025-06-12 08:15:30")), "12/06/2025 08:15:30");
  EXPECT_EQ(WireText(7, std::string("1899-12-30 07:30:00")), "07:30:00");
  EXPECT_EQ(WireText(7, std::string("domani")), "domani") << "a text that is no date goes as it is";

  EXPECT_EQ(StoredValue("3", "2,5"), Value(std::int64_t{2})) << "halves to even";
  EXPECT_EQ(StoredValue("5", "12.5"), Value(12.5));
  EXPECT_EQ(StoredValue("11", "False"), Value(std::int64_t{1})) << "only Falso is false";
  EXPECT_EQ(StoredValue("11", "Falso"), Value(std::int64_t{0}));
  EXPECT_EQ(StoredValue("7", "7:30"), Value(std::string("1899-12-30 07:30:00")));
  EXPECT_EQ(StoredValue("7", "1/2/2024"), Value(std::string("2024-02-01")));
  for (const char* bad : {"29/02/2025", "domani"}) EXPECT_THROW(StoredValue("7", bad), std::invalid_argument) << bad;
  EXPECT_THROW(StoredValue("3", "3000000000"), std::invalid_argument);
}

TEST(RecordLines, AreReadWithTheirTypesAndAnOptionalLastSeparator) {
  const auto line = ParseRecordLine("{}NumTel{}1{}{NULL}{}3{}Mario{}202{}");
  ASSERT_TRUE(line);
  EXPECT_EQ(line->table, "NumTel");
  ASSERT_EQ(line->fields.size(), 2u);
  EXPECT_EQ(line->fields[0].value, "{NULL}");
  EXPECT_EQ(line->fields[1].type, "202");
  for (const char* bad : {"NumTel{}0{}1{}3", "{}NumTel{}1{}1{}3"}) EXPECT_FALSE(ParseRecordLine(bad)) << bad;
}

// The demo goes out and comes back into an empty unit unchanged, and a
// programming is replaced, never added to.
TEST(RecordLines, TablesMakeTheRoundTripWhole) {
  const Log quiet{Log::Quiet};
  camrelay::test::TempDir a, b;
  FolderContent source{a.path(), quiet}, target{b.path(), quiet};
  FillDemoTables(source.Db());
  const auto bodies = [](std::vector<std::string> dati) {
    for (auto& element : dati) element.erase(0, element.find("\r\n") + 2);
    return dati;
  };
  for (int times = 0; times < 2; ++times) {
    auto programming = bodies(source.Programmazione());
    auto camEvents = bodies(source.ProgCamEvents());
    target.StoreProgrammazione(programming);
    target.StoreProgCamEvents(camEvents);
  }
  EXPECT_EQ(target.Programmazione(), source.Programmazione());
  EXPECT_EQ(target.ProgCamEvents(), source.ProgCamEvents());
  // An element is closed by the first whole line that takes it past 3072.
  const auto log = bodies(source.Log());
  ASSERT_GT(log.size(), 30u);
  for (std::size_t i = 1; i + 1 < log.size(); ++i) {
    EXPECT_GT(log[i].size(), 3072u);
    EXPECT_LE(log[i].rfind("\r\n", log[i].size() - 3) + 2, 3072u) << "element " << i;
  }
  EXPECT_EQ(FolderContent(camrelay::test::TempDir().path(), quiet).Programmazione(),
            (std::vector<std::string>{"AA{}6{}02{}", "{}1{}0\r\n", "{}2{}0\r\n", "{}3{}0\r\n", "{}4{}0\r\n",
                                      "{}5{}0\r\n", "{}6{}0\r\n"}));
}

}  // namespace
}  // namespace camrelay::unit
