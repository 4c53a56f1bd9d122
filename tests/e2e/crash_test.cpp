// camrelay killed with SIGKILL at random moments of a download, as a crash or
// a power cut would end it: the database is sound afterwards and holds either
// what it held before or the whole download, never a mix; a clip being
// received never takes the place of a complete one of the same name.
#include <chrono>
#include <csignal>
#include <random>

#include "e2e_fixture.h"
#include "store/DataVideo.h"
#include "store/backend.h"
#include "store/values.h"

namespace camrelay::e2e {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

constexpr int kKills = 10;

// A download, what the unit it comes from is started with, and the share
// of a whole run from which the kills fall.
struct Crash {
  const char* command;
  std::vector<std::string> unit;
  double from;
};

class KillNine : public EndToEnd, public ::testing::WithParamInterface<Crash> {};

TEST_P(KillNine, LeavesEitherWhatWasThereOrTheWholeDownload) {
  const Crash& crash = GetParam();
  timing = {"--timeout-long", "500", "--timeout-short", "500", "--retries", "10"};
  StartUnit(Transport::Udp, crash.unit);
  // A programming is written at the very end: a large one gives the kills
  // a store to fall in.
  if (crash.command == std::string("download-prog"))
    Execute(unitDb(),
            "INSERT INTO Ingressi (NumeroIngresso, Descrizione, Abilitato, RitardoSecondi, Telecamera) "
            "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 50000) "
            "SELECT 1000 + i, 'Ingresso aggiunto ' || i, i % 2, i % 60, i % 4 FROM n");
  // How long a whole run takes here, so that the kills can be spread over it.
  Check check = DownloadCheck(crash.command);
  const auto start = std::chrono::steady_clock::now();
  const Outcome whole = Host(check.args);
  const auto took = std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - start);
  ASSERT_EQ(whole.exit, 0) << whole.err;
  ASSERT_TRUE(check.exact(whole));

  // What a download may change: a kill leaves all of it as it was, or the
  // download whole.
  const fs::path clip = hostDir() / "VideoAvi" / FirstFile(unitDir() / "VideoAvi", ".avi").filename();
  auto held = [&] { return std::make_tuple(ProgrammingOf(hostDb()), Log(hostDb()), FileBytes(clip)); };
  std::mt19937 random(14);
  std::uniform_real_distribution<double> share(crash.from, 1.05);
  for (int i = 0; i < kKills; ++i) {
    const milliseconds at(static_cast<long>(took.count() * share(random)));
    check = DownloadCheck(crash.command);
    const auto before = held();
    const auto host = Launch(HostArguments(check.args), "killed" + std::to_string(i));
    host->Wait(at);
    host->Signal(SIGKILL);
    host->Wait(std::chrono::seconds(5));
    store::DataVideo db;
    db.SetConnectionString(hostDb().string());
    db.EnsureOpen(nullptr, "test");
    const auto integrity = db.Handle().Query("PRAGMA integrity_check");
    ASSERT_TRUE(integrity->Next());
    ASSERT_EQ(store::DbText(integrity->Value(0)), "ok");
    EXPECT_TRUE(held() == before || check.exact(whole)) << "killed at " << at.count() << " ms: a mix";
  }
}

// Each packet of the clip held back a little, so that the kills fall
// inside the run.
INSTANTIATE_TEST_SUITE_P(Downloads, KillNine,
                         ::testing::Values(Crash{"download-prog", {}, 0.7}, Crash{"download-log", {}, 0.3},
                                           Crash{"download-media", {"--delay", "40"}, 0.3}),
                         [](const auto& info) { return std::string(info.param.command).substr(9); });

}  // namespace
}  // namespace camrelay::e2e
