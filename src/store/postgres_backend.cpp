#include "store/postgres_backend.h"

#include <libpq-fe.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <array>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <stdexcept>
#include <thread>
#include <utility>

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
    SendHeld();
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
    SendHeld();
    Result ignored(nullptr, PQclear);
    std::string error = Send(sql, ignored);
    if (!error.empty()) throw std::runtime_error(error);
  }

  // Holds an insert of the open transaction back, to go with the next ones
  // in one exchange: a distant server costs a round trip per exchange, not
  // per record. What is held is bounded, and sent when it grows past that.
  void Hold(std::string sql, const std::string& table) {
    heldBytes_ += sql.size();
    held_.push_back({std::move(sql), table, tag});
    if (heldBytes_ > kMaxHeldBytes) SendHeld();
  }

  // Sends the inserts held, all under one savepoint. When one of them fails
  // the savepoint undoes them all and they go again one by one, so that the
  // refused ones are known by name and the others kept.
  void SendHeld() {
    if (held_.empty()) return;
    std::vector<HeldInsert> batch = std::exchange(held_, {});
    heldBytes_ = 0;
    std::string text = "SAVEPOINT camrelay_batch";
    for (const HeldInsert& insert : batch) text += ";\n" + insert.sql;
    text += ";\nRELEASE SAVEPOINT camrelay_batch";
    Result ignored(nullptr, PQclear);
    if (Send(text, ignored).empty()) return;
    // A lost connection took the transaction with it: there is nothing to
    // send again, and the store hears of the loss as the transaction ended.
    if (PQstatus(conn_) != CONNECTION_OK) return;
    Send("ROLLBACK TO SAVEPOINT camrelay_batch; RELEASE SAVEPOINT camrelay_batch", ignored);
    for (const HeldInsert& insert : batch) {
      try {
        Run(insert.sql);
      } catch (const std::exception& e) {
        refused_.push_back({insert.tag, insert.table + ": " + e.what()});
      }
    }
  }

  std::vector<RefusedRecord> TakeRefused() {
    SendHeld();
    return std::exchange(refused_, {});
  }

  // For a rollback, which undoes them anyway.
  void DropHeld(bool refusedToo) {
    held_.clear();
    heldBytes_ = 0;
    if (refusedToo) refused_.clear();
  }

  long roundTrips() const { return roundTrips_; }
  bool Holding() const { return !held_.empty(); }

  // What every connection is set to: the server's notices ("already
  // exists, skipping") are not for the user; dates come back in the form
  // the store reads.
  void Setup() {
    PQsetNoticeProcessor(conn_, [](void*, const char*) {}, nullptr);
    Plain("SET DateStyle = 'ISO, YMD'; SET extra_float_digits = 1");
    searchPath.clear();
  }

  // The schema the connection looks names up in, quoted; "" for the
  // server's default.
  std::string searchPath;

  // The tag of the inserts held from now on.
  long tag = 0;

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
    ++roundTrips_;
    if (!PQsendQuery(conn_, text.c_str())) return FirstLine(PQerrorMessage(conn_));
    std::string error;
    while (PGresult* raw = PQgetResult(conn_)) {
      Result result(raw, PQclear);
      if (Failed(raw) && error.empty()) error = Describe(conn_, raw);
      if (PQresultStatus(raw) == PGRES_TUPLES_OK) rows = std::move(result);
    }
    return error;
  }

  struct HeldInsert {
    std::string sql;
    std::string table;
    long tag;
  };
  static constexpr std::size_t kMaxHeldBytes = 1 << 20;

  PGconn* conn_;
  std::vector<HeldInsert> held_;
  std::size_t heldBytes_ = 0;
  std::vector<RefusedRecord> refused_;
  long roundTrips_ = 0;
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

std::shared_ptr<Session> Connect(const ServerDatabase& server);

// The connections to the servers shared by the backends of a process that
// limits them (a fleet: one schema per unit, thousands of units, a server
// that takes a few hundred connections at most). A backend holds one only
// while it uses it: for a transaction, or for a statement outside one.
class ServerPool {
 public:
  static ServerPool& Shared() {
    static ServerPool pool;
    return pool;
  }

  // No limit any more: the idle connections are closed, the others when
  // their backends end.
  void SetLimit(int limit) {
    std::vector<std::shared_ptr<Session>> closing;
    std::lock_guard lock(mutex_);
    limit_ = std::max(0, limit);
    peak_ = 0;
    if (limit_ == 0) {
      for (auto& [conninfo, server] : servers_) {
        server.open -= static_cast<int>(server.idle.size());
        for (auto& session : server.idle) closing.push_back(std::move(session));
        server.idle.clear();
      }
    }
    freed_.notify_all();
  }
  int limit() {
    std::lock_guard lock(mutex_);
    return limit_;
  }
  int peak() {
    std::lock_guard lock(mutex_);
    return peak_;
  }

