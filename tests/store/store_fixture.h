// What the store's and the files' tests share: a form that keeps the lines
// it is given, and a fresh standard database in a folder of its own.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "link/debug_sink.h"
#include "store/DataVideo.h"
#include "store/dump.h"
#include "store/sqlite_util.h"
#include "temp_dir.h"

namespace camrelay::test {

using Row = std::vector<std::optional<std::string>>;

class RecordingSink : public DebugSink {
 public:
  void CreateEventOnDebug(const std::string& Message) override { lines.push_back(Message); }
  std::vector<std::string> lines;
};

class StoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    db.SetConnectionString("Provider=SQLite;Data Source=" + (dir / "VideoSentrova.db").string());
    db.Open();
  }
  void Sql(const std::string& sql) { store::Exec(db.Handle(), sql); }
  // The first fields of each row of a table.
  std::vector<Row> Rows(const std::string& table, std::size_t fields = 99) {
    std::vector<Row> rows = store::DumpTable(db, table).rows;
    for (Row& row : rows) row.resize(std::min(fields, row.size()));
    return rows;
  }

  TempDir dir;
  store::DataVideo db;
  RecordingSink form;
};

// The bodies of an upload's data elements, as the reception hands them to
// the store: each element without its "{}<i>{}<length>" CR LF header.
inline std::vector<std::string> Bodies(const std::vector<std::string>& payload) {
  std::vector<std::string> bodies{""};
  for (std::size_t i = 1; i < payload.size(); ++i) bodies.push_back(payload[i].substr(payload[i].find("\r\n") + 2));
  return bodies;
}

}  // namespace camrelay::test
