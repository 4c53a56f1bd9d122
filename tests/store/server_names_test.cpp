// Names and texts on their way to the PostgreSQL server: a unit's name is
// the schema's and nothing else, whatever it holds; a literal reads back as
// it was whatever the server's settings; a password never shows in an error.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "postgres_server.h"
#include "store/connection.h"
#include "store/postgres_backend.h"

namespace camrelay::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

store::ServerDatabase Server(const std::string& connection) {
  return std::get<store::ServerDatabase>(store::ParseConnection(connection));
}

std::string FirstValue(store::Backend& db, const std::string& select) {
  auto rows = db.Query(select);
  EXPECT_TRUE(rows->Next()) << select;
  return store::DbText(rows->Value(0));
}

// The desktop keys become libpq's, the schema is kept apart (libpq would
// refuse it in a URI), and a key libpq does not know is refused, not lost.
// A name with separators or quotes in it stays the schema's value in both
// forms of connection string, and the server named stays the one given.
TEST(SchemaOfAUnit, IsTheWholeNameInEitherFormOfConnection) {
  const store::ServerDatabase keys = Server(
      "Provider=PostgreSQL; Server=db.example.it; Port=5433; Initial Catalog=centrale; User ID=op; "
      "Password='a;b\\c'; Schema=unit_07; sslmode=require; Persist Security Info=False");
  EXPECT_EQ(keys.conninfo,
            "host='db.example.it' port='5433' dbname='centrale' user='op' password='a;b\\\\c' sslmode='require'");
  EXPECT_EQ(keys.schema, "unit_07");
  const std::string uri = "postgresql://op@db/centrale?sslmode=disable&schema=unit%2007";
  EXPECT_EQ(Server(uri).conninfo, "postgresql://op@db/centrale?sslmode=disable");
  EXPECT_EQ(Server(uri).schema, "unit 07");
  EXPECT_THAT([] { store::ParseConnection("Provider=PostgreSQL;Hots=x"); },
              ::testing::ThrowsMessage<std::runtime_error>(HasSubstr("the key Hots is not known for PostgreSQL")));
  for (const std::string connection : {"Provider=PostgreSQL;Host=db;Database=centrale;Schema=old", uri.c_str()}) {
    for (const std::string name : {"o'brien", "x;Schema=public", "q\"; Host=evil", "p%27q&schema=r"}) {
      const store::ServerDatabase server = Server(store::WithSchema(connection, name));
      EXPECT_EQ(server.schema, name) << connection;
      EXPECT_EQ(server.conninfo, Server(connection).conninfo) << name;
    }
  }
}

// The server cuts identifiers at 63 bytes: longer names get schemas of
// their own, the same every time, never cut inside a character, and the
// server keeps which name each one stands for.
TEST(SchemaOfAUnit, NamesPastTheIdentifierLimitGetDistinctStableSchemas) {
  PostgresSchemas schemas;
  const std::string stem = schemas.Schema("long") + std::string(60, 'x') + "\xC3\xA8";
  const std::string a = stem + "-north", b = stem + "-south";
  ASSERT_GT(a.size(), store::kMaxIdentifier);
  const std::string schemaA = store::SchemaIdentifier(a), schemaB = store::SchemaIdentifier(b);
  EXPECT_NE(schemaA, schemaB);
  EXPECT_EQ(schemaA, store::SchemaIdentifier(a));
  EXPECT_LE(schemaA.size(), store::kMaxIdentifier);
  EXPECT_EQ(store::SchemaIdentifier("short"), "short");

  const std::string base = schemas.Connection("unused");
  {
    auto first = store::OpenPostgres(Server(store::WithSchema(base, a)), true);
    first->Exec("CREATE TABLE probe (x int); INSERT INTO probe VALUES (1)");
    auto second = store::OpenPostgres(Server(store::WithSchema(base, b)), true);
    second->Exec("CREATE TABLE probe (x int)");
    // Opened again without creating, as db dump does: the same tables.
    auto again = store::OpenPostgres(Server(store::WithSchema(base, a)), false);
    EXPECT_EQ(FirstValue(*again, "SELECT count(*) FROM probe"), "1");
    EXPECT_EQ(FirstValue(*again, "SELECT current_schema()"), schemaA);
  }
  auto server = store::ConnectPostgres(Server(base));
  EXPECT_EQ(FirstValue(*server, "SELECT name FROM camrelay_schema_names WHERE schema = " + server->Literal(schemaB)),
            b);
  for (const std::string& schema : {schemaA, schemaB}) {
    server->Exec("DROP SCHEMA " + store::QuoteIdentifier(schema) + " CASCADE");
    server->Exec("DELETE FROM camrelay_schema_names WHERE schema = " + server->Literal(schema));
  }
}

// On a server that reads backslashes as escapes in every literal, a text
// made to end the literal early still reads back as it was.
TEST(ServerLiterals, ReadBackWhateverTheServerDoesWithBackslashes) {
  PostgresSchemas schemas;
  store::ServerDatabase server = Server(schemas.Connection("literals"));
  server.conninfo += " options='-c standard_conforming_strings=off'";
  auto db = store::ConnectPostgres(server);
  ASSERT_EQ(FirstValue(*db, "SHOW standard_conforming_strings"), "off");
  for (const std::string text : {"x\\'); SELECT 1; --", "back\\\\slash'", "o'brien", "\\"})
    EXPECT_EQ(FirstValue(*db, "SELECT " + db->Literal(text)), text);
}

// libpq repeats a URI it cannot read in its message; the password it holds
// never reaches the user.
TEST(ServerErrors, NeverShowThePassword) {
  for (const std::string uri : {"postgresql://op:s3cr%65tpw@[::1/centrale", "postgresql://op:s3cretpw@h:99999999/db"}) {
    try {
      store::OpenPostgres(Server(uri), false);
      ADD_FAILURE() << uri << " was accepted";
    } catch (const std::runtime_error& e) {
      EXPECT_THAT(e.what(), AllOf(HasSubstr("cannot connect"), Not(HasSubstr("s3cr"))));
    }
  }
}

}  // namespace
}  // namespace camrelay::test