  // An idle connection to the server, or a new one while fewer than the
  // limit are open; otherwise waits for one to be given back.
  std::shared_ptr<Session> Acquire(const ServerDatabase& server) {
    std::unique_lock lock(mutex_);
    Server& pooled = servers_[server.conninfo];
    freed_.wait(lock, [&] { return !pooled.idle.empty() || pooled.open < limit_ || limit_ == 0; });
    if (!pooled.idle.empty()) {
      std::shared_ptr<Session> session = std::move(pooled.idle.back());
      pooled.idle.pop_back();
      return session;
    }
    ++pooled.open;
    peak_ = std::max(peak_, pooled.open);
    lock.unlock();
    try {
      return Connect(server);
    } catch (...) {
      Closed(server.conninfo);
      throw;
    }
  }

  // A connection left in a transaction or broken is closed rather than
  // handed to another unit.
  void Release(const std::string& conninfo, std::shared_ptr<Session> session) {
    if (PQstatus(session->conn()) != CONNECTION_OK || PQtransactionStatus(session->conn()) != PQTRANS_IDLE) {
      session.reset();
      return Closed(conninfo);
    }
    std::lock_guard lock(mutex_);
    servers_[conninfo].idle.push_back(std::move(session));
    freed_.notify_one();
  }

  // Which schemas have their tables already, so that a unit's next link
  // does not ask the server again.
  bool Ready(const ServerDatabase& server) {
    std::lock_guard lock(mutex_);
    return ready_.contains(server.conninfo + '\n' + server.schema);
  }
  void MarkReady(const ServerDatabase& server) {
    std::lock_guard lock(mutex_);
    if (ready_.size() < kMaxReady) ready_.insert(server.conninfo + '\n' + server.schema);
  }

 private:
  struct Server {
    std::vector<std::shared_ptr<Session>> idle;
    int open = 0;
  };
  static constexpr std::size_t kMaxReady = 100000;

  void Closed(const std::string& conninfo) {
    std::lock_guard lock(mutex_);
    --servers_[conninfo].open;
    freed_.notify_one();
  }

  std::mutex mutex_;
  std::condition_variable freed_;
  std::map<std::string, Server> servers_;
  std::set<std::string> ready_;
  int limit_ = 0;
  int peak_ = 0;
};

// How long a lost server is waited for, between attempts to reach it again:
// a restart takes seconds, a network cut may take longer, and a unit's run
// cannot wait forever.
constexpr std::array<std::chrono::milliseconds, 6> kReconnectBackoff{
    std::chrono::milliseconds(100), std::chrono::milliseconds(200), std::chrono::milliseconds(500),
    std::chrono::milliseconds(1000), std::chrono::milliseconds(2000), std::chrono::milliseconds(4000)};

// What a backend and its inserts share: the connection, its own for good or
// taken from the pool while used, with the search path set to the schema.
class Lease {
 public:
  // pooled: taken from ServerPool when needed; otherwise connects now.
  Lease(ServerDatabase server, bool pooled)
      : server_(std::move(server)), pooled_(pooled) {
    if (!pooled_) session_ = Connect(server_);
  }
  ~Lease() { Idle(true); }
  Lease(const Lease&) = delete;
  Lease& operator=(const Lease&) = delete;

  // How deep the backend's transactions are nested; while one is open the
  // connection is not given back, and a lost one is not replaced.
  int depth = 0;
  // Whether the schema has been found or made: from then on every use of a
  // connection looks names up in it.
  bool schemaReady = false;

  Session& Get() {
    if (!session_ && depth > 0)
      throw std::runtime_error("the connection to the PostgreSQL server was lost, and the transaction with it");
    if (!session_) {
      session_ = ServerPool::Shared().Acquire(server_);
      tripsAtAcquire_ = session_->roundTrips();
    }
    // Until the schema is known to be there, names go to the server's
    // default one, whatever unit the connection served before.
    const std::string path =
        server_.schema.empty() || !schemaReady ? "" : QuoteIdentifier(SchemaIdentifier(server_.schema));
    if (session_->searchPath != path) {
      if (!path.empty() || !session_->searchPath.empty())
        session_->Plain("SET search_path TO " + (path.empty() ? std::string("DEFAULT") : path));
      session_->searchPath = path;
    }
    return *session_;
  }

