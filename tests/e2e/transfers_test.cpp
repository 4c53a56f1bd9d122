// Every command of camrelay against camrelay-unit, over TCP and over UDP:
// what arrives on one side is compared with what the other side holds.
#include <algorithm>

#include "e2e_fixture.h"

namespace camrelay::e2e {
namespace {

namespace fs = std::filesystem;

const char* const kProgrammingTables[] = {"Ingressi", "MMS", "NumTel", "CanaliVideo", "Alimentazione",
                                          "ImpostazioniVideo"};

// Every byte value, then a run that makes the size no multiple of a packet.
std::string AllByteValues(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>((i * 7 + i / 256) % 256);
  return bytes;
}

// The first file of a folder with that extension.
fs::path FirstFile(const fs::path& folder, const std::string& extension) {
  for (const auto& entry : fs::directory_iterator(folder))
    if (entry.path().extension() == extension) return entry.path();
  ADD_FAILURE() << "no " << extension << " file in " << folder;
  return {};
}

int CountFiles(const fs::path& folder, const std::string& prefix) {
  return static_cast<int>(std::count_if(fs::directory_iterator(folder), fs::directory_iterator(), [&](const auto& e) {
    return e.path().filename().string().starts_with(prefix);
  }));
}

class Session : public EndToEnd, public ::testing::WithParamInterface<Transport> {};

TEST_P(Session, DownloadsBringWhatTheUnitHolds) {
  StartUnit(GetParam());
  const fs::path snapshot = FirstFile(unitDir() / "Snapshot", ".jpg");
  const fs::path clip = FirstFile(unitDir() / "VideoAvi", ".avi");
  const Outcome run = Host({"--events", "login", "download-prog", "download-log", "download-cam-events",
                            "download-prog-cam-events", "download-wave", "download-media",
                            snapshot.filename().string(), "download-media", clip.filename().string(),
                            "request-command", "EVENTI?", "stream-image", "2", "preview", "1,3", "--images", "4"});
  ASSERT_EQ(run.exit, 0) << run.err;

  for (const char* table : kProgrammingTables) {
    EXPECT_FALSE(Rows(unitDb(), table).empty()) << table;
    EXPECT_EQ(Rows(hostDb(), table), Rows(unitDb(), table)) << table;
  }
  for (const char* table : {"CamEvents", "ProgCamEvents", "Festivita"})
    EXPECT_EQ(Rows(hostDb(), table), Rows(unitDb(), table)) << table;
  // The log is numbered by each database for itself.
  const auto log = Rows(unitDb(), "Registro_eventi", "IdRegistro");
  EXPECT_GT(log.size(), 1000u);
  EXPECT_EQ(Sorted(Rows(hostDb(), "Registro_eventi", "IdRegistro")), Sorted(log));
  EXPECT_TRUE(HasLine(run.out, "EVENTI:" + std::to_string(log.size()))) << run.out;
  EXPECT_TRUE(HasLine(run.out, "STATE 12 cRicezioneProgOK")) << run.out;

  // A voice message arrives with one zero byte more than the unit holds:
  // the library writes it so on purpose.
  int voices = 0;
  for (const auto& entry : fs::directory_iterator(unitDir() / "Audio")) {
    ++voices;
    EXPECT_EQ(FileBytes(hostDir() / "Audio" / entry.path().filename()), FileBytes(entry.path()) + '\0')
        << entry.path().filename();
  }
  EXPECT_GT(voices, 0);
  EXPECT_EQ(FileBytes(hostDir() / "Snapshot" / snapshot.filename()), FileBytes(snapshot));
  EXPECT_EQ(FileBytes(hostDir() / "VideoAvi" / clip.filename()), FileBytes(clip));

  const fs::path preview = unitDir() / "Preview";
  EXPECT_EQ(FileBytes(hostDir() / "Snapshot/stream-cam2-0001.jpg"), FileBytes(preview / "cam2.jpg"));
  // Four images, taking turns between the two cameras, then the preview stops.
  EXPECT_EQ(CountFiles(hostDir() / "Snapshot", "preview-"), 4);
  for (const char* n : {"0001", "0002"}) {
    EXPECT_EQ(FileBytes(hostDir() / "Snapshot" / (std::string("preview-cam1-") + n + ".jpg")),
              FileBytes(preview / "cam1.jpg"));
    EXPECT_EQ(FileBytes(hostDir() / "Snapshot" / (std::string("preview-cam3-") + n + ".jpg")),
              FileBytes(preview / "cam3.jpg"));
  }
}

TEST_P(Session, UploadsLeaveTheUnitHoldingWhatWasSent) {
  StartUnit(GetParam());
  const Outcome first = Host({"download-prog", "download-prog-cam-events", "download-wave"});
  ASSERT_EQ(first.exit, 0) << first.err;

  // What the host changes must come out the same on the unit: accents,
  // quotes and commas in text, a row fewer, new numbers.
  Execute(hostDb(),
          "UPDATE Ingressi SET Descrizione = 'Città ' || NumeroIngresso || ', \"varco\"';"
          "DELETE FROM NumTel WHERE Posizione = (SELECT max(Posizione) FROM NumTel);"
          "UPDATE ProgCamEvents SET SensibilitaMovimento = 7;"
          "DELETE FROM Festivita WHERE rowid = (SELECT min(rowid) FROM Festivita);");
  std::size_t size = 7000;
  for (const auto& entry : fs::directory_iterator(hostDir() / "Audio"))
    test::WriteFileBytes(entry.path(), AllByteValues(size += 1000));
  const fs::path firmware = hostDir().parent_path() / "centrale-2.1.bin";
  test::WriteFileBytes(firmware, AllByteValues(10000));

  const Outcome second =
      Host({"upload-prog", "upload-prog-cam-events", "upload-wave", "upload-firmware", firmware.string(),
            "send-command", "RIAVVIA tra 5 minuti", "erase-log", "request-command", "EVENTI?",
            "set-installer-code", "777777", "set-user-code", "888888"});
  ASSERT_EQ(second.exit, 0) << second.err;

  for (const char* table : kProgrammingTables)
    EXPECT_EQ(Rows(unitDb(), table), Rows(hostDb(), table)) << table;
  EXPECT_EQ(Rows(unitDb(), "Ingressi").front()[1], std::optional<std::string>("Città 1, \"varco\""));
  for (const char* table : {"ProgCamEvents", "Festivita"})
    EXPECT_EQ(Rows(unitDb(), table), Rows(hostDb(), table)) << table;
  // Sent files are kept by the unit exactly as sent.
  for (const auto& entry : fs::directory_iterator(hostDir() / "Audio"))
    EXPECT_EQ(FileBytes(unitDir() / "Audio" / entry.path().filename()), FileBytes(entry.path()));
  EXPECT_EQ(FileBytes(unitDir() / "Firmware" / firmware.filename()), FileBytes(firmware));
  EXPECT_EQ(FileBytes(unitDir() / "last-command.txt"), "RIAVVIA tra 5 minuti");
  EXPECT_TRUE(Rows(unitDb(), "Registro_eventi").empty());
  EXPECT_TRUE(HasLine(second.out, "EVENTI:0")) << second.out;

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
