#include "store/DataVideo.h"

#include <algorithm>
#include <cctype>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "link/debug_sink.h"
#include "store/schema.h"

namespace camrelay::store {
namespace fs = std::filesystem;

namespace {

constexpr std::string_view kProviders =
    "the providers that exist are SQLite (\"Provider=SQLite;Data Source=<file>\") and a bare path to a SQLite "
    "database file";

// Keys and provider names compare in any case and with any spacing:
// "Data Source", "data source" and "DataSource" are one key.
std::string Canonical(std::string_view text) {
  std::string canonical;
  for (char c : text) {
    if (c != ' ') canonical += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return canonical;
}

std::string_view Trim(std::string_view text) {
  auto blank = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
  while (!text.empty() && blank(text.front())) text.remove_prefix(1);
  while (!text.empty() && blank(text.back())) text.remove_suffix(1);
  return text;
}

std::string_view Unquoted(std::string_view value) {
  if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') && value.back() == value.front())
    return value.substr(1, value.size() - 2);
  return value;
}

// "key=value" pairs split at ";" that is not inside quotes.
std::vector<std::string_view> SplitPairs(std::string_view connection) {
  std::vector<std::string_view> pairs;
  char quote = 0;
  std::size_t start = 0;
  for (std::size_t i = 0; i <= connection.size(); ++i) {
    char c = i < connection.size() ? connection[i] : ';';
    if (quote) {
      if (c == quote) quote = 0;
    } else if (c == '"' || c == '\'') {
      quote = c;
    } else if (c == ';') {
      pairs.push_back(connection.substr(start, i - start));
      start = i + 1;
    }
  }
  return pairs;
}

// A text is in key=value form when it starts with a key: a name before "="
// that holds no path separator.
bool HasKeys(std::string_view connection) {
  std::size_t equals = connection.find('=');
  return equals != std::string_view::npos && equals > 0 &&
         connection.substr(0, equals).find_first_of("/\\") == std::string_view::npos;
}

void CheckProvider(std::string_view provider) {
  std::string name = Canonical(provider);
  if (name == "sqlite" || name == "sqlite3") return;
  if (name.starts_with("microsoft.jet.oledb") || name.starts_with("microsoft.ace.oledb"))
    throw std::runtime_error("the provider " + std::string(provider) +
                             " opens Access databases, which are not available here; " + std::string(kProviders));
  throw std::runtime_error("the provider " + std::string(provider) + " is not known; " + std::string(kProviders));
}

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
  if (sqlite3_open_v2(file.c_str(), &db, flags, nullptr) != SQLITE_OK) {
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
    Transaction transaction(db);
    Exec(db, std::string(SchemaSql()));
    transaction.Commit();
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

}  // namespace

const Command* FindCommand(std::string_view name) {
  auto found = std::find_if(kCommands.begin(), kCommands.end(), [&](const Command& c) { return c.Name == name; });
  return found == kCommands.end() ? nullptr : &*found;
}

fs::path DatabasePath(std::string_view connection) {
  connection = Trim(connection);
  if (connection.empty())
    throw std::runtime_error("the connection string is empty; give \"Provider=SQLite;Data Source=<file>\"");
  if (!HasKeys(connection)) return fs::path(std::string(Unquoted(connection)));
  std::string_view provider, source;
  for (std::string_view pair : SplitPairs(connection)) {
    std::size_t equals = pair.find('=');
    if (equals == std::string_view::npos) continue;
    std::string key = Canonical(pair.substr(0, equals));
    std::string_view value = Unquoted(Trim(pair.substr(equals + 1)));
    if (key == "provider") provider = value;
    if (key == "datasource") source = value;
  }
  if (!provider.empty()) CheckProvider(provider);
  if (source.empty())
    throw std::runtime_error("the connection string names no Data Source; give \"Provider=SQLite;Data Source=<file>\"");
  return fs::path(std::string(source));
}

void CreateDatabase(const fs::path& file) {
  if (fs::exists(file)) throw std::runtime_error("the database " + Quoted(file) + " exists already");
  sqlite3_close_v2(CreateFile(file));
}

struct DataVideo::Impl {
  std::string connection{kDesignTimeConnection};
  sqlite3* db = nullptr;
};

DataVideo::DataVideo() : impl_(std::make_unique<Impl>()) {}

DataVideo::~DataVideo() { Close(); }

int DataVideo::ConnectionState() const { return impl_->db ? 1 : 0; }

const std::string& DataVideo::ConnectionString() const { return impl_->connection; }

void DataVideo::SetConnectionString(const std::string& connection) { impl_->connection = connection; }

void DataVideo::Open() {
  if (impl_->db) return;
  fs::path file = DatabasePath(impl_->connection);
  // An empty file holds no database yet (a placeholder made by hand or by a
  // crash while creating one): it gets the standard tables like a new one.
  std::error_code error;
  bool holdsData = fs::exists(file) && (fs::is_directory(file) || fs::file_size(file, error) > 0);
  impl_->db = holdsData ? OpenExisting(file) : CreateFile(file);
}

void DataVideo::Close() {
  // A recordset still alive keeps the file open until it goes.
  sqlite3_close_v2(impl_->db);
  impl_->db = nullptr;
}

void DataVideo::EnsureOpen(DebugSink* form, std::string_view procedure) {
  if (impl_->db) return;
  if (form) form->CreateEventOnDebug(std::string(procedure) + ": Attenzione il DB era chiuso ed è stato aperto");
  Open();
  StatoDB = cDbAperto;
}

sqlite3* DataVideo::Handle() const {
  if (!impl_->db) throw std::runtime_error("the database is closed");
  return impl_->db;
}

void DataVideo::Execute(std::string_view command) {
  const Command* found = FindCommand(command);
  if (!found || found->Kind != CommandKind::Action)
    throw std::invalid_argument("no command " + std::string(command) + " that returns no rows");
  Exec(Handle(), std::string(found->Text));
}

Recordset DataVideo::OpenRecordset(std::string_view command) {
  const Command* found = FindCommand(command);
  if (!found || found->Kind == CommandKind::Action)
    throw std::invalid_argument("no command " + std::string(command) + " that returns rows");
  std::string select(found->Text);
  if (found->Kind == CommandKind::Table) select = "SELECT * FROM " + select + " ORDER BY rowid";
  return Recordset(Handle(), std::move(select), std::string(found->Table));
}

Recordset DataVideo::OpenTable(std::string_view table) {
  return Recordset(Handle(), "SELECT * FROM " + QuoteIdentifier(table) + " ORDER BY rowid", std::string(table));
}

}  // namespace camrelay::store
