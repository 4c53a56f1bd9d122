// camrelay with a busy unit or a bad store: every transfer either completes
// exactly or fails with exit status 1 and says why. (A reset connection and
// packets sent twice or swapped are the session's.)
#include "e2e_fixture.h"

namespace camrelay::e2e {
namespace {

namespace fs = std::filesystem;

class Faults : public EndToEnd {};

// A busy unit answers "BS" and then takes longer than all the attempts
// together would last: the host waits for it rather than giving up. A log
// with one record that cannot be stored keeps the others and names the bad
// one. Voice messages that cannot be written (Audio/ is a file here) fail
// their command, although the transfer itself completed.
TEST_F(Faults, BusyUnitIsWaitedForAndWhatCannotBeStoredFailsItsCommandAlone) {
  StartUnit(Transport::Udp, {"--busy", "100", "--busy-delay", "1200"});
  timing = {"--timeout-long", "300", "--timeout-short", "300", "--retries", "3"};
  Execute(unitDb(), "UPDATE Registro_eventi SET DataOra = 'domani' WHERE IdRegistro = "
                    "(SELECT min(IdRegistro) FROM Registro_eventi)");
  const std::size_t events = Rows(unitDb(), "Registro_eventi").size();
  test::WriteFileBytes(hostDir() / "Audio", "not a folder");
  const fs::path firmware = hostDir().parent_path() / "update.bin";
  test::WriteFileBytes(firmware, Bytes(30000));
  const Outcome run =
      Host({"--events", "upload-firmware", firmware.string(), "download-log", "download-wave", "download-prog"});
  EXPECT_EQ(run.exit, 1) << run.err;
  EXPECT_TRUE(HasLine(run.out, "STATE 22 cTrasmissioneOKAndBusy")) << run.out;
  EXPECT_EQ(FileBytes(unitDir() / "Firmware/update.bin"), FileBytes(firmware));
  EXPECT_EQ(Rows(hostDb(), "Ingressi"), Rows(unitDb(), "Ingressi"));
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

}  // namespace
}  // namespace camrelay::e2e
