// The Windows build has no libpq: a server connection string is refused with
// a reason the host can show, and the library still builds and links.
#include <stdexcept>

#include "store/postgres_backend.h"

namespace camrelay::store {

namespace {

[[noreturn]] void Unavailable() {
  throw std::runtime_error(
      "the PostgreSQL provider is not part of this build; use \"Provider=SQLite;Data Source=<file>\"");
}

}  // namespace

// Any key passes here, so that the reason given is the missing provider.
bool IsLibpqKeyword(const std::string&) { return true; }
std::unique_ptr<Backend> OpenPostgres(const ServerDatabase&, bool) { Unavailable(); }
bool InitPostgres(const ServerDatabase&) { Unavailable(); }
std::unique_ptr<Backend> ConnectPostgres(const ServerDatabase&) { Unavailable(); }
// With no server backend there are no connections to share.
void LimitServerConnections(int) {}
int ServerConnectionsPeak() { return 0; }

}  // namespace camrelay::store
