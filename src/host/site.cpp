#include "host/site.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <sstream>

namespace camrelay::host {
namespace fs = std::filesystem;

namespace {

constexpr int kFirstRunPort = 19201;
constexpr std::size_t kMaxFileSize = 4096;
constexpr std::size_t kMaxHostLength = 253;

std::optional<int> Port(std::string_view text) {
  int value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || value < 1 || value > 65535) return std::nullopt;
  return value;
}

bool PlainHost(std::string_view host) {
  return !host.empty() && host.size() <= kMaxHostLength &&
         std::all_of(host.begin(), host.end(), [](unsigned char c) { return c > ' ' && c < 0x7f; });
}

SiteUnit Parse(const std::string& text, const fs::path& file) {
  const auto bad = [&](const std::string& why) {
    return UsageError(file.string() + ": " + why + " (remove the file to forget the site's unit)");
  };
  SiteUnit unit;
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty() || line.front() == '#' || line.front() == '[') continue;
    const auto equals = line.find('=');
    if (equals == std::string::npos) throw bad("a line without '='");
    const std::string key = line.substr(0, equals), value = line.substr(equals + 1);
    if (key == "Host") {
      if (!PlainHost(value)) throw bad("Host is not a host name or address");
      unit.host = value;
    } else if (key == "Port" || key == "LocalPort") {
      const auto port = Port(value);
      if (!port) throw bad(key + " is not a port from 1 to 65535");
      (key == "Port" ? unit.port : unit.localPort) = *port;
    } else if (key == "Transport") {
      if (value != "tcp" && value != "udp") throw bad("Transport is neither tcp nor udp");
      unit.tcp = value == "tcp";
    }
  }
  if (unit.host.empty() || unit.port == 0) throw bad("it names no Host and Port");
  return unit;
}

}  // namespace

std::optional<SiteUnit> ReadSite(const fs::path& dir) {
  const fs::path file = dir / kSiteFile;
  std::error_code ec;
  if (!fs::exists(file, ec)) return std::nullopt;
  if (!fs::is_regular_file(file, ec) || fs::file_size(file, ec) > kMaxFileSize)
    throw UsageError(file.string() + ": not a site file (remove it to forget the site's unit)");
  std::ifstream in(file, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return Parse(text.str(), file);
}

void RememberSite(const fs::path& dir, const SiteUnit& unit) {
  const fs::path file = dir / kSiteFile;
  const fs::path partial = dir / (std::string(kSiteFile) + ".partial");
  {
    std::ofstream out(partial, std::ios::binary | std::ios::trunc);
    out << "# The unit this folder's runs of camrelay talk to when --host and --port are left out.\n"
        << "[Site]\nHost=" << unit.host << "\nPort=" << unit.port << "\n";
    if (unit.localPort > 0) out << "LocalPort=" << unit.localPort << "\n";
    out << "Transport=" << (unit.tcp ? "tcp" : "udp") << "\n";
    if (!out.flush()) throw std::runtime_error("cannot write " + partial.string());
  }
  fs::rename(partial, file);
}

bool ChangesUnit(Op op) {
  switch (op) {
    case Op::UploadProg:
    case Op::EraseLog:
    case Op::UploadProgCamEvents:
    case Op::UploadWave:
    case Op::UploadFirmware:
    case Op::SendCommand:
    case Op::SetInstallerCode:
    case Op::SetUserCode:
      return true;
    default:
      return false;
  }
}

void ApplySite(LinkOptions& link, const GivenOptions& given, const std::vector<Command>& commands) {
  const auto changing = std::find_if(commands.begin(), commands.end(), [](const Command& c) { return ChangesUnit(c.op); });
  const std::optional<SiteUnit> site = ReadSite(link.dir);
  // A site whose unit is another host than the one given says nothing of it.
  if (site && (!given.host || link.host == site->host)) {
    if (!given.host) link.host = site->host;
    if (!given.port) link.port = site->port;
    if (!given.localPort && site->localPort > 0) link.localPort = site->localPort;
    if (!given.transport) link.tcp = site->tcp;
    return;
  }
  if (changing == commands.end()) return;
  if (!given.host)
    throw UsageError(changing->name + " changes the unit, and " + link.dir +
                     " remembers none: name it with --host and --port (a run that reaches a unit makes the folder "
                     "remember it)");
  if (!given.port) link.port = kFirstRunPort;
}

std::string TargetLine(const Command& command, const fs::path& dir, const std::string& unit) {
  const std::string site = dir.filename().string();
  const auto sending = [&](const std::string& what) { return "sending " + what + " of " + site + " to " + unit; };
  const auto acting = [&](const std::string& what) { return what + " of " + site + "'s unit, " + unit; };
  std::string line;
  switch (command.op) {
    case Op::UploadProg: line = sending("the programming"); break;
    case Op::UploadProgCamEvents: line = sending("the camera-event programming"); break;
    case Op::UploadWave: line = sending("the voice messages"); break;
    case Op::UploadFirmware: line = sending(fs::path(command.argument).filename().string()); break;
    case Op::SendCommand: line = sending("a command string"); break;
    case Op::EraseLog: line = acting("erasing the event log"); break;
    case Op::SetInstallerCode: line = acting("changing the installer code"); break;
    case Op::SetUserCode: line = acting("changing the user code"); break;
    default: line = acting("reaching"); break;
  }
  return command.name + ": " + line;
}

}  // namespace camrelay::host
