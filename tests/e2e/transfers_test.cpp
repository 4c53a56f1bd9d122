// Every command of camrelay against camrelay-unit, over TCP and over UDP:
// what arrives on one side is compared with what the other side holds.
#include "e2e_fixture.h"

namespace camrelay::e2e {
namespace {

namespace fs = std::filesystem;

class Session : public EndToEnd, public ::testing::WithParamInterface<Transport> {};

// A TCP connection is reset in the middle of the log: the reset is seen,
// the link rebuilt, and the log fetched again from its start, so that it
// arrives whole and stored once. Over UDP the unit sends data packets twice
// and out of order: each is placed by its index and kept once. The uploads
// then leave the unit holding what was sent, and the codes set let their
// holders in.
TEST_P(Session, EveryCommandLeavesBothSidesHoldingTheSame) {
  // The reset applies to TCP only, the copies and swaps to UDP only.
  StartUnit(GetParam(), {"--reset-after", "30", "--dup", "20", "--reorder", "20"});
  std::vector<Check> checks = DownloadChecks();
  // A picture goes to Snapshot/, where a clip goes to VideoAvi/.
  const fs::path snapshot = FirstFile(unitDir() / "Snapshot", ".jpg");
  std::vector<std::string> args{"--events", "login"};
  for (const auto& command : Commands(checks)) args.push_back(command);
  args.insert(args.end(), {"download-media", snapshot.filename().string()});
  Outcome run = Host(args);
  ASSERT_EQ(run.exit, 0) << run.err;
  for (const Check& check : checks) EXPECT_TRUE(check.exact(run)) << check.args.front();
  EXPECT_EQ(FileBytes(hostDir() / "Snapshot" / snapshot.filename()), FileBytes(snapshot));
  EXPECT_TRUE(HasLine(run.out, "STATE 12 cRicezioneProgOK")) << run.out;
  if (GetParam() == Transport::Tcp) {
    EXPECT_NE(unit().Stderr().find("resetting the connection"), std::string::npos);
    EXPECT_NE(run.out.find("STATE 9 cErroreConnessione"), std::string::npos) << run.out;
  }
  EXPECT_GT(Rows(unitDb(), "Registro_eventi").size(), 1000u);
  for (const auto& [table, rows] : ProgrammingOf(unitDb())) EXPECT_FALSE(rows.empty()) << table;

  checks = UploadChecks();
  args = Commands(checks);
  args.insert(args.end(), {"request-command", "EVENTI?", "set-installer-code", "777777", "set-user-code", "888888"});
  run = Host(args);
  ASSERT_EQ(run.exit, 0) << run.err;
  for (const Check& check : checks) EXPECT_TRUE(check.exact(run)) << check.args.front();
  EXPECT_TRUE(HasLine(run.out, "EVENTI:0")) << run.out;
  for (const char* renewed : {"777777", "888888"}) {
    code = renewed;
    const Outcome login = Host({"login"});
    EXPECT_EQ(login.exit, 0) << renewed << ": " << login.err;
  }
}

INSTANTIATE_TEST_SUITE_P(Transports, Session, ::testing::Values(Transport::Tcp, Transport::Udp),
                         [](const auto& info) { return info.param == Transport::Tcp ? "Tcp" : "Udp"; });

}  // namespace
}  // namespace camrelay::e2e
