#include "units.h"

#include <charconv>
#include <stdexcept>

#include "demo_content.h"

namespace camrelay::unit {
namespace fs = std::filesystem;
namespace asio = boost::asio;

namespace {

fs::path FolderOf(const UnitsPlan& plan, int number) {
  return plan.count == 1 ? plan.dir : plan.dir / ("unit-" + std::to_string(number));
}

// The faults unit `number` plays, from a generator of its own.
FaultSettings FaultsOf(const UnitsPlan& plan, int number) {
  FaultSettings settings;
  if (plan.faulty.empty() || plan.faulty.contains(number)) settings = plan.faults;
  settings.seed = plan.faults.seed + static_cast<std::uint32_t>(number - 1);
  settings.silent = plan.silent.contains(number);
  return settings;
}

// Unit n's log lacks the first n-1 events of the demo log, so that no two
// units of a fleet hold the same log and a log that reached the wrong
// place shows.
void MakeLogOwn(FolderContent& content, int number) {
  if (number <= 1) return;
  content.Db().Exec(
      "DELETE FROM Registro_eventi WHERE IdRegistro IN (SELECT IdRegistro FROM Registro_eventi "
      "ORDER BY IdRegistro LIMIT " + std::to_string(number - 1) + ")");
}

std::unique_ptr<FolderContent> OpenContent(const UnitsPlan& plan, int number, const fs::path& dir,
                                           std::optional<fs::path>& demoCopy, const Log& log) {
  const bool fresh = !fs::exists(dir / kDatabaseFile);
  if (fresh && !plan.empty && demoCopy) {
    fs::create_directories(dir);
    fs::copy(*demoCopy, dir, fs::copy_options::recursive | fs::copy_options::overwrite_existing);
  }
  auto content = std::make_unique<FolderContent>(dir, log);
  if (fresh && !plan.empty && !demoCopy) {
    FillDemoTables(content->Db());
    WriteDemoFiles(dir);
    demoCopy = dir;
  }
  if (fresh && !plan.empty) {
    MakeLogOwn(*content, number);
    log.Info("demo content written to " + dir.string());
  }
  return content;
}

}  // namespace

Unit::Unit(asio::io_context& io, const asio::ip::address& address, const UnitsPlan& plan, int number,
           std::optional<fs::path>& demoCopy, const Log& log)
    : number_(number),
      dir_(FolderOf(plan, number)),
      content_(OpenContent(plan, number, dir_, demoCopy, log)),
      codes_(plan.codes),
      udpFaults_([&] {
        // Datagram faults make no sense in a byte stream, nor a reset in datagrams.
        FaultSettings settings = FaultsOf(plan, number);
        settings.resetAfter = 0;
        return settings;
      }()),
      tcpFaults_([&] {
        FaultSettings settings = FaultsOf(plan, number);
        settings.lossPct = settings.dupPct = settings.reorderPct = 0;
        return settings;
      }()),
      udpUnit_{*content_, codes_, udpFaults_, log},
      tcpUnit_{*content_, codes_, tcpFaults_, log} {
  auto port = static_cast<unsigned short>(plan.firstPort == 0 ? 0 : plan.firstPort + number - 1);
  if (plan.udp) {
    udpServer_.emplace(io, asio::ip::udp::endpoint(address, port), udpUnit_);
    port = udpServer_->Local().port();
  }
  if (!plan.tcp) return;
  try {
    tcpServer_.emplace(io, asio::ip::tcp::endpoint(address, port), tcpUnit_);
  } catch (const boost::system::system_error&) {
    // A free UDP port may be taken on TCP: any free one will do then.
    if (plan.firstPort != 0 || !plan.udp) throw;
    tcpServer_.emplace(io, asio::ip::tcp::endpoint(address, 0), tcpUnit_);
  }
}

std::optional<unsigned short> Unit::UdpPort() const {
  if (!udpServer_) return std::nullopt;
  return udpServer_->Local().port();
}

std::optional<unsigned short> Unit::TcpPort() const {
  if (!tcpServer_) return std::nullopt;
  return tcpServer_->Local().port();
}

std::vector<std::unique_ptr<Unit>> StartUnits(asio::io_context& io, const asio::ip::address& address,
                                              const UnitsPlan& plan, const Log& log) {
  std::vector<std::unique_ptr<Unit>> units;
  std::optional<fs::path> demoCopy;
  for (int number = 1; number <= plan.count; ++number)
    units.push_back(std::make_unique<Unit>(io, address, plan, number, demoCopy, log));
  return units;
}

std::set<int> UnitNumbers(const std::string& list) {
  std::set<int> numbers;
  std::string_view rest = list;
  auto number = [&list](std::string_view text) {
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < 1)
      throw std::invalid_argument("'" + list + "' is not a list of unit numbers such as 1,4-6");
    return value;
  };
  while (!rest.empty()) {
    const std::string_view item = rest.substr(0, rest.find(','));
    rest.remove_prefix(std::min(rest.size(), item.size() + 1));
    const auto dash = item.find('-');
    const int first = number(item.substr(0, dash));
    const int last = dash == std::string_view::npos ? first : number(item.substr(dash + 1));
    for (int n = first; n <= last; ++n) numbers.insert(n);
  }
  return numbers;
}

}  // namespace camrelay::unit
