#include "postgres_server.h"

#include <libpq-fe.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>

namespace camrelay::test {
namespace {

std::map<std::string, std::string> ConninfoKeys() {
  std::map<std::string, std::string> keys;
  std::istringstream words(PostgresConninfo());
  for (std::string word; words >> word;) {
    std::size_t equals = word.find('=');
    if (equals != std::string::npos) keys[word.substr(0, equals)] = word.substr(equals + 1);
  }
  return keys;
}

}  // namespace

std::string PostgresConninfo() {
  const std::string file = std::string(CAMRELAY_TEST_POSTGRES_DIR) + "/conninfo";
  std::ifstream in(file);
  std::string conninfo;
  if (!std::getline(in, conninfo) || conninfo.empty())
    throw std::runtime_error("the tests' PostgreSQL server is not running (no " + file +
                             "): run the tests through ctest, which starts it, or scripts/postgres-server start " +
                             CAMRELAY_TEST_POSTGRES_DIR);
  return conninfo;
}

std::string PostgresSchemas::Schema(const std::string& name) {
  std::string schema = "test_" + std::to_string(getpid()) + "_" + name;
  if (std::find(made_.begin(), made_.end(), schema) == made_.end()) made_.push_back(schema);
  return schema;
}

std::string PostgresSchemas::Connection(const std::string& name) {
  auto keys = ConninfoKeys();
  return "Provider=PostgreSQL;Host=" + keys["host"] + ";Port=" + keys["port"] + ";User ID=" + keys["user"] +
         ";Database=" + keys["dbname"] + ";Schema=" + Schema(name);
}

std::string PostgresSchemas::Uri(const std::string& name) {
  auto keys = ConninfoKeys();
  return "postgresql://" + keys["user"] + "@" + keys["host"] + ":" + keys["port"] + "/" + keys["dbname"] +
         "?schema=" + Schema(name);
}

PostgresSchemas::~PostgresSchemas() {
  if (made_.empty()) return;
  PGconn* conn = PQconnectdb(PostgresConninfo().c_str());
  PQclear(PQexec(conn, "SET client_min_messages = warning"));
  for (const std::string& schema : made_)
    PQclear(PQexec(conn, ("DROP SCHEMA IF EXISTS \"" + schema + "\" CASCADE").c_str()));
  PQfinish(conn);
}

}  // namespace camrelay::test
