#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <functional>

#include "store/commit_check.h"
#include "store/download.h"
#include "store/postgres_backend.h"
#include "store_fixture.h"

namespace camrelay::test {
namespace {

using store::SaveVideoSentrovaDB;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class DownloadTest : public EngineTest {
 protected:
  void Save(std::vector<std::string> Dati) { SaveVideoSentrovaDB(Dati, db, &form); }
};

// An input with its number only.
std::string Input(int number) { return "{}Ingressi{}0{}" + std::to_string(number) + "{}3\r\n"; }

// The old programming goes. A line split over two elements is stored once;
// a buffer that starts with CR LF loses its first line; text after the last
// line end of an element is reported, and text still waiting after the last
// element dropped.
TEST_P(DownloadTest, LinesAreCutAsTheyArrive) {
  Add("Ingressi", {std::int64_t{9}, std::string("vecchio")});
  Save({"", "{}Ingressi{}1{}1{}3{}Por", "ta{}202\r\n", "\r\n" + Input(2) + Input(3), Input(4) + "{}Ingressi{}0{}5",
        Input(6), "{}Ingressi{}0{}7"});
  EXPECT_THAT(Rows("Ingressi", 2), ElementsAre(Row{"1", "Porta"}, Row{"3", std::nullopt}, Row{"4", std::nullopt},
                                               Row{"6", std::nullopt}));
  EXPECT_THAT(form.lines, ElementsAre("SaveVideoSentrovaDB on line 24: the text after the last line end was not "
                                      "stored: \"{}Ingressi{}0{}5\""));
}

// A Null leaves the default, only "Falso" is False; a bad field is left out
// and a bad record skipped, each reported, and the rest stored.
TEST_P(DownloadTest, FieldsAndRecordsThatCannotBeStoredAreSkipped) {
  Save({"",
        "{}Ingressi{}4{}1{}3{}{NULL}{}202{}Falso{}11{}False{}11{}abc{}3\r\n"
        "{}Ingressi{}3{}2{}3{}{}202{}{NULL}{}11{}{}11{}\r\n"
        "{}Ingressi{}0{}{NULL}{}3\r\n"
        "{}Nessuna{}0{}1{}3\r\n{}Del_Ingressi{}0{}1{}3\r\n"
        "{}Ingressi{}2{}9{}3{}b{}202\r\n",
        Input(3)});
  EXPECT_THAT(Rows("Ingressi", 5),
              ElementsAre(Row{"1", std::nullopt, "0", "1", std::nullopt}, Row{"2", "", "0", "1", std::nullopt},
                          Row{"3", std::nullopt, "0", "0", std::nullopt}));
  EXPECT_THAT(form.lines,
              ElementsAre("SaveVideoSentrovaDB on line 21: Ingressi field 4 (RitardoSecondi): \"abc\" is not a "
                          "whole number",
                          AllOf(StartsWith("SaveVideoSentrovaDB on line 21: Ingressi: "), HasSubstr("NumeroIngresso")),
                          "SaveVideoSentrovaDB on line 21: a record of Ingressi ends after 2 of its 3 fields: "
                          "\"{}Ingressi{}2{}9{}3{}b{}202\""));
}

// A missing table is reported with its step and the rest stored; before the
// first table is emptied, a failure ends the store untouched.
TEST_P(DownloadTest, MissingTableIsReportedWithItsStep) {
  Sql("DROP TABLE \"MMS\"");
  Save({"", Input(1)});
  EXPECT_THAT(form.lines, ElementsAre(AllOf(StartsWith("SaveVideoSentrovaDB on line 3: "), HasSubstr("MMS")),
                                      AllOf(StartsWith("SaveVideoSentrovaDB on line 4: "), HasSubstr("MMS"))));
  EXPECT_EQ(Rows("Ingressi").size(), 1u);
  form.lines.clear();
  Sql("DROP TABLE \"Ingressi\"; INSERT INTO \"NumTel\" (\"Posizione\") VALUES (5)");
  Save({"", "{}NumTel{}0{}6{}3\r\n"});
  EXPECT_THAT(form.lines,
              ElementsAre(AllOf(StartsWith("SaveVideoSentrovaDB on line 1: "), HasSubstr("Ingressi"))));
  EXPECT_THAT(Rows("NumTel", 1), ElementsAre(Row{"5"}));
}

// Runs the store in this (child) process with files limited to `limit`
// bytes, prints its reports on standard error, and exits 0 when the
// transaction is no longer open afterwards.
[[noreturn]] void StoreUnderFileSizeLimit(const std::string& connection, std::vector<std::string> Dati,
                                          rlim_t limit) {
  store::DataVideo db;
  db.SetConnectionString(connection);
  db.Open();
  // A small cache spills to the files early, where the limit bites.
  db.Handle().Exec("PRAGMA cache_size = 16");
  std::signal(SIGXFSZ, SIG_IGN);
  const rlimit small{limit, limit};
  setrlimit(RLIMIT_FSIZE, &small);
  RecordingSink form;
  SaveVideoSentrovaDB(Dati, db, &form);
  for (const std::string& line : form.lines) std::fprintf(stderr, "%s\n", line.c_str());
  _exit(db.Handle().InTransaction() ? 4 : 0);
}

// A file-size limit stands in for a full disk: the writes of the store
// fail part-way and SQLite rolls the whole transaction back by itself. The
// store must stop there rather than go on writing outside it.
using DiskFullTest = StoreTest;

TEST_F(DiskFullTest, StoreCutShortByTheDiskIsRolledBackAndReported) {
  Sql("INSERT INTO Ingressi (NumeroIngresso, Descrizione) VALUES (1, 'prima')");
  std::vector<std::string> Dati{""};
  for (int i = 0; i < 4000; ++i)
    Dati.push_back("{}Ingressi{}1{}" + std::to_string(i + 2) + "{}3{}" + std::string(200, 'n') + "{}202\r\n");
  const rlim_t limit = std::filesystem::file_size(dir / "VideoSentrova.db") + 256 * 1024;
  EXPECT_EXIT(StoreUnderFileSizeLimit(db.ConnectionString(), Dati, limit), ::testing::ExitedWithCode(0),
              "SaveVideoSentrovaDB on line [0-9]+: the database ended the transaction by itself; nothing of this "
              "download was stored and the previous content is kept\n$");
  db.Close();
  EXPECT_THAT(Rows("Ingressi", 2), ElementsAre(Row{"1", "prima"}));
}

// The log is only ever added to, numbered by the database; the append entry
// point empties nothing; a download with no element after the first changes
// nothing.
TEST_P(DownloadTest, LogIsOnlyAppended) {
  Sql("INSERT INTO \"Registro_eventi\" (\"DataOra\") VALUES ('2024-01-01')");
  Save({"", LogLine(99, "05/03/2024 14:05:09", "Allarme Citt\xE0")});
  Add("Ingressi", {std::int64_t{1}});
  Save({Input(2)});  // nothing after element 0: nothing changes
  EXPECT_EQ(store::AppendRecordLines({Input(3)}, db, &form), 0);
  std::vector<std::string> Dati{"AA{}2{}03",
                                LogLine(7, "6/3/2024", "Rete \x96 assente") + LogLine(8, "05/03/2024 9:00", "due"),
                                "{}CamEvents{}5{}05/03/2024{}7{}1{}3{}Movimento{}202{}cam1.avi{}202{}12{}3"
                                "{}{NULL}{}11\r\n"};
  EXPECT_EQ(store::AppendRecordLines(Dati, db, &form), 3);
  EXPECT_EQ(Rows("Ingressi").size(), 1u);
  EXPECT_THAT(Rows("Registro_eventi", 4), ElementsAre(Row{"1", "2024-01-01", std::nullopt, std::nullopt},
                                                      Row{"2", "2024-03-05 14:05:09", "12", "Allarme Città"},
                                                      Row{"3", "2024-03-06", "12", "Rete – assente"},
                                                      Row{"4", "2024-03-05 09:00:00", "12", "due"}));
  EXPECT_THAT(Rows("CamEvents"), ElementsAre(Row{"2024-03-05", "1", "Movimento", "cam1.avi", "12", "1"}));
  EXPECT_TRUE(form.lines.empty());
}

ON_BOTH_ENGINES(DownloadTest);

// A distant server costs a round trip per exchange: a transfer takes as many
// exchanges whatever the number of its records. A record the server refuses
// in the middle of a batch is still named with its line's step, the others
// of its batch kept.
class ServerBatchTest : public StoreTest {
 protected:
  ServerBatchTest() : StoreTest(Engine::PostgreSQL) {}
  void TearDown() override { store::LimitServerConnections(0); }
  long RoundTripsOf(const std::function<void()>& store) {
    const long before = db.Handle().RoundTrips();
    store();
    return db.Handle().RoundTrips() - before;
  }
};

TEST_F(ServerBatchTest, TransferTakesTheSameRoundTripsWhateverItsRecordsAndARefusalIsNamed) {
  int added = 0;
  const long few = RoundTripsOf([&] { added = store::AddNewRecords(LogTransfer(0, 3), db, "Registro_eventi", &form); });
  EXPECT_EQ(added, 3);
  const long many =
      RoundTripsOf([&] { added = store::AddNewRecords(LogTransfer(0, 400), db, "Registro_eventi", &form); });
  EXPECT_EQ(added, 397);
  EXPECT_EQ(many, few);
  EXPECT_LE(few, 12);
  EXPECT_LE(RoundTripsOf([&] { EXPECT_EQ(store::AppendRecordLines(LogTransfer(400, 50), db, &form), 50); }), 8);

  std::vector<std::string> Dati{""};
  for (int i = 1; i <= 300; ++i) Dati.push_back(Input(i));
  EXPECT_LE(RoundTripsOf([&] { store::SaveVideoSentrovaDB(Dati, db, &form); }), 24);
  EXPECT_EQ(Rows("Ingressi").size(), 300u);
  for (int i : {30, 40}) Dati[i] += "{}Ingressi{}0{}{NULL}{}3\r\n";
  store::SaveVideoSentrovaDB(Dati, db, &form);
  EXPECT_EQ(Rows("Ingressi").size(), 300u);
  EXPECT_THAT(form.lines,
              ElementsAre(AllOf(StartsWith("SaveVideoSentrovaDB on line 50: Ingressi: "), HasSubstr("NumeroIngresso")),
                          AllOf(StartsWith("SaveVideoSentrovaDB on line 60: Ingressi: "), HasSubstr("NumeroIngresso"))));
}

// The units of a fleet share a few server connections. One the server
// loses (a restart, a network cut) inside a store fails that store whole
// and reported, and is replaced for the next store. The limit itself, and
// a server restarted under a running fleet, are the fleet's end-to-end tests.
TEST_F(ServerBatchTest, AStoreCutShortByALostConnectionIsReportedAndTheNextStoresIt) {
  store::LimitServerConnections(2);
  const std::string tag = schemas.Schema("pool");
  db.Close();
  db.SetConnectionString(schemas.Uri("lost") + "&application_name=" + tag);
  db.Open();
  const std::string schema = std::get<store::ServerDatabase>(store::ParseConnection(db.ConnectionString())).schema;
  store::SetCommitCheck(schema, [&](store::Backend&) {
    auto watcher = store::ConnectPostgres(std::get<store::ServerDatabase>(store::ParseConnection(Connection("w"))));
    watcher->Exec("SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE application_name = " +
                  watcher->Literal(tag));
  });
  EXPECT_EQ(store::AddNewRecords(LogTransfer(0, 12), db, "Registro_eventi", &form), 0);
  store::ClearCommitCheck(schema);
  ASSERT_FALSE(form.lines.empty());
  EXPECT_THAT(form.lines.back(), AllOf(StartsWith("AddNewRecords on line"), HasSubstr("nothing of this download")));
  EXPECT_EQ(Rows("Registro_eventi").size(), 0u);
  form.lines.clear();
  EXPECT_EQ(store::AddNewRecords(LogTransfer(0, 12), db, "Registro_eventi", &form), 12);
  EXPECT_THAT(form.lines, ElementsAre());
}

}  // namespace
}  // namespace camrelay::test
