// camrelay killed with SIGKILL at random moments of a download, as a crash or
// a power cut would end it: the database is sound afterwards and holds either
// what it held before or the whole download, never a mix; a clip being
// received never takes the place of a complete one of the same name.
#include <sqlite3.h>

#include <chrono>
#include <cstdio>
#include <map>
#include <random>

#include "e2e_fixture.h"

namespace camrelay::e2e {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

constexpr int kKills = 10;
const char* const kProgrammingTables[] = {"Ingressi", "MMS", "NumTel", "CanaliVideo", "Alimentazione",
                                          "ImpostazioniVideo"};

std::string IntegrityCheck(const fs::path& database) {
  sqlite3* db = nullptr;
  std::string answer = "cannot open";
  if (sqlite3_open_v2(database.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK) {
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(db, "PRAGMA integrity_check", -1, &statement, nullptr);
    answer = sqlite3_step(statement) == SQLITE_ROW ? reinterpret_cast<const char*>(sqlite3_column_text(statement, 0))
                                                   : sqlite3_errmsg(db);
    sqlite3_finalize(statement);
  }
  sqlite3_close(db);
  return answer;
}

using Programming = std::map<std::string, std::vector<Row>>;

Programming ProgrammingOf(const fs::path& database) {
  Programming tables;
  for (const char* table : kProgrammingTables) tables[table] = Rows(database, table);
  return tables;
}

class KillNine : public EndToEnd {
 protected:
  void SetUp() override { timing = {"--timeout-long", "500", "--timeout-short", "500", "--retries", "10"}; }

  // How long a whole run of the command takes here, so that the kills can
  // be spread over it.
  milliseconds Timed(const std::vector<std::string>& args) {
    const auto start = std::chrono::steady_clock::now();
    const Outcome run = Host(args);
    EXPECT_EQ(run.exit, 0) << run.err;
    return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - start);
  }

  // The moments to kill at, spread over the share of the whole run given
  // (a programming is written at the very end).
  std::vector<milliseconds> Moments(milliseconds whole, double from = 0.3) {
    std::mt19937 random(14);
    std::uniform_real_distribution<double> share(from, 1.05);
    std::vector<milliseconds> moments;
    for (int i = 0; i < kKills; ++i) moments.push_back(milliseconds(static_cast<long>(whole.count() * share(random))));
    return moments;
  }

  void Report(const char* what, milliseconds at, const std::optional<int>& exit, const char* outcome) {
    std::printf("kill -9 %-14s at %5ld ms: %-11s %s\n", what, static_cast<long>(at.count()),
                exit ? "ended first" : "killed", outcome);
  }
};

TEST_F(KillNine, ALargeProgrammingIsEitherTheOldOneOrTheNewOneWhole) {
  StartUnit(Transport::Udp);
  ASSERT_EQ(Host({"download-prog"}).exit, 0);
  const Programming before = ProgrammingOf(hostDb());
  Execute(unitDb(),
          "INSERT INTO Ingressi (NumeroIngresso, Descrizione, Abilitato, RitardoSecondi, Telecamera) "
          "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 50000) "
          "SELECT 1000 + i, 'Ingresso aggiunto ' || i, i % 2, i % 60, i % 4 FROM n");
  const Programming after = ProgrammingOf(unitDb());
  const fs::path previous = hostDb().parent_path() / "previous.db";
  fs::copy_file(hostDb(), previous);
  const milliseconds whole = Timed({"download-prog"});
  ASSERT_EQ(ProgrammingOf(hostDb()), after);
  for (const milliseconds at : Moments(whole, 0.7)) {
    fs::copy_file(previous, hostDb(), fs::copy_options::overwrite_existing);
    const auto exit = HostKilledAfter({"download-prog"}, at);
    ASSERT_EQ(IntegrityCheck(hostDb()), "ok");
    const Programming now = ProgrammingOf(hostDb());
    const bool old = now == before, whole = now == after;
    Report("download-prog", at, exit, old ? "old programming" : whole ? "new programming" : "MIXED");
    EXPECT_TRUE(old || whole) << "killed at " << at.count() << " ms";
  }
}

TEST_F(KillNine, ALogIsEitherAsBeforeOrWithTheWholeDownloadAdded) {
  StartUnit(Transport::Udp);
  ASSERT_EQ(Host({"download-log"}).exit, 0);
  const std::size_t sent = Rows(unitDb(), "Registro_eventi").size();
  const milliseconds whole = Timed({"download-log"});
  for (const milliseconds at : Moments(whole)) {
    const std::size_t before = Rows(hostDb(), "Registro_eventi").size();
    const auto exit = HostKilledAfter({"download-log"}, at);
    ASSERT_EQ(IntegrityCheck(hostDb()), "ok");
    const std::size_t now = Rows(hostDb(), "Registro_eventi").size();
    Report("download-log", at, exit, now == before ? "log as before" : now == before + sent ? "log added" : "PART");
    EXPECT_TRUE(now == before || now == before + sent) << now << " rows, " << before << " before";
  }
}

TEST_F(KillNine, AClipBeingReceivedNeverReplacesACompleteOne) {
  // Each packet held back a little, so that the kills fall inside the run.
  StartUnit(Transport::Udp, {"--delay", "40"});
  const fs::path clip = *fs::directory_iterator(unitDir() / "VideoAvi");
  const fs::path hostClip = hostDir() / "VideoAvi" / clip.filename();
  const milliseconds whole = Timed({"download-media", clip.filename().string()});
  const std::string complete = FileBytes(clip);
  ASSERT_EQ(FileBytes(hostClip), complete);
  // The host's copy is an older, different, complete recording.
  const std::string older = complete.substr(0, complete.size() / 2) + "an older recording";
  for (const milliseconds at : Moments(whole)) {
    test::WriteFileBytes(hostClip, older);
    const auto exit = HostKilledAfter({"download-media", clip.filename().string()}, at);
    const std::string now = test::ReadFileBytes(hostClip);
    Report("download-media", at, exit, now == older ? "older clip" : now == complete ? "new clip" : "PARTIAL");
    EXPECT_TRUE(now == older || now == complete) << "killed at " << at.count() << " ms: " << now.size() << " bytes";
  }
}

}  // namespace
}  // namespace camrelay::e2e
