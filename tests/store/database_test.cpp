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

TEST(ConnectionString, NamesTheDatabaseFile) {
  EXPECT_EQ(DatabasePath(" provider = sqlite ; DATA SOURCE = 'a;b.db' ; Mode=ReadWrite|Share Deny None;"), "a;b.db");
  EXPECT_EQ(DatabasePath("Data Source=\"x y.db\";Persist Security Info=False"), "x y.db");
  EXPECT_EQ(DatabasePath("/var/lib/camrelay/VideoSentrova.db"), "/var/lib/camrelay/VideoSentrova.db");
}

// Every command runs on a new database: its standard tables are all there.
TEST_F(StoreTest, NewDatabaseHasTheStandardTables) {
  for (const auto& command : store::kCommands)
    EXPECT_NO_THROW(command.Kind == store::CommandKind::Action ? db.Execute(command.Name)
                                                               : (void)db.OpenRecordset(command.Name))
        << command.Name;
  store::CreateDatabase(dir / "new.db");
  EXPECT_THROW(store::CreateDatabase(dir / "new.db"), std::runtime_error);
}

// Opening on the link's request reports a failure as "OpenDB: " and what to
// do, and raises no state event. The data procedures open a closed database
// themselves, saying so, and set the state without the event either.
TEST(OpenDB, FailuresTellWhatToDoAndDataProceduresOpenWithoutAnEvent) {
  LinkFixture link(0);
  const std::filesystem::path damaged = link.dir() / "damaged.db", access = link.dir() / "access.mdb";
  store::CreateDatabase(damaged);
  std::string bytes = ReadFileBytes(damaged);
  for (std::size_t i = 100; i < 4096 && i < bytes.size(); ++i) bytes[i] = '\x5A';
  WriteFileBytes(damaged, bytes);
  WriteFileBytes(access, std::string(4096, 'J'));
  const std::pair<std::string, const char*> cases[] = {
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
  link.db().SetConnectionString((link.dir() / "v.db").string());
  for (int time = 0; time < 2; ++time) {
    std::vector<std::string> Dati{"", "{}Ingressi{}0{}1{}3\r\n"};
    store::SaveVideoSentrovaDB(Dati, link.db(), &link.form());
  }
  EXPECT_THAT(link.debug, ElementsAre("SaveVideoSentrovaDB: Attenzione il DB era chiuso ed è stato aperto"));
  EXPECT_EQ(link.db().StatoDB, cDbAperto);
  EXPECT_EQ(store::DumpTable(link.db(), "Ingressi").rows.size(), 1u);
  EXPECT_TRUE(link.dbStates.empty());
}

}  // namespace
}  // namespace camrelay::test
