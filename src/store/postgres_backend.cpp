#include "store/postgres_backend.h"

#include <libpq-fe.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <stdexcept>

#include "store/commit_check.h"
#include "store/schema.h"
#include "store/text.h"

namespace camrelay::store {
namespace {

// The store's own column that keeps the order rows were added in; no
// recordset shows it.
constexpr std::string_view kOrderColumn = "insertion_order";

// Type identifiers of the server's built-in types.
enum : Oid {
  kBool = 16,
  kInt8 = 20,
  kInt2 = 21,
  kInt4 = 23,
  kText = 25,
  kFloat4 = 700,
  kFloat8 = 701,
  kMoney = 790,
  kDate = 1082,
  kTime = 1083,
  kTimestamp = 1114,
  kTimestampTz = 1184,
  kNumeric = 1700,
};

// The transfer type number of a column of the given server type: the
// standard tables give the same numbers as on the embedded engine.
int AdoType(Oid type) {
  switch (type) {
    case kInt4: return kAdoInteger;
    case kInt2: return 2;
    case kInt8: return 20;
    case kFloat4: return 4;
    case kFloat8: return 5;
    case kMoney: return 6;
    case kNumeric: return 131;
    case kDate: case kTime: case kTimestamp: case kTimestampTz: return kAdoDate;
    case kBool: return kAdoBoolean;
    case kText: return 203;
    default: return kAdoText;
  }
}

using Result = std::unique_ptr<PGresult, decltype(&PQclear)>;

// The first line of a libpq message: the rest repeats it or gives hints
// meant for a terminal session.
std::string FirstLine(const char* message) {
  std::string text = message ? message : "";
  text = text.substr(0, text.find('\n'));
  if (text.starts_with("ERROR:  ")) text.erase(0, 8);
  return text.empty() ? "the server gave no reason" : text;
}

std::string Describe(PGconn* conn, const PGresult* result) {
  const char* primary = result ? PQresultErrorField(result, PG_DIAG_MESSAGE_PRIMARY) : nullptr;
  return primary ? primary : FirstLine(PQerrorMessage(conn));
}

bool Failed(const PGresult* result) {
  ExecStatusType status = result ? PQresultStatus(result) : PGRES_FATAL_ERROR;
  return status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK && status != PGRES_EMPTY_QUERY;
}

// One connection, shared by the backend and the inserts it prepared, which
// may outlive it in a recordset still held.
class Session {
 public:
  explicit Session(PGconn* conn) : conn_(conn) {}
  ~Session() { PQfinish(conn_); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  PGconn* conn() const { return conn_; }

  // Runs sql and returns the rows of its last statement that returned any.
  // A failure throws; inside a transaction the statements run under a
  // savepoint of their own, so that a failure undoes them alone and the
  // transaction goes on, as on the embedded engine.
  Result Run(const std::string& sql) {
    bool guarded = PQtransactionStatus(conn_) == PQTRANS_INTRANS;
    std::string text =
        guarded ? "SAVEPOINT camrelay_statement; " + sql + ";\nRELEASE SAVEPOINT camrelay_statement" : sql;
    Result rows(nullptr, PQclear);
    std::string error = Send(text, rows);
    if (error.empty()) return rows;
    if (guarded) Send("ROLLBACK TO SAVEPOINT camrelay_statement; RELEASE SAVEPOINT camrelay_statement", rows);
    throw std::runtime_error(error);
  }

  // Runs sql as it is, without a savepoint of its own.
  void Plain(const std::string& sql) {
    Result ignored(nullptr, PQclear);
    std::string error = Send(sql, ignored);
    if (!error.empty()) throw std::runtime_error(error);
  }

  std::string Literal(std::string_view text) const {
    char* escaped = PQescapeLiteral(conn_, text.data(), text.size());
    if (!escaped) throw std::runtime_error(FirstLine(PQerrorMessage(conn_)));
    std::string literal(escaped);
    PQfreemem(escaped);
    return literal;
  }

 private:
  // The first failure's description, "" when every statement ran.
  std::string Send(const std::string& text, Result& rows) {
    if (!PQsendQuery(conn_, text.c_str())) return FirstLine(PQerrorMessage(conn_));
    std::string error;
    while (PGresult* raw = PQgetResult(conn_)) {
      Result result(raw, PQclear);
      if (Failed(raw) && error.empty()) error = Describe(conn_, raw);
      if (PQresultStatus(raw) == PGRES_TUPLES_OK) rows = std::move(result);
    }
    return error;
  }

  PGconn* conn_;
};

class PostgresRows : public Rows {
 public:
  // inAddedOrder: a whole table, to be walked in the order of its hidden
  // order column when it has one.
  PostgresRows(Result result, bool inAddedOrder) : result_(std::move(result)) {
    int orderField = -1;
    for (int f = 0; f < PQnfields(result_.get()); ++f) {
      if (PQfname(result_.get(), f) == kOrderColumn) {
        orderField = f;
        continue;
      }
      fields_.push_back(f);
      columns_.push_back({PQfname(result_.get(), f), AdoType(PQftype(result_.get(), f))});
    }
    order_.resize(PQntuples(result_.get()));
    std::iota(order_.begin(), order_.end(), 0);
    if (inAddedOrder && orderField >= 0)
      std::sort(order_.begin(), order_.end(), [&](int a, int b) {
        return std::atoll(PQgetvalue(result_.get(), a, orderField)) <
               std::atoll(PQgetvalue(result_.get(), b, orderField));
      });
  }

