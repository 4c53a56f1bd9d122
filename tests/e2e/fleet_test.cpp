// camrelay fleet against one camrelay-unit process playing many units: every
// good unit's log arrives exactly in that unit's own folder, the bad units
// are reported with their reasons, and no unit stops another. Fleets and a
// single camrelay with their tables in a PostgreSQL server.
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

constexpr const char* kHeader = "name,host,port,transport,code,dir\n";

class Fleet : public EndToEnd {
 protected:
  // A fleet file line for unit `number` of the process, served over
  // `transport`, in the folder of its name.
  std::string Line(const std::string& name, int number, const std::string& transport,
                   const std::string& codeField = "123456") {
    const int port = transport == "tcp" ? ports(number).tcp : ports(number).udp;
    return name + ",127.0.0.1," + std::to_string(port) + "," + transport + "," + codeField + "," + name + "\n";
  }
  fs::path WriteFleet(const std::string& text, const std::string& name = "units.csv") {
    const fs::path file = hostDir() / name;
    test::WriteFileBytes(file, text);
    return file;
  }
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
// than units: three with a wrong code, one silent, one on a lossy link. The
// file was saved by a Windows editor (a byte-order mark, CR LF line ends)
// and a quoted name keeps its comma. The text form gives a line per unit
// and a summary, and never shows the code; the report names every unit's
// outcome, a failed one's first error quoting the library's words. A second
// run given the report serves only the units that failed in it, and ends 0
// when all of them succeed.
TEST_F(Fleet, FiftyUnitsEachGetTheirOwnLogAndARetryServesTheOnesThatFailed) {
  const std::set<int> wrongCode{10, 21, 30}, silent{40};
  const int lossy = 45;
  StartUnits(50, {"--silent", "40", "--faulty", std::to_string(lossy), "--loss", "3", "--seed", "7"});
  // Repaired: the right codes, and the silent unit's and the lossy one's
  // names given to answering units.
  auto fleet = [&](bool repaired) {
    std::string text = "\xEF\xBB\xBF" + std::string(kHeader) + "# the gate\r\n\n\"north, gate\",127.0.0.1," +
                       std::to_string(ports(3).udp) + ",UDP,123456,north\r\n";
    for (int n = 1; n <= 50; ++n) {
      const char* code = repaired ? "123456" : wrongCode.contains(n) ? "654000" : n == 2 ? "env:FLEET_CODE" : "123456";
      if (n != 3)
        text += Line("u" + std::to_string(n), repaired && (silent.contains(n) || n == lossy) ? n + 1 : n,
                     n % 2 ? "udp" : "tcp", code);
    }
    return WriteFleet(text);
  };
  const fs::path report = hostDir() / "first.jsonl";
  const Outcome run = Camrelay({"fleet", fleet(false).string(), "--parallel", "16", "--report", report.string(),
                                "--timeout-long", "250", "--timeout-short", "250", "--retries", "25", "download-log",
                                "request-command", "ECHO 123456"},
                               {"FLEET_CODE=123456"}, 120s);
  ASSERT_EQ(run.exit, 1) << run.out << run.err;
  const Report reported = ByUnit(FileBytes(report));
  ASSERT_EQ(reported.units.size(), 50u) << run.out;
  std::set<std::string> failed;
  for (int n = 1; n <= 50; ++n) {
    const std::string name = n == 3 ? "north, gate" : "u" + std::to_string(n);
    SCOPED_TRACE(name);
    const auto& unit = reported.units.at(name);
    const bool ok = unit["ok"].get<bool>();
    if (!ok) failed.insert(name);
    EXPECT_NE(run.out.find(name + (ok ? ": ok in " : ": failed in ")), std::string::npos) << run.out;
    const fs::path db = hostDir() / (n == 3 ? "north" : name) / "VideoSentrova.db";
    // A lossy link may use up the retries; a failed unit leaves nothing behind.
    if (wrongCode.contains(n) || silent.contains(n) || (n == lossy && !ok)) {
      EXPECT_FALSE(ok);
      const std::string error = unit["errors"].empty() ? "" : unit["errors"][0].get<std::string>();
      EXPECT_TRUE(error.starts_with("download-log: ")) << unit.dump();
      EXPECT_NE(error.find(wrongCode.contains(n) ? "(Password di accesso errata!)"
                                                 : "(Raggiunto il numero massimo di tentativi.)"),
                std::string::npos)
          << unit.dump();
      EXPECT_TRUE(Rows(db, "Registro_eventi").empty());
    } else {
      EXPECT_TRUE(ok) << unit.dump();
      EXPECT_EQ(Log(db), Log(UnitDb(n)));
    }
  }
  const std::string records = std::to_string(Rows(UnitDb(3), "Registro_eventi").size());
  EXPECT_NE(run.out.find(": download-log: " + records + " new records added to Registro_eventi; ECHO:ECHO ******\n"),
            std::string::npos) << run.out;
  EXPECT_NE(run.out.find("fleet: 50 units in "), std::string::npos) << run.out;
  EXPECT_NE(run.out.find(", " + std::to_string(50 - failed.size()) + " succeeded, " + std::to_string(failed.size()) +
                         " failed (u"),
            std::string::npos) << run.out;
  EXPECT_EQ(run.out.find("123456"), std::string::npos) << run.out;
  // The shared settings file is neither read nor written by a fleet.
  EXPECT_FALSE(fs::exists(hostDir().parent_path() / "config" / "CamRelay"));

  const Outcome retry = Camrelay({"fleet", fleet(true).string(), "--retry", report.string(), "--json", "download-log"});
  ASSERT_EQ(retry.exit, 0) << retry.out << retry.err;
  const Report served = ByUnit(retry.out);
  EXPECT_EQ(served.units.size(), failed.size()) << retry.out;
  for (const auto& name : failed) EXPECT_TRUE(served.units.at(name)["ok"].get<bool>()) << name;
  EXPECT_EQ(served.summary["succeeded"], failed.size());

  test::WriteFileBytes(report, "{\"unit\":\"u9\",\"ok\":false}\nnot json\n");
  const Outcome bad = Camrelay({"fleet", fleet(true).string(), "--retry", report.string(), "download-log"});
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
      {kHeader + std::string("\"b,127.0.0.1,9,udp,123456,b\n"), ":2: a quoted field is not closed"},
      {kHeader + std::string("b,127.0.0.1,9,udp,123456\n"), ":2: 5 fields where the header has 6"},
      {kHeader, " lists no unit"},
      {kHeader + good + "b,127.0.0.1,9,udp,123456,./a/\n", ":3: unit b: folder "},
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
// each, and share the work through it; and camrelay on one schema.
class ServerFleet : public Fleet {
 protected:
  // A fleet file naming units prefix1, prefix2, ... up to count, whose
  // schemas the test drops at its end, served by the units of the process
  // from `first` on; "mixed" serves odd ones over UDP and even ones over TCP.
  std::string NamedFleet(const std::string& prefix, int count, const std::string& transport, int first = 1) {
    std::string text = kHeader;
    for (int n = 1; n <= count; ++n)
      text += Line(schemas.Schema(prefix + std::to_string(n)), first + n - 1,
                   transport != "mixed" ? transport : n % 2 ? "udp" : "tcp");
    return text;
  }
  std::string Schema(const std::string& name) { return store::WithSchema(server, schemas.Schema(name)); }
  std::unique_ptr<Process> Machine(const fs::path& file, const std::string& tag, std::vector<std::string> extra) {
    std::vector<std::string> args{"fleet", file.string(), "--db", server, "--claim", round, "--json"};
    args.insert(args.end(), extra.begin(), extra.end());
    return Launch(args, tag);
  }

  test::PostgresSchemas schemas;
  std::string server = schemas.Uri("fleet");
  const std::string round = schemas.Schema("round");
};

using ServerDatabase = ServerFleet;

// The same commands and the same rows as with a file, and a schema made
// only when asked for.
TEST_F(ServerDatabase, DownloadsUploadsAndLocalCommandsWorkOnASchema) {
  const std::string uri = schemas.Uri("host");
  auto db = [&](std::vector<std::string> args) {
    args.insert(args.begin(), {"--db", uri, "db"});
    return Camrelay(args);
  };
  const Outcome missing = db({"dump", "Ingressi"});
  EXPECT_EQ(missing.exit, 1);
  EXPECT_NE(missing.err.find("has no tables and is not created here"), std::string::npos) << missing.err;
  const Outcome init = db({"init"});
  ASSERT_EQ(init.exit, 0) << init.err;
  EXPECT_NE(init.err.find("created the standard tables in schema test_"), std::string::npos) << init.err;
  EXPECT_NE(db({"init"}).err.find("already has its tables; left as it is"), std::string::npos);

  StartUnit(Transport::Tcp);
  const Outcome download = Host({"--db", uri, "download-prog", "download-log", "download-prog-cam-events"});
  ASSERT_EQ(download.exit, 0) << download.err;
  EXPECT_EQ(ProgrammingOf(uri), ProgrammingOf(unitDb()));
  EXPECT_EQ(Log(uri), Log(unitDb()));
  EXPECT_EQ(Rows(uri, "Festivita"), Rows(unitDb(), "Festivita"));

  // Sent back from the server, the programming replaces the unit's own.
  ASSERT_FALSE(Rows(uri, "NumTel").empty());
  ASSERT_FALSE(Rows(uri, "Festivita").empty());
  Execute(unitDb(), "DELETE FROM NumTel; DELETE FROM Festivita");
  const Outcome upload = Host({"--db", uri, "upload-prog", "upload-prog-cam-events"});
  ASSERT_EQ(upload.exit, 0) << upload.err;
  EXPECT_EQ(Rows(unitDb(), "NumTel"), Rows(uri, "NumTel"));
  EXPECT_EQ(Rows(unitDb(), "Festivita"), Rows(uri, "Festivita"));

  const Outcome log = db({"export-log"});
  ASSERT_EQ(log.exit, 0) << log.err;
  EXPECT_EQ(std::count(log.out.begin(), log.out.end(), '\n'),
            static_cast<long>(Rows(unitDb(), "Registro_eventi").size()) + 1);
}

// Two machines at once on the same fleet of 100 units: each unit served by
// exactly one of them, its programming in its own schema. However many
// links --parallel allows, a machine opens no more server connections than
// --db-connections, its work list counted: the links run, and their stores
// wait for a connection. A machine of the round whose fleet file names other
// units is refused before it claims any.
TEST_F(ServerFleet, TwoMachinesShareAHundredUnitsServingEachOnceWithinTheirConnections) {
  StartUnits(100);
  const std::string tag = schemas.Schema("connections");
  server += "&application_name=" + tag;
  const fs::path file = WriteFleet(NamedFleet("u", 100, "mixed"));
  const std::vector<std::string> run{"--parallel", "16", "--db-connections", "3", "--timeout-long", "3000",
                                     "--timeout-short", "1000", "--retries", "5", "download-prog"};
  auto a = Machine(file, "machine-a", run), b = Machine(file, "machine-b", run);
  auto watcher = store::ConnectPostgres(std::get<store::ServerDatabase>(store::ParseConnection(schemas.Uri("w"))));
  std::int64_t peak = 0;
  const auto count = [&] {
    auto rows = watcher->Query("SELECT count(*) FROM pg_stat_activity WHERE application_name = " +
                               watcher->Literal(tag));
    rows->Next();
    peak = std::max(peak, std::get<std::int64_t>(rows->Value(0)));
  };
  ASSERT_EQ(a->Wait(120s, count), 0) << a->Stdout() << a->Stderr();
  ASSERT_EQ(b->Wait(120s, count), 0) << b->Stdout() << b->Stderr();
  // The server lists a connection its client has closed until the process
  // serving it has exited: a few more than the limits may show at once, far
  // fewer than the 34 two unbounded machines open.
  EXPECT_GE(peak, 2);
  EXPECT_LE(peak, 10);
  const auto servedA = ByUnit(a->Stdout()).units, servedB = ByUnit(b->Stdout()).units;
  EXPECT_EQ(servedA.size() + servedB.size(), 100u) << "a served " << servedA.size() << ", b " << servedB.size();
  for (int n = 1; n <= 100; ++n) {
    const std::string name = schemas.Schema("u" + std::to_string(n));
    ASSERT_EQ(servedA.count(name) + servedB.count(name), 1u) << name;
    const auto& outcome = servedA.count(name) ? servedA.at(name) : servedB.at(name);
    EXPECT_TRUE(outcome["ok"].get<bool>()) << outcome.dump();
    EXPECT_EQ(Rows(Schema("u" + std::to_string(n)), "NumTel"), Rows(UnitDb(n), "NumTel")) << name;
  }

  auto other = Machine(WriteFleet(NamedFleet("u", 99, "mixed"), "other.csv"), "other", {"download-prog"});
  EXPECT_EQ(other->Wait(60s), 1);
  EXPECT_NE(other->Stderr().find("serves another list of units"), std::string::npos) << other->Stderr();
  // An empty round, an unset variable in a script, is not "no sharing".
  const Outcome empty = Camrelay({"fleet", file.string(), "--db", server, "--claim", "", "download-prog"});
  EXPECT_EQ(empty.exit, 2);
  EXPECT_NE(empty.err.find("the round is empty"), std::string::npos) << empty.err;
}

// Machines stopped while their units are in flight: one stopped with Ctrl-C
// gives them up as it ends; one that hangs keeps them claimed until its
// lease ends. A machine that finds nothing to take while units of the round
// are still held elsewhere waits for them instead of ending as if the round
// were done, and takes them once the leases end. The hung machine, going on,
// keeps none of the rows of the units taken from it: each log is stored once.
TEST_F(ServerFleet, UnitsOfStoppedMachinesAreTakenOnceTheirClaimsEndAndStoredOnce) {
  StartUnits(8, {"--faulty", "1-4", "--delay", "200"});
  const fs::path slow = WriteFleet(NamedFleet("c", 4, "tcp"));
  // Each claims two of the slow units and is in the middle of their logs.
  auto stuck = [&](const std::string& tag, const std::string& lease) {
    auto machine = Machine(slow, tag, {"--parallel", "2", "--lease", lease, "--timeout-long", "60000",
                                       "--timeout-short", "60000", "download-log"});
    EXPECT_FALSE(machine->Wait(1500ms));
    return machine;
  };
  auto stopped = stuck("stopped", "600"), hung = stuck("hung", "3");
  hung->Signal(SIGSTOP);
  stopped->Signal(SIGINT);
  ASSERT_EQ(stopped->Wait(30s), 1) << stopped->Stderr();

  const auto start = std::chrono::steady_clock::now();
  auto waiting = Machine(WriteFleet(NamedFleet("c", 4, "tcp", 5), "answering.csv"), "waiting", {"download-log"});
  ASSERT_EQ(waiting->Wait(60s), 0) << waiting->Stdout() << waiting->Stderr();
  // The hung machine's leases end at most 3 s after its last renewal; the
  // stopped one's would have lasted ten minutes.
  EXPECT_GT(std::chrono::steady_clock::now() - start, 1s);
  EXPECT_EQ(ByUnit(waiting->Stdout()).units.size(), 4u) << waiting->Stdout();
  hung->Signal(SIGCONT);
  ASSERT_EQ(hung->Wait(120s), 1) << hung->Stdout() << hung->Stderr();
  EXPECT_NE(hung->Stdout().find("another machine took the unit"), std::string::npos) << hung->Stdout();
  // Unit n + 4 lacks the first four events of unit n's log.
  for (int n = 1; n <= 4; ++n)
    EXPECT_EQ(Rows(Schema("c" + std::to_string(n)), "Registro_eventi").size(),
              Rows(UnitDb(n + 4), "Registro_eventi").size());
}

// The server restarted in the middle of a run, twice: every client loses
// its connection and new ones are refused until it is back. The run finds
// it again, every unit gets its line and the summary is printed, and no
// unit's log is stored twice (a store cut inside its transaction is
// reported failed, not repeated).
TEST_F(ServerFleet, AServerRestartedMidRunIsFoundAgain) {
  constexpr int kUnits = 3;
  StartUnits(kUnits);
  // A server of the test's own, so that restarting it disturbs no other test.
  const fs::path dir = hostDir() / "restarted-server";
  auto script = [&](const std::string& action) {
    Process run(fs::path(CAMRELAY_SOURCE_DIR) / "scripts/postgres-server", {action, dir.string()}, {}, hostDir(),
                "postgres-" + action);
    ASSERT_EQ(run.Wait(90s), 0) << run.Stderr();
  };
  script("start");
  // Its libpq keywords, given in the desktop form.
  std::string restarted = "Provider=PostgreSQL;" + test::ReadFileBytes(dir / "conninfo");
  restarted.pop_back();  // the line end
  std::replace(restarted.begin(), restarted.end(), ' ', ';');
  auto fleet = Launch({"fleet", WriteFleet(NamedFleet("restart", kUnits, "tcp")).string(), "--db", restarted,
                       "--parallel", "1", "--db-connections", "2", "--json", "download-log"},
                      "restarted");
  // Once after each unit's line but the last.
  int restarts = 0;
  const auto exit = fleet->Wait(120s, [&] {
    const std::string out = fleet->Stdout();
    if (std::count(out.begin(), out.end(), '\n') <= restarts || restarts == kUnits - 1) return;
    script("restart");
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
    const auto stored = Rows(store::WithSchema(restarted, name), "Registro_eventi").size();
    const auto held = Rows(UnitDb(std::stoi(name.substr(name.size() - 1))), "Registro_eventi").size();
    if (line["ok"].get<bool>()) EXPECT_EQ(stored, held) << line;
    else EXPECT_LE(stored, held) << line;
  }
  script("stop");
}

}  // namespace
}  // namespace camrelay::e2e
