// The end-to-end setting: a simulated unit in a folder of its own and the
// command-line host in another, each test with its own settings folder, so
// that tests run side by side without meeting. What the host holds after a
// session is compared with what the unit holds, and the other way round.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "process.h"
#include "temp_dir.h"

namespace camrelay::e2e {

enum class Transport { Tcp, Udp };

struct Outcome {
  std::optional<int> exit;  // nullopt: it did not end in time
  std::string out;
  std::string err;
  long peakRssKiB = 0;  // the most memory camrelay held at once
};

// A row as the store gives it: nullopt for Null.
using Row = std::vector<std::optional<std::string>>;
// The rows of each programming table.
using Programming = std::map<std::string, std::vector<Row>>;

// A command of a run and whether what it fetched or sent arrived exact, the
// two sides compared.
struct Check {
  std::vector<std::string> args;
  std::function<bool(const Outcome&)> exact;
};
std::vector<std::string> Commands(const std::vector<Check>& checks);
// Whether the run reported a failure of this command.
bool Failed(const Outcome& run, const std::string& command);

// The ports one camrelay-unit playing several units listens on, per unit.
struct UnitPorts {
  int udp = 0, tcp = 0;
};

class EndToEnd : public ::testing::Test {
 protected:
  EndToEnd();
  ~EndToEnd() override;

  // Starts camrelay-unit on a free loopback port, with its content in
  // unitDir(); extra are further options (faults, codes).
  void StartUnit(Transport transport, const std::vector<std::string>& extra = {});
  // Starts one camrelay-unit playing `count` units on UDP and TCP, each in
  // unitDir()/unit-N on free ports of its own.
  void StartUnits(int count, const std::vector<std::string>& extra = {});
  Process& unit() { return *unit_; }
  const UnitPorts& ports(int number) const { return ports_.at(number); }
  std::filesystem::path UnitDb(int number) const;

  // Runs camrelay against the unit with the link options filled in, then
  // args, and waits for it up to `limit`.
  Outcome Host(const std::vector<std::string>& args, std::chrono::seconds limit = std::chrono::seconds(60));
  // Runs camrelay with exactly these arguments.
  Outcome Camrelay(const std::vector<std::string>& args, const std::vector<std::string>& env = {},
                   std::chrono::seconds limit = std::chrono::seconds(60));
  // Starts camrelay with exactly these arguments and leaves it running.
  std::unique_ptr<Process> Launch(const std::vector<std::string>& args, const std::string& tag,
                                  const std::vector<std::string>& env = {});
  // The link options for the unit StartUnit started, then args.
  std::vector<std::string> HostArguments(const std::vector<std::string>& args) const;

  // Sets the host up for a run of every download: it holds an older
  // programming and an older recording of the unit's clip, and nothing else.
  std::vector<Check> DownloadChecks();
  // The same for one of them.
  Check DownloadCheck(const std::string& command);
  // Sets the host up for a run of every upload from a changed copy of the
  // unit's database, voice messages and a firmware of every byte value.
  std::vector<Check> UploadChecks();

  const std::filesystem::path& unitDir() const { return unitDir_; }
  const std::filesystem::path& hostDir() const { return hostDir_; }
  std::filesystem::path hostDb() const { return hostDir_ / "VideoSentrova.db"; }
  std::filesystem::path unitDb() const { return unitDir_ / "VideoSentrova.db"; }

  // Reply time-outs and retries the host is run with.
  std::vector<std::string> timing = {"--timeout-long", "1000", "--timeout-short", "1000", "--retries", "5"};
  std::string code = "123456";  // "" leaves --code out
  std::vector<std::string> env;  // added to the host's environment
  int peerPort = 0;  // when set, camrelay talks to this port instead of the unit's

 private:
  // Starts camrelay-unit and reads the `lines` lines saying where it listens.
  void Listen(const std::vector<std::string>& args, int lines);

  test::TempDir root_;
  std::filesystem::path unitDir_, hostDir_, configHome_, logs_;
  std::unique_ptr<Process> unit_;
  Transport transport_ = Transport::Udp;
  int port_ = 0;
  int localPort_ = 0;
  int runs_ = 0;
  std::map<int, UnitPorts> ports_;
};

// Every row of a table of a database file or server schema, in the order
// they were added; `without` names a column left out (a counter that each
// side numbers its own way).
std::vector<Row> Rows(const std::string& database, const std::string& table, const std::string& without = "");
// The log of a database, in an order and without the numbering of its own.
std::vector<Row> Log(const std::string& database);
Programming ProgrammingOf(const std::string& database);
// Runs SQL on a database file.
void Execute(const std::filesystem::path& database, const std::string& sql);

std::string FileBytes(const std::filesystem::path& file);
// `size` bytes taking every value, in an order that `seed` shifts.
std::string Bytes(std::size_t size, int seed = 0);
// The first file of a folder with that extension.
std::filesystem::path FirstFile(const std::filesystem::path& folder, const std::string& extension);
// Whether the output holds this line, whole.
bool HasLine(const std::string& output, const std::string& line);

// A TCP port on loopback that nothing listens on.
int ClosedTcpPort();

}  // namespace camrelay::e2e