  const std::vector<Column>& Columns() const override { return columns_; }
  bool Next() override { return ++current_ < static_cast<long>(order_.size()); }
  void Rewind() override { current_ = -1; }
  long Count() override { return static_cast<long>(order_.size()); }

  DbValue Value(int k) const override {
    int row = order_.at(current_), field = fields_.at(k);
    if (PQgetisnull(result_.get(), row, field)) return std::monostate{};
    std::string_view text(PQgetvalue(result_.get(), row, field),
                          static_cast<std::size_t>(PQgetlength(result_.get(), row, field)));
    switch (PQftype(result_.get(), field)) {
      case kInt2: case kInt4: case kInt8: {
        std::int64_t number = 0;
        std::from_chars(text.data(), text.data() + text.size(), number);
        return number;
      }
      case kFloat4: case kFloat8:
        return std::strtod(std::string(text).c_str(), nullptr);
      case kBool:
        return std::int64_t{text == "t" ? 1 : 0};
      case kDate: case kTime: case kTimestamp: {
        // The embedded engine's form: the date alone at midnight.
        auto date = ParseIsoDate(text);
        return date ? FormatIsoDate(*date) : std::string(text);
      }
      default:
        return std::string(text);
    }
  }

 private:
  Result result_;
  std::vector<int> fields_;
  std::vector<Column> columns_;
  std::vector<int> order_;
  long current_ = -1;
};

class PostgresInsert : public Insert {
 public:
  PostgresInsert(std::shared_ptr<Session> session, std::string table, std::vector<std::string> columns)
      : session_(std::move(session)), table_(std::move(table)) {
    std::string names;
    for (const std::string& column : columns) names += (names.empty() ? "" : ", ") + QuoteIdentifier(column);
    prefix_ = "INSERT INTO " + QuoteIdentifier(table_) + (columns.empty() ? " DEFAULT VALUES" : " (" + names + ") VALUES (");
    whole_ = columns.empty();
  }

  // The values go as literals: the server reads each in its column's type,
  // and a record travels with its savepoint in one exchange.
  void Run(const std::vector<const DbValue*>& values) override {
    std::string sql = prefix_;
    for (std::size_t i = 0; i < values.size(); ++i) {
      if (i) sql += ", ";
      sql += std::holds_alternative<std::monostate>(*values[i]) ? "NULL" : session_->Literal(DbText(*values[i]));
    }
    if (!whole_) sql += ")";
    try {
      session_->Run(sql);
    } catch (const std::exception& e) {
      throw std::runtime_error(table_ + ": " + e.what());
    }
  }

 private:
  std::shared_ptr<Session> session_;
  std::string table_;
  std::string prefix_;
  bool whole_ = false;
};

class PostgresBackend : public Backend {
 public:
  PostgresBackend(std::shared_ptr<Session> session, std::string schema)
      : session_(std::move(session)), schema_(std::move(schema)) {}

  void Exec(const std::string& sql) override { session_->Run(sql); }

  std::unique_ptr<Rows> Query(const std::string& select) override {
    return std::make_unique<PostgresRows>(Fetch(select), false);
  }

  std::unique_ptr<Rows> ReadTable(std::string_view table) override {
    return std::make_unique<PostgresRows>(Fetch("SELECT * FROM " + QuoteIdentifier(table)), true);
  }

  std::string InsertionOrder() const override { return QuoteIdentifier(kOrderColumn); }
  std::string Literal(std::string_view text) const override { return session_->Literal(text); }

  std::unique_ptr<Insert> PrepareInsert(std::string_view table, const std::vector<std::string>& columns) override {
    return std::make_unique<PostgresInsert>(session_, std::string(table), columns);
  }

