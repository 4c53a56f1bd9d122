// What a connection string names: a SQLite database file, or a schema in a
// PostgreSQL server.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <variant>

namespace camrelay::store {

struct ServerDatabase {
  // For libpq: a "key=value ..." string or a postgresql:// URI, without the
  // schema.
  std::string conninfo;
  // The schema that holds the tables; empty for the server's default one.
  std::string schema;
};

using DatabaseLocation = std::variant<std::filesystem::path, ServerDatabase>;

// Reads "Provider=SQLite;Data Source=<file>" or a bare path (a file), and
// "Provider=PostgreSQL;Host=..;Port=..;Database=..;User ID=..;Password=..;
// Schema=.." or "postgresql://user@host:port/database?schema=.." (a server).
// Keys compare in any case and spacing, values may be quoted. Throws
// std::runtime_error naming the providers that exist for any other
// provider, a Jet or ACE one above all, and for a key a server does not
// know.
DatabaseLocation ParseConnection(std::string_view connection);

// The database file a SQLite connection string names; throws
// std::runtime_error for any other.
std::filesystem::path DatabasePath(std::string_view connection);

bool IsServerDatabase(std::string_view connection);

// text with every %XX replaced by the byte it stands for, as in a URI.
std::string PercentDecoded(std::string_view text);

// The server connection string with its schema replaced by schema: one
// server database, a schema per unit.
std::string WithSchema(std::string_view connection, std::string_view schema);

}  // namespace camrelay::store
