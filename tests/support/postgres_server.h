// The tests' PostgreSQL server, started by scripts/postgres-server (ctest
// runs it as the postgres.start fixture before any test that needs it, and
// stops it after them). Each test works in schemas of its own, dropped when
// it ends, so that tests running at once never see each other's tables.
#pragma once

#include <string>
#include <vector>

namespace camrelay::test {

// The server's libpq connection string. Throws std::runtime_error saying
// how to start it when it is not running: a missing server is a failure.
std::string PostgresConninfo();

class PostgresSchemas {
 public:
  PostgresSchemas() = default;
  ~PostgresSchemas();
  PostgresSchemas(const PostgresSchemas&) = delete;
  PostgresSchemas& operator=(const PostgresSchemas&) = delete;

  // A connection string, in the desktop form, for a schema named after
  // name that no other test uses.
  std::string Connection(const std::string& name);
  // The same schema as a postgresql:// URI.
  std::string Uri(const std::string& name);
  // The unique schema name given to name.
  std::string Schema(const std::string& name);

 private:
  std::vector<std::string> made_;
};

}  // namespace camrelay::test
