// camrelay fleet against one camrelay-unit process playing many units: every
// good unit's log arrives exactly in that unit's own folder, the bad units
// are reported with their reasons, and no unit stops another.
#include <nlohmann/json.hpp>
#include <csignal>
#include <map>
#include <sstream>
#include <thread>

#include "e2e_fixture.h"
#include "postgres_server.h"
#include "store/connection.h"
#include "store/postgres_backend.h"

namespace camrelay::e2e {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr const char* kGiveUp = "Raggiunto il numero massimo di tentativi.";
constexpr const char* kWrongCode = "Password di accesso errata!";

// The unit's report holds one error, of its download, quoting the library's words.
bool OneError(const nlohmann::json& unit, const std::string& words) {
  const auto& errors = unit["errors"];
  if (errors.size() != 1) return false;
  const std::string error = errors[0].get<std::string>();
  return error.starts_with("download-log: ") && error.find("(" + words + ")") != std::string::npos;
}
constexpr const char* kHeader = "name,host,port,transport,code,dir\n";

class Fleet : public EndToEnd {
 protected:
  // A fleet file line for unit `number` of the process, served over `transport`.
  std::string Line(int number, const std::string& transport, const std::string& codeField = "123456") {
    return Name(number) + ",127.0.0.1," + std::to_string(Port(number, transport)) + "," + transport + "," +
           codeField + "," + Name(number) + "\n";
  }
  int Port(int number, const std::string& transport) const {
    return transport == "tcp" ? ports(number).tcp : ports(number).udp;
  }
  static std::string Name(int number) { return "u" + std::to_string(number); }

  fs::path WriteFleet(const std::string& text, const std::string& name = "units.csv") {
    const fs::path file = hostDir() / name;
    test::WriteFileBytes(file, text);
    return file;
  }

