#include "fleet/fleet_file.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cstdlib>
#include <fstream>
#include <map>
#include <optional>
#include <set>

#include "cli.h"

namespace camrelay::cli {
namespace fs = std::filesystem;

namespace {

constexpr std::array<const char*, 6> kColumns{"name", "host", "port", "transport", "code", "dir"};
constexpr const char* kEnvPrefix = "env:";

std::string Trimmed(const std::string& text) {
  const auto first = text.find_first_not_of(" \t\r");
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

bool Skipped(const std::string& line) {
  const std::string text = Trimmed(line);
  return text.empty() || text.front() == '#';
}

// Where each of the six columns is in a line, and how many fields a line has.
struct Layout {
  std::array<std::size_t, kColumns.size()> at{};
  std::size_t fields = 0;
};

Layout ColumnsOf(const std::vector<std::string>& header) {
  if (header.size() == 1 && header[0].find(';') != std::string::npos)
    throw UsageError("the fields are separated by semicolons; a fleet file separates them by commas");
  Layout layout{{}, header.size()};
  auto& at = layout.at;
  std::vector<bool> seen(kColumns.size(), false);
  for (std::size_t i = 0; i < header.size(); ++i) {
    const std::string name = Lower(Trimmed(header[i]));
    const auto known = std::find(kColumns.begin(), kColumns.end(), name);
    if (known == kColumns.end())
      throw UsageError("unknown column '" + header[i] + "' (the columns are name,host,port,transport,code,dir)");
    const auto k = static_cast<std::size_t>(known - kColumns.begin());
    if (seen[k]) throw UsageError("column '" + name + "' given twice");
    seen[k] = true;
    at[k] = i;
  }
  for (std::size_t k = 0; k < kColumns.size(); ++k)
    if (!seen[k]) throw UsageError(std::string("the header has no column '") + kColumns[k] + "'");
  return layout;
}

int PortOf(const std::string& text) {
  int port = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  if (error != std::errc() || end != text.data() + text.size() || port < 1 || port > 65535)
    throw UsageError("port '" + text + "' is not a number from 1 to 65535");
  return port;
}

bool IsTcp(const std::string& text) {
  const std::string transport = Lower(text);
  if (transport != "udp" && transport != "tcp") throw UsageError("transport '" + text + "' is neither udp nor tcp");
  return transport == "tcp";
}

FleetUnit UnitOf(const std::vector<std::string>& fields, const Layout& layout, const fs::path& base) {
  if (fields.size() != layout.fields)
    throw UsageError(std::to_string(fields.size()) + " fields where the header has " +
                     std::to_string(layout.fields));
  auto field = [&](std::size_t k) { return Trimmed(fields[layout.at[k]]); };
  FleetUnit unit;
  unit.name = field(0);
  if (unit.name.empty()) throw UsageError("the unit has no name");
  unit.host = field(1);
  if (unit.host.empty()) throw UsageError("unit " + unit.name + " has no host");
  unit.port = PortOf(field(2));
  unit.tcp = IsTcp(field(3));
  unit.code = FleetCode(field(4));
  CheckCode(unit.code, "unit " + unit.name + ": code");
  const std::string dir = field(5);
  if (dir.empty()) throw UsageError("unit " + unit.name + " has no dir");
  unit.dir = (base / dir).lexically_normal();
  return unit;
}

// One key for every spelling of a folder: "shared", "shared/" and a link
// to it are one folder, whose units would overwrite each other's database.
fs::path SameFolderKey(const fs::path& dir) {
  std::error_code ec;
  fs::path resolved = fs::weakly_canonical(dir, ec);
  if (ec) resolved = dir;
  if (!resolved.has_filename()) resolved = resolved.parent_path();
  return resolved;
}

}  // namespace

std::vector<std::string> CsvFields(std::string line) {
  // A line ends in CR LF when the file was written on Windows; a CR or a NUL
  // anywhere else is no part of a name, a host or a folder.
  if (!line.empty() && line.back() == '\r') line.pop_back();
  if (line.find('\r') != std::string::npos) throw UsageError("a field holds a carriage return");
  if (line.find('\0') != std::string::npos) throw UsageError("a field holds a NUL byte");
  std::vector<std::string> fields(1);
  bool quoted = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (quoted && c == '"' && i + 1 < line.size() && line[i + 1] == '"') {
      fields.back() += '"';
      ++i;
    } else if (c == '"') {
      quoted = !quoted;
    } else if (c == ',' && !quoted) {
      fields.emplace_back();
    } else {
      fields.back() += c;
    }
  }
  if (quoted) throw UsageError("a quoted field is not closed");
  return fields;
}

std::string FleetCode(const std::string& field) {
  if (!field.starts_with(kEnvPrefix)) return field;
  const std::string variable = field.substr(std::string_view(kEnvPrefix).size());
  const char* value = std::getenv(variable.c_str());
  if (variable.empty() || !value) throw UsageError("the environment variable '" + variable + "' is not set");
  return value;
}

std::vector<FleetUnit> ReadFleetFile(const fs::path& file) {
  std::ifstream in(file);
  if (!in) throw UsageError("fleet: cannot read " + file.string());
  std::error_code ec;
  const fs::path base = fs::absolute(file, ec).parent_path();
  std::vector<FleetUnit> units;
  std::set<std::string> names;
  // Each folder, as the system resolves it, with the line that gave it.
  std::map<fs::path, int> dirs;
  std::optional<Layout> columns;
  std::string line;
  for (int number = 1; std::getline(in, line); ++number) {
    // Editors on Windows start a UTF-8 file with a byte-order mark.
    if (number == 1 && line.starts_with("\xEF\xBB\xBF")) line.erase(0, 3);
    if (Skipped(line)) continue;
    try {
      if (!columns) {
        columns = ColumnsOf(CsvFields(line));
        continue;
      }
      FleetUnit unit = UnitOf(CsvFields(line), *columns, base);
      if (!names.insert(unit.name).second) throw UsageError("unit name '" + unit.name + "' is used twice");
      const auto [other, added] = dirs.emplace(SameFolderKey(unit.dir), number);
      if (!added)
        throw UsageError("unit " + unit.name + ": folder " + unit.dir.string() + " is the folder of line " +
                         std::to_string(other->second));
      units.push_back(std::move(unit));
    } catch (const UsageError& e) {
      throw UsageError("fleet: " + file.string() + ":" + std::to_string(number) + ": " + e.what());
    }
  }
  if (units.empty()) throw UsageError("fleet: " + file.string() + " lists no unit");
  return units;
}

}  // namespace camrelay::cli
