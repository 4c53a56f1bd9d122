#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "store/payload.h"
#include "store_fixture.h"

namespace camrelay::test {
namespace {

using store::LoadDataFromDB;
using store::LoadProgCamEventsFromDB;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

std::string Element(int index, const std::string& body) {
  return "{}" + std::to_string(index) + "{}" + std::to_string(body.size()) + "\r\n" + body;
}

using PayloadTest = StoreTest;

TEST_F(PayloadTest, EmptyTablesStillTakeOneElementEach) {
  std::vector<std::string> Dati{"stale"};
  LoadDataFromDB(Dati, db, &form, "123456");
  EXPECT_THAT(Dati, ElementsAre("AA{}6{}01{}123456", "{}1{}0\r\n", "{}2{}0\r\n", "{}3{}0\r\n", "{}4{}0\r\n",
                                "{}5{}0\r\n", "{}6{}0\r\n"));
  EXPECT_TRUE(form.lines.empty());
}

TEST_F(PayloadTest, RecordLineCarriesEveryFieldWithItsType) {
  Sql("INSERT INTO Ingressi VALUES (1, 'Porta – Città', 1, 0, NULL, 2, 0, 1, 'allarme.wav', '')");
  Sql("INSERT INTO ImpostazioniVideo VALUES ('PAL', NULL, 80, 30, 0, '1899-12-30 22:00:00', '06:30:00', 1, "
      "'2024-03-05')");
  std::vector<std::string> Dati;
  LoadDataFromDB(Dati, db, &form, "C");
  ASSERT_EQ(Dati.size(), 7u);
  EXPECT_EQ(Dati[1], Element(1,
                             "{}Ingressi{}9{}1{}3{}Porta \x96 Citt\xE0{}202{}Vero{}11{}Falso{}11{}{NULL}{}3{}2{}3"
                             "{}Falso{}11{}Vero{}11{}allarme.wav{}202{}{}203\r\n"));
  EXPECT_EQ(Dati[6], Element(6,
                             "{}ImpostazioniVideo{}8{}PAL{}202{}{NULL}{}202{}80{}3{}30{}3{}Falso{}11"
                             "{}22:00:00{}7{}06:30:00{}7{}Vero{}11{}05/03/2024{}7\r\n"));
}

// Records are never split: an element is closed by the record line that
// takes it past 3072 bytes, and every table starts an element of its own.
TEST_F(PayloadTest, ElementsCloseAfterTheLineThatPassesTheLimit) {
  for (int rows : {4, 9}) {
    Sql("DELETE FROM Ingressi");
    for (int i = 0; i < rows; ++i)
      Sql("INSERT INTO Ingressi (NumeroIngresso, Note) VALUES (" + std::to_string(i) + ", '" +
          std::string(800, 'x') + "')");
    std::vector<std::string> Dati;
    LoadDataFromDB(Dati, db, &form, "C");
    std::vector<std::string> bodies = Bodies(Dati);
    // 4 lines of ~920 bytes pass the limit; after 4 rows the next element
    // stays empty, after 9 it holds the ninth.
    std::vector<std::size_t> lines{4, rows == 4 ? 0u : 4u};
    if (rows == 9) lines.push_back(1);
    ASSERT_EQ(Dati.size(), 1 + lines.size() + 5) << rows;
    EXPECT_EQ(Dati[0], "AA{}" + std::to_string(Dati.size() - 1) + "{}01{}C");
    for (std::size_t i = 0; i < lines.size(); ++i) {
      const std::string& body = bodies[i + 1];
      EXPECT_EQ(Dati[i + 1], Element(static_cast<int>(i + 1), body));
      std::size_t count = 0;
      for (std::size_t at = body.find("{}Ingressi{}"); at != std::string::npos; at = body.find("{}Ingressi{}", at + 1))
        ++count;
      EXPECT_EQ(count, lines[i]) << rows << " rows, element " << i + 1;
      if (count == 4) {
        EXPECT_GT(body.size(), 3072u);
        EXPECT_LE(body.rfind("{}Ingressi{}"), 3072u);
      }
      if (count > 0) {
        EXPECT_TRUE(body.ends_with("\r\n"));
      }
    }
  }
}

TEST_F(PayloadTest, TablesOfTheDatabaseRuleAndAMissingOneIsReported) {
  db.Close();
  {
    store::DataVideo own;
    own.SetConnectionString((dir / "own.db").string());
    own.Open();
    store::Exec(own.Handle(), "DROP TABLE Ingressi; DROP TABLE MMS; CREATE TABLE Ingressi (Nome TEXT(5), Valore LONG);"
                              "INSERT INTO Ingressi VALUES ('a', 7)");
  }
  db.SetConnectionString((dir / "own.db").string());
  std::vector<std::string> Dati;
  LoadDataFromDB(Dati, db, &form, "C");
  ASSERT_EQ(Dati.size(), 7u);
  EXPECT_EQ(Dati[1], Element(1, "{}Ingressi{}1{}a{}202{}7{}3\r\n"));
  EXPECT_EQ(Dati[2], "{}2{}0\r\n");
  EXPECT_THAT(form.lines, ElementsAre("LoadDataFromDB: Attenzione il DB era chiuso ed è stato aperto",
                                      "LoadDataFromDB: no such table: MMS"));
  EXPECT_EQ(db.StatoDB, cDbAperto);
}

TEST_F(PayloadTest, DatabaseThatCannotOpenLeavesOnlyTheStart) {
  db.Close();
  db.SetConnectionString("Provider=Microsoft.Jet.OLEDB.4.0;Data Source=VideoSentrova.mdb");
  std::vector<std::string> Dati;
  LoadDataFromDB(Dati, db, &form, "C");
  EXPECT_THAT(Dati, ElementsAre("AA"));
  ASSERT_EQ(form.lines.size(), 2u);
  EXPECT_THAT(form.lines[1], HasSubstr("LoadDataFromDB: the provider Microsoft.Jet.OLEDB.4.0"));
  EXPECT_EQ(db.StatoDB, cDbChiuso);
}

TEST_F(PayloadTest, CameraEventProgrammingSendsBothTablesAlways) {
  std::vector<std::string> Dati;
  LoadProgCamEventsFromDB(Dati, db, &form, "9");
  EXPECT_THAT(Dati, ElementsAre("AA{}2{}55{}9", "{}1{}0\r\n", "{}2{}0\r\n"));

  Sql("INSERT INTO Festivita VALUES ('2024-12-25', 'Natale', 1)");
  LoadProgCamEventsFromDB(Dati, db, &form, "9");
  EXPECT_THAT(Dati, ElementsAre("AA{}2{}55{}9", "{}1{}0\r\n",
                                Element(2, "{}Festivita{}2{}25/12/2024{}7{}Natale{}202{}Vero{}11\r\n")));
}

}  // namespace
}  // namespace camrelay::test
