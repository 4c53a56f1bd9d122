// The end-to-end setting: a simulated unit in a folder of its own and the
// command-line host in another, each test with its own settings folder, so
// that tests run side by side without meeting. What the host holds after a
// session is compared with what the unit holds, and the other way round.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "process.h"
#include "temp_dir.h"

namespace camrelay::e2e {

enum class Transport { Tcp, Udp };

std::string Name(Transport transport);

struct Outcome {
  std::optional<int> exit;  // nullopt: it did not end in time
  std::string out;
  std::string err;
  long peakRssKiB = 0;  // the most memory camrelay held at once
};

// A row as the store gives it: nullopt for Null.
using Row = std::vector<std::optional<std::string>>;

class EndToEnd : public ::testing::Test {
 protected:
  EndToEnd();
  ~EndToEnd() override;

  // Starts camrelay-unit on a free loopback port, with its content in
  // unitDir(); extra are further options (faults, codes).
  void StartUnit(Transport transport, const std::vector<std::string>& extra = {});
  void StopUnit();
  Process& unit() { return *unit_; }

  // Runs camrelay against the unit with the link options filled in, then
  // args, and waits for it up to `limit`.
  Outcome Host(const std::vector<std::string>& args, std::chrono::seconds limit = std::chrono::seconds(60));
  // Starts camrelay as Host does and kills it with SIGKILL after `after`;
  // returns its exit status when it ended before that.
  std::optional<int> HostKilledAfter(const std::vector<std::string>& args, std::chrono::milliseconds after);
  // Runs camrelay with exactly these arguments.
  Outcome Camrelay(const std::vector<std::string>& args, const std::vector<std::string>& env = {},
                   std::chrono::seconds limit = std::chrono::seconds(60));

  const std::filesystem::path& unitDir() const { return unitDir_; }
  const std::filesystem::path& hostDir() const { return hostDir_; }
  std::filesystem::path hostDb() const { return hostDir_ / "VideoSentrova.db"; }
  std::filesystem::path unitDb() const { return unitDir_ / "VideoSentrova.db"; }
  int unitPort() const { return port_; }

  // Reply time-outs and retries the host is run with.
  std::vector<std::string> timing = {"--timeout-long", "1000", "--timeout-short", "1000", "--retries", "5"};
  std::string code = "123456";  // "" leaves --code out
  std::vector<std::string> env;  // added to the host's environment
  int peerPort = 0;  // when set, camrelay talks to this port instead of the unit's

 private:
  std::vector<std::string> HostArguments(const std::vector<std::string>& args) const;
  std::vector<std::string> HostEnvironment(const std::vector<std::string>& extra) const;

  test::TempDir root_;
  std::filesystem::path unitDir_, hostDir_, configHome_, logs_;
  std::unique_ptr<Process> unit_;
  Transport transport_ = Transport::Udp;
  int port_ = 0;
  int localPort_ = 0;
  int runs_ = 0;
};

// Every row of a table, in the order they were added; `without` names a
// column left out (a counter that each side numbers its own way).
std::vector<Row> Rows(const std::filesystem::path& database, const std::string& table,
                      const std::string& without = "");
// The same from a database in a server, named by its connection string.
std::vector<Row> ServerRows(const std::string& connection, const std::string& table, const std::string& without = "");
std::vector<Row> Sorted(std::vector<Row> rows);
// Runs SQL on a database file.
void Execute(const std::filesystem::path& database, const std::string& sql);

std::string FileBytes(const std::filesystem::path& file);
// Whether the output holds this line, whole.
bool HasLine(const std::string& output, const std::string& line);

// A free port on loopback, for the host's own UDP socket.
int FreeUdpPort();
// A TCP port on loopback that nothing listens on.
int ClosedTcpPort();

std::filesystem::path ProgramPath(const std::string& name);

}  // namespace camrelay::e2e
