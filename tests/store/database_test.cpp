#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "link/frmClient.h"
#include "link_fixture.h"
#include "store/download.h"
#include "store_fixture.h"

namespace camrelay::test {
namespace {

using store::DatabasePath;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

// How a server's connection string is read is the server names' test; a
// bare path, which OpenDB's cases and every end-to-end run give, is a file.
TEST(ConnectionString, NamesTheDatabaseFile) {
  EXPECT_EQ(DatabasePath(" provider = sqlite ; DATA SOURCE = 'a;b.db' ; Mode=ReadWrite|Share Deny None;"), "a;b.db");
  EXPECT_THROW(DatabasePath("Provider=PostgreSQL;Host=x"), std::runtime_error);
}

using DatabaseTest = EngineTest;

// Every command runs on a new database: its standard tables are all there.
// Creating where a database is already leaves it alone.
TEST_P(DatabaseTest, NewDatabaseHasTheStandardTables) {
  for (const auto& command : store::kCommands)
    EXPECT_NO_THROW(command.Kind == store::CommandKind::Action ? db.Execute(command.Name)
                                                               : (void)db.OpenRecordset(command.Name))
        << command.Name;
  Add("NumTel", {std::int64_t{1}});
  EXPECT_FALSE(store::InitDatabase(db.ConnectionString()));
  EXPECT_TRUE(store::InitDatabase(Connection("new")));
  EXPECT_FALSE(store::InitDatabase(Connection("new")));
  EXPECT_EQ(Rows("NumTel").size(), 1u);
}

ON_BOTH_ENGINES(DatabaseTest);

// Opening on the link's request reports a failure as one "OpenDB: " line
// that says what to check or do, leaves the database closed and raises no
// state event. The data procedures open a closed
// database themselves, saying so, and set the state without the event either.
TEST(OpenDB, FailuresTellWhatToDoAndDataProceduresOpenWithoutAnEvent) {
  LinkFixture link(0);
  PostgresSchemas schemas;
  const std::filesystem::path damaged = link.dir() / "damaged.db", access = link.dir() / "access.mdb";
  store::CreateDatabase(damaged);
  std::string bytes = ReadFileBytes(damaged);
  for (std::size_t i = 100; i < 4096 && i < bytes.size(); ++i) bytes[i] = '\x5A';
  WriteFileBytes(damaged, bytes);
  WriteFileBytes(access, std::string(4096, 'J'));
  const std::pair<std::string, const char*> cases[] = {
      {"Provider=PostgreSQL;Host=127.0.0.1;Port=1;connect_timeout=2",
       "cannot connect to the PostgreSQL server (connection to server at \"127.0.0.1\", port 1 failed"},
      {schemas.Connection("x") + ";Schema=pg_reserved", "cannot create the tables in the schema \"pg_reserved\""},
      {"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=VideoSentrova.mdb;Jet OLEDB:Database Password=x;",
       "opens Access databases, which are not available here; the providers that exist are SQLite"},
      {"Provider=SQLite;Data Source=" + (link.dir() / "missing" / "v.db").string(),
       "does not exist; create it or give another Data Source"},
      {damaged.string(), "is damaged (database disk image is malformed); restore it from a copy"},
      {access.string(), "is not a SQLite database"},
      {link.dir().str(), "is a folder; give the path of a database file"}};
  for (const auto& [connection, advice] : cases) {
    link.debug.clear();
    link.form().StringaConnDB(connection);
    link.form().OpenDB();
    EXPECT_THAT(link.debug, ElementsAre(AllOf(StartsWith("OpenDB: "), HasSubstr(advice)))) << connection;
    EXPECT_EQ(link.db().ConnectionState(), 0);
  }
  EXPECT_FALSE(std::filesystem::exists(link.dir() / "missing"));

  link.debug.clear();
  store::CreateDatabase(link.dir() / "v.db");
  link.db().SetConnectionString((link.dir() / "v.db").string());
  for (int time = 0; time < 2; ++time) {
    std::vector<std::string> Dati{"", "{}Ingressi{}0{}1{}3\r\n"};
    store::SaveVideoSentrovaDB(Dati, link.db(), &link.form());
  }
  EXPECT_THAT(link.debug, ElementsAre("SaveVideoSentrovaDB: Attenzione il DB era chiuso ed è stato aperto"));
  EXPECT_EQ(link.db().StatoDB, cDbAperto);
  EXPECT_TRUE(link.dbStates.empty());
}

// The automatic opening uses a database, it never makes one: an upload from
// a database that is not there sends nothing at all (an empty programming
// would erase the unit's), and a download stores nothing.
TEST(AutomaticOpening, NeverCreatesADatabase) {
  LinkFixture link(sckUDPProtocol);
  const std::filesystem::path file = link.dir() / "VideoSentrova.db";
  for (const char* tipo : {"01", "55"}) link.form().AddRichiesta(tipo, "");
  std::vector<std::string> Dati{"", "{}Ingressi{}0{}1{}3\r\n"};
  store::SaveVideoSentrovaDB(Dati, link.db(), &link.form());
  EXPECT_TRUE(link.socket().sent.empty());
  EXPECT_EQ(link.form().Richieste.size(), 1u);
  EXPECT_FALSE(std::filesystem::exists(file));
  EXPECT_EQ(link.db().StatoDB, cDbChiuso);
  ASSERT_EQ(link.debug.size(), 3u);
  for (const char* procedure : {"LoadDataFromDB: ", "LoadProgCamEventsFromDB: ", "SaveVideoSentrovaDB on line 1: "})
    EXPECT_TRUE(link.debugContains(std::string(procedure) + "the database \"" + file.string() +
                                   "\" does not exist and is not created here"))
        << procedure;
}

}  // namespace
}  // namespace camrelay::test