  fs::path HostDb(int number) const { return hostDir() / Name(number) / "VideoSentrova.db"; }
};

// A run's JSON lines: each unit's outcome by name, and the summary.
struct Report {
  std::map<std::string, nlohmann::json> units;
  nlohmann::json summary;
};

Report ByUnit(const std::string& jsonLines) {
  Report report;
  std::istringstream lines(jsonLines);
  for (std::string line; std::getline(lines, line);) {
    const auto object = nlohmann::json::parse(line);
    if (object.contains("summary"))
      report.summary = object["summary"];
    else
      report.units[object["unit"]] = object;
  }
  return report;
}

// 50 units, odd ones over UDP and even ones over TCP, fewer links at once
// than units: three with a wrong code, one silent, one on a lossy link.
TEST_F(Fleet, FiftyUnitsEachGetTheirOwnLogAndTheBadOnesAreReported) {
  const std::set<int> wrongCode{10, 21, 30}, silent{40};
  const int lossy = 45;
  StartUnits(50, {"--silent", "40", "--faulty", std::to_string(lossy), "--loss", "3", "--seed", "7"});
  std::string fleet = kHeader;
  for (int n = 1; n <= 50; ++n)
    fleet += Line(n, n % 2 ? "udp" : "tcp", wrongCode.contains(n) ? "654000" : n == 2 ? "env:FLEET_CODE" : "123456");
  const fs::path file = WriteFleet(fleet);

  const Outcome run = Camrelay({"fleet", file.string(), "--parallel", "16", "--json", "--timeout-long", "250",
                                "--timeout-short", "250", "--retries", "25", "download-log"},
                               {"FLEET_CODE=123456"}, 120s);
  ASSERT_EQ(run.exit, 1) << run.out << run.err;
  const Report report = ByUnit(run.out);
  ASSERT_EQ(report.units.size(), 50u) << run.out;

  int succeeded = 0;
  for (int n = 1; n <= 50; ++n) {
    SCOPED_TRACE(Name(n));
    const auto& unit = report.units.at(Name(n));
    const bool ok = unit["ok"].get<bool>();
    succeeded += ok;
    // A lossy link may use up the retries; it then leaves nothing behind.
    if (wrongCode.contains(n) || silent.contains(n) || (n == lossy && !ok)) {
      EXPECT_FALSE(ok);
      EXPECT_TRUE(OneError(unit, wrongCode.contains(n) ? kWrongCode : kGiveUp)) << unit.dump();
      EXPECT_TRUE(Rows(HostDb(n), "Registro_eventi").empty());
    } else {
      EXPECT_TRUE(ok) << unit.dump();
      EXPECT_EQ(Log(HostDb(n)), Log(UnitDb(n)));
    }
  }
  EXPECT_EQ(report.summary["units"], 50);
  EXPECT_EQ(report.summary["succeeded"], succeeded);
  EXPECT_EQ(report.summary["failed"], 50 - succeeded);
  // The shared settings file is neither read nor written by a fleet.
  EXPECT_FALSE(fs::exists(hostDir().parent_path() / "config" / "CamRelay"));
}

// The text form: a line per unit and a summary; a quoted name keeps its
// comma, and the code never shows. The run's report names every unit's
// outcome; a second run given it serves only the units that failed in it,
// and ends 0 when all of them succeed.
TEST_F(Fleet, TextReportAndARetryOfTheUnitsThatFailed) {
  StartUnits(3);
  const fs::path report = hostDir() / "first.jsonl";
  // Saved by a Windows editor: a byte-order mark first, CR LF line ends.
  const std::string north = "\"north, gate\",127.0.0.1," + std::to_string(ports(3).udp) + ",UDP,123456,north\r\n";
  const fs::path wrong = WriteFleet("\xEF\xBB\xBF" + std::string(kHeader) + "# the gate\r\n\n" + Line(1, "tcp") +
                                    Line(2, "tcp", "654000") + north);
  const Outcome first = Camrelay({"fleet", wrong.string(), "--parallel", "1", "--report", report.string(),
                                  "download-log", "request-command", "ECHO 123456"});
  ASSERT_EQ(first.exit, 1) << first.out << first.err;
  EXPECT_NE(first.out.find("u1: ok in "), std::string::npos) << first.out;
  EXPECT_NE(first.out.find("north, gate: ok in "), std::string::npos) << first.out;
  const std::string records = std::to_string(Rows(UnitDb(3), "Registro_eventi").size());
  EXPECT_NE(first.out.find(": download-log: " + records + " new records added to Registro_eventi; ECHO:ECHO ******\n"),
            std::string::npos) << first.out;
  EXPECT_NE(first.out.find("fleet: 3 units in "), std::string::npos) << first.out;
  EXPECT_NE(first.out.find(", 2 succeeded, 1 failed (u2)\n"), std::string::npos) << first.out;
  EXPECT_EQ(first.out.find("123456"), std::string::npos) << first.out;
  EXPECT_EQ(Log(hostDir() / "north" / "VideoSentrova.db"), Log(UnitDb(3)));
  const Report reported = ByUnit(FileBytes(report));
  ASSERT_EQ(reported.units.size(), 3u);
  EXPECT_FALSE(reported.units.at("u2")["ok"].get<bool>());

  const fs::path right = WriteFleet(kHeader + Line(1, "tcp") + Line(2, "tcp") + north);
  const Outcome retry = Camrelay({"fleet", right.string(), "--retry", report.string(), "--json", "download-log"});
  ASSERT_EQ(retry.exit, 0) << retry.out << retry.err;
  const Report served = ByUnit(retry.out);
  ASSERT_EQ(served.units.size(), 1u) << retry.out;
  EXPECT_TRUE(served.units.at("u2")["ok"].get<bool>());

  test::WriteFileBytes(report, "{\"unit\":\"u9\",\"ok\":false}\nnot json\n");
  const Outcome bad = Camrelay({"fleet", right.string(), "--retry", report.string(), "download-log"});
  EXPECT_EQ(bad.exit, 2);
  EXPECT_NE(bad.err.find(":2: not a unit's outcome"), std::string::npos) << bad.err;
}

// Every fault of a fleet file is found before any unit is contacted, named
// by file and line; exit status 2.
TEST_F(Fleet, BadFleetFilesAreRefusedWithTheirLine) {
  const std::string good = "a,127.0.0.1,9,udp,123456,a\n";
  const std::vector<std::pair<std::string, std::string>> cases{
      {"name,host,port,transport,code\n" + good, ":1: the header has no column 'dir'"},
      {"name,host,port,transport,code,dir,colour\n", ":1: unknown column 'colour'"},
      {kHeader + good + "b,127.0.0.1,70000,udp,123456,b\n", ":3: port '70000' is not a number from 1 to 65535"},
      {kHeader + std::string("b,127.0.0.1,9,sctp,123456,b\n"), ":2: transport 'sctp' is neither udp nor tcp"},
      {kHeader + std::string("b,127.0.0.1,9,udp,env:NO_SUCH_FLEET_CODE,b\n"),
       ":2: the environment variable 'NO_SUCH_FLEET_CODE' is not set"},
      {kHeader + std::string("b,127.0.0.1,9,udp,1234567,b\n"), ":2: unit b: code: an access code has 1 to 6"},
      {kHeader + good + "a,127.0.0.1,9,udp,123456,b\n", ":3: unit name 'a' is used twice"},
      {kHeader + good + "b,127.0.0.1,9,udp,123456,./a\n", ":3: unit b: folder "},
      {kHeader + std::string("\"b,127.0.0.1,9,udp,123456,b\n"), ":2: a quoted field is not closed"},
      {kHeader + std::string("b,127.0.0.1,9,udp,123456\n"), ":2: 5 fields where the header has 6"},
      {kHeader, " lists no unit"},
      {kHeader + good + "b,127.0.0.1,9,udp,123456,a/\n", "is the folder of line 2"},
      {kHeader + good + "b,127.0.0.1,9,udp,123456,alias\n", "is the folder of line 2"},
      {"name;host;port;transport;code;dir\na;127.0.0.1;9;udp;123456;a\n", ":1: the fields are separated by semicolons"},
      {kHeader + std::string("\"b\rc\",127.0.0.1,9,udp,123456,b\n"), ":2: a field holds a carriage return"},
      {kHeader + std::string(1, '\0') + "b,127.0.0.1,9,udp,123456,b\n", ":2: a field holds a NUL byte"},
  };
  // "alias" is another name of "a": one folder.
  fs::create_directories(hostDir() / "a");
  fs::create_directory_symlink("a", hostDir() / "alias");
  for (const auto& [text, message] : cases) {
    const fs::path file = WriteFleet(text);
    const Outcome run = Camrelay({"fleet", file.string(), "download-log"});
    EXPECT_EQ(run.exit, 2) << text;
    EXPECT_NE(run.err.find(message), std::string::npos) << text << " -> " << run.err;
    EXPECT_TRUE(fs::is_empty(hostDir() / "a")) << "a unit was served from a bad file";
  }
  const fs::path file = WriteFleet(kHeader + good);
  const Outcome withHost = Camrelay({"--host", "10.0.0.1", "fleet", file.string(), "download-log"});
  EXPECT_EQ(withHost.exit, 2);
  EXPECT_NE(withHost.err.find("fleet: --host is given per unit in the fleet file"), std::string::npos)
      << withHost.err;
}

// Fleets whose units keep their tables in a PostgreSQL server, a schema
// each, and share the work through it.
class ServerFleet : public Fleet {
 protected:
  // A fleet file naming units prefix1, prefix2, ... up to count, whose
  // schemas the test drops at its end, served by the units of the process
  // from `first` on; "mixed" serves odd ones over UDP and even ones over TCP.
  std::string NamedFleet(const std::string& prefix, int count, const std::string& transport, int first = 1) {
    std::string text = kHeader;
    for (int n = 1; n <= count; ++n) {
      const std::string over = transport != "mixed" ? transport : n % 2 ? "udp" : "tcp";
      text += schemas.Schema(prefix + std::to_string(n)) + ",127.0.0.1," +
              std::to_string(Port(first + n - 1, over)) + "," + over + ",123456," + prefix + std::to_string(n) + "\n";
    }
    return text;
  }
  std::string Schema(const std::string& name) { return store::WithSchema(server, schemas.Schema(name)); }
  std::unique_ptr<Process> Machine(const fs::path& file, const std::string& tag, std::vector<std::string> extra) {
    std::vector<std::string> args{"fleet", file.string(), "--db", server, "--claim", round, "--json"};
    args.insert(args.end(), extra.begin(), extra.end());
    return Launch(args, tag);
  }

