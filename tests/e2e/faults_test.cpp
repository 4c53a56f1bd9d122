// camrelay on a bad link or with a bad store: a reset connection, a busy
// unit, answers in either order, what cannot be stored. Every transfer either
// completes exactly or fails with exit status 1 and says why. (Lost,
// repeated and reordered datagrams are the soak's.)
#include <algorithm>

#include "e2e_fixture.h"

namespace camrelay::e2e {
namespace {

namespace fs = std::filesystem;

// A reset in the middle of a download is seen, the link rebuilt, and the
// download fetched again from its start: it arrives whole, once.
class TcpReset : public EndToEnd, public ::testing::WithParamInterface<std::pair<const char*, const char*>> {};

TEST_P(TcpReset, MidDownloadIsSurvivedAndTheDownloadArrivesWholeOnce) {
  const auto [command, after] = GetParam();
  StartUnit(Transport::Tcp, {"--reset-after", after});
  const Check check = DownloadCheck(command);
  std::vector<std::string> args{"--events"};
  args.insert(args.end(), check.args.begin(), check.args.end());
  const Outcome run = Host(args);
  ASSERT_EQ(run.exit, 0) << run.err;
  EXPECT_NE(unit().Stderr().find("resetting the connection"), std::string::npos);
  EXPECT_NE(run.out.find("STATE 9 cErroreConnessione"), std::string::npos) << run.out;
  EXPECT_TRUE(check.exact(run));
}

INSTANTIATE_TEST_SUITE_P(Downloads, TcpReset,
                         ::testing::Values(std::make_pair("download-log", "30"),
                                           std::make_pair("download-media", "2")),
                         [](const auto& info) { return info.param.first == std::string("download-log") ? "Log" : "Media"; });

// The unit may answer a command string's last element with the answer's
// acceptance, or with "OK" and the answer after it: either way the answer
// is waited for and printed.
class CommandAnswer : public EndToEnd,
                      public ::testing::WithParamInterface<std::tuple<Transport, bool>> {};

TEST_P(CommandAnswer, ArrivesInEitherOrder) {
  const auto [transport, okFirst] = GetParam();
  StartUnit(transport, okFirst ? std::vector<std::string>{"--ok-before-answer"} : std::vector<std::string>{});
  const Outcome run = Host({"request-command", "VERSIONE?", "login"});
  EXPECT_EQ(run.exit, 0) << run.err;
  EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 1) << run.out;
  EXPECT_TRUE(run.out.starts_with("VERSIONE:")) << run.out;
}

INSTANTIATE_TEST_SUITE_P(Orders, CommandAnswer,
                         ::testing::Combine(::testing::Values(Transport::Tcp, Transport::Udp), ::testing::Bool()),
                         [](const auto& info) {
                           return Name(std::get<0>(info.param)) + (std::get<1>(info.param) ? "OkFirst" : "AnswerFirst");
                         });

class Faults : public EndToEnd {};

// A log with one record that cannot be stored keeps the others and names
// the bad one. Voice messages that cannot be written (Audio/ is a file
// here) fail their command, although the transfer itself completed.
TEST_F(Faults, WhatCannotBeStoredFailsItsCommandAndTheRestIsKept) {
  StartUnit(Transport::Udp);
  Execute(unitDb(), "UPDATE Registro_eventi SET DataOra = 'domani' WHERE IdRegistro = "
                    "(SELECT min(IdRegistro) FROM Registro_eventi)");
  const std::size_t events = Rows(unitDb(), "Registro_eventi").size();
  test::WriteFileBytes(hostDir() / "Audio", "not a folder");
  const Outcome run = Host({"download-log", "download-wave"});
  EXPECT_EQ(run.exit, 1);
  EXPECT_NE(run.err.find("download-log: " + std::to_string(events) + " new records stored; 1 problem(s) with the "
                         "others: AddNewRecords on line"),
            std::string::npos)
      << run.err;
  EXPECT_NE(run.err.find("\"domani\" is not a date"), std::string::npos) << run.err;
  EXPECT_EQ(Rows(hostDb(), "Registro_eventi").size(), events);
  EXPECT_NE(run.err.find("download-wave: not every voice message could be written: SaveMessaggiWave: "),
            std::string::npos)
      << run.err;
}

// A busy unit answers "BS" and then takes longer than all the attempts
// together would last: the host waits for it rather than giving up.
TEST_F(Faults, BusyUnitIsWaitedForBeyondTheTimeOuts) {
  StartUnit(Transport::Udp, {"--busy", "100", "--busy-delay", "1200"});
  timing = {"--timeout-long", "300", "--timeout-short", "300", "--retries", "3"};
  const fs::path firmware = hostDir().parent_path() / "update.bin";
  test::WriteFileBytes(firmware, Bytes(30000));
  const Outcome run = Host({"--events", "upload-firmware", firmware.string(), "download-prog"});
  ASSERT_EQ(run.exit, 0) << run.err;
  EXPECT_TRUE(HasLine(run.out, "STATE 22 cTrasmissioneOKAndBusy")) << run.out;
  EXPECT_EQ(FileBytes(unitDir() / "Firmware/update.bin"), FileBytes(firmware));
  EXPECT_EQ(Rows(hostDb(), "Ingressi"), Rows(unitDb(), "Ingressi"));
}

}  // namespace
}  // namespace camrelay::e2e
