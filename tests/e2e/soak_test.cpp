// A lossy soak: a programming download, a log download, a clip and a firmware
// upload over UDP with 20 % of the datagrams lost, 5 % of the data packets
// repeated and 5 % reordered, each over ten seeds, with a generous retry
// limit. Every run must end, within its bound, either exact (0, and what
// arrived equals the other side) or failed (1, and what was there before is
// untouched). The table of outcomes is printed. On such a link every run
// usually ends exact, so each command also goes over a link that loses so
// much that the retries run out: it must end failed, never hang nor damage.
#include <chrono>
#include <cstdio>
#include <functional>

#include "e2e_fixture.h"

namespace camrelay::e2e {
namespace {

namespace fs = std::filesystem;

constexpr int kSeeds = 10;
// Past the retries (100 x 150 ms) with room to spare; ten runs stay within
// ctest's time-out.
constexpr auto kRunLimit = std::chrono::seconds(25);

// The two ends a run may have: what arrived is exact, or what was there
// before is untouched.
struct Checks {
  std::vector<std::string> command;
  std::function<bool()> exact;
  std::function<bool()> untouched;
};

class LossySoak : public EndToEnd, public ::testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    timing = {"--timeout-long", "150", "--timeout-short", "150", "--retries", "100"};
    // A first start gives the unit its content; its log is cut so that a run
    // takes seconds, not minutes, on a link this bad.
    StartUnit(Transport::Udp);
    StopUnit();
    Execute(unitDb(), "DELETE FROM Registro_eventi WHERE rowid > 400");
  }

  Checks Prepare(const std::string& command, int seed) {
    if (command == "download-prog") return Programming();
    if (command == "download-log") return Log();
    if (command == "download-media") return Clip(seed);
    return Firmware(seed);
  }

 private:
  std::vector<Row> HostLog() {
    return fs::exists(hostDb()) ? Sorted(Rows(hostDb(), "Registro_eventi", "IdRegistro")) : std::vector<Row>{};
  }

  // The host holds an older programming of its own.
  Checks Programming() {
    fs::remove(hostDb());
    Execute(unitDb(), "VACUUM INTO '" + hostDb().string() + "'");
    Execute(hostDb(), "UPDATE Ingressi SET Descrizione = 'vecchia ' || NumeroIngresso");
    const auto before = Rows(hostDb(), "Ingressi");
    return {{"download-prog"},
            [this] {
              for (const char* table : {"Ingressi", "MMS", "NumTel", "CanaliVideo", "ImpostazioniVideo"})
                if (Rows(hostDb(), table) != Rows(unitDb(), table)) return false;
              return true;
            },
            [this, before] { return Rows(hostDb(), "Ingressi") == before; }};
  }

  // A download adds what the host does not hold yet of the unit's log: the
  // first run that completes adds it all, the runs after it nothing.
  Checks Log() {
    const auto before = HostLog();
    const auto after = before.empty() ? Sorted(Rows(unitDb(), "Registro_eventi", "IdRegistro")) : before;
    return {{"download-log"}, [this, after] { return HostLog() == after; },
            [this, before] { return HostLog() == before; }};
  }

  // The host holds an older recording of the same name.
  Checks Clip(int seed) {
    const fs::path clip = *fs::directory_iterator(unitDir() / "VideoAvi");
    const fs::path mine = hostDir() / "VideoAvi" / clip.filename();
    const std::string older = "an older recording " + std::to_string(seed);
    fs::create_directories(mine.parent_path());
    test::WriteFileBytes(mine, older);
    return {{"download-media", clip.filename().string()},
            [mine, clip] { return test::ReadFileBytes(mine) == test::ReadFileBytes(clip); },
            [mine, older] { return test::ReadFileBytes(mine) == older; }};
  }

  // On a failure the unit may still have the file whole (its last answer was
  // lost); what it must never keep is a part.
  Checks Firmware(int seed) {
    const fs::path firmware = hostDir().parent_path() / ("update-" + std::to_string(seed) + ".bin");
    std::string bytes(20000, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>((i * 13 + seed) % 256);
    test::WriteFileBytes(firmware, bytes);
    const fs::path received = unitDir() / "Firmware" / firmware.filename();
    return {{"upload-firmware", firmware.string()},
            [received, bytes] { return fs::exists(received) && test::ReadFileBytes(received) == bytes; },
            [received, bytes] { return !fs::exists(received) || test::ReadFileBytes(received) == bytes; }};
  }
};

std::string Judge(const Outcome& run, const Checks& checks) {
  if (!run.exit) return "HANG";
  if (*run.exit == 0) return checks.exact() ? "exact" : "WRONG DATA";
  if (*run.exit == 1) return checks.untouched() ? "failed" : "DAMAGED";
  return "EXIT " + std::to_string(*run.exit);
}

TEST_P(LossySoak, EveryRunEndsExactOrFailsLeavingThePreviousContent) {
  const std::string name = GetParam();
  int exact = 0, failed = 0;
  std::printf("%-16s %4s %-10s %7s\n", "command", "seed", "outcome", "seconds");
  for (int seed = 1; seed <= kSeeds; ++seed) {
    StartUnit(Transport::Udp, {"--loss", "20", "--dup", "5", "--reorder", "5", "--seed", std::to_string(seed)});
    const Checks checks = Prepare(name, seed);
    const auto start = std::chrono::steady_clock::now();
    const Outcome run = Host(checks.command, kRunLimit);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    StopUnit();
    const std::string outcome = Judge(run, checks);
    const std::string reason = outcome == "exact" ? "" : run.err.substr(0, run.err.find('\n'));
    std::printf("%-16s %4d %-10s %7.1f  %s\n", name.c_str(), seed, outcome.c_str(), seconds, reason.c_str());
    exact += outcome == "exact";
    failed += outcome == "failed";
    EXPECT_TRUE(outcome == "exact" || outcome == "failed") << name << " seed " << seed << ": " << outcome << "\n"
                                                           << run.err;
  }
  std::printf("%-16s %d exact, %d failed cleanly, of %d\n", name.c_str(), exact, failed, kSeeds);
}

// Four datagrams of five lost, and a few retries: the retries run out.
TEST_P(LossySoak, ALinkThatUsesUpTheRetriesFailsLeavingThePreviousContent) {
  timing = {"--timeout-long", "150", "--timeout-short", "150", "--retries", "4"};
  StartUnit(Transport::Udp, {"--loss", "80", "--seed", "1"});
  const Checks checks = Prepare(GetParam(), 1);
  const Outcome run = Host(checks.command, kRunLimit);
  StopUnit();
  EXPECT_EQ(Judge(run, checks), "failed") << run.err;
  EXPECT_NE(run.err.find("Raggiunto il numero massimo di tentativi."), std::string::npos) << run.err;
}

INSTANTIATE_TEST_SUITE_P(Lossy, LossySoak,
                         ::testing::Values("download-prog", "download-log", "download-media", "upload-firmware"),
                         [](const auto& info) {
                           std::string name = info.param;
                           std::erase(name, '-');
                           return name;
                         });

}  // namespace
}  // namespace camrelay::e2e
