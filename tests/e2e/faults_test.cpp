// camrelay on a bad link: lost, repeated and reordered datagrams, a reset
// connection, a refused one, a unit that never answers. Every transfer either
// completes exactly or is given up with exit status 1; nothing is left half
// written.
#include <algorithm>
#include <chrono>
#include <map>

#include "e2e_fixture.h"

namespace camrelay::e2e {
namespace {

namespace fs = std::filesystem;

constexpr const char* kGiveUp = "Raggiunto il numero massimo di tentativi.";

bool Failed(const Outcome& run, const std::string& command) {
  return run.err.find("camrelay: " + command + ": ") != std::string::npos;
}

bool GaveUp(const Outcome& run, const std::string& command) {
  const auto at = run.err.find("camrelay: " + command + ": no answer from ");
  return at != std::string::npos && run.err.find(std::string("(") + kGiveUp + ")\n", at) != std::string::npos;
}

std::string AllByteValues(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>((i * 31 + 5) % 256);
  return bytes;
}

// 10 % of the datagrams lost, 10 % of the data packets repeated, 10 % sent
// out of order, with a seed each. The retry limit is raised so that most
// transfers get through; those that do not must be given up cleanly.
class LossyUdp : public EndToEnd, public ::testing::WithParamInterface<int> {
 protected:
  void SetUp() override {
    StartUnit(Transport::Udp,
              {"--loss", "10", "--dup", "10", "--reorder", "10", "--seed", std::to_string(GetParam())});
    timing = {"--timeout-long", "150", "--timeout-short", "150", "--retries", "40"};
  }

  // A command either completed, and then what arrived is exact, or it
  // failed, and then nothing was left half done. A failure is the retry
  // give-up, except for a stream image, which is never asked for again.
  template <class Complete, class Untouched>
  void Expect(const Outcome& run, const std::string& command, Complete complete, Untouched untouched) {
    const bool failed = command == "stream-image" ? Failed(run, command) : GaveUp(run, command);
    failures += failed;
    if (failed)
      EXPECT_TRUE(untouched()) << command << " failed and left something half done";
    else
      EXPECT_TRUE(complete()) << command << " did not fail, yet what arrived differs: " << run.err;
  }

  bool SameTable(const char* table, const std::string& without = "") {
    return Sorted(Rows(hostDb(), table, without)) == Sorted(Rows(unitDb(), table, without));
  }
  bool EmptyTable(const char* table) { return Rows(hostDb(), table).empty(); }

