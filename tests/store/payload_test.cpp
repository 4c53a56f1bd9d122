#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "store/download.h"
#include "store/payload.h"
#include "store_fixture.h"

namespace camrelay::test {
namespace {

using store::DbValue;
using store::LoadDataFromDB;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

DbValue N(std::int64_t number) { return number; }
DbValue T(const char* text) { return std::string(text); }
const DbValue Null;

std::string Element(std::size_t index, const std::string& body) {
  return "{}" + std::to_string(index) + "{}" + std::to_string(body.size()) + "\r\n" + body;
}

using PayloadTest = EngineTest;

// Every table takes an element of its own, empty ones included, in the
// programming and in the camera events' alike. Both engines give the same
// texts and the same type numbers.
TEST_P(PayloadTest, RecordLineCarriesEveryFieldWithItsType) {
  Add("Ingressi", {N(1), T("Porta – Città"), N(1), N(0), Null, N(2), N(0), N(1), T("allarme.wav"), T("")});
  Add("ImpostazioniVideo", {T("PAL"), Null, N(80), N(30), N(0), T("1899-12-30 22:00:00"), T("1899-12-30"), N(1),
                            T("2024-03-05 14:05:09")});
  std::vector<std::string> Dati{"stale"};
  LoadDataFromDB(Dati, db, &form, "123456");
  EXPECT_THAT(Dati, ElementsAre("AA{}6{}01{}123456",
                                Element(1, "{}Ingressi{}9{}1{}3{}Porta \x96 Citt\xE0{}202{}Vero{}11{}Falso{}11"
                                           "{}{NULL}{}3{}2{}3{}Falso{}11{}Vero{}11{}allarme.wav{}202{}{}203\r\n"),
                                "{}2{}0\r\n", "{}3{}0\r\n", "{}4{}0\r\n", "{}5{}0\r\n",
                                Element(6, "{}ImpostazioniVideo{}8{}PAL{}202{}{NULL}{}202{}80{}3{}30{}3{}Falso{}11"
                                           "{}22:00:00{}7{}00:00:00{}7{}Vero{}11{}05/03/2024 14:05:09{}7\r\n")));
  Add("Festivita", {T("2024-12-25"), T("Natale"), N(1)});
  store::LoadProgCamEventsFromDB(Dati, db, &form, "9");
  EXPECT_THAT(Dati, ElementsAre("AA{}2{}55{}9", "{}1{}0\r\n",
                                Element(2, "{}Festivita{}2{}25/12/2024{}7{}Natale{}202{}Vero{}11\r\n")));
  EXPECT_TRUE(form.lines.empty());
}

// Records are never split: an element is closed by the record line that
// takes it past 3072 bytes, and every table starts an element of its own.
// The lines here are 1024 bytes: three fill 3072 without passing it.
TEST_P(PayloadTest, ElementsCloseAfterTheLineThatPassesTheLimit) {
  for (int rows : {4, 9}) {
    db.Execute("Del_Ingressi");
    for (int i = 1; i <= rows; ++i)
      Add("Ingressi", {N(i), Null, N(0), N(0), Null, Null, N(0), N(0), Null, DbValue(std::string(904, 'x'))});
    std::vector<std::string> Dati;
    LoadDataFromDB(Dati, db, &form, "C");
    std::vector<std::string> bodies = Bodies(Dati);
    auto sizes = rows == 4 ? std::vector<std::size_t>{4096, 0} : std::vector<std::size_t>{4096, 4096, 1024};
    ASSERT_EQ(Dati.size(), sizes.size() + 6) << rows;
    for (std::size_t i = 0; i < sizes.size(); ++i)
      EXPECT_EQ(bodies[i + 1].size(), sizes[i]) << rows << " rows, element " << i + 1;
  }
}

// An existing database is used as it is: its own columns are sent.
TEST_P(PayloadTest, TablesOfTheDatabaseRuleAndAMissingOneIsReported) {
  Sql(std::string("DROP TABLE \"Ingressi\"; DROP TABLE \"MMS\"; CREATE TABLE \"Ingressi\" ") +
      (engine == Engine::SQLite ? "(Nome TEXT(5), Valore LONG)" : "(\"Nome\" varchar(5), \"Valore\" integer)"));
  Add("Ingressi", {T("a"), N(7)});
  db.Close();
  std::vector<std::string> Dati;
  LoadDataFromDB(Dati, db, &form, "C");
  EXPECT_THAT(Dati, ElementsAre("AA{}6{}01{}C", Element(1, "{}Ingressi{}1{}a{}202{}7{}3\r\n"), "{}2{}0\r\n",
                                "{}3{}0\r\n", "{}4{}0\r\n", "{}5{}0\r\n", "{}6{}0\r\n"));
  EXPECT_THAT(form.lines, ElementsAre("LoadDataFromDB: Attenzione il DB era chiuso ed è stato aperto",
                                      AllOf(StartsWith("LoadDataFromDB: "), HasSubstr("MMS"))));
  // A database that cannot be opened leaves nothing but the start.
  db.Close();
  db.SetConnectionString("Provider=Microsoft.Jet.OLEDB.4.0;Data Source=VideoSentrova.mdb");
  LoadDataFromDB(Dati, db, &form, "C");
  EXPECT_THAT(Dati, ElementsAre("AA"));
}

// A text holding the separator or a line end would break the record line:
// its record is reported and left out, the others go.
TEST_P(PayloadTest, RecordsThatTheLineCannotCarryAreLeftOut) {
  Add("CanaliVideo", {N(1), T("a{}b"), N(0), Null, Null, DbValue(1.0)});
  Add("CanaliVideo", {N(2), T("ok"), N(0), Null, Null, DbValue(12.5)});
  Add("CanaliVideo", {N(3), T("riga\r\ndue"), N(0), Null, Null, DbValue(2.0)});
  Add("CanaliVideo", {N(4), T("a{\r}b\n"), N(0), Null, Null, DbValue(0.5)});
  std::vector<std::string> Dati;
  LoadDataFromDB(Dati, db, &form, "C");
  EXPECT_EQ(Bodies(Dati)[4],
            "{}CanaliVideo{}9{}2{}3{}ok{}202{}Falso{}11{}{NULL}{}202{}{NULL}{}3{}12,5{}4{}{NULL}{}3{}{NULL}{}3"
            "{}{NULL}{}3{}{NULL}{}3\r\n"
            "{}CanaliVideo{}9{}4{}3{}a{\r}b\n{}202{}Falso{}11{}{NULL}{}202{}{NULL}{}3{}0,5{}4{}{NULL}{}3{}{NULL}{}3"
            "{}{NULL}{}3{}{NULL}{}3\r\n");
  const char* reason = "a text holding \"{}\" or a line end cannot be sent; the record was left out";
  EXPECT_THAT(form.lines, ElementsAre(std::string("LoadDataFromDB: CanaliVideo record 1, field 1 (Nome): ") + reason,
                                      std::string("LoadDataFromDB: CanaliVideo record 3, field 1 (Nome): ") + reason));
}

ON_BOTH_ENGINES(PayloadTest);

}  // namespace
}  // namespace camrelay::test