  // Starts 2 × count units, the first count of them silent, and writes two
  // fleet files naming the same units: the first on the silent ports, the
  // second on the answering ones.
  std::pair<fs::path, fs::path> SilentAndAnsweringFleets(const std::string& prefix, int count) {
    StartUnits(2 * count, {"--silent", "1-" + std::to_string(count)});
    return {WriteFleet(NamedFleet(prefix, count, "udp")),
            WriteFleet(NamedFleet(prefix, count, "udp", count + 1), "answering.csv")};
  }
  // A machine that claims the silent units and keeps waiting for them.
  std::unique_ptr<Process> StuckMachine(const fs::path& file, const std::string& tag, const std::string& lease) {
    auto machine = Machine(file, tag, {"--lease", lease, "--timeout-long", "60000", "--timeout-short", "60000",
                                       "download-prog"});
    EXPECT_FALSE(machine->Wait(1500ms));  // its units do not answer
    return machine;
  }

  test::PostgresSchemas schemas;
  const std::string server = schemas.Uri("fleet");
  const std::string round = schemas.Schema("round");
};

// Two machines at once on the same fleet of 100 units: each unit served by
// exactly one of them, its programming in its own schema.
TEST_F(ServerFleet, TwoMachinesWithClaimShareAHundredUnitsServingEachOnce) {
  StartUnits(100);
  const fs::path file = WriteFleet(NamedFleet("u", 100, "mixed"));
  const std::vector<std::string> run{"--parallel", "8", "--timeout-long", "3000", "--timeout-short", "1000",
                                     "--retries", "5", "download-prog"};
  auto a = Machine(file, "machine-a", run), b = Machine(file, "machine-b", run);
  ASSERT_EQ(a->Wait(120s), 0) << a->Stdout() << a->Stderr();
  ASSERT_EQ(b->Wait(120s), 0) << b->Stdout() << b->Stderr();
  const auto servedA = ByUnit(a->Stdout()).units, servedB = ByUnit(b->Stdout()).units;
  EXPECT_EQ(servedA.size() + servedB.size(), 100u) << "a served " << servedA.size() << ", b " << servedB.size();
  for (int n = 1; n <= 100; ++n) {
    const std::string name = schemas.Schema("u" + std::to_string(n));
    ASSERT_EQ(servedA.count(name) + servedB.count(name), 1u) << name;
    const auto& outcome = servedA.count(name) ? servedA.at(name) : servedB.at(name);
    EXPECT_TRUE(outcome["ok"].get<bool>()) << outcome.dump();
    EXPECT_EQ(ServerRows(Schema("u" + std::to_string(n)), "NumTel"), Rows(UnitDb(n), "NumTel")) << name;
  }
}

// A machine killed while its units are in flight leaves them claimed until
// the lease ends. A machine that finds nothing to take while units of the
// round are still held elsewhere waits for them instead of ending as if the
// round were done, and takes them once the leases end.
TEST_F(ServerFleet, AMachineWaitsForUnitsHeldElsewhereAndTakesThemWhenTheirLeaseEnds) {
  const auto [deadFile, aliveFile] = SilentAndAnsweringFleets("c", 3);
  StuckMachine(deadFile, "doomed", "3")->Kill();

  const auto start = std::chrono::steady_clock::now();
  auto waiting = Machine(aliveFile, "waiting", {"download-prog"});
  ASSERT_EQ(waiting->Wait(60s), 0) << waiting->Stdout() << waiting->Stderr();
  // Every lease ends at most 3 s after the last renewal.
  EXPECT_GT(std::chrono::steady_clock::now() - start, 1s);
  EXPECT_EQ(ByUnit(waiting->Stdout()).units.size(), 3u) << waiting->Stdout();
  for (int n = 1; n <= 3; ++n) EXPECT_FALSE(ServerRows(Schema("c" + std::to_string(n)), "NumTel").empty());
}

// A machine stopped with Ctrl-C gives its claims up as it ends: another
// machine serves those units at once, without waiting for the leases.
TEST_F(ServerFleet, AMachineInterruptedGivesItsUnitsUpAtOnce) {
  const auto [stoppedFile, otherFile] = SilentAndAnsweringFleets("i", 2);
  auto first = StuckMachine(stoppedFile, "stopped", "600");
  first->Signal(SIGINT);
  ASSERT_EQ(first->Wait(30s), 1) << first->Stderr();
  auto second = Machine(otherFile, "second", {"download-prog"});
  ASSERT_EQ(second->Wait(60s), 0) << second->Stdout() << second->Stderr();
  EXPECT_EQ(ByUnit(second->Stdout()).units.size(), 2u) << second->Stdout();
}

// A machine that hangs past its lease while storing a unit, whose unit
// another machine then serves, keeps none of its rows when it goes on: the
// unit's log is stored once.
TEST_F(ServerFleet, AMachineWhoseLeaseLapsedDoesNotStoreTheUnitAgain) {
  StartUnits(2, {"--faulty", "1", "--delay", "200"});
  const std::string name = schemas.Schema("lapsed");
  auto fleetFor = [&](int number, const std::string& file) {
    return WriteFleet(kHeader + name + ",127.0.0.1," + std::to_string(ports(number).tcp) + ",tcp,123456," + file +
                          ".d\n",
                      file);
  };
  auto slow = Machine(fleetFor(1, "slow.csv"), "slow", {"--lease", "3", "--timeout-long", "60000",
                                                          "--timeout-short", "60000", "download-log"});
  EXPECT_FALSE(slow->Wait(1500ms));  // in the middle of its log
  slow->Signal(SIGSTOP);
  std::this_thread::sleep_for(4s);
  auto other = Machine(fleetFor(2, "other.csv"), "other", {"download-log"});
  ASSERT_EQ(other->Wait(60s), 0) << other->Stdout() << other->Stderr();
  slow->Signal(SIGCONT);
  ASSERT_EQ(slow->Wait(120s), 1) << slow->Stdout() << slow->Stderr();
  EXPECT_NE(slow->Stdout().find("another machine took the unit"), std::string::npos) << slow->Stdout();
  EXPECT_EQ(ServerRows(Schema("lapsed"), "Registro_eventi").size(), Rows(UnitDb(2), "Registro_eventi").size());
}

// Machines of one round run one fleet: a machine whose fleet file names
// other units is refused before it claims any, rather than leaving units no
// machine of the round can serve.
TEST_F(ServerFleet, ARoundIsRefusedToAFleetFileOfOtherUnits) {
  StartUnits(2);
  const fs::path first = WriteFleet(NamedFleet("p", 1, "udp"));
  auto a = Machine(first, "first", {"download-prog"});
  ASSERT_EQ(a->Wait(60s), 0) << a->Stderr();
  auto b = Machine(WriteFleet(NamedFleet("p", 2, "udp"), "second.csv"), "second", {"download-prog"});
  EXPECT_EQ(b->Wait(60s), 1);
  EXPECT_NE(b->Stderr().find("serves another list of units"), std::string::npos) << b->Stderr();

  // An empty round, an unset variable in a script, is not "no sharing".
  const Outcome empty = Camrelay({"fleet", first.string(), "--db", server, "--claim", "", "download-prog"});
  EXPECT_EQ(empty.exit, 2);
  EXPECT_NE(empty.err.find("the round is empty"), std::string::npos) << empty.err;
}

// However many links --parallel allows, a fleet opens no more server
// connections than --db-connections: the links run, and their stores wait
// for a connection.
TEST_F(ServerFleet, ConnectionsStayWithinTheirLimit) {
  StartUnits(12);
  const std::string tag = schemas.Schema("connections");
  auto fleet = Launch({"fleet", WriteFleet(NamedFleet("k", 12, "tcp")).string(), "--db",
                       server + "&application_name=" + tag, "--claim", round, "--parallel", "64", "--db-connections",
                       "3", "--json", "download-log"},
                      "bounded");
  auto watcher = store::ConnectPostgres(std::get<store::ServerDatabase>(store::ParseConnection(server)));
  std::int64_t peak = 0;
  const auto exit = fleet->Wait(120s, [&] {
    auto rows = watcher->Query("SELECT count(*) FROM pg_stat_activity WHERE application_name = " +
                               watcher->Literal(tag));
    rows->Next();
    peak = std::max(peak, std::get<std::int64_t>(rows->Value(0)));
  });
  ASSERT_EQ(exit, 0) << fleet->Stdout() << fleet->Stderr();
  EXPECT_EQ(ByUnit(fleet->Stdout()).units.size(), 12u);
  // The server lists a connection its client has closed until the process
  // serving it has exited: a few more than the limit may show at once, far
  // fewer than the 13 an unbounded run opens.
  EXPECT_GE(peak, 2);
  EXPECT_LE(peak, 6);
}

// A throw-away server of the test's own, so that restarting it disturbs no
// other test.
class PrivateServer {
 public:
  explicit PrivateServer(fs::path dir) : dir_(std::move(dir)) { Run("start"); }
  ~PrivateServer() { Run("stop"); }
  PrivateServer(const PrivateServer&) = delete;
  PrivateServer& operator=(const PrivateServer&) = delete;

