#include "e2e_fixture.h"

#include <algorithm>
#include <boost/asio.hpp>
#include <iterator>
#include <sstream>

#include "store/DataVideo.h"
#include "store/connection.h"
#include "store/dump.h"

namespace camrelay::e2e {
namespace fs = std::filesystem;
namespace asio = boost::asio;

namespace {

// The unit stops by itself even if the test process dies before it can.
constexpr const char* kUnitLifetime = "300";

fs::path ProgramPath(const std::string& name) { return fs::path(CAMRELAY_BINARY_DIR) / "tools" / name; }

std::unique_ptr<store::DataVideo> Open(const std::string& database) {
  // A file that is not there is a fault of the test, not an empty table.
  if (!store::IsServerDatabase(database) && !fs::exists(database))
    throw std::runtime_error("no database at " + database);
  auto db = std::make_unique<store::DataVideo>();
  db->SetConnectionString(database);
  db->EnsureOpen(nullptr, "test");
  return db;
}

}  // namespace

EndToEnd::EndToEnd()
    : unitDir_(root_ / "unit"), hostDir_(root_ / "host"), configHome_(root_ / "config"), logs_(root_ / "logs") {
  for (const auto& dir : {hostDir_, configHome_, logs_}) fs::create_directories(dir);
}

EndToEnd::~EndToEnd() {
  // A failed test leaves the unit's output to read.
  if (HasFailure() && unit_) {
    unit_->Stop();
    const std::string err = unit_->Stderr();
    std::cerr << "---- camrelay-unit's standard error (last 4000 bytes):\n"
              << err.substr(err.size() > 4000 ? err.size() - 4000 : 0) << "\n";
  }
}

void EndToEnd::Listen(const std::vector<std::string>& args, int lines) {
  // A unit started before wrote its ports to the same file: gone, it cannot
  // be read in place of the new one's.
  unit_.reset();
  fs::remove(logs_ / "unit.out");
  unit_ = std::make_unique<Process>(ProgramPath("camrelay-unit"), args, std::vector<std::string>{}, logs_, "unit");
  std::string out;
  for (const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
       std::count(out.begin(), out.end(), '\n') < lines && std::chrono::steady_clock::now() < deadline &&
       !unit_->Wait(std::chrono::milliseconds(50));)
    out = unit_->Stdout();
  // "camrelay-unit [unit N ]listening on udp|tcp ADDR:PORT"
  std::istringstream text(out);
  for (std::string line; std::getline(text, line);) {
    std::istringstream in(line);
    const std::vector<std::string> words{std::istream_iterator<std::string>(in), {}};
    const int port = std::stoi(words.back().substr(words.back().rfind(':') + 1));
    UnitPorts& unit = ports_[words.size() == 7 ? std::stoi(words[2]) : 1];
    (words.end()[-2] == "udp" ? unit.udp : unit.tcp) = port;
  }
  ASSERT_EQ(std::count(out.begin(), out.end(), '\n'), lines) << out << unit_->Stderr();
}

void EndToEnd::StartUnit(Transport transport, const std::vector<std::string>& extra) {
  transport_ = transport;
  std::vector<std::string> args{"--dir", unitDir_.string(), transport == Transport::Tcp ? "--tcp" : "--udp",
                                "--port", "0", "--exit-after", kUnitLifetime, "-v"};
  args.insert(args.end(), extra.begin(), extra.end());
  Listen(args, 1);
  port_ = transport == Transport::Tcp ? ports(1).tcp : ports(1).udp;
  // The host's own UDP port, kept from run to run as a user's would be.
  asio::io_context io;
  const asio::ip::udp::socket free(io, {asio::ip::make_address("127.0.0.1"), 0});
  localPort_ = transport == Transport::Udp ? free.local_endpoint().port() : 0;
}

void EndToEnd::StartUnits(int count, const std::vector<std::string>& extra) {
  std::vector<std::string> args{"--dir", unitDir_.string(), "--udp", "--tcp", "--port", "0",
                                "--units", std::to_string(count), "--exit-after", kUnitLifetime, "-q"};
  args.insert(args.end(), extra.begin(), extra.end());
  Listen(args, 2 * count);
}

fs::path EndToEnd::UnitDb(int number) const {
  return unitDir_ / ("unit-" + std::to_string(number)) / "VideoSentrova.db";
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

Outcome EndToEnd::Host(const std::vector<std::string>& args, std::chrono::seconds limit) {
  return Camrelay(HostArguments(args), env, limit);
}

std::unique_ptr<Process> EndToEnd::Launch(const std::vector<std::string>& args, const std::string& tag,
                                          const std::vector<std::string>& extraEnv) {
  std::vector<std::string> environment{"XDG_CONFIG_HOME=" + configHome_.string()};
  environment.insert(environment.end(), extraEnv.begin(), extraEnv.end());
  return std::make_unique<Process>(ProgramPath("camrelay"), args, environment, logs_, tag);
}

Outcome EndToEnd::Camrelay(const std::vector<std::string>& args, const std::vector<std::string>& extraEnv,
                           std::chrono::seconds limit) {
  const auto host = Launch(args, "host" + std::to_string(++runs_), extraEnv);
  Outcome outcome;
  outcome.exit = host->Wait(limit);
  host->Stop();
  outcome.out = host->Stdout();
  outcome.err = host->Stderr();
  outcome.peakRssKiB = host->PeakRssKiB();
  return outcome;
}

namespace {

bool SameTables(const fs::path& a, const fs::path& b, std::initializer_list<const char*> tables) {
  return std::all_of(tables.begin(), tables.end(), [&](const char* table) { return Rows(a, table) == Rows(b, table); });
}

// The host's database starts as a copy of the unit's.
void CopyDatabase(const fs::path& from, const fs::path& to, const std::string& changes) {
  fs::remove(to);
  Execute(from, "VACUUM INTO '" + to.string() + "'");
  Execute(to, changes);
}

}  // namespace

std::vector<Check> EndToEnd::DownloadChecks() {
  for (const char* folder : {"Audio", "Snapshot", "VideoAvi"}) fs::remove_all(hostDir_ / folder);
  CopyDatabase(unitDb(), hostDb(),
               "UPDATE Ingressi SET Descrizione = 'vecchia ' || NumeroIngresso; DELETE FROM Registro_eventi;"
               "DELETE FROM CamEvents; DELETE FROM ProgCamEvents; DELETE FROM Festivita;");
  const fs::path clip = FirstFile(unitDir_ / "VideoAvi", ".avi");
  const fs::path hostClip = hostDir_ / "VideoAvi" / clip.filename();
  fs::create_directories(hostClip.parent_path());
  test::WriteFileBytes(hostClip, "an older recording");
  const std::string events = "EVENTI:" + std::to_string(Rows(unitDb(), "Registro_eventi").size());
  const fs::path preview = unitDir_ / "Preview";
  const fs::path snapshot = hostDir_ / "Snapshot";
  auto voices = [this] {
    for (const auto& entry : fs::directory_iterator(unitDir_ / "Audio"))
      // A voice message arrives with one zero byte more than the unit
      // holds: the library writes it so on purpose.
      if (FileBytes(hostDir_ / "Audio" / entry.path().filename()) != FileBytes(entry.path()) + '\0') return false;
    return true;
  };
  return {
      {{"download-prog"}, [this](auto&) { return ProgrammingOf(hostDb()) == ProgrammingOf(unitDb()); }},
      {{"download-log"}, [this](auto&) { return Log(hostDb()) == Log(unitDb()); }},
      {{"download-cam-events"}, [this](auto&) { return SameTables(hostDb(), unitDb(), {"CamEvents"}); }},
      {{"download-prog-cam-events"},
       [this](auto&) { return SameTables(hostDb(), unitDb(), {"ProgCamEvents", "Festivita"}); }},
      {{"download-wave"}, [voices](auto&) { return voices(); }},
      {{"download-media", clip.filename().string()}, [=](auto&) { return FileBytes(hostClip) == FileBytes(clip); }},
      {{"request-command", "EVENTI?"}, [events](const Outcome& run) { return HasLine(run.out, events); }},
      {{"stream-image", "2"},
       [=](auto&) { return FileBytes(snapshot / "stream-cam2-0001.jpg") == FileBytes(preview / "cam2.jpg"); }},
      // Taking turns between the two cameras, each image its camera's, then
      // the preview stops.
      {{"preview", "1,3", "--images", "4"},
       [=](auto&) {
         for (const char* name : {"cam1-0001", "cam3-0001", "cam1-0002", "cam3-0002"})
           if (FileBytes(snapshot / ("preview-" + std::string(name) + ".jpg")) !=
               FileBytes(preview / (std::string(name, 4) + ".jpg")))
             return false;
         return !fs::exists(snapshot / "preview-cam1-0003.jpg") && !fs::exists(snapshot / "preview-cam3-0003.jpg");
       }},
  };
}

Check EndToEnd::DownloadCheck(const std::string& command) {
  for (Check& check : DownloadChecks())
    if (check.args.front() == command) return check;
  throw std::invalid_argument("no download " + command);
}

std::vector<Check> EndToEnd::UploadChecks() {
  // Accents, quotes and commas in text, a row fewer, new numbers.
  CopyDatabase(unitDb(), hostDb(),
               "UPDATE Ingressi SET Descrizione = 'Città ' || NumeroIngresso || ', \"varco\"';"
               "DELETE FROM NumTel WHERE Posizione = (SELECT max(Posizione) FROM NumTel);"
               "UPDATE ProgCamEvents SET SensibilitaMovimento = 7;"
               "DELETE FROM Festivita WHERE rowid = (SELECT min(rowid) FROM Festivita);");
  fs::create_directories(hostDir_ / "Audio");
  std::size_t size = 7000;
  for (const auto& entry : fs::directory_iterator(unitDir_ / "Audio"))
    test::WriteFileBytes(hostDir_ / "Audio" / entry.path().filename(), Bytes(size += 1000));
  const fs::path firmware = root_ / "centrale-2.1.bin";
  test::WriteFileBytes(firmware, Bytes(20000, 5));
  const fs::path received = unitDir_ / "Firmware" / firmware.filename();
  const fs::path command = unitDir_ / "last-command.txt";
  fs::remove(received);
  fs::remove(command);
  auto voices = [this] {
    for (const auto& entry : fs::directory_iterator(unitDir_ / "Audio"))
      if (FileBytes(entry.path()) != FileBytes(hostDir_ / "Audio" / entry.path().filename())) return false;
    return true;
  };
  return {
      {{"upload-prog"}, [this](auto&) { return ProgrammingOf(unitDb()) == ProgrammingOf(hostDb()); }},
      {{"upload-prog-cam-events"},
       [this](auto&) { return SameTables(hostDb(), unitDb(), {"ProgCamEvents", "Festivita"}); }},
      {{"upload-wave"}, [voices](auto&) { return voices(); }},
      {{"upload-firmware", firmware.string()}, [=](auto&) { return FileBytes(received) == FileBytes(firmware); }},
      {{"send-command", "RIAVVIA tra 5 minuti"},
       [=](auto&) { return FileBytes(command) == "RIAVVIA tra 5 minuti"; }},
      {{"erase-log"}, [this](auto&) { return Rows(unitDb(), "Registro_eventi").empty(); }},
  };
}

std::vector<Row> Rows(const std::string& database, const std::string& table, const std::string& without) {
  store::TableDump dump = store::DumpTable(*Open(database), table);
  const auto skip = std::find(dump.columns.begin(), dump.columns.end(), without) - dump.columns.begin();
  for (Row& row : dump.rows)
    if (skip < static_cast<long>(row.size())) row.erase(row.begin() + skip);
  return dump.rows;
}

std::vector<Row> Log(const std::string& database) {
  std::vector<Row> rows = Rows(database, "Registro_eventi", "IdRegistro");
  std::sort(rows.begin(), rows.end());
  return rows;
}

Programming ProgrammingOf(const std::string& database) {
  Programming tables;
  for (const auto& programming : store::kProgrammingTables) {
    const std::string table(programming.Table);
    tables[table] = Rows(database, table);
  }
  return tables;
}

void Execute(const fs::path& database, const std::string& sql) {
  Open(database)->Handle().Exec(sql);
}

std::string FileBytes(const fs::path& file) {
  EXPECT_TRUE(fs::exists(file)) << file;
  return test::ReadFileBytes(file);
}

std::string Bytes(std::size_t size, int seed) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>((i * 7 + i / 256 + seed) % 256);
  return bytes;
}

fs::path FirstFile(const fs::path& folder, const std::string& extension) {
  for (const auto& entry : fs::directory_iterator(folder))
    if (entry.path().extension() == extension) return entry.path();
  ADD_FAILURE() << "no " << extension << " file in " << folder;
  return {};
}

std::vector<std::string> Commands(const std::vector<Check>& checks) {
  std::vector<std::string> commands;
  for (const Check& check : checks) commands.insert(commands.end(), check.args.begin(), check.args.end());
  return commands;
}

bool Failed(const Outcome& run, const std::string& command) {
  return run.err.find("camrelay: " + command + ": ") != std::string::npos;
}

bool HasLine(const std::string& output, const std::string& line) {
  return ("\n" + output).find("\n" + line + "\n") != std::string::npos;
}

int ClosedTcpPort() {
  asio::io_context io;
  asio::ip::tcp::acceptor acceptor(io, asio::ip::tcp::endpoint(asio::ip::make_address("127.0.0.1"), 0));
  return acceptor.local_endpoint().port();
}

}  // namespace camrelay::e2e
