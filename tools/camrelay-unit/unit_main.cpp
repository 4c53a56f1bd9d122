// camrelay-unit: a simulated video alarm communicator on loopback, for the
// end-to-end tests, the demo, and anyone writing a host without hardware.
#include <csignal>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/address.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>

#include <sys/resource.h>

#include "cli_docs/completion.h"
#include "faults.h"
#include "log.h"
#include "units.h"

namespace {

using namespace camrelay::unit;
namespace asio = boost::asio;
namespace fs = std::filesystem;

struct Options {
  std::string dir = "./unit-data";
  bool tcp = false;
  bool udp = false;
  int port = 19201;
  std::string host = "127.0.0.1";
  bool allowAny = false;
  Codes codes{"123456", "654321"};
  FaultSettings faults;
  bool empty = false;
  int units = 1;
  std::string faulty;
  std::string silent;
  double exitAfter = 0;
  bool quiet = false;
  bool verbose = false;
};

constexpr const char* kDescription =
    "Plays a video alarm communicator (the unit) on TCP or UDP for the CamRelay component: it checks the "
    "access code (scrambled or plain), serves its programming, log, camera events, voice messages, snapshots, "
    "clips and camera images, and keeps what it is sent.";

constexpr const char* kFooter = R"(
Files:
Content (--dir): VideoSentrova.db with the standard tables; Audio/ voice
messages named by Ingressi.FoniaFileWav and Alimentazione.FoniaFileWav;
Snapshot/ and VideoAvi/ files served by name (either folder); Preview/camN.jpg
the image of camera N; Firmware/ updates received; last-command.txt the last
command string received. A folder without a database gets demo content: a full
programming, 3000 log events, camera events, two voice messages, camera
images, snapshots and one MJPEG clip, always the same.

Behaviour:
Uploads are stored as received: the programming replaces the six programming
tables, the camera-event programming replaces ProgCamEvents and Festivita,
voice messages and firmware are written byte for byte. A log erase ("11")
empties Registro_eventi; request "03" sends the log and then empties it.
Codes: a request is served when its code, unscrambled or as typed, matches the
installer or the user code on its first six characters; either code may
change either code. Code changes last until the unit stops.

Command strings ("52") are answered: STATO? -> STATO:PRONTO;EVENTI:<n>;
VERSIONE:<v>, VERSIONE? -> VERSIONE:<v>, EVENTI? -> EVENTI:<n> (log events),
ULTIMO? -> ULTIMO:<last command sent with "50">; anything else -> ECHO:<text>.
Preview ("08"): a camera number gets its image, 0 a stop ("OK"); a clip name
(.avi) opens it on its first frame; NEXTFRAME:, PREVFRAME: and
CurrentTimeFileVideo:<s> answer with the frame reached; PAUSE:, STOP:,
SetQualityImages: and CLOSE: with "OK"; "Reg Error" when there is no such
camera, clip or open clip.

Faults (all drawn from --seed, so a run can be repeated):
  --loss     any message, sent or received, on UDP.
  --dup      a second copy of a data packet, only of the types the component
             places by index (02 03 04 11 53 54) and never the last packet; the
             unit then waits for both acknowledgements. The other transfers are
             stored in arrival order and an upload advances on every OK, so a
             copy of those would corrupt them.
  --reorder  a data packet of those same types swapped with the next one,
             never with the last. Data packets still go one at a time: the
             next only after the component's OK.
  --delay    every message sent held back 0..MS ms, in order. Above 700 ms the
             component's short UDP time-out (750 ms) starts to expire.
  --busy     "BS" before the acceptance of a download or the answer to a
             command, preview or stream request, and before the final OK of a
             voice or firmware upload; the real answer follows --busy-delay ms
             later.
  --reset-after N  TCP: once, reset the connection (RST) after the N-th data
             packet of the first download that has that many.
Loss, duplication and reordering never apply to TCP.

Examples:
  $ camrelay-unit --dir unit-data --udp --tcp --port 19201
  $ camrelay-unit --dir unit-data --port 0 --loss 10 --dup 5 --seed 7 --exit-after 60)";