  int failures = 0;
};

TEST_P(LossyUdp, DownloadsCompleteExactlyOrGiveUp) {
  const fs::path clip = *fs::directory_iterator(unitDir() / "VideoAvi");
  const fs::path voice = *fs::directory_iterator(unitDir() / "Audio");
  const fs::path preview = unitDir() / "Preview";
  const std::size_t events = Rows(unitDb(), "Registro_eventi").size();
  const Outcome run = Host({"download-prog", "download-log", "download-cam-events", "download-prog-cam-events",
                            "download-wave", "download-media", clip.filename().string(), "request-command",
                            "EVENTI?", "stream-image", "2", "preview", "1,2", "--images", "3"});

  Expect(run, "download-prog", [&] { return SameTable("Ingressi"); }, [&] { return EmptyTable("Ingressi"); });
  Expect(
      run, "download-log", [&] { return SameTable("Registro_eventi", "IdRegistro"); },
      [&] { return EmptyTable("Registro_eventi"); });
  Expect(run, "download-cam-events", [&] { return SameTable("CamEvents"); }, [&] { return EmptyTable("CamEvents"); });
  Expect(
      run, "download-prog-cam-events", [&] { return SameTable("ProgCamEvents") && SameTable("Festivita"); },
      [&] { return EmptyTable("ProgCamEvents") && EmptyTable("Festivita"); });
  const fs::path hostVoice = hostDir() / "Audio" / voice.filename();
  Expect(
      run, "download-wave", [&] { return FileBytes(hostVoice) == FileBytes(voice) + '\0'; },
      [&] { return !fs::exists(hostVoice); });
  const fs::path hostClip = hostDir() / "VideoAvi" / clip.filename();
  Expect(
      run, "download-media", [&] { return FileBytes(hostClip) == FileBytes(clip); },
      [&] { return !fs::exists(hostClip); });
  Expect(
      run, "request-command", [&] { return HasLine(run.out, "EVENTI:" + std::to_string(events)); },
      [&] { return run.out.find("EVENTI:") == std::string::npos; });
  const fs::path stream = hostDir() / "Snapshot/stream-cam2-0001.jpg";
  Expect(
      run, "stream-image", [&] { return FileBytes(stream) == FileBytes(preview / "cam2.jpg"); },
      [&] { return !fs::exists(stream); });

  // A lost preview image is skipped and the next asked for: whatever was
  // saved is a whole image of its camera.
  int images = 0;
  for (const auto& entry : fs::directory_iterator(hostDir() / "Snapshot")) {
    const std::string name = entry.path().filename().string();
    if (!name.starts_with("preview-")) continue;
    ++images;
    const std::string camera = name.substr(std::string("preview-").size(), 4);  // "cam1"
    EXPECT_EQ(FileBytes(entry.path()), FileBytes(preview / (camera + ".jpg"))) << name;
  }
  const bool previewFailed = Failed(run, "preview");
  failures += previewFailed;
  if (!previewFailed) {
    EXPECT_EQ(images, 3);
  }
  EXPECT_EQ(run.exit, failures > 0 ? 1 : 0) << run.err;
}

TEST_P(LossyUdp, UploadsCompleteExactlyOrGiveUp) {
  // The host starts from a copy of the unit's database, then changes it.
  Execute(unitDb(), "VACUUM INTO '" + hostDb().string() + "'");
  Execute(hostDb(),
          "UPDATE Ingressi SET Descrizione = 'Ingresso ' || NumeroIngresso || ' rinominato';"
          "UPDATE ProgCamEvents SET SensibilitaMovimento = 3;");
  const auto unitInputs = Rows(unitDb(), "Ingressi");
  const auto unitCamEvents = Rows(unitDb(), "ProgCamEvents");
  const auto unitLog = Rows(unitDb(), "Registro_eventi").size();
  std::map<fs::path, std::string> oldVoices;
  fs::create_directories(hostDir() / "Audio");
  for (const auto& entry : fs::directory_iterator(unitDir() / "Audio")) {
    oldVoices[entry.path().filename()] = FileBytes(entry.path());
    test::WriteFileBytes(hostDir() / "Audio" / entry.path().filename(), AllByteValues(9000));
  }
  const fs::path firmware = hostDir().parent_path() / "update.bin";
  test::WriteFileBytes(firmware, AllByteValues(20000));

  const Outcome run = Host({"upload-prog", "upload-prog-cam-events", "upload-wave", "upload-firmware",
                            firmware.string(), "send-command", "ARMA", "erase-log"});

  Expect(
      run, "upload-prog", [&] { return Rows(unitDb(), "Ingressi") == Rows(hostDb(), "Ingressi"); },
      [&] { return Rows(unitDb(), "Ingressi") == unitInputs; });
  Expect(
      run, "upload-prog-cam-events", [&] { return Rows(unitDb(), "ProgCamEvents") == Rows(hostDb(), "ProgCamEvents"); },
      [&] { return Rows(unitDb(), "ProgCamEvents") == unitCamEvents; });
  // Each voice message is either the old one or the new one, whole.
  Expect(
      run, "upload-wave",
      [&] {
        return std::all_of(oldVoices.begin(), oldVoices.end(), [&](const auto& v) {
          return FileBytes(unitDir() / "Audio" / v.first) == FileBytes(hostDir() / "Audio" / v.first);
        });
      },
      [&] {
        return std::all_of(oldVoices.begin(), oldVoices.end(), [&](const auto& v) {
          const std::string now = FileBytes(unitDir() / "Audio" / v.first);
          return now == v.second || now == FileBytes(hostDir() / "Audio" / v.first);
        });
      });
  const fs::path received = unitDir() / "Firmware" / firmware.filename();
  Expect(
      run, "upload-firmware", [&] { return FileBytes(received) == FileBytes(firmware); },
      [&] { return !fs::exists(received); });
  const fs::path command = unitDir() / "last-command.txt";
  Expect(run, "send-command", [&] { return FileBytes(command) == "ARMA"; }, [&] { return !fs::exists(command); });
  // An erase whose answer was lost may or may not have happened; the log is
  // never left half erased.
  Expect(
      run, "erase-log", [&] { return Rows(unitDb(), "Registro_eventi").empty(); },
      [&] {
        const auto now = Rows(unitDb(), "Registro_eventi").size();
        return now == 0 || now == unitLog;
      });
  EXPECT_EQ(run.exit, failures > 0 ? 1 : 0) << run.err;
}

INSTANTIATE_TEST_SUITE_P(Seeds, LossyUdp, ::testing::Values(3, 8),
                         [](const auto& info) { return "Seed" + std::to_string(info.param); });

class Faults : public EndToEnd {};

TEST_F(Faults, TcpResetMidTransferIsSurvived) {
  StartUnit(Transport::Tcp, {"--reset-after", "30"});
  const Outcome run = Host({"--events", "download-log"});
  ASSERT_EQ(run.exit, 0) << run.err;
  // The reset was seen, the link rebuilt, and the log then came whole.
  EXPECT_NE(unit().Stderr().find("resetting the connection"), std::string::npos);
  const auto reset = run.out.find("STATE 9 cErroreConnessione");
  ASSERT_NE(reset, std::string::npos) << run.out;
  EXPECT_NE(run.out.find("STATE 30 cRicezioneLogOK", reset), std::string::npos) << run.out;
  EXPECT_EQ(Sorted(Rows(hostDb(), "Registro_eventi", "IdRegistro")),
            Sorted(Rows(unitDb(), "Registro_eventi", "IdRegistro")));
}

// A reset in the middle of a clip rebuilds the link and fetches the clip
// again from its start: the file holds it once, whole.
TEST_F(Faults, TcpResetMidMediaGivesTheWholeFileOnce) {
  StartUnit(Transport::Tcp, {"--reset-after", "2"});
  const fs::path clip = *fs::directory_iterator(unitDir() / "VideoAvi");
  const Outcome run = Host({"--events", "download-media", clip.filename().string()});
  ASSERT_EQ(run.exit, 0) << run.err;
  EXPECT_NE(run.out.find("STATE 9 cErroreConnessione"), std::string::npos) << run.out;
  EXPECT_EQ(FileBytes(hostDir() / "VideoAvi" / clip.filename()), FileBytes(clip));
}

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

// Voice messages that cannot be written (Audio/ is a file here) fail the
// command, although the transfer itself completed.
TEST_F(Faults, VoiceMessagesThatCannotBeWrittenFailTheDownload) {
  StartUnit(Transport::Udp);
  test::WriteFileBytes(hostDir() / "Audio", "not a folder");
  const Outcome run = Host({"download-wave"});
  EXPECT_EQ(run.exit, 1);
  EXPECT_NE(run.err.find("download-wave: not every voice message could be written: SaveMessaggiWave: "),
            std::string::npos)
      << run.err;
}

// A log with one record that cannot be stored keeps the others and names
// the bad one.
TEST_F(Faults, ALogWithABadRecordKeepsTheGoodOnes) {
  StartUnit(Transport::Udp);
  Execute(unitDb(), "UPDATE Registro_eventi SET DataOra = 'domani' WHERE IdRegistro = "
                    "(SELECT min(IdRegistro) FROM Registro_eventi)");
  const std::size_t events = Rows(unitDb(), "Registro_eventi").size();
  const Outcome run = Host({"download-log"});
  EXPECT_EQ(run.exit, 1);
  EXPECT_NE(run.err.find("download-log: " + std::to_string(events) + " new records stored; 1 problem(s) with the "
                         "others: AddNewRecords on line"),
            std::string::npos)
      << run.err;
  EXPECT_NE(run.err.find("\"domani\" is not a date"), std::string::npos) << run.err;
  EXPECT_EQ(Rows(hostDb(), "Registro_eventi").size(), events);
}

// A busy unit answers "BS" and then takes longer than all the attempts
// together would last: the host waits for it rather than giving up.
TEST_F(Faults, BusyUnitIsWaitedForBeyondTheTimeOuts) {
  StartUnit(Transport::Udp, {"--busy", "100", "--busy-delay", "1200"});
  timing = {"--timeout-long", "300", "--timeout-short", "300", "--retries", "3"};
  const fs::path firmware = hostDir().parent_path() / "update.bin";
  test::WriteFileBytes(firmware, AllByteValues(30000));
  const Outcome run = Host({"--events", "upload-firmware", firmware.string(), "download-prog"});
  ASSERT_EQ(run.exit, 0) << run.err;
  EXPECT_TRUE(HasLine(run.out, "STATE 22 cTrasmissioneOKAndBusy")) << run.out;
  EXPECT_EQ(FileBytes(unitDir() / "Firmware/update.bin"), FileBytes(firmware));
  EXPECT_EQ(Rows(hostDb(), "Ingressi"), Rows(unitDb(), "Ingressi"));
}

TEST_F(Faults, RefusedTcpConnectionFailsPromptly) {
  const auto start = std::chrono::steady_clock::now();
  const Outcome run = Camrelay({"--tcp", "--host", "127.0.0.1", "--port", std::to_string(ClosedTcpPort()), "--dir",
                                hostDir().string(), "--code", "123456", "login", "download-log"});
  EXPECT_EQ(run.exit, 1);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(15));
  EXPECT_TRUE(run.err.starts_with("camrelay: login: ")) << run.err;
  EXPECT_NE(run.err.find("camrelay: download-log: "), std::string::npos) << run.err;
}

// A unit that hears nothing: every request is given up, and a file the host
// already had is neither lost nor half overwritten.
TEST_F(Faults, SilentUnitIsGivenUpAndKeepsExistingFiles) {
  StartUnit(Transport::Udp, {"--loss", "100"});
  timing = {"--timeout-long", "100", "--timeout-short", "100", "--retries", "3"};
  fs::create_directories(hostDir() / "Snapshot");
  test::WriteFileBytes(hostDir() / "Snapshot/ingresso.jpg", "the picture from yesterday");
  const Outcome run = Host({"download-media", "ingresso.jpg", "login"});
  EXPECT_EQ(run.exit, 1);
  EXPECT_TRUE(GaveUp(run, "download-media")) << run.err;
  EXPECT_TRUE(GaveUp(run, "login")) << run.err;
  EXPECT_EQ(FileBytes(hostDir() / "Snapshot/ingresso.jpg"), "the picture from yesterday");
  EXPECT_FALSE(fs::exists(hostDir() / "Snapshot/ingresso.jpg.part"));
}

}  // namespace
}  // namespace camrelay::e2e