  // Runs a statement. One that starts the connection's use (fresh: no
  // transaction of ours is open) finds a server lost since the last one
  // (restarted, cut off) again, waiting longer each time, and is sent
  // again. Inside a transaction nothing is sent again: the transaction went
  // with the connection, and the caller hears of it.
  template <class Work>
  auto Run(Work&& work) -> decltype(work(std::declval<Session&>())) {
    const bool fresh = depth == 0;
    for (std::size_t attempt = 0;; ++attempt) {
      try {
        return work(Get());
      } catch (const std::runtime_error& e) {
        const bool lost = !session_ || PQstatus(session_->conn()) != CONNECTION_OK;
        if (!fresh || !lost) throw;
        if (attempt == kReconnectBackoff.size())
          throw std::runtime_error(std::string("the PostgreSQL server was lost and could not be reached again: ") +
                                   e.what());
        std::this_thread::sleep_for(kReconnectBackoff[attempt]);
        Reset();
      }
    }
  }

  // Gives a pooled connection back once it holds nothing of ours; a broken
  // one goes at once, for the pool to close.
  void Idle(bool always = false) {
    if (!pooled_ || !session_) return;
    if (!always && (depth > 0 || session_->Holding())) return;
    trips_ += session_->roundTrips() - tripsAtAcquire_;
    ServerPool::Shared().Release(server_.conninfo, std::move(session_));
  }

  bool InTransaction() const { return session_ && PQtransactionStatus(session_->conn()) == PQTRANS_INTRANS; }
  bool Holding() const { return session_ != nullptr; }
  long roundTrips() const { return trips_ + (session_ ? session_->roundTrips() - tripsAtAcquire_ : 0); }
  const std::string& schema() const { return server_.schema; }

 private:
  // A broken connection is opened again; a pooled one goes back to the pool
  // to be closed, and the next Get takes or opens another.
  void Reset() {
    if (!session_) return;
    if (pooled_) return Idle(true);
    PQreset(session_->conn());
    if (PQstatus(session_->conn()) == CONNECTION_OK) session_->Setup();
  }

  ServerDatabase server_;
  bool pooled_;
  std::shared_ptr<Session> session_;
  long trips_ = 0;
  long tripsAtAcquire_ = 0;
};

// Every public call ends by giving a pooled connection back when it is no
// longer needed.
class Using {
 public:
  explicit Using(Lease& lease) : lease_(lease) {}
  ~Using() { lease_.Idle(); }
  Using(const Using&) = delete;
  Using& operator=(const Using&) = delete;

 private:
  Lease& lease_;
};

class PostgresInsert : public Insert {
 public:
  PostgresInsert(std::shared_ptr<Lease> lease, std::string table, std::vector<std::string> columns)
      : lease_(std::move(lease)), table_(std::move(table)) {
    std::string names;
    for (const std::string& column : columns) names += (names.empty() ? "" : ", ") + QuoteIdentifier(column);
    prefix_ = "INSERT INTO " + QuoteIdentifier(table_) + (columns.empty() ? " DEFAULT VALUES" : " (" + names + ") VALUES (");
    whole_ = columns.empty();
  }

  // The values go as literals: the server reads each in its column's type,
  // and the records of a transaction travel together in one exchange.
  void Run(const std::vector<const DbValue*>& values) override {
    Using use(*lease_);
    Session& session = lease_->Get();
    std::string sql = prefix_;
    for (std::size_t i = 0; i < values.size(); ++i) {
      if (i) sql += ", ";
      sql += std::holds_alternative<std::monostate>(*values[i]) ? "NULL" : session.Literal(DbText(*values[i]));
    }
    if (!whole_) sql += ")";
    if (lease_->InTransaction()) return session.Hold(std::move(sql), table_);
    try {
      session.Run(sql);
    } catch (const std::exception& e) {
      throw std::runtime_error(table_ + ": " + e.what());
    }
  }

 private:
  std::shared_ptr<Lease> lease_;
  std::string table_;
  std::string prefix_;
  bool whole_ = false;
};

class PostgresBackend : public Backend {
 public:
  explicit PostgresBackend(std::shared_ptr<Lease> lease) : lease_(std::move(lease)) {}

  void Exec(const std::string& sql) override {
    Using use(*lease_);
    lease_->Run([&](Session& s) { return s.Run(sql); });
  }

  std::unique_ptr<Rows> Query(const std::string& select) override {
    return std::make_unique<PostgresRows>(Fetch(select), false);
  }

  std::unique_ptr<Rows> ReadTable(std::string_view table) override {
    return std::make_unique<PostgresRows>(Fetch("SELECT * FROM " + QuoteIdentifier(table)), true);
  }

  std::string InsertionOrder() const override { return QuoteIdentifier(kOrderColumn); }
  std::string Literal(std::string_view text) const override {
    Using use(*lease_);
    return lease_->Get().Literal(text);
  }

