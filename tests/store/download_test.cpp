#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "store/download.h"
#include "store/dump.h"
#include "store_fixture.h"

namespace camrelay::test {
namespace {

using store::SaveVideoSentrovaDB;
using ::testing::ElementsAre;
using Row = std::vector<std::optional<std::string>>;

class DownloadTest : public StoreTest {
 protected:
  std::vector<Row> Rows(const std::string& table) { return store::DumpTable(db, table).rows; }
  // The first fields of each row of a table.
  std::vector<Row> Leading(const std::string& table, std::size_t fields) {
    std::vector<Row> rows = Rows(table);
    for (Row& row : rows) row.resize(fields);
    return rows;
  }
  void Save(std::vector<std::string> Dati) { SaveVideoSentrovaDB(Dati, db, &form); }
};

// "{}Ingressi{}0{}<n>{}3" CR LF: an input with its number only.
std::string Input(int number) { return "{}Ingressi{}0{}" + std::to_string(number) + "{}3\r\n"; }

std::string LogLine(const std::string& id, const std::string& when, const std::string& text) {
  return "{}Registro_eventi{}3{}" + id + "{}3{}" + when + "{}7{}12{}3{}" + text + "{}202\r\n";
}

TEST_F(DownloadTest, NothingAfterElementZeroChangesNothing) {
  Sql("INSERT INTO Ingressi (NumeroIngresso) VALUES (1)");
  Save({});
  Save({Input(2)});
  EXPECT_EQ(Rows("Ingressi").size(), 1u);
  EXPECT_TRUE(form.lines.empty());
}

TEST_F(DownloadTest, ProgrammingTablesAreEmptiedAndTheLogKept) {
  Sql("INSERT INTO Ingressi (NumeroIngresso) VALUES (1); INSERT INTO NumTel (Posizione) VALUES (1);"
      "INSERT INTO Registro_eventi (DataOra) VALUES ('2024-01-01')");
  Save({"", "no record here\r\n"});
  for (const char* table : {"Ingressi", "MMS", "NumTel", "CanaliVideo", "Alimentazione", "ImpostazioniVideo"})
    EXPECT_TRUE(Rows(table).empty()) << table;
  EXPECT_EQ(Rows("Registro_eventi").size(), 1u);
  EXPECT_TRUE(form.lines.empty());
}

TEST_F(DownloadTest, LogIsAppendedAndNumberedByTheDatabase) {
  Save({"", LogLine("99", "05/03/2024 14:05:09", "Allarme Citt\xE0")});
  Save({"", LogLine("99", "6/3/2024", "Rete \x96 assente")});
  EXPECT_THAT(Leading("Registro_eventi", 4),
              ElementsAre(Row{"1", "2024-03-05 14:05:09", "12", "Allarme Città"},
                          Row{"2", "2024-03-06", "12", "Rete – assente"}));
}

TEST_F(DownloadTest, LinesAreCutAsTheyArrive) {
  // A line split over two elements is stored once; a buffer that starts
  // with CR LF loses its first line; text still waiting after the last
  // element is dropped.
  Save({"", "{}Ingressi{}1{}1{}3{}Por", "ta{}202\r\n", "\r\n" + Input(2) + Input(3), Input(4), "{}Ingressi{}0{}5"});
  EXPECT_THAT(Leading("Ingressi", 2), ElementsAre(Row{"1", "Porta"}, Row{"3", std::nullopt}, Row{"4", std::nullopt}));
  EXPECT_TRUE(form.lines.empty());
}

TEST_F(DownloadTest, TextAfterTheLastLineEndOfAnElementIsReported) {
  Save({"", Input(1) + "{}Ingressi{}0{}5", Input(2)});
  EXPECT_THAT(Leading("Ingressi", 1), ElementsAre(Row{"1"}, Row{"2"}));
  EXPECT_THAT(form.lines, ElementsAre("SaveVideoSentrovaDB on line 21: the text after the last line end was not "
                                      "stored: \"{}Ingressi{}0{}5\""));
}

TEST_F(DownloadTest, BooleansAndNulls) {
  Save({"", "{}Ingressi{}3{}1{}3{}{NULL}{}202{}Falso{}11{}False{}11\r\n"
            "{}Ingressi{}3{}2{}3{}{}202{}{NULL}{}11{}{}11\r\n"
            "{}Ingressi{}3{}3{}3{}x{}202{}True{}11{}0{}11{}\r\n"});
  EXPECT_THAT(Leading("Ingressi", 4), ElementsAre(Row{"1", std::nullopt, "0", "1"}, Row{"2", "", "0", "1"},
                                                  Row{"3", "x", "1", "1"}));
  EXPECT_TRUE(form.lines.empty());
}

TEST_F(DownloadTest, BadFieldsAndRecordsAreSkippedAndTheRestStored) {
  Save({"",
        "{}Ingressi{}4{}1{}3{}a{}202{}Vero{}11{}Falso{}11{}abc{}3\r\n"  // bad field: stored without it
        "{}Ingressi{}0{}{NULL}{}3\r\n"                                   // no input number: refused
        "{}Nessuna{}0{}1{}3\r\n{}Del_Ingressi{}0{}1{}3\r\n"              // no such table: ignored
        "{}Ingressi{}2{}9{}3{}b{}202\r\n",                                // cut short
        "{}NumTel{}7{}1{}3{}{}202{}{}202{}Vero{}11{}Vero{}11{}Vero{}11{}3{}2{}x{}202\r\n" + Input(2)});
  EXPECT_THAT(Leading("Ingressi", 5), ElementsAre(Row{"1", "a", "1", "0", std::nullopt}, Row{"2", std::nullopt, "0",
                                                                                          "0", std::nullopt}));
  EXPECT_EQ(Rows("NumTel").size(), 1u);
  EXPECT_THAT(form.lines,
              ElementsAre("SaveVideoSentrovaDB on line 21: Ingressi field 4 (RitardoSecondi): \"abc\" is not a "
                          "whole number",
                          "SaveVideoSentrovaDB on line 21: Ingressi: NOT NULL constraint failed: "
                          "Ingressi.NumeroIngresso",
                          "SaveVideoSentrovaDB on line 21: a record of Ingressi ends after 2 of its 3 fields: "
                          "\"{}Ingressi{}2{}9{}3{}b{}202\"",
                          "SaveVideoSentrovaDB on line 22: field 7 is beyond the 7 fields of NumTel"));
}

TEST_F(DownloadTest, MissingTableIsReportedWithItsStep) {
  Sql("DROP TABLE MMS; INSERT INTO NumTel (Posizione) VALUES (5)");
  Save({"", Input(1)});
  EXPECT_THAT(form.lines, ElementsAre("SaveVideoSentrovaDB on line 3: no such table: MMS",
                                      "SaveVideoSentrovaDB on line 4: no such table: MMS"));
  EXPECT_EQ(Rows("Ingressi").size(), 1u);
  EXPECT_TRUE(Rows("NumTel").empty());

  // Before the first table is emptied a failure ends the store untouched.
  form.lines.clear();
  Sql("DROP TABLE Ingressi; INSERT INTO NumTel (Posizione) VALUES (5)");
  Save({"", "{}NumTel{}0{}6{}3\r\n"});
  EXPECT_THAT(form.lines, ElementsAre("SaveVideoSentrovaDB on line 1: no such table: Ingressi"));
  EXPECT_THAT(Rows("NumTel"), ElementsAre(Row{"5", std::nullopt, std::nullopt, "0", "0", "0", std::nullopt}));
}

TEST_F(DownloadTest, ClosedDatabaseOpensItselfWithoutAnEvent) {
  db.Close();
  db.StatoDB = cDbChiuso;
  Save({"", Input(1)});
  EXPECT_THAT(form.lines, ElementsAre("SaveVideoSentrovaDB: Attenzione il DB era chiuso ed è stato aperto"));
  EXPECT_EQ(db.StatoDB, cDbAperto);
  EXPECT_EQ(Rows("Ingressi").size(), 1u);
}

// A form that dies on the first report: the process stops in the middle of
// the store, as a crash would.
class DyingSink : public DebugSink {
 public:
  void CreateEventOnDebug(const std::string&) override { _exit(3); }
};

TEST_F(DownloadTest, CrashPartWayLeavesThePreviousContent) {
  Sql("INSERT INTO Ingressi (NumeroIngresso, Descrizione) VALUES (1, 'prima')");
  // Enough records to spill the page cache into the file before the crash.
  std::vector<std::string> Dati{""};
  for (int i = 0; i < 40000; ++i) Dati.push_back("{}Ingressi{}1{}" + std::to_string(i) + "{}3{}" +
                                                 std::string(100, 'n') + "{}202\r\n");
  Dati.push_back("{}Ingressi{}0{}bad{}3\r\n");
  EXPECT_EXIT(
      {
        store::DataVideo other;
        other.SetConnectionString(db.ConnectionString());
        other.Open();
        DyingSink dying;
        SaveVideoSentrovaDB(Dati, other, &dying);
      },
      ::testing::ExitedWithCode(3), "");
  db.Close();
  db.Open();
  EXPECT_THAT(Leading("Ingressi", 2), ElementsAre(Row{"1", "prima"}));
}

TEST_F(DownloadTest, AppendedLinesEmptyNothing) {
  Sql("INSERT INTO Ingressi (NumeroIngresso) VALUES (1)");
  std::vector<std::string> Dati{"AA{}2{}03",
                                LogLine("7", "05/03/2024 10:00", "uno") + LogLine("8", "05/03/2024 9:00", "due"),
                                "{}CamEvents{}5{}05/03/2024{}7{}1{}3{}Movimento{}202{}cam1.avi{}202{}12{}3"
                                "{}{NULL}{}11\r\n"};
  EXPECT_EQ(store::AppendRecordLines(Dati, db, &form), 3);
  EXPECT_EQ(Rows("Ingressi").size(), 1u);
  EXPECT_THAT(Leading("Registro_eventi", 2),
              ElementsAre(Row{"1", "2024-03-05 10:00:00"}, Row{"2", "2024-03-05 09:00:00"}));
  EXPECT_EQ(Rows("CamEvents").at(0).at(5), "1");
  // The log query reads it in time order.
  store::Recordset log = db.OpenRecordset("Registro_eventi");
  EXPECT_EQ(store::DbText(log.Value(3)), "due");
}

}  // namespace
}  // namespace camrelay::test
