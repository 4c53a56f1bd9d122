// What the store's and the files' tests share: a form that keeps the lines
// it is given, and a fresh standard database of either engine, in a folder
// or a server schema of its own.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "common/debug_sink.h"
#include "postgres_server.h"
#include "store/DataVideo.h"
#include "store/dump.h"
#include "temp_dir.h"

namespace camrelay::test {

using Row = std::vector<std::optional<std::string>>;

class RecordingSink : public DebugSink {
 public:
  void CreateEventOnDebug(const std::string& Message) override { lines.push_back(Message); }
  std::vector<std::string> lines;
};

enum class Engine { SQLite, PostgreSQL };
inline void PrintTo(Engine engine, std::ostream* out) { *out << (engine == Engine::SQLite ? "SQLite" : "PostgreSQL"); }

class StoreTest : public ::testing::Test {
 protected:
  explicit StoreTest(Engine engine = Engine::SQLite) : engine(engine) {}
  void SetUp() override {
    db.SetConnectionString(Connection("VideoSentrova"));
    db.Open();
  }
  // A database of the engine under test that no other test uses.
  std::string Connection(const std::string& name) {
    if (engine == Engine::PostgreSQL) return schemas.Connection(name);
    return "Provider=SQLite;Data Source=" + (dir / (name + ".db")).string();
  }
  void Sql(const std::string& sql) { db.Handle().Exec(sql); }
  // Adds a row through the store, which both engines take alike: fields
  // from the first, a Null as Null.
  void Add(const std::string& table, const std::vector<store::DbValue>& values) {
    store::Recordset records = db.OpenTable(table);
    records.AddNew();
    for (std::size_t k = 0; k < values.size(); ++k) records.SetValue(static_cast<int>(k), values[k]);
    records.Update();
  }
  // The first fields of each row of a table.
  std::vector<Row> Rows(const std::string& table, std::size_t fields = 99) {
    std::vector<Row> rows = store::DumpTable(db, table).rows;
    for (Row& row : rows) row.resize(std::min(fields, row.size()));
    return rows;
  }

  const Engine engine;
  TempDir dir;
  PostgresSchemas schemas;
  store::DataVideo db;
  RecordingSink form;
};

// The cases that hold on both engines run once on each.
class EngineTest : public StoreTest, public ::testing::WithParamInterface<Engine> {
 protected:
  EngineTest() : StoreTest(GetParam()) {}
};

inline std::string EngineName(const ::testing::TestParamInfo<Engine>& info) {
  return info.param == Engine::SQLite ? "SQLite" : "PostgreSQL";
}

#define ON_BOTH_ENGINES(Suite) \
  INSTANTIATE_TEST_SUITE_P(, Suite, ::testing::Values(Engine::SQLite, Engine::PostgreSQL), EngineName)

// A log record line as the unit sends it.
inline std::string LogLine(int id, const std::string& when, const std::string& text) {
  return "{}Registro_eventi{}3{}" + std::to_string(id) + "{}3{}" + when + "{}7{}12{}3{}" + text + "{}202\r\n";
}

// A log transfer of `count` events from `from` on, seven to an element.
inline std::vector<std::string> LogTransfer(int from, int count) {
  std::vector<std::string> Dati{"AA{}2{}03"};
  for (int i = from; i < from + count; ++i) {
    if (Dati.size() == 1 || i % 7 == 0) Dati.emplace_back();
    Dati.back() += LogLine(i, "05/03/2024 9:00", "evento " + std::to_string(i));
  }
  return Dati;
}

// The bodies of an upload's data elements, as the reception hands them to
// the store: each element without its "{}<i>{}<length>" CR LF header.
inline std::vector<std::string> Bodies(const std::vector<std::string>& payload) {
  std::vector<std::string> bodies{""};
  for (std::size_t i = 1; i < payload.size(); ++i) bodies.push_back(payload[i].substr(payload[i].find("\r\n") + 2));
  return bodies;
}

}  // namespace camrelay::test
