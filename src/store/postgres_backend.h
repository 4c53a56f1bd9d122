// The server engine: the tables in one schema of a PostgreSQL database,
// reached through libpq. Several workstations and fleet runs use it at the
// same time; each unit of a fleet keeps its tables in a schema of its own.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "store/backend.h"
#include "store/connection.h"

namespace camrelay::store {

// Whether libpq knows key as a connection keyword (host, dbname, sslmode...).
bool IsLibpqKeyword(const std::string& key);

// The longest identifier the server keeps whole; a longer one it would cut
// silently, so that two names alike in their first 63 bytes would share a
// schema.
constexpr std::size_t kMaxIdentifier = 63;

// The schema that holds the tables of the schema name given in a connection
// string: the name itself when the server keeps it whole, else a readable
// start of it and a digest of all of it. The same on every machine, so that
// every command finds the schema from the name alone.
std::string SchemaIdentifier(std::string_view name);

// Connects and makes the schema the one the tables are read from. A schema
// without tables gets the standard ones when create is set (the schema
// itself too, when it does not exist) and is refused otherwise. Throws
// std::runtime_error with a description a user can act on.
std::unique_ptr<Backend> OpenPostgres(const ServerDatabase& server, bool create);

// Creates the standard tables in the schema unless it has tables already;
// returns whether it created them.
bool InitPostgres(const ServerDatabase& server);

// Makes the server backends of this process share at most limit
// connections to each server (0, the default: every backend has its own, for
// as long as it lives). A backend then holds one only while it uses it, and
// waits for one while all are in use. A connection lost between two uses
// (a restart, a network cut) is replaced, waiting a little longer each time.
void LimitServerConnections(int limit);
// The most connections to one server the pool had open at once since the
// limit was set.
int ServerConnectionsPeak();

// Connects to the server alone, for tables of the host's own that are not
// a unit's (the fleet's shared work list): the schema is not touched.
std::unique_ptr<Backend> ConnectPostgres(const ServerDatabase& server);

}  // namespace camrelay::store
