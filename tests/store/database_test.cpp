#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "store/dump.h"
#include "store/schema.h"
#include "store_fixture.h"

namespace camrelay::test {
namespace {

using store::DatabasePath;
using store::DataVideo;
using ::testing::HasSubstr;

TEST(ConnectionString, NamesTheDatabaseFile) {
  EXPECT_EQ(DatabasePath("Provider=SQLite;Data Source=/data/VideoSentrova.db"), "/data/VideoSentrova.db");
  EXPECT_EQ(DatabasePath(" provider = sqlite ; DATA SOURCE = 'a;b.db' ; Mode=ReadWrite|Share Deny None;"),
            "a;b.db");
  EXPECT_EQ(DatabasePath("Data Source=\"x y.db\";Persist Security Info=False"), "x y.db");
  EXPECT_EQ(DatabasePath("/var/lib/camrelay/VideoSentrova.db"), "/var/lib/camrelay/VideoSentrova.db");
  EXPECT_EQ(DatabasePath("VideoSentrova.db"), "VideoSentrova.db");
  EXPECT_EQ(DatabasePath(DataVideo::kDesignTimeConnection), "VideoSentrova.db");
}

TEST(ConnectionString, OtherProvidersAreRefusedNamingTheOnesThatExist) {
  for (const char* connection :
       {"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=VideoSentrova.mdb;Mode=ReadWrite|Share Deny None;"
        "Persist Security Info=False;Jet OLEDB:Database Password=x;",
        "Provider=Microsoft.ACE.OLEDB.12.0;Data Source=a.accdb", "Provider=PostgreSQL;Data Source=db"}) {
    try {
      DatabasePath(connection);
      ADD_FAILURE() << connection;
    } catch (const std::runtime_error& e) {
      EXPECT_THAT(e.what(), HasSubstr("Provider=SQLite;Data Source=<file>")) << connection;
      EXPECT_THAT(e.what(), HasSubstr("bare path")) << connection;
    }
  }
  EXPECT_THROW(DatabasePath(""), std::runtime_error);
  EXPECT_THROW(DatabasePath("Provider=SQLite;Mode=Read"), std::runtime_error);
}

// Every table of a new database is named by a command, so this also shows
// that the standard tables are all there.
TEST_F(StoreTest, EveryCommandRunsOnTheStandardTables) {
  ASSERT_EQ(store::kCommands.size(), 19u);
  EXPECT_EQ(store::kCommands[9].Name, "Del_alimentazione");
  EXPECT_EQ(store::kCommands[3].Text, "SELECT * FROM Registro_eventi ORDER BY [DataOra]");
  for (const auto& command : store::kCommands) {
    if (command.Kind == store::CommandKind::Action) {
      EXPECT_NO_THROW(db.Execute(command.Name)) << command.Name;
    } else {
      EXPECT_NO_THROW(db.OpenRecordset(command.Name)) << command.Name;
    }
  }
}

TEST_F(StoreTest, SchemaUsesEveryTransferTypeTheUnitKnows) {
  std::set<int> types;
  for (const auto& command : store::kCommands) {
    if (command.Kind == store::CommandKind::Action) continue;
    store::Recordset records = db.OpenRecordset(command.Name);
    for (int k = 0; k < records.FieldCount(); ++k) types.insert(records.FieldType(k));
  }
  for (int type : {3, 7, 11, 202, 203, 5}) EXPECT_TRUE(types.count(type)) << type;
  EXPECT_EQ(db.OpenRecordset("Registro_eventi").FieldName(0), "IdRegistro");
  EXPECT_GE(db.OpenRecordset("Ingressi").FieldIndex("FoniaFileWav"), 0);
  EXPECT_GE(db.OpenRecordset("Alimentazione").FieldIndex("FoniaFileWav"), 0);
  EXPECT_GE(db.OpenRecordset("CamEvents").FieldIndex("ShowInListEvents"), 0);
}

TEST_F(StoreTest, ExistingDatabaseIsUsedAsItIs) {
  Sql("CREATE TABLE Extra (x TEXT); INSERT INTO Extra VALUES ('kept')");
  db.Close();
  db.Open();
  EXPECT_EQ(store::DumpTable(db, "Extra").rows.at(0).at(0), "kept");
}

TEST_F(StoreTest, DumpGivesRowsInOrderWithNulls) {
  Sql("INSERT INTO Festivita VALUES ('2024-12-25', 'Natale', 1), (NULL, 'Città', 0)");
  store::TableDump dump = store::DumpTable(db, "Festivita");
  EXPECT_EQ(dump.columns, (std::vector<std::string>{"Data", "Descrizione", "Ricorrente"}));
  ASSERT_EQ(dump.rows.size(), 2u);
  EXPECT_EQ(dump.rows[0][0], "2024-12-25");
  EXPECT_EQ(dump.rows[1][0], std::nullopt);
  EXPECT_EQ(dump.rows[1][1], "Città");
  EXPECT_THROW(store::DumpTable(db, "Nessuna"), std::runtime_error);
}

std::string OpenError(const std::string& connection) {
  DataVideo db;
  db.SetConnectionString(connection);
  try {
    db.Open();
  } catch (const std::runtime_error& e) {
    EXPECT_EQ(db.ConnectionState(), 0);
    return e.what();
  }
  return "opened";
}

TEST(OpenFailures, DescribeWhatToDo) {
  TempDir dir;
  EXPECT_THAT(OpenError(SqliteConnection(dir / "missing" / "v.db")), HasSubstr("does not exist; create it"));
  EXPECT_FALSE(std::filesystem::exists(dir / "missing"));

  WriteFileBytes(dir / "access.mdb", std::string(4096, 'J'));
  EXPECT_THAT(OpenError(SqliteConnection(dir / "access.mdb")), HasSubstr("is not a SQLite database"));

  EXPECT_THAT(OpenError(dir.str()), HasSubstr("is a folder"));

  store::CreateDatabase(dir / "damaged.db");
  std::string bytes = ReadFileBytes(dir / "damaged.db");
  for (std::size_t i = 100; i < 4096 && i < bytes.size(); ++i) bytes[i] = '\x5A';
  WriteFileBytes(dir / "damaged.db", bytes);
  EXPECT_THAT(OpenError(SqliteConnection(dir / "damaged.db")), HasSubstr("is damaged"));
}

TEST(CreateDatabase, MakesTheStandardTablesAndRefusesAnExistingFile) {
  TempDir dir;
  store::CreateDatabase(dir / "new.db");
  DataVideo db;
  db.SetConnectionString((dir / "new.db").string());
  db.Open();
  EXPECT_EQ(store::DumpTable(db, "Ingressi").columns.at(0), "NumeroIngresso");
  EXPECT_THROW(store::CreateDatabase(dir / "new.db"), std::runtime_error);
  EXPECT_NE(store::SchemaSql().find("CREATE TABLE Festivita"), std::string_view::npos);
}

TEST(EnsureOpen, OpensWithTheHeldStringReportsAndRaisesNoEvent) {
  TempDir dir;
  DataVideo db;
  RecordingSink form;
  EXPECT_EQ(db.ConnectionString(), DataVideo::kDesignTimeConnection);
  db.SetConnectionString(SqliteConnection(dir / "auto.db"));
  db.EnsureOpen(&form, "SaveVideoSentrovaDB");
  EXPECT_EQ(form.lines, std::vector<std::string>{"SaveVideoSentrovaDB: Attenzione il DB era chiuso ed è stato aperto"});
  EXPECT_EQ(db.ConnectionState(), 1);
  EXPECT_EQ(db.StatoDB, cDbAperto);
  EXPECT_TRUE(std::filesystem::exists(dir / "auto.db"));

  db.SetConnectionString(SqliteConnection(dir / "other.db"));
  db.EnsureOpen(&form, "LoadDataFromDB");
  db.Open();  // already open: the new string waits for the next opening
  EXPECT_EQ(form.lines.size(), 1u);
  EXPECT_FALSE(std::filesystem::exists(dir / "other.db"));
}

}  // namespace
}  // namespace camrelay::test
