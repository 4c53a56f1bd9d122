// What a fleet costs when its database is a PostgreSQL server on another
// machine: N simulated units (200 unless given) run download-log with
// `camrelay fleet --db <server>`, once with the server on loopback and once
// through a proxy in this program that holds every chunk 1 ms each way (or
// the milliseconds given), as a server on the local network would. Prints the wall time of each and their
// ratio, the most server connections open at once, the fleet's peak memory
// and its CPU per unit. A third run goes through the proxy with --claim, as
// machines sharing the fleet do: the claims must not slow the links.
// Aims: ratio at most 1.5, at most 8 connections, 1000 units complete.
//
//   cmake --build build --target bench_fleet_server_bench camrelay-cli camrelay-unit
//   build/bench/bench_fleet_server_bench [N [DELAY_MS]]
// The server is CAMRELAY_BENCH_POSTGRES (a libpq "key=value" string) when
// set, else a throw-away one started with scripts/postgres-server.
#include <sys/resource.h>

#include <atomic>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "fleet_processes.h"
#include "store/backend.h"
#include "store/connection.h"
#include "store/postgres_backend.h"

namespace {

using namespace bench;
namespace asio = boost::asio;
using asio::ip::tcp;

constexpr int kDefaultUnits = 200;
constexpr auto kDefaultDelay = 1ms;

// Forwards every connection to the server, each chunk held `delay` before it
// goes on, in both directions.
class DelayProxy {
 public:
  DelayProxy(int serverPort, std::chrono::milliseconds delay)
      : server_(asio::ip::make_address("127.0.0.1"), serverPort), delay_(delay) {
    acceptor_.open(tcp::v4());
    acceptor_.bind({asio::ip::make_address("127.0.0.1"), 0});
    acceptor_.listen();
    Accept();
    thread_ = std::thread([this] { io_.run(); });
  }
  ~DelayProxy() {
    io_.stop();
    thread_.join();
  }
  int port() const { return acceptor_.local_endpoint().port(); }

 private:
  struct Pipe : std::enable_shared_from_this<Pipe> {
    Pipe(std::shared_ptr<tcp::socket> from, std::shared_ptr<tcp::socket> to, std::chrono::milliseconds delay)
        : from(std::move(from)), to(std::move(to)), delay(delay), timer(this->from->get_executor()) {}
    void Pump() {
      from->async_read_some(asio::buffer(buffer), [self = shared_from_this()](auto ec, std::size_t n) {
        if (ec) return self->Close();
        self->timer.expires_after(self->delay);
        self->timer.async_wait([self, n](auto) {
          asio::async_write(*self->to, asio::buffer(self->buffer, n), [self](auto ec, std::size_t) {
            if (ec) return self->Close();
            self->Pump();
          });
        });
      });
    }
    void Close() {
      boost::system::error_code ignored;
      from->close(ignored);
      to->close(ignored);
    }
    std::shared_ptr<tcp::socket> from, to;
    std::chrono::milliseconds delay;
    asio::steady_timer timer;
    std::array<char, 64 * 1024> buffer;
  };

  void Accept() {
    acceptor_.async_accept([this](auto ec, tcp::socket client) {
      if (ec) return;
      auto near = std::make_shared<tcp::socket>(std::move(client));
      auto far = std::make_shared<tcp::socket>(io_);
      far->async_connect(server_, [near, far, delay = delay_](auto ec) {
        if (ec) return;
        std::make_shared<Pipe>(near, far, delay)->Pump();
        std::make_shared<Pipe>(far, near, delay)->Pump();
      });
      Accept();
    });
  }

