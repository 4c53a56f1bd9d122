// What a fleet costs: one camrelay-unit process plays the units, and
// `camrelay fleet` downloads each unit's programming and log:
//   - one unit alone, then N units (1000 unless given) with --parallel N and
//     with --parallel 64, over UDP and over TCP: wall time, CPU time per unit
//     (user + system of the fleet process, against the single unit's), and
//     peak memory per link in flight;
//   - idle links: N clsClient set up (socket bound, database open) on one
//     loop in this process, nothing under way: memory per link.
// Aims: CPU per unit at most 1.5 times the single unit's; an idle link under
// 64 KiB.
//
//   cmake --build build --target bench_fleet_bench camrelay-cli camrelay-unit
//   build/bench/bench_fleet_bench [N]
// The units' and hosts' folders go below $CAMRELAY_BENCH_DIR (default: the
// temporary folder); on a memory file system the disk's commit latency
// drops out of the wall time.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <boost/asio/io_context.hpp>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "camrelay/clsClient.h"
#include "fleet_processes.h"
#include "store/DataVideo.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

using namespace bench;

constexpr int kDefaultUnits = 1000;
constexpr const char* kCommands[] = {"download-prog", "download-log"};

struct Run {
  double wallSeconds = 0;
  double cpuSeconds = 0;
  double peakKiB = 0;
  double unitsCpuSeconds = 0;  // the simulated units' side
  int failed = 0;
};

Run RunFleet(const fs::path& work, const Units& units, int count, bool tcp, int parallel) {
  const fs::path hosts = work / "hosts";
  fs::remove_all(hosts);
  fs::create_directories(hosts);
  std::ofstream csv(hosts / "units.csv");
  csv << "name,host,port,transport,code,dir\n";
  for (int n = 1; n <= count; ++n)
    csv << "u" << n << ",127.0.0.1," << (tcp ? units[n].tcp : units[n].udp) << "," << (tcp ? "tcp" : "udp")
        << ",123456,u" << n << "\n";
  csv.close();
  std::vector<std::string> args{"fleet", (hosts / "units.csv").string(), "--parallel", std::to_string(parallel),
                                "--json", "-q"};
  args.insert(args.end(), std::begin(kCommands), std::end(kCommands));
  const double unitsCpu = units.CpuSeconds();
  const auto start = std::chrono::steady_clock::now();
  const pid_t pid = Spawn(Program("camrelay"), args, hosts / "fleet.out");
  int status = 0;
  rusage usage{};
  wait4(pid, &status, 0, &usage);
  Run run;
  run.wallSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  run.cpuSeconds = usage.ru_utime.tv_sec + usage.ru_utime.tv_usec / 1e6 + usage.ru_stime.tv_sec +
                   usage.ru_stime.tv_usec / 1e6;
  run.peakKiB = static_cast<double>(usage.ru_maxrss);
  run.unitsCpuSeconds = units.CpuSeconds() - unitsCpu;
  const std::string out = Slurp(hosts / "fleet.out");
  for (auto at = out.find("\"ok\":false"); at != std::string::npos; at = out.find("\"ok\":false", at + 1))
    ++run.failed;
  if (out.find("\"summary\"") == std::string::npos) run.failed = count;
  return run;
}