  std::string Uri() const {
    std::istringstream words(test::ReadFileBytes(dir_ / "conninfo"));
    std::map<std::string, std::string> keys;
    for (std::string word; words >> word;) keys[word.substr(0, word.find('='))] = word.substr(word.find('=') + 1);
    return "postgresql://" + keys["user"] + "@" + keys["host"] + ":" + keys["port"] + "/" + keys["dbname"];
  }
  void Restart() { Run("restart"); }

 private:
  void Run(const std::string& action) {
    Process script(fs::path(CAMRELAY_SOURCE_DIR) / "scripts" / "postgres-server", {action, dir_.string()}, {},
                   dir_.parent_path(), "postgres-" + action);
    const auto exit = script.Wait(90s);
    if (exit != 0 && action != "stop")
      throw std::runtime_error("postgres-server " + action + " failed: " + script.Stderr());
  }
  fs::path dir_;
};

// The server restarted in the middle of a run, twice: every client loses
// its connection and new ones are refused until it is back. The run finds
// it again, every unit gets its line and the summary is printed, and no
// unit's log is stored twice (a store cut inside its transaction is
// reported failed, not repeated).
TEST_F(ServerFleet, AServerRestartedMidRunIsFoundAgain) {
  constexpr int kUnits = 3;
  StartUnits(kUnits);
  PrivateServer restarted(hostDir() / "restarted-server");
  auto fleet = Launch({"fleet", WriteFleet(NamedFleet("restart", kUnits, "tcp")).string(), "--db", restarted.Uri(),
                       "--parallel", "1", "--db-connections", "2", "--json", "download-log"},
                      "restarted");
  // Once after each unit's line but the last.
  int restarts = 0;
  const auto exit = fleet->Wait(120s, [&] {
    const std::string out = fleet->Stdout();
    if (std::count(out.begin(), out.end(), '\n') <= restarts || restarts == kUnits - 1) return;
    restarted.Restart();
    ++restarts;
  });
  ASSERT_TRUE(exit.has_value()) << fleet->Stdout() << fleet->Stderr();
  EXPECT_EQ(restarts, kUnits - 1);
  const Report report = ByUnit(fleet->Stdout());
  ASSERT_EQ(report.units.size(), static_cast<std::size_t>(kUnits)) << fleet->Stdout();
  EXPECT_EQ(report.summary["succeeded"].get<int>() + report.summary["failed"].get<int>(), kUnits) << fleet->Stdout();
  // A restart lands between two stores unless the machine is very slow:
  // a unit after one is stored, not refused for the connection it lost.
  EXPECT_GE(report.summary["succeeded"].get<int>(), 2) << fleet->Stdout();
  for (const auto& [name, line] : report.units) {
    const auto stored = ServerRows(store::WithSchema(restarted.Uri(), name), "Registro_eventi").size();
    const auto held = Rows(UnitDb(std::stoi(name.substr(name.size() - 1))), "Registro_eventi").size();
    if (line["ok"].get<bool>()) EXPECT_EQ(stored, held) << line;
    else EXPECT_LE(stored, held) << line;
  }
}

}  // namespace
}  // namespace camrelay::e2e