  void Begin() override { session_->Plain(depth_++ == 0 ? "BEGIN" : "SAVEPOINT camrelay_store"); }

  void Commit() override {
    if (depth_ > 1) {
      session_->Plain("RELEASE SAVEPOINT camrelay_store");
      --depth_;
      return;
    }
    // A transaction the server aborted would end in a silent rollback.
    if (PQtransactionStatus(session_->conn()) != PQTRANS_INTRANS) {
      Rollback();
      throw std::runtime_error("the transaction was aborted by the server and nothing of it was kept");
    }
    if (auto check = CommitCheckOf(schema_)) {
      try {
        (*check)(*this);
      } catch (const std::exception&) {
        Rollback();
        throw;
      }
    }
    depth_ = 0;
    session_->Plain("COMMIT");
  }

  bool InTransaction() const override { return PQtransactionStatus(session_->conn()) == PQTRANS_INTRANS; }

  void Rollback() override {
    if (depth_ == 0) return;
    --depth_;
    session_->Plain(depth_ == 0 ? "ROLLBACK"
                                : "ROLLBACK TO SAVEPOINT camrelay_store; RELEASE SAVEPOINT camrelay_store");
  }

 private:
  Result Fetch(const std::string& select) {
    Result rows = session_->Run(select);
    if (!rows) throw std::runtime_error("the query returned no rows: " + select);
    return rows;
  }