void AddOptions(CLI::App& app, Options& o) {
  app.add_option("--dir", o.dir, "Folder of the unit's database and files")->capture_default_str()->type_name("DIR");
  app.add_flag("--tcp", o.tcp, "Listen on TCP");
  app.add_flag("--udp", o.udp, "Listen on UDP (the default; with --tcp, both on one port number)");
  app.add_option("--port", o.port, "Port to listen on; 0 picks a free one")->capture_default_str()->check(
      CLI::Range(0, 65535));
  app.add_option("--host", o.host, "Address to listen on")->capture_default_str();
  app.add_flag("--allow-any", o.allowAny, "Allow a --host that is not a loopback address");
  app.add_option("--code", o.codes.installer, "Installer code")->capture_default_str();
  app.add_option("--user-code", o.codes.user, "User code")->capture_default_str();
  app.add_flag("--empty", o.empty, "Give a new folder the standard tables only, no demo content");
  app.add_option("--seed", o.faults.seed, "Seed of every fault decision")->capture_default_str();
  app.add_option("--loss", o.faults.lossPct, "Percent of messages lost (UDP)")->check(CLI::Range(0, 100));
  app.add_option("--dup", o.faults.dupPct, "Percent of indexed data packets sent twice (UDP)")
      ->check(CLI::Range(0, 100));
  app.add_option("--reorder", o.faults.reorderPct, "Percent of indexed data packets swapped with the next (UDP)")
      ->check(CLI::Range(0, 100));
  app.add_option("--delay", o.faults.delayMs, "Hold each message sent back up to MS ms")
      ->check(CLI::Range(0, 60000));
  app.add_option("--busy", o.faults.busyPct, "Percent of answers preceded by BS")->check(CLI::Range(0, 100));
  app.add_option("--busy-delay", o.faults.busyDelayMs, "MS between BS and the real answer")
      ->capture_default_str()
      ->check(CLI::Range(0, 60000));
  app.add_option("--reset-after", o.faults.resetAfter, "TCP: reset once after N data packets of a download")
      ->check(CLI::Range(0, 1 << 30));
  app.add_option("--silent-after", o.faults.silentAfter,
                 "Fall silent for good after the N-th data packet of a download: every message received from "
                 "then on is ignored, as by a unit that hung")
      ->check(CLI::Range(0, 1 << 30));
  app.add_option("--slow-type", o.faults.slowType,
                 "Hold each data packet of a download of this type (02, 04, ...) back by --slow-ms, as a unit slow "
                 "to read that data from its store")
      ->type_name("TYPE");
  app.add_option("--slow-ms", o.faults.slowMs, "MS each data packet of a --slow-type download is held back")
      ->check(CLI::Range(0, 60000));
  app.add_flag("--ok-before-answer", o.faults.okBeforeAnswer,
               "Answer the last element of a command-string request (\"52\") with OK, then send the answer; by "
               "default the answer's acceptance stands in for that OK");
  app.add_option("--units", o.units,
                 "How many units to play. Unit n listens on --port + n - 1 (with --port 0, each on a free port) "
                 "and keeps its content in DIR/unit-<n>/ with its own codes and fault generator (seeded --seed + "
                 "n - 1); each says 'camrelay-unit unit <n> listening on udp|tcp ADDR:PORT', in unit order. A new "
                 "unit n's demo log lacks the demo's first n-1 events, so that no two units hold the same log")
      ->capture_default_str()
      ->check(CLI::Range(1, 20000));
  app.add_option("--faulty", o.faulty, "With --units: the units the fault options apply to, e.g. 3,7-9 (default: all)");
  app.add_option("--silent", o.silent, "With --units: units that ignore everything they receive, e.g. 5");
  app.add_option("--exit-after", o.exitAfter, "Stop after SECONDS (default: run until SIGINT or SIGTERM)")
      ->check(CLI::PositiveNumber);
  app.add_flag("-q,--quiet", o.quiet, "Report nothing but errors on standard error");
  app.add_flag("-v,--verbose", o.verbose, "Show every message in and out on standard error");
}

void Announce(const Unit& unit, bool many, const char* transport, const asio::ip::address& address,
              unsigned short port) {
  std::cout << "camrelay-unit " << (many ? "unit " + std::to_string(unit.number()) + " " : std::string())
            << "listening on " << transport << ' ' << address.to_string() << ':' << port << '\n';
}

// Many units hold many sockets and database files open: more than the usual
// soft limit of descriptors, and the hard limit is ours to take.
void RaiseOpenFileLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= limit.rlim_max) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

UnitsPlan PlanOf(const Options& o) {
  UnitsPlan plan;
  plan.dir = o.dir;
  plan.count = o.units;
  plan.firstPort = o.port;
  plan.udp = o.udp || !o.tcp;
  plan.tcp = o.tcp;
  plan.empty = o.empty;
  plan.codes = o.codes;
  plan.faults = o.faults;
  plan.faulty = UnitNumbers(o.faulty);
  plan.silent = UnitNumbers(o.silent);
  if (o.port != 0 && o.port + o.units - 1 > 65535) throw std::invalid_argument("--units: the ports run past 65535");
  return plan;
}

int Serve(const Options& o, const asio::ip::address& address) {
  asio::io_context io;
  // Caught from the start: a signal while the demo is being written still
  // ends the unit normally.
  asio::signal_set signals(io, SIGINT, SIGTERM);
  signals.async_wait([&](const boost::system::error_code&, int) { io.stop(); });
  const Log log(o.verbose ? Log::Verbose : o.quiet ? Log::Quiet : Log::Normal);
  if (o.units > 1) RaiseOpenFileLimit();
  const auto units = StartUnits(io, address, PlanOf(o), log);
  for (const auto& unit : units) {
    if (const auto port = unit->UdpPort()) Announce(*unit, units.size() > 1, "udp", address, *port);
    if (const auto port = unit->TcpPort()) Announce(*unit, units.size() > 1, "tcp", address, *port);
  }
  std::cout.flush();

  asio::steady_timer deadline(io);
  if (o.exitAfter > 0) {
    deadline.expires_after(std::chrono::milliseconds(static_cast<long long>(o.exitAfter * 1000)));
    deadline.async_wait([&](const boost::system::error_code& error) {
      if (!error) io.stop();
    });
  }
  io.run();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app(kDescription, "camrelay-unit");
  app.footer(kFooter);
  Options options;
  AddOptions(app, options);
  app.set_version_flag("--version", "camrelay-unit " CAMRELAY_VERSION);
  camrelay::cli_docs::AddCompletionOption(app);
  CLI11_PARSE(app, argc, argv);

  boost::system::error_code error;
  const auto address = asio::ip::make_address(options.host, error);
  if (error) {
    std::cerr << "camrelay-unit: --host " << options.host << " is not an IP address\n";
    return 2;
  }
  if (!address.is_loopback() && !options.allowAny) {
    std::cerr << "camrelay-unit: --host " << options.host
              << " is not a loopback address; add --allow-any to listen there\n";
    return 2;
  }
  try {
    return Serve(options, address);
  } catch (const std::exception& e) {
    std::cerr << "camrelay-unit: " << e.what() << '\n';
    return 1;
  }
}
