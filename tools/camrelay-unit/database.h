// The unit's own database: a SQLite file with the standard tables, reached
// directly, with no part of the component's store in between.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "values.h"

struct sqlite3;

namespace camrelay::unit {

using Row = std::vector<Value>;

struct Column {
  std::string name;
  int adoType;  // the type number its values travel with
};

struct TableRows {
  std::vector<Column> columns;
  std::vector<Row> rows;
};

class Database {
 public:
  // Opens the file, creating it with the standard tables when it does not
  // exist or is empty. Throws std::runtime_error.
  explicit Database(const std::filesystem::path& file);
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  // Statements that return no rows. Throws std::runtime_error.
  void Exec(const std::string& sql);
  // The rows of a query over one table, with the type number of each column.
  TableRows Read(const std::string& select);
  // Every row of a table, in the order the rows were added.
  TableRows ReadTable(std::string_view table);
  long long Count(std::string_view table);
  // The names of a table's columns, in their order.
  std::vector<std::string> ColumnNames(std::string_view table);
  // Adds a row; a Null leaves its column at the column's default.
  void Insert(std::string_view table, const std::vector<std::string>& columns, const Row& row);

  // Everything between the constructor and Commit, or nothing.
  class Transaction {
   public:
    explicit Transaction(Database& db);
    ~Transaction();
    void Commit();

   private:
    Database& db_;
    bool done_ = false;
  };

 private:
  sqlite3* db_ = nullptr;
};

// The statements that create the standard tables, built into the program.
std::string_view StandardTables();

// "name" with inner quotes doubled.
std::string QuotedName(std::string_view name);

}  // namespace camrelay::unit