long ResidentKiB() {
  std::ifstream statm("/proc/self/statm");
  long pages = 0, resident = 0;
  statm >> pages >> resident;
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

// Memory of links set up and waiting: the socket bound (UDP) or ready to
// connect (TCP), the database open.
double IdleLinkKiBHere(const fs::path& work, int count, bool tcp) {
  const fs::path dirs = work / (tcp ? "idle-tcp" : "idle-udp");
  fs::remove_all(dirs);
  boost::asio::io_context io;
  // The first link pays for what every later one shares (the database
  // library's own set-up): it is not counted.
  std::vector<std::unique_ptr<camrelay::clsClient>> links;
  auto add = [&](int n) {
    const fs::path dir = dirs / std::to_string(n);
    fs::create_directories(dir);
    auto client = std::make_unique<camrelay::clsClient>(io);
    client->UsaFileImpostazioni(false);
    client->Connetti("127.0.0.1", 9, 0, false, tcp ? camrelay::sckTCPProtocol : camrelay::sckUDPProtocol,
                     dir.string());
    client->StringaConnDB((dir / "VideoSentrova.db").string());
    client->ApriDB();
    if (client->Database().StatoDB != camrelay::cDbAperto) throw std::runtime_error("a database did not open");
    links.push_back(std::move(client));
  };
  add(0);
  io.poll();
  const long before = ResidentKiB();
  for (int n = 1; n <= count; ++n) add(n);
  io.poll();
  const long after = ResidentKiB();
  links.clear();
  io.poll();
  return double(after - before) / count;
}

// Measured in a child of its own: memory freed by an earlier measurement
// would otherwise be reused and hide what the links take.
double IdleLinkKiB(const fs::path& work, int count, bool tcp) {
  int channel[2];
  if (pipe(channel) != 0) throw std::runtime_error("no pipe");
  const pid_t child = fork();
  if (child == 0) {
    double kib = -1;
    try {
      kib = IdleLinkKiBHere(work, count, tcp);
    } catch (const std::exception& e) {
      std::fprintf(stderr, "idle links: %s\n", e.what());
    }
    _exit(write(channel[1], &kib, sizeof kib) == sizeof kib ? 0 : 1);
  }
  close(channel[1]);
  double kib = -1;
  if (read(channel[0], &kib, sizeof kib) != sizeof kib) kib = -1;
  close(channel[0]);
  waitpid(child, nullptr, 0);
  return kib;
}

}  // namespace

int main(int argc, char** argv) {
  const int count = argc > 1 ? std::atoi(argv[1]) : kDefaultUnits;
  if (count < 2) {
    std::fprintf(stderr, "usage: bench_fleet_bench [UNITS >= 2]\n");
    return 2;
  }
  RaiseDescriptorLimit();
  // The folder's disk sets the wall time: every unit commits its database
  // three times (created, programming, log), each a wait for the disk.
  const char* under = std::getenv("CAMRELAY_BENCH_DIR");
  const fs::path work = (under ? fs::path(under) : fs::temp_directory_path()) /
                        ("camrelay-fleet-bench-" + std::to_string(getpid()));
  fs::create_directories(work);
  setenv("XDG_CONFIG_HOME", (work / "config").c_str(), 1);
  try {
    const double tcpIdle = IdleLinkKiB(work, count, true), udpIdle = IdleLinkKiB(work, count, false);
    std::printf("idle links (%d, this process): UDP %.1f KiB per link, TCP %.1f KiB per link (aim < 64)\n", count,
                udpIdle, tcpIdle);
    std::printf("starting %d simulated units...\n", count);
    std::fflush(stdout);
    const Units units(work, count);
    std::printf("%-4s %-16s %6s %8s %12s %8s %9s %13s %7s %14s\n", "", "run", "units", "wall s", "CPU ms/unit",
                "x single", "peak MiB", "KiB per link", "failed", "unit side ms/u");
    for (const bool tcp : {false, true}) {
      const char* transport = tcp ? "TCP" : "UDP";
      const Run single = RunFleet(work, units, 1, tcp, 1);
      const double singleCpu = single.cpuSeconds * 1000;
      std::printf("%-4s %-16s %6d %8.2f %12.2f %8s %9.1f %13s %7d %14.2f\n", transport, "one unit alone", 1,
                  single.wallSeconds, singleCpu, "1.00", single.peakKiB / 1024, "-", single.failed,
                  single.unitsCpuSeconds * 1000);
      for (const int parallel : {count, 64}) {
        const Run run = RunFleet(work, units, count, tcp, parallel);
        const double cpu = run.cpuSeconds * 1000 / count;
        const int inFlight = std::min(parallel, count);
        const double perLink = (run.peakKiB - single.peakKiB) / (inFlight - 1);
        std::printf("%-4s %-16s %6d %8.2f %12.2f %8.2f %9.1f %13.1f %7d %14.2f\n", transport,
                    ("--parallel " + std::to_string(parallel)).c_str(), count, run.wallSeconds, cpu,
                    cpu / singleCpu, run.peakKiB / 1024, perLink, run.failed, run.unitsCpuSeconds * 1000 / count);
        std::fflush(stdout);
      }
    }
  } catch (const std::exception& e) {
    std::fprintf(stderr, "bench_fleet_bench: %s\n", e.what());
    fs::remove_all(work);
    return 1;
  }
  fs::remove_all(work);
  return 0;
}
