#include "store/sqlite_backend.h"

#include <stdexcept>
#include <system_error>

#include "store/schema.h"
#include "store/sqlite_util.h"
#include "store/text.h"

namespace camrelay::store {
namespace fs = std::filesystem;

namespace {

std::string Quoted(const fs::path& file) { return "\"" + file.string() + "\""; }

// Reads the file's table list: the first read that shows whether the file
// is a usable database at all.
void Probe(sqlite3* db, const fs::path& file) {
  int result = sqlite3_exec(db, "SELECT count(*) FROM sqlite_master", nullptr, nullptr, nullptr);
  std::string detail = sqlite3_errmsg(db);
  switch (result) {
    case SQLITE_OK:
      break;
    case SQLITE_NOTADB:
      throw std::runtime_error(Quoted(file) + " is not a SQLite database (" + detail +
                               "); give the path of a SQLite database, or of a file that does not exist yet to "
                               "have one created");
    case SQLITE_CORRUPT:
      throw std::runtime_error("the database " + Quoted(file) + " is damaged (" + detail +
                               "); restore it from a copy, or move it away to have a new one created");
    default:
      throw std::runtime_error("cannot read the database " + Quoted(file) + " (" + detail +
                               "); check that the file may be read and written");
  }
  if (sqlite3_db_readonly(db, "main") == 1)
    throw std::runtime_error("the database " + Quoted(file) +
                             " can only be read; give write permission on it and on its folder");
}

void CheckFolder(const fs::path& file) {
  fs::path folder = file.parent_path();
  std::error_code error;
  if (!folder.empty() && !fs::is_directory(folder, error))
    throw std::runtime_error("the folder " + Quoted(folder) + " of the database " + Quoted(file) +
                             " does not exist; create it or give another Data Source");
}

sqlite3* OpenFile(const fs::path& file, int flags) {
  sqlite3* db = nullptr;
  // SQLite takes UTF-8 names everywhere; a path's own form is UTF-16 on Windows.
  const std::u8string name = file.u8string();
  if (sqlite3_open_v2(reinterpret_cast<const char*>(name.c_str()), &db, flags, nullptr) != SQLITE_OK) {
    std::string detail = db ? sqlite3_errmsg(db) : "out of memory";
    sqlite3_close_v2(db);
    throw std::runtime_error("cannot open the database " + Quoted(file) + " (" + detail + ")");
  }
  // Other programs may use the file at the same time: wait for their locks
  // a while rather than fail at once.
  sqlite3_busy_timeout(db, 5000);
  return db;
}

// A new file with the standard tables; on failure no file is left behind.
sqlite3* CreateFile(const fs::path& file) {
  CheckFolder(file);
  sqlite3* db = OpenFile(file, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
  try {
    Exec(db, "BEGIN");
    Exec(db, std::string(SchemaSql()));
    Exec(db, "COMMIT");
  } catch (const std::exception& e) {
    sqlite3_close_v2(db);
    std::error_code ignored;
    fs::remove(file, ignored);
    throw std::runtime_error("cannot create the database " + Quoted(file) + ": " + e.what());
  }
  return db;
}

sqlite3* OpenExisting(const fs::path& file) {
  if (fs::is_directory(file))
    throw std::runtime_error(Quoted(file) + " is a folder; give the path of a database file");
  sqlite3* db = OpenFile(file, SQLITE_OPEN_READWRITE);
  try {
    Probe(db, file);
  } catch (...) {
    sqlite3_close_v2(db);
    throw;
  }
  return db;
}

class SqliteRows : public Rows {
 public:
  SqliteRows(sqlite3* db, std::string select) : db_(db), select_(std::move(select)), cursor_(Prepare(db, select_)) {
    int count = sqlite3_column_count(cursor_.get());
    for (int k = 0; k < count; ++k) {
      const char* declared = sqlite3_column_decltype(cursor_.get(), k);
      columns_.push_back({sqlite3_column_name(cursor_.get(), k), AdoTypeFromDeclared(declared ? declared : "")});
    }
  }

  const std::vector<Column>& Columns() const override { return columns_; }

  bool Next() override {
    int result = sqlite3_step(cursor_.get());
    if (result != SQLITE_ROW && result != SQLITE_DONE) ThrowSqliteError(db_);
    return result == SQLITE_ROW;
  }

  // Also leaves the table: a read still open on it would make the database
  // save and restore its place around every insert.
  void Rewind() override { sqlite3_reset(cursor_.get()); }

  DbValue Value(int k) const override {
    sqlite3_stmt* row = cursor_.get();
    switch (sqlite3_column_type(row, k)) {
      case SQLITE_NULL:
        return std::monostate{};
      case SQLITE_INTEGER:
        return static_cast<std::int64_t>(sqlite3_column_int64(row, k));
      case SQLITE_FLOAT:
        return sqlite3_column_double(row, k);
      default: {
        auto text = reinterpret_cast<const char*>(sqlite3_column_text(row, k));
        return std::string(text, static_cast<std::size_t>(sqlite3_column_bytes(row, k)));
      }
    }
  }

  long Count() override {
    Statement count = Prepare(db_, "SELECT count(*) FROM (" + select_ + ")");
    if (sqlite3_step(count.get()) != SQLITE_ROW) ThrowSqliteError(db_);
    return static_cast<long>(sqlite3_column_int64(count.get(), 0));
  }

 private:
  sqlite3* db_;
  std::string select_;
  Statement cursor_;
  std::vector<Column> columns_;
};

class SqliteInsert : public Insert {
 public:
  SqliteInsert(sqlite3* db, std::string table, std::string sql)
      : db_(db), table_(std::move(table)), statement_(Prepare(db, sql)) {}

  void Run(const std::vector<const DbValue*>& values) override {
    sqlite3_stmt* insert = statement_.get();
    for (std::size_t i = 0; i < values.size(); ++i) Bind(static_cast<int>(i) + 1, *values[i]);
    int result = sqlite3_step(insert);
    std::string error = result == SQLITE_DONE ? "" : sqlite3_errmsg(db_);
    sqlite3_reset(insert);
    sqlite3_clear_bindings(insert);
    if (result != SQLITE_DONE) throw std::runtime_error(table_ + ": " + error);
  }

 private:
  void Bind(int index, const DbValue& value) {
    sqlite3_stmt* statement = statement_.get();
    int result = SQLITE_OK;
    if (auto n = std::get_if<std::int64_t>(&value)) {
      result = sqlite3_bind_int64(statement, index, *n);
    } else if (auto r = std::get_if<double>(&value)) {
      result = sqlite3_bind_double(statement, index, *r);
    } else if (auto text = std::get_if<std::string>(&value)) {
      // The text stays with the caller until the insert has run.
      result = sqlite3_bind_text(statement, index, text->data(), static_cast<int>(text->size()), SQLITE_STATIC);
    } else {
      result = sqlite3_bind_null(statement, index);
    }
    if (result != SQLITE_OK) ThrowSqliteError(db_);
  }

  sqlite3* db_;
  std::string table_;
  Statement statement_;
};

class SqliteBackend : public Backend {
 public:
  explicit SqliteBackend(sqlite3* db) : db_(db) {}
  // A recordset still alive keeps the file open until it goes.
  ~SqliteBackend() override { sqlite3_close_v2(db_); }

  void Exec(const std::string& sql) override { store::Exec(db_, sql); }

  std::unique_ptr<Rows> Query(const std::string& select) override {
    return std::make_unique<SqliteRows>(db_, select);
  }

  std::unique_ptr<Rows> ReadTable(std::string_view table) override {
    return Query("SELECT * FROM " + QuoteIdentifier(table) + " ORDER BY " + InsertionOrder());
  }

  std::string InsertionOrder() const override { return "rowid"; }
  std::string Literal(std::string_view text) const override {
    std::unique_ptr<char, decltype(&sqlite3_free)> quoted(
        sqlite3_mprintf("%Q", std::string(text).c_str()), sqlite3_free);
    if (!quoted) throw std::bad_alloc();
    return quoted.get();
  }

  std::unique_ptr<Insert> PrepareInsert(std::string_view table, const std::vector<std::string>& columns) override {
    std::string names, values;
    for (const std::string& column : columns) {
      names += (names.empty() ? "" : ", ") + QuoteIdentifier(column);
      values += values.empty() ? "?" : ", ?";
    }
    std::string sql = "INSERT INTO " + QuoteIdentifier(table) +
                      (columns.empty() ? " DEFAULT VALUES" : " (" + names + ") VALUES (" + values + ")");
    return std::make_unique<SqliteInsert>(db_, std::string(table), sql);
  }

  // Savepoints nest, and outside a transaction the first one starts it.
  void Begin() override { Exec("SAVEPOINT camrelay_store"); }
  void Commit() override { Exec("RELEASE camrelay_store"); }
  void Rollback() override { Exec("ROLLBACK TO camrelay_store; RELEASE camrelay_store"); }
  bool InTransaction() const override { return sqlite3_get_autocommit(db_) == 0; }

 private:
  sqlite3* db_;
};

}  // namespace

bool SqliteFileHoldsDatabase(const fs::path& file) {
  std::error_code error;
  return fs::exists(file) && (fs::is_directory(file) || fs::file_size(file, error) > 0);
}

std::unique_ptr<Backend> OpenSqlite(const fs::path& file, bool create) {
  const bool holdsDatabase = SqliteFileHoldsDatabase(file);
  if (!holdsDatabase && !create)
    throw std::runtime_error("the database " + Quoted(file) +
                             " does not exist and is not created here; open or create it with ApriDB first");
  sqlite3* db = holdsDatabase ? OpenExisting(file) : CreateFile(file);
  // Checking or creating the tables leaves their pages cached, more than
  // everything else an idle link holds; a host may keep a thousand links
  // open, and a download reads back what it needs.
  sqlite3_db_release_memory(db);
  return std::make_unique<SqliteBackend>(db);
}

void CreateSqliteFile(const fs::path& file) {
  if (fs::exists(file)) throw std::runtime_error("the database " + Quoted(file) + " exists already");
  sqlite3_close_v2(CreateFile(file));
}

}  // namespace camrelay::store