  std::shared_ptr<Session> session_;
  // The schema as the connection string named it; "" for none.
  std::string schema_;
  int depth_ = 0;
};

// The password a connection string gives, as written and as libpq reads
// it: from its password keyword, or from the user part of a URI that libpq
// may be unable to read at all.
std::vector<std::string> PasswordsIn(const std::string& conninfo) {
  std::vector<std::string> passwords;
  if (PQconninfoOption* options = PQconninfoParse(conninfo.c_str(), nullptr)) {
    for (PQconninfoOption* o = options; o->keyword; ++o)
      if (std::string_view(o->keyword) == "password" && o->val && *o->val) passwords.emplace_back(o->val);
    PQconninfoFree(options);
  }
  const std::size_t scheme = conninfo.find("://");
  if (scheme == std::string::npos) return passwords;
  const std::size_t start = scheme + 3;
  const std::string authority = conninfo.substr(start, conninfo.find_first_of("/?", start) - start);
  const std::size_t at = authority.rfind('@');
  const std::size_t colon = authority.find(':');
  if (at != std::string::npos && colon < at) {
    passwords.push_back(authority.substr(colon + 1, at - colon - 1));
    passwords.push_back(PercentDecoded(passwords.back()));
  }
  return passwords;
}

// libpq repeats a connection string it cannot read in its message: the
// password never goes on to a terminal or a report.
std::string WithoutPasswords(std::string message, const std::string& conninfo) {
  for (const std::string& password : PasswordsIn(conninfo)) {
    if (password.empty()) continue;
    for (std::size_t at; (at = message.find(password)) != std::string::npos;)
      message.replace(at, password.size(), "******");
  }
  return message;
}

std::shared_ptr<Session> Connect(const ServerDatabase& server) {
  // A server that does not answer is given up after a while rather than
  // waited for forever, unless the connection string says otherwise; the
  // texts travel in UTF-8 whatever the server's own encoding.
  const char* keywords[] = {"connect_timeout", "fallback_application_name", "dbname", "client_encoding", nullptr};
  const char* values[] = {"10", "camrelay", server.conninfo.c_str(), "UTF8", nullptr};
  auto session = std::make_shared<Session>(PQconnectdbParams(keywords, values, 1));
  if (PQstatus(session->conn()) != CONNECTION_OK)
    throw std::runtime_error("cannot connect to the PostgreSQL server (" +
                             WithoutPasswords(FirstLine(PQerrorMessage(session->conn())), server.conninfo) +
                             "); check Host, Port, Database, User ID and Password");
  // The server's notices ("already exists, skipping") are not for the user.
  PQsetNoticeProcessor(session->conn(), [](void*, const char*) {}, nullptr);
  session->Plain("SET DateStyle = 'ISO, YMD'; SET extra_float_digits = 1");
  return session;
}

// Where the server keeps which schema holds each shortened name, for whoever
// reads the schemas without this program.
constexpr const char* kSchemaNames = R"sql(
  CREATE TABLE IF NOT EXISTS camrelay_schema_names (
    name   text PRIMARY KEY,
    schema text UNIQUE NOT NULL
  ))sql";

// Records which name a shortened schema stands for; refuses a schema that
// already stands for another name.
void RecordSchemaName(Session& session, const std::string& name, const std::string& schema) {
  session.Plain(kSchemaNames);
  session.Plain("INSERT INTO camrelay_schema_names (name, schema) VALUES (" + session.Literal(name) + ", " +
                session.Literal(schema) + ") ON CONFLICT (name) DO NOTHING");
  Result owner = session.Run("SELECT name FROM camrelay_schema_names WHERE schema = " + session.Literal(schema));
  if (PQntuples(owner.get()) != 1 || PQgetvalue(owner.get(), 0, 0) != name)
    throw std::runtime_error("the schema " + schema + " already holds another name's tables");
}

std::string SchemaName(const ServerDatabase& server) {
  return server.schema.empty() ? "the default schema" : "the schema \"" + server.schema + "\"";
}

bool HasTables(Session& session) {
  Result count = session.Run("SELECT count(*) FROM pg_catalog.pg_tables WHERE schemaname = current_schema()");
  return std::atoll(PQgetvalue(count.get(), 0, 0)) > 0;
}

// Makes the schema the one names are looked up in; false when it does not
// exist.
bool UseSchema(Session& session, const ServerDatabase& server) {
  if (!server.schema.empty()) session.Plain("SET search_path TO " + QuoteIdentifier(SchemaIdentifier(server.schema)));
  Result current = session.Run("SELECT current_schema() IS NOT NULL");
  return std::string_view(PQgetvalue(current.get(), 0, 0)) == "t";
}

// Schema and tables are made under a lock of the schema's name, so that the
// fleet runs and workstations that open it at the same time make them once.
bool CreateIfMissing(Session& session, const ServerDatabase& server) {
  session.Plain("BEGIN");
  try {
    session.Plain("SELECT pg_advisory_xact_lock(hashtext(" + session.Literal("camrelay " + server.schema) + "))");
    const std::string schema = SchemaIdentifier(server.schema);
    if (schema != server.schema) RecordSchemaName(session, server.schema, schema);
    if (!server.schema.empty()) session.Plain("CREATE SCHEMA IF NOT EXISTS " + QuoteIdentifier(schema));
    if (!UseSchema(session, server)) throw std::runtime_error("the server has no default schema; give Schema=");
    bool create = !HasTables(session);
    if (create) session.Plain(std::string(PostgresSchemaSql()));
    session.Plain("COMMIT");
    return create;
  } catch (const std::exception& e) {
    try {
      session.Plain("ROLLBACK");
    } catch (const std::exception&) {
      // A connection that is gone has rolled back by itself.
    }
    throw std::runtime_error("cannot create the tables in " + SchemaName(server) + ": " + e.what());
  }
}

}  // namespace

std::string SchemaIdentifier(std::string_view name) {
  if (name.size() <= kMaxIdentifier) return std::string(name);
  // FNV-1a: the same digest on every machine and in every build.
  std::uint64_t hash = 14695981039346656037ull;
  for (unsigned char c : name) hash = (hash ^ c) * 1099511628211ull;
  char digest[17];
  std::snprintf(digest, sizeof digest, "%016llx", static_cast<unsigned long long>(hash));
  std::size_t keep = kMaxIdentifier - 17;
  // Never half a UTF-8 character: continuation bytes are 10xxxxxx.
  while (keep > 0 && (static_cast<unsigned char>(name[keep]) & 0xC0) == 0x80) --keep;
  return std::string(name.substr(0, keep)) + "_" + digest;
}

bool IsLibpqKeyword(const std::string& key) {
  PQconninfoOption* options = PQconndefaults();
  bool found = false;
  for (PQconninfoOption* o = options; o && o->keyword; ++o) found = found || key == o->keyword;
  PQconninfoFree(options);
  return found;
}

std::unique_ptr<Backend> OpenPostgres(const ServerDatabase& server, bool create) {
  std::shared_ptr<Session> session = Connect(server);
  if (create) {
    CreateIfMissing(*session, server);
  } else {
    if (!UseSchema(*session, server) || !HasTables(*session))
      throw std::runtime_error(SchemaName(server) +
                               " of the PostgreSQL database has no tables and is not created here; open or create "
                               "it with ApriDB first");
  }
  return std::make_unique<PostgresBackend>(session, server.schema);
}

std::unique_ptr<Backend> ConnectPostgres(const ServerDatabase& server) {
  return std::make_unique<PostgresBackend>(Connect(server), "");
}

bool InitPostgres(const ServerDatabase& server) { return CreateIfMissing(*Connect(server), server); }

}  // namespace camrelay::store
