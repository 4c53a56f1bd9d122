// Every command of camrelay against camrelay-unit, over TCP and over UDP:
// what arrives on one side is compared with what the other side holds.
#include "e2e_fixture.h"

namespace camrelay::e2e {
namespace {

namespace fs = std::filesystem;

class Session : public EndToEnd, public ::testing::WithParamInterface<Transport> {
 protected:
  void ExpectExact(const std::vector<Check>& checks, const Outcome& run) {
    ASSERT_EQ(run.exit, 0) << run.err;
    for (const Check& check : checks) EXPECT_TRUE(check.exact(run)) << check.args.front();
  }
};

TEST_P(Session, DownloadsBringWhatTheUnitHolds) {
  StartUnit(GetParam());
  const std::vector<Check> checks = DownloadChecks();
  // A picture goes to Snapshot/, where a clip goes to VideoAvi/.
  const fs::path snapshot = FirstFile(unitDir() / "Snapshot", ".jpg");
  std::vector<std::string> args{"--events", "login", "download-media", snapshot.filename().string()};
  for (const auto& command : Commands(checks)) args.push_back(command);
  const Outcome run = Host(args);
  ExpectExact(checks, run);
  EXPECT_EQ(FileBytes(hostDir() / "Snapshot" / snapshot.filename()), FileBytes(snapshot));
  EXPECT_TRUE(HasLine(run.out, "STATE 12 cRicezioneProgOK")) << run.out;
  EXPECT_GT(Rows(unitDb(), "Registro_eventi").size(), 1000u);
  for (const auto& [table, rows] : ProgrammingOf(unitDb())) EXPECT_FALSE(rows.empty()) << table;
}

TEST_P(Session, UploadsLeaveTheUnitHoldingWhatWasSent) {
  StartUnit(GetParam());
  const std::vector<Check> checks = UploadChecks();
  std::vector<std::string> args = Commands(checks);
  args.insert(args.end(), {"request-command", "EVENTI?", "set-installer-code", "777777", "set-user-code", "888888"});
  const Outcome run = Host(args);
  ExpectExact(checks, run);
  EXPECT_TRUE(HasLine(run.out, "EVENTI:0")) << run.out;

  // Both codes have changed: the old installer code is refused, the new
  // ones are let in.
  const Outcome old = Host({"login"});
  EXPECT_EQ(old.exit, 1);
  EXPECT_NE(old.err.find("Password di accesso errata!"), std::string::npos) << old.err;
  for (const char* renewed : {"777777", "888888"}) {
    code = renewed;
    const Outcome login = Host({"login"});
    EXPECT_EQ(login.exit, 0) << renewed << ": " << login.err;
  }
}

INSTANTIATE_TEST_SUITE_P(Transports, Session, ::testing::Values(Transport::Tcp, Transport::Udp),
                         [](const auto& info) { return Name(info.param); });

}  // namespace
}  // namespace camrelay::e2e