  asio::io_context io_;
  tcp::acceptor acceptor_{io_};
  tcp::endpoint server_;
  std::chrono::milliseconds delay_;
  std::thread thread_;
};

// The most client connections the server had at once while it ran.
class ConnectionPeak {
 public:
  explicit ConnectionPeak(const std::string& conninfo) {
    auto server = camrelay::store::ConnectPostgres({conninfo, ""});
    thread_ = std::thread([this, server = std::shared_ptr<camrelay::store::Backend>(std::move(server))] {
      while (!stop_) {
        auto rows = server->Query(
            "SELECT count(*) - 1 FROM pg_stat_activity WHERE backend_type = 'client backend' AND "
            "datname = current_database()");
        rows->Next();
        peak_ = std::max(peak_.load(), std::get<std::int64_t>(rows->Value(0)));
        std::this_thread::sleep_for(20ms);
      }
    });
  }
  long Stop() {
    stop_ = true;
    thread_.join();
    return static_cast<long>(peak_);
  }

 private:
  std::atomic<bool> stop_{false};
  std::atomic<std::int64_t> peak_{0};
  std::thread thread_;
};

struct Run {
  double wallSeconds = 0;
  double cpuSeconds = 0;
  long peakKiB = 0;
  long peakConnections = 0;
  int failed = 0;
};

std::string KeyOf(const std::string& conninfo, const std::string& key) {
  std::istringstream words(conninfo);
  for (std::string word; words >> word;)
    if (word.starts_with(key + "=")) return word.substr(key.size() + 1);
  throw std::runtime_error("the connection string has no " + key);
}

Run RunFleet(const fs::path& work, const Units& units, int count, const std::string& conninfo, int port,
             const std::string& prefix, const std::vector<std::string>& extra = {}) {
  const fs::path hosts = work / prefix;
  fs::create_directories(hosts);
  std::ofstream csv(hosts / "units.csv");
  csv << "name,host,port,transport,code,dir\n";
  for (int n = 1; n <= count; ++n)
    csv << prefix << n << ",127.0.0.1," << units[n].tcp << ",tcp,123456," << prefix << n << "\n";
  csv.close();
  const std::string db = "postgresql://" + KeyOf(conninfo, "user") + "@127.0.0.1:" + std::to_string(port) + "/" +
                         KeyOf(conninfo, "dbname");
  ConnectionPeak connections(conninfo);
  const auto start = std::chrono::steady_clock::now();
  std::vector<std::string> args{"fleet", (hosts / "units.csv").string(), "--db", db, "--json", "-q"};
  args.insert(args.end(), extra.begin(), extra.end());
  args.push_back("download-log");
  const pid_t pid = Spawn(Program("camrelay"), args, hosts / "fleet.out");
  int status = 0;
  rusage usage{};
  wait4(pid, &status, 0, &usage);
  Run run;
  run.wallSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  run.peakConnections = connections.Stop();
  run.cpuSeconds = usage.ru_utime.tv_sec + usage.ru_utime.tv_usec / 1e6 + usage.ru_stime.tv_sec +
                   usage.ru_stime.tv_usec / 1e6;
  run.peakKiB = usage.ru_maxrss;
  const std::string out = Slurp(hosts / "fleet.out");
  for (auto at = out.find("\"ok\":false"); at != std::string::npos; at = out.find("\"ok\":false", at + 1))
    ++run.failed;
  if (out.find("\"summary\"") == std::string::npos) run.failed = count;
  return run;
}

void DropSchemas(const std::string& conninfo, const std::string& prefix, int count) {
  auto server = camrelay::store::ConnectPostgres({conninfo, ""});
  for (int n = 1; n <= count; ++n)
    server->Exec("DROP SCHEMA IF EXISTS " + camrelay::store::QuoteIdentifier(prefix + std::to_string(n)) +
                 " CASCADE");
}

// The server to use: the one given, or one of our own in work/postgres.
std::string Server(const fs::path& work) {
  if (const char* given = std::getenv("CAMRELAY_BENCH_POSTGRES")) return given;
  const pid_t pid = Spawn(fs::path(CAMRELAY_SOURCE_DIR) / "scripts" / "postgres-server",
                          {"start", (work / "postgres").string()}, work / "postgres.out");
  int status = 0;
  waitpid(pid, &status, 0);
  std::string conninfo = Slurp(work / "postgres.out");
  conninfo = conninfo.substr(0, conninfo.find('\n'));
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0 || conninfo.empty())
    throw std::runtime_error("cannot start a PostgreSQL server (scripts/postgres-server start); set "
                             "CAMRELAY_BENCH_POSTGRES to use one that runs");
  return conninfo;
}

