#include "store/connection.h"

#include <cctype>
#include <stdexcept>
#include <vector>

#include "store/postgres_backend.h"

namespace camrelay::store {
namespace fs = std::filesystem;

namespace {

constexpr std::string_view kProviders =
    "the providers that exist are SQLite (\"Provider=SQLite;Data Source=<file>\", or a bare path to a SQLite "
    "database file) and PostgreSQL (\"Provider=PostgreSQL;Host=..;Database=..;Schema=..\", or a postgresql:// URI)";

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

// A value between quotes loses them, and a quote doubled inside stands for
// one: "say ""hi""" is say "hi".
std::string Unquoted(std::string_view value) {
  if (value.size() < 2 || (value.front() != '"' && value.front() != '\'') || value.back() != value.front())
    return std::string(value);
  const char quote = value.front();
  std::string text;
  for (std::size_t i = 1; i + 1 < value.size(); ++i) {
    text += value[i];
    if (value[i] == quote && value[i + 1] == quote) ++i;
  }
  return text;
}

struct Pair {
  std::string key;  // canonical
  std::string_view name;
  std::string value;
};

// "key=value" pairs split at ";" that is not inside quotes.
std::vector<Pair> SplitPairs(std::string_view connection) {
  std::vector<Pair> pairs;
  char quote = 0;
  std::size_t start = 0;
  for (std::size_t i = 0; i <= connection.size(); ++i) {
    char c = i < connection.size() ? connection[i] : ';';
    if (quote) {
      if (c == quote && i + 1 < connection.size() && connection[i + 1] == quote)
        ++i;  // a quote doubled inside the value
      else if (c == quote)
        quote = 0;
    } else if (c == '"' || c == '\'') {
      quote = c;
    } else if (c == ';') {
      std::string_view pair = connection.substr(start, i - start);
      std::size_t equals = pair.find('=');
      if (equals != std::string_view::npos)
        pairs.push_back({Canonical(pair.substr(0, equals)), Trim(pair.substr(0, equals)),
                         Unquoted(Trim(pair.substr(equals + 1)))});
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

bool IsUri(std::string_view connection) {
  std::string scheme = Canonical(connection.substr(0, connection.find("://") + 1));
  return connection.find("://") != std::string_view::npos && (scheme == "postgresql:" || scheme == "postgres:");
}

enum class Provider { SQLite, PostgreSQL };

Provider CheckProvider(std::string_view provider) {
  std::string name = Canonical(provider);
  if (name.empty() || name == "sqlite" || name == "sqlite3") return Provider::SQLite;
  if (name == "postgresql" || name == "postgres") return Provider::PostgreSQL;
  if (name.starts_with("microsoft.jet.oledb") || name.starts_with("microsoft.ace.oledb"))
    throw std::runtime_error("the provider " + std::string(provider) +
                             " opens Access databases, which are not available here; " + std::string(kProviders));
  throw std::runtime_error("the provider " + std::string(provider) + " is not known; " + std::string(kProviders));
}

// A value as libpq reads it in "key='value'".
std::string LibpqValue(std::string_view value) {
  std::string quoted = "'";
  for (char c : value) {
    if (c == '\'' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + "'";
}

// The names a desktop connection string gives the server's keys.
std::string LibpqKeyword(const std::string& key) {
  if (key == "host" || key == "server" || key == "datasource") return "host";
  if (key == "database" || key == "initialcatalog") return "dbname";
  if (key == "userid" || key == "uid" || key == "username") return "user";
  if (key == "pwd") return "password";
  return key;
}

ServerDatabase ServerFromKeys(const std::vector<Pair>& pairs) {
  ServerDatabase server;
  for (const Pair& pair : pairs) {
    // Keys of the desktop strings that mean nothing to a server.
    if (pair.key == "provider" || pair.key == "persistsecurityinfo" || pair.key == "mode") continue;
    if (pair.key == "schema") {
      server.schema = pair.value;
      continue;
    }
    std::string keyword = LibpqKeyword(pair.key);
    if (!IsLibpqKeyword(keyword))
      throw std::runtime_error("the key " + std::string(pair.name) +
                               " is not known for PostgreSQL; give Host, Port, Database, User ID, Password, "
                               "Schema, or a keyword of libpq (sslmode, connect_timeout, ...)");
    server.conninfo += (server.conninfo.empty() ? "" : " ") + keyword + "=" + LibpqValue(pair.value);
  }
  return server;
}

// libpq refuses query parameters it does not know: "schema" is ours, taken
// out before the URI goes to it.
ServerDatabase ServerFromUri(std::string_view uri) {
  ServerDatabase server;
  std::size_t question = uri.find('?');
  server.conninfo = uri.substr(0, question);
  if (question == std::string_view::npos) return server;
  std::string kept;
  std::string_view query = uri.substr(question + 1);
  while (!query.empty()) {
    std::string_view parameter = query.substr(0, query.find('&'));
    query.remove_prefix(std::min(parameter.size() + 1, query.size()));
    if (parameter.starts_with("schema=")) {
      server.schema = PercentDecoded(parameter.substr(7));
    } else if (!parameter.empty()) {
      kept += (kept.empty() ? "?" : "&") + std::string(parameter);
    }
  }
  server.conninfo += kept;
  return server;
}

}  // namespace

std::string PercentDecoded(std::string_view text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() && std::isxdigit(static_cast<unsigned char>(text[i + 1])) &&
        std::isxdigit(static_cast<unsigned char>(text[i + 2]))) {
      decoded += static_cast<char>(std::stoi(std::string(text.substr(i + 1, 2)), nullptr, 16));
      i += 2;
    } else {
      decoded += text[i];
    }
  }
  return decoded;
}

DatabaseLocation ParseConnection(std::string_view connection) {
  connection = Trim(connection);
  if (connection.empty())
    throw std::runtime_error("the connection string is empty; give \"Provider=SQLite;Data Source=<file>\"");
  if (IsUri(connection)) return ServerFromUri(connection);
  if (!HasKeys(connection)) return fs::path(Unquoted(connection));
  std::vector<Pair> pairs = SplitPairs(connection);
  std::string provider, source;
  for (const Pair& pair : pairs) {
    if (pair.key == "provider") provider = pair.value;
    if (pair.key == "datasource") source = pair.value;
  }
  if (CheckProvider(provider) == Provider::PostgreSQL) return ServerFromKeys(pairs);
  if (source.empty())
    throw std::runtime_error("the connection string names no Data Source; give \"Provider=SQLite;Data Source=<file>\"");
  return fs::path(source);
}

fs::path DatabasePath(std::string_view connection) {
  DatabaseLocation location = ParseConnection(connection);
  if (auto file = std::get_if<fs::path>(&location)) return *file;
  throw std::runtime_error("the connection string names a PostgreSQL server, not a database file");
}

std::string WithSchema(std::string_view connection, std::string_view schema) {
  connection = Trim(connection);
  if (!IsUri(connection)) {
    // Quoted, inner quotes doubled: whatever the name holds (";", "=",
    // quotes), it stays the schema's value and never becomes a key.
    std::string quoted = "\"";
    for (char c : schema) quoted += c == '"' ? std::string(2, c) : std::string(1, c);
    return std::string(connection) + ";Schema=" + quoted + "\"";
  }
  std::string uri(connection.substr(0, connection.find('?')));
  ServerDatabase server = ServerFromUri(connection);
  std::size_t query = server.conninfo.find('?');
  std::string kept = query == std::string::npos ? "" : server.conninfo.substr(query + 1);
  std::string encoded;
  for (unsigned char c : schema) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    if (std::isalnum(c) || c == '-' || c == '_' || c == '.') {
      encoded += static_cast<char>(c);
    } else {
      encoded += {'%', kHex[c >> 4], kHex[c & 15]};
    }
  }
  return uri + "?" + (kept.empty() ? "" : kept + "&") + "schema=" + encoded;
}

bool IsServerDatabase(std::string_view connection) {
  return std::holds_alternative<ServerDatabase>(ParseConnection(connection));
}

}  // namespace camrelay::store
