// The units of a fleet share a few server connections: a unit's database
// holds one only while it stores, a store waits for one while all are in
// use, and a connection the server lost (a restart, a network cut) is
// replaced before the next store rather than failing it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <thread>

#include "store/commit_check.h"
#include "store/connection.h"
#include "store/download.h"
#include "store/postgres_backend.h"
#include "store_fixture.h"

namespace camrelay::test {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

class ServerPoolTest : public ::testing::Test {
 protected:
  void SetUp() override { store::LimitServerConnections(2); }
  void TearDown() override { store::LimitServerConnections(0); }

  // A unit's database, named so that the server lists its connections
  // under this test's tag.
  std::unique_ptr<store::DataVideo> Unit(const std::string& name) {
    auto db = std::make_unique<store::DataVideo>();
    db->SetConnectionString(schemas.Uri(name) + "&application_name=" + tag);
    db->Open();
    return db;
  }
  long ServerConnections() {
    auto rows = watcher->Query("SELECT count(*) FROM pg_stat_activity WHERE application_name = " +
                               watcher->Literal(tag));
    rows->Next();
    return static_cast<long>(std::get<std::int64_t>(rows->Value(0)));
  }
  // Ends the server's side of every connection of this test, as a restart
  // of the server does.
  void CutConnections() {
    watcher->Exec("SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE application_name = " +
                  watcher->Literal(tag));
  }
  std::size_t LogRows(store::DataVideo& db) { return store::DumpTable(db, "Registro_eventi").rows.size(); }
  // Adds the first `count` events of the log to the unit's database.
  int Download(store::DataVideo& db, int count, RecordingSink& form) {
    return store::AddNewRecords(LogTransfer(0, count), db, "Registro_eventi", &form);
  }

  PostgresSchemas schemas;
  const std::string tag = schemas.Schema("pool");
  std::unique_ptr<store::Backend> watcher =
      store::ConnectPostgres(std::get<store::ServerDatabase>(store::ParseConnection(schemas.Connection("w"))));
};

// Six units open at once, as six links are, storing at the same time: two
// connections serve them all, and every unit gets its rows.
TEST_F(ServerPoolTest, UnitsOpenAtOnceShareTheLimitedConnections) {
  std::vector<std::unique_ptr<store::DataVideo>> units;
  for (int n = 0; n < 6; ++n) units.push_back(Unit("u" + std::to_string(n)));
  EXPECT_LE(ServerConnections(), 2);
  std::vector<RecordingSink> forms(units.size());
  std::vector<int> added(units.size(), -1);
  {
    std::vector<std::jthread> stores;
    for (std::size_t n = 0; n < units.size(); ++n)
      stores.emplace_back([&, n] { added[n] = Download(*units[n], 40, forms[n]); });
  }
  EXPECT_LE(ServerConnections(), 2);
  EXPECT_LE(store::ServerConnectionsPeak(), 2);
  for (std::size_t n = 0; n < units.size(); ++n) {
    EXPECT_EQ(added[n], 40) << n;
    EXPECT_THAT(forms[n].lines, IsEmpty());
    EXPECT_EQ(LogRows(*units[n]), 40u);
  }
}

// Connections cut between two stores are replaced; one cut in the middle
// of a store fails that store whole and reported, and the next stores it.
TEST_F(ServerPoolTest, AServerLostIsReachedAgainAndAStoreCutShortIsReported) {
  auto db = Unit("lost");
  RecordingSink form;
  EXPECT_EQ(Download(*db, 5, form), 5);
  CutConnections();
  EXPECT_EQ(Download(*db, 8, form), 3);
  EXPECT_THAT(form.lines, IsEmpty());

  const std::string schema = std::get<store::ServerDatabase>(store::ParseConnection(db->ConnectionString())).schema;
  store::SetCommitCheck(schema, [this](store::Backend&) { CutConnections(); });
  EXPECT_EQ(Download(*db, 12, form), 0);
  store::ClearCommitCheck(schema);
  ASSERT_FALSE(form.lines.empty());
  EXPECT_THAT(form.lines.back(), HasSubstr("AddNewRecords on line"));
  EXPECT_EQ(LogRows(*db), 8u);
  form.lines.clear();
  EXPECT_EQ(Download(*db, 12, form), 4);
  EXPECT_EQ(LogRows(*db), 12u);
  EXPECT_THAT(form.lines, IsEmpty());
}

}  // namespace
}  // namespace camrelay::test