void Print(const char* label, int count, const Run& run) {
  std::printf("%-16s %6d %8.2f %12.2f %9.1f %12ld %7d\n", label, count, run.wallSeconds,
              run.cpuSeconds * 1000 / count, run.peakKiB / 1024.0, run.peakConnections, run.failed);
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  const int count = argc > 1 ? std::atoi(argv[1]) : kDefaultUnits;
  const std::chrono::milliseconds delay = argc > 2 ? std::chrono::milliseconds(std::atoi(argv[2])) : kDefaultDelay;
  if (count < 1 || delay.count() < 0) {
    std::fprintf(stderr, "usage: bench_fleet_server_bench [UNITS >= 1 [DELAY_MS >= 0]]\n");
    return 2;
  }
  RaiseDescriptorLimit();
  const fs::path work = fs::temp_directory_path() / ("camrelay-fleet-server-bench-" + std::to_string(getpid()));
  fs::create_directories(work);
  setenv("XDG_CONFIG_HOME", (work / "config").c_str(), 1);
  int status = 0;
  try {
    const std::string conninfo = Server(work);
    const int serverPort = std::stoi(KeyOf(conninfo, "port"));
    std::printf("starting %d simulated units...\n", count);
    std::fflush(stdout);
    const Units units(work, count);
    std::printf("%-16s %6s %8s %12s %9s %12s %7s\n", "server", "units", "wall s", "CPU ms/unit", "peak MiB",
                "connections", "failed");
    const Run loopback = RunFleet(work, units, count, conninfo, serverPort, "l");
    Print("loopback", count, loopback);
    DropSchemas(conninfo, "l", count);
    DelayProxy proxy(serverPort, delay);
    const Run delayed = RunFleet(work, units, count, conninfo, proxy.port(), "p");
    const std::string each = "+" + std::to_string(delay.count()) + " ms";
    Print((each + " each way").c_str(), count, delayed);
    DropSchemas(conninfo, "p", count);
    const std::string round = "bench-" + std::to_string(getpid());
    const Run claimed = RunFleet(work, units, count, conninfo, proxy.port(), "c", {"--claim", round});
    Print((each + ", claim").c_str(), count, claimed);
    DropSchemas(conninfo, "c", count);
    auto server = camrelay::store::ConnectPostgres({conninfo, ""});
    for (const char* list : {"camrelay_fleet_units", "camrelay_fleet_rounds"})
      server->Exec(std::string("DELETE FROM ") + list + " WHERE round = " + server->Literal(round));
    std::printf("ratio (delayed / loopback wall time): %.2f, with --claim %.2f (aim <= 1.5); peak connections %ld "
                "(aim <= 8)\n",
                delayed.wallSeconds / loopback.wallSeconds, claimed.wallSeconds / loopback.wallSeconds,
                std::max({loopback.peakConnections, delayed.peakConnections, claimed.peakConnections}));
  } catch (const std::exception& e) {
    std::fprintf(stderr, "bench_fleet_server_bench: %s\n", e.what());
    status = 1;
  }
  if (!std::getenv("CAMRELAY_BENCH_POSTGRES")) {
    const pid_t stop = Spawn(fs::path(CAMRELAY_SOURCE_DIR) / "scripts" / "postgres-server",
                             {"stop", (work / "postgres").string()}, work / "stop.out");
    waitpid(stop, nullptr, 0);
  }
  fs::remove_all(work);
  return status;
}
