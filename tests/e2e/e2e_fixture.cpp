#include "e2e_fixture.h"

#include <algorithm>
#include <boost/asio.hpp>

#include "store/DataVideo.h"
#include "store/dump.h"

namespace camrelay::e2e {
namespace fs = std::filesystem;
namespace asio = boost::asio;

namespace {

// The unit stops by itself even if the test process dies before it can.
constexpr const char* kUnitLifetime = "300";

std::unique_ptr<store::DataVideo> OpenDatabase(const std::string& connection) {
  auto db = std::make_unique<store::DataVideo>();
  db->SetConnectionString(connection);
  db->EnsureOpen(nullptr, "test");
  return db;
}

std::unique_ptr<store::DataVideo> OpenDatabase(const fs::path& file) {
  if (!fs::exists(file)) throw std::runtime_error("no database at " + file.string());
  return OpenDatabase(file.string());
}

std::vector<Row> TableRows(store::DataVideo& db, const std::string& table, const std::string& without) {
  store::TableDump dump = store::DumpTable(db, table);
  const auto skip = std::find(dump.columns.begin(), dump.columns.end(), without) - dump.columns.begin();
  for (Row& row : dump.rows)
    if (skip < static_cast<long>(row.size())) row.erase(row.begin() + skip);
  return dump.rows;
}

}  // namespace

std::string Name(Transport transport) { return transport == Transport::Tcp ? "Tcp" : "Udp"; }

fs::path ProgramPath(const std::string& name) { return fs::path(CAMRELAY_BINARY_DIR) / "tools" / name; }

EndToEnd::EndToEnd()
    : unitDir_(root_ / "unit"), hostDir_(root_ / "host"), configHome_(root_ / "config"), logs_(root_ / "logs") {
  for (const auto& dir : {hostDir_, configHome_, logs_}) fs::create_directories(dir);
}

EndToEnd::~EndToEnd() {
  // A failed test leaves the unit's and the host's output to read.
  if (HasFailure() && unit_) {
    StopUnit();
    std::cerr << "---- camrelay-unit's standard error (last 4000 bytes):\n"
              << unit_->Stderr().substr(unit_->Stderr().size() > 4000 ? unit_->Stderr().size() - 4000 : 0)
              << "\n";
  }
}

void EndToEnd::StartUnit(Transport transport, const std::vector<std::string>& extra) {
  transport_ = transport;
  std::vector<std::string> args{"--dir", unitDir_.string(), transport == Transport::Tcp ? "--tcp" : "--udp",
                                "--port", "0", "--host", "127.0.0.1", "--exit-after", kUnitLifetime, "-v"};
  args.insert(args.end(), extra.begin(), extra.end());
  // A unit started before wrote its port to the same file: gone, it cannot
  // be read in place of the new one's.
  unit_.reset();
  fs::remove(logs_ / "unit.out");
  unit_ = std::make_unique<Process>(ProgramPath("camrelay-unit"), args, std::vector<std::string>{}, logs_, "unit");
  const std::string line = unit_->WaitFirstLine(std::chrono::seconds(10));
  ASSERT_TRUE(line.starts_with("camrelay-unit listening on ")) << "unit said: " << line << unit_->Stderr();
  port_ = std::stoi(line.substr(line.rfind(':') + 1));
  localPort_ = transport == Transport::Udp ? FreeUdpPort() : 0;
}

void EndToEnd::StopUnit() {
  if (unit_) unit_->Stop();
}

std::vector<std::string> EndToEnd::HostArguments(const std::vector<std::string>& args) const {
  std::vector<std::string> all{"--host", "127.0.0.1", "--port", std::to_string(peerPort ? peerPort : port_),
                               "--dir", hostDir_.string()};
  if (!code.empty()) all.insert(all.end(), {"--code", code});
  if (transport_ == Transport::Tcp) {
    all.push_back("--tcp");
  } else {
    all.insert(all.end(), {"--udp", "--local-port", std::to_string(localPort_)});
  }
  all.insert(all.end(), timing.begin(), timing.end());
  all.insert(all.end(), args.begin(), args.end());
  return all;
}

std::vector<std::string> EndToEnd::HostEnvironment(const std::vector<std::string>& extra) const {
  std::vector<std::string> environment{"XDG_CONFIG_HOME=" + configHome_.string()};
  environment.insert(environment.end(), extra.begin(), extra.end());
  return environment;
}

Outcome EndToEnd::Host(const std::vector<std::string>& args, std::chrono::seconds limit) {
  return Camrelay(HostArguments(args), env, limit);
}

std::optional<int> EndToEnd::HostKilledAfter(const std::vector<std::string>& args, std::chrono::milliseconds after) {
  Process host(ProgramPath("camrelay"), HostArguments(args), HostEnvironment(env), logs_,
               "host" + std::to_string(++runs_));
  const auto exit = host.Wait(after);
  host.Kill();
  return exit;
}

Outcome EndToEnd::Camrelay(const std::vector<std::string>& args, const std::vector<std::string>& extraEnv,
                           std::chrono::seconds limit) {
  Process host(ProgramPath("camrelay"), args, HostEnvironment(extraEnv), logs_, "host" + std::to_string(++runs_));
  Outcome outcome;
  outcome.exit = host.Wait(limit);
  host.Stop();
  outcome.out = host.Stdout();
  outcome.err = host.Stderr();
  outcome.peakRssKiB = host.PeakRssKiB();
  return outcome;
}

std::vector<Row> Rows(const fs::path& database, const std::string& table, const std::string& without) {
  return TableRows(*OpenDatabase(database), table, without);
}

std::vector<Row> ServerRows(const std::string& connection, const std::string& table, const std::string& without) {
  return TableRows(*OpenDatabase(connection), table, without);
}

std::vector<Row> Sorted(std::vector<Row> rows) {
  std::sort(rows.begin(), rows.end());
  return rows;
}

void Execute(const fs::path& database, const std::string& sql) {
  OpenDatabase(database)->Handle().Exec(sql);
}

std::string FileBytes(const fs::path& file) {
  EXPECT_TRUE(fs::exists(file)) << file;
  return test::ReadFileBytes(file);
}

bool HasLine(const std::string& output, const std::string& line) {
  return ("\n" + output).find("\n" + line + "\n") != std::string::npos;
}

int FreeUdpPort() {
  asio::io_context io;
  asio::ip::udp::socket socket(io, asio::ip::udp::endpoint(asio::ip::make_address("127.0.0.1"), 0));
  return socket.local_endpoint().port();
}

int ClosedTcpPort() {
  asio::io_context io;
  asio::ip::tcp::acceptor acceptor(io, asio::ip::tcp::endpoint(asio::ip::make_address("127.0.0.1"), 0));
  return acceptor.local_endpoint().port();
}

}  // namespace camrelay::e2e
