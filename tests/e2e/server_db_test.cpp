// camrelay with its database in a PostgreSQL server: the same commands, the
// same rows as with a file, and a schema made only when asked for.
#include <gmock/gmock.h>

#include <algorithm>

#include "e2e_fixture.h"
#include "postgres_server.h"

namespace camrelay::e2e {
namespace {

using ::testing::HasSubstr;

class ServerDatabase : public EndToEnd {
 protected:
  test::PostgresSchemas schemas;
};

TEST_F(ServerDatabase, DownloadsUploadsAndLocalCommandsWorkOnASchema) {
  const std::string uri = schemas.Uri("host");
  auto db = [&](std::vector<std::string> args) {
    args.insert(args.begin(), {"--db", uri, "db"});
    return Camrelay(args);
  };
  const Outcome missing = db({"dump", "Ingressi"});
  EXPECT_EQ(missing.exit, 1);
  EXPECT_THAT(missing.err, HasSubstr("has no tables and is not created here"));
  const Outcome init = db({"init"});
  ASSERT_EQ(init.exit, 0) << init.err;
  EXPECT_THAT(init.err, HasSubstr("created the standard tables in schema test_"));
  EXPECT_THAT(db({"init"}).err, HasSubstr("already has its tables; left as it is"));

  StartUnit(Transport::Tcp);
  const Outcome download = Host({"--db", uri, "download-prog", "download-log", "download-prog-cam-events"});
  ASSERT_EQ(download.exit, 0) << download.err;
  EXPECT_EQ(ProgrammingOf(uri), ProgrammingOf(unitDb()));
  EXPECT_EQ(Log(uri), Log(unitDb()));
  EXPECT_EQ(Rows(uri, "Festivita"), Rows(unitDb(), "Festivita"));

  // Sent back from the server, the programming replaces the unit's own.
  ASSERT_FALSE(Rows(uri, "NumTel").empty());
  ASSERT_FALSE(Rows(uri, "Festivita").empty());
  Execute(unitDb(), "DELETE FROM NumTel; DELETE FROM Festivita");
  const Outcome upload = Host({"--db", uri, "upload-prog", "upload-prog-cam-events"});
  ASSERT_EQ(upload.exit, 0) << upload.err;
  EXPECT_EQ(Rows(unitDb(), "NumTel"), Rows(uri, "NumTel"));
  EXPECT_EQ(Rows(unitDb(), "Festivita"), Rows(uri, "Festivita"));

  const Outcome log = db({"export-log"});
  ASSERT_EQ(log.exit, 0) << log.err;
  EXPECT_EQ(std::count(log.out.begin(), log.out.end(), '\n'),
            static_cast<long>(Rows(unitDb(), "Registro_eventi").size()) + 1);
}

}  // namespace
}  // namespace camrelay::e2e