  std::unique_ptr<Insert> PrepareInsert(std::string_view table, const std::vector<std::string>& columns) override {
    return std::make_unique<PostgresInsert>(lease_, std::string(table), columns);
  }

  void Begin() override {
    Using use(*lease_);
    if (lease_->depth == 0) {
      lease_->Run([](Session& s) { s.Plain("BEGIN"); });
    } else {
      lease_->Get().Plain("SAVEPOINT camrelay_store");
    }
    ++lease_->depth;
  }

  void Commit() override {
    Using use(*lease_);
    Session& session = lease_->Get();
    session.SendHeld();
    if (lease_->depth > 1) {
      session.Plain("RELEASE SAVEPOINT camrelay_store");
      --lease_->depth;
      return;
    }
    // A transaction the server aborted would end in a silent rollback.
    if (PQtransactionStatus(session.conn()) != PQTRANS_INTRANS) {
      Rollback();
      throw std::runtime_error("the transaction was aborted by the server and nothing of it was kept");
    }
    if (auto check = CommitCheckOf(lease_->schema())) {
      try {
        (*check)(*this);
      } catch (const std::exception&) {
        Rollback();
        throw;
      }
    }
    lease_->depth = 0;
    session.Plain("COMMIT");
  }

  bool InTransaction() const override { return lease_->InTransaction(); }

  std::vector<RefusedRecord> Flush() override {
    if (!lease_->Holding()) return {};
    return lease_->Get().TakeRefused();
  }
  void TagInserts(long tag) override {
    if (lease_->Holding()) lease_->Get().tag = tag;
  }
  long RoundTrips() const override { return lease_->roundTrips(); }

  void Rollback() override {
    if (lease_->depth == 0) return;
    Using use(*lease_);
    --lease_->depth;
    if (!lease_->Holding()) return;
    Session& session = lease_->Get();
    session.DropHeld(lease_->depth == 0);
    session.Plain(lease_->depth == 0 ? "ROLLBACK" : "ROLLBACK TO SAVEPOINT camrelay_store; RELEASE SAVEPOINT camrelay_store");
  }

 private:
  Result Fetch(const std::string& select) {
    Using use(*lease_);
    Result rows = lease_->Run([&](Session& s) { return s.Run(select); });
    if (!rows) throw std::runtime_error("the query returned no rows: " + select);
    return rows;
  }

  std::shared_ptr<Lease> lease_;
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
  session->Setup();
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
  if (!server.schema.empty()) {
    const std::string path = QuoteIdentifier(SchemaIdentifier(server.schema));
    session.Plain("SET search_path TO " + path);
    session.searchPath = path;
  }
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
    // The rollback undoes the search path set in the transaction too: the
    // next use of the connection sets it again.
    session.searchPath = "unknown";
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

void LimitServerConnections(int limit) { ServerPool::Shared().SetLimit(limit); }

int ServerConnectionsPeak() { return ServerPool::Shared().peak(); }

// A pooled connection is asked about the schema once per process: the
// links that follow use what the first one found or made.
std::unique_ptr<Backend> OpenPostgres(const ServerDatabase& server, bool create) {
  ServerPool& pool = ServerPool::Shared();
  const bool pooled = pool.limit() > 0;
  auto lease = std::make_shared<Lease>(server, pooled);
  if (!pooled || !pool.Ready(server)) {
    Using use(*lease);
    lease->Run([&](Session& session) {
      if (create) {
        CreateIfMissing(session, server);
      } else if (!UseSchema(session, server) || !HasTables(session)) {
        throw std::runtime_error(SchemaName(server) +
                                    " of the PostgreSQL database has no tables and is not created here; open or "
                                    "create it with ApriDB first");
      }
      return 0;
    });
    pool.MarkReady(server);
  }
  lease->schemaReady = true;
  return std::make_unique<PostgresBackend>(lease);
}

std::unique_ptr<Backend> ConnectPostgres(const ServerDatabase& server) {
  auto lease = std::make_shared<Lease>(ServerDatabase{server.conninfo, ""}, false);
  lease->schemaReady = true;
  return std::make_unique<PostgresBackend>(lease);
}

bool InitPostgres(const ServerDatabase& server) {
  ServerPool& pool = ServerPool::Shared();
  if (pool.limit() == 0) return CreateIfMissing(*Connect(server), server);
  Lease lease(server, true);
  Using use(lease);
  const bool created = lease.Run([&](Session& session) { return CreateIfMissing(session, server); });
  pool.MarkReady(server);
  return created;
}

}  // namespace camrelay::store
