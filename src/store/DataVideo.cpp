#include "store/DataVideo.h"

#include <algorithm>
#include <stdexcept>

#include "common/debug_sink.h"
#include "store/postgres_backend.h"
#include "store/sqlite_backend.h"

namespace camrelay::store {
namespace fs = std::filesystem;

namespace {

std::unique_ptr<Backend> OpenBackend(std::string_view connection, bool create) {
  DatabaseLocation location = ParseConnection(connection);
  if (auto file = std::get_if<fs::path>(&location)) return OpenSqlite(*file, create);
  return OpenPostgres(std::get<ServerDatabase>(location), create);
}

}  // namespace

const Command* FindCommand(std::string_view name) {
  auto found = std::find_if(kCommands.begin(), kCommands.end(), [&](const Command& c) { return c.Name == name; });
  return found == kCommands.end() ? nullptr : &*found;
}

bool InitDatabase(std::string_view connection) {
  DatabaseLocation location = ParseConnection(connection);
  if (auto server = std::get_if<ServerDatabase>(&location)) return InitPostgres(*server);
  const fs::path& file = std::get<fs::path>(location);
  if (SqliteFileHoldsDatabase(file)) return false;
  OpenSqlite(file, true);
  return true;
}

void CreateDatabase(const fs::path& file) { CreateSqliteFile(file); }

struct DataVideo::Impl {
  std::string connection{kDesignTimeConnection};
  std::unique_ptr<Backend> backend;
};

DataVideo::DataVideo() : impl_(std::make_unique<Impl>()) {}

DataVideo::~DataVideo() { Close(); }

int DataVideo::ConnectionState() const { return impl_->backend ? 1 : 0; }

const std::string& DataVideo::ConnectionString() const { return impl_->connection; }

void DataVideo::SetConnectionString(const std::string& connection) { impl_->connection = connection; }

void DataVideo::Open() {
  if (!impl_->backend) impl_->backend = OpenBackend(impl_->connection, true);
}

void DataVideo::Close() { impl_->backend.reset(); }

// A database created here would be empty, and an upload built from it would
// wipe the unit's programming: only the host's own opening creates one.
void DataVideo::EnsureOpen(DebugSink* form, std::string_view procedure) {
  if (impl_->backend) return;
  std::unique_ptr<Backend> backend = OpenBackend(impl_->connection, false);
  if (form) form->CreateEventOnDebug(std::string(procedure) + ": Attenzione il DB era chiuso ed è stato aperto");
  impl_->backend = std::move(backend);
  StatoDB = cDbAperto;
}

Backend& DataVideo::Handle() const {
  if (!impl_->backend) throw std::runtime_error("the database is closed");
  return *impl_->backend;
}

void DataVideo::Execute(std::string_view command) {
  const Command* found = FindCommand(command);
  if (!found || found->Kind != CommandKind::Action)
    throw std::invalid_argument("no command " + std::string(command) + " that returns no rows");
  Handle().Exec(std::string(found->Text));
}

Recordset DataVideo::OpenRecordset(std::string_view command) {
  const Command* found = FindCommand(command);
  if (!found || found->Kind == CommandKind::Action)
    throw std::invalid_argument("no command " + std::string(command) + " that returns rows");
  if (found->Kind == CommandKind::Table) return OpenTable(found->Table);
  return Recordset(Handle(), Handle().Query(std::string(found->Text)), std::string(found->Table));
}

Recordset DataVideo::OpenTable(std::string_view table) {
  return Recordset(Handle(), Handle().ReadTable(table), std::string(table));
}

}  // namespace camrelay::store
