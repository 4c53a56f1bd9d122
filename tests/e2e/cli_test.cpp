// camrelay as a shell sees it: bad input refused before the unit hears a
// thing, the access code never shown, the link remembered between runs, the
// local database commands.
#include <algorithm>

#include "e2e_fixture.h"

namespace camrelay::e2e {
namespace {

namespace fs = std::filesystem;

// CSV as RFC 4180 writes it; an empty field becomes nullopt (Null), "" an
// empty text.
std::vector<Row> ParseCsv(const std::string& text) {
  std::vector<Row> rows(1);
  std::optional<std::string> field;
  bool quoted = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (quoted) {
      if (c != '"') {
        *field += c;
      } else if (i + 1 < text.size() && text[i + 1] == '"') {
        *field += '"';
        ++i;
      } else {
        quoted = false;
      }
    } else if (c == '"') {
      quoted = true;
      field = field.value_or("");
    } else if (c == ',') {
      rows.back().push_back(std::exchange(field, std::nullopt));
    } else if (c == '\r' && i + 1 < text.size() && text[i + 1] == '\n') {
      rows.back().push_back(std::exchange(field, std::nullopt));
      rows.emplace_back();
      ++i;
    } else {
      field = field.value_or("") + c;
    }
  }
  rows.pop_back();  // after the last line end
  return rows;
}

class CommandLine : public EndToEnd {};

TEST_F(CommandLine, BadInputIsRefusedBeforeAnythingIsSent) {
  StartUnit(Transport::Udp);
  const std::vector<std::vector<std::string>> bad = {
      {"login", "upload-firmware", (hostDir() / "no-such.bin").string()},
      {"login", "reboot-unit"},
      {"login", "download-media", "../VideoSentrova.db"},
      {"login", "download-media", "/etc/passwd"},
      {"login", "--local-port", "70000"},
      {"login", "stream-image", "32"},
      {"login", "set-user-code", "1234567"},
      {"upload-prog"},  // from a database that does not exist
  };
  for (const auto& args : bad) {
    const Outcome run = Host(args);
    EXPECT_EQ(run.exit, 2) << args.back();
    EXPECT_TRUE(run.err.starts_with("camrelay: ")) << run.err;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
  }
  const Outcome none = Camrelay({"--dir", hostDir().string()});
  EXPECT_EQ(none.exit, 2);
  // The unit, which reports every message it receives, heard nothing.
  EXPECT_EQ(unit().Stderr().find("<- "), std::string::npos) << unit().Stderr();
  EXPECT_FALSE(fs::exists(hostDb()));
}

// A bare "camrelay" is someone finding out what it does: a few lines naming
// every command, on standard error since nothing was done.
TEST_F(CommandLine, BareCommandShowsAShortUsage) {
  const Outcome bare = Camrelay({});
  EXPECT_EQ(bare.exit, 2);
  EXPECT_EQ(bare.out, "");
  EXPECT_NE(bare.err.find("\nUsage: camrelay [OPTIONS] COMMAND"), std::string::npos) << bare.err;
  const auto list = bare.err.find("\nCommands: ");
  ASSERT_NE(list, std::string::npos) << bare.err;
  const std::string commands = bare.err.substr(list, bare.err.find('\n', list + 1) - list) + ",";
  for (const char* command : {"login", "download-prog", "preview", "db"})
    EXPECT_NE(commands.find(std::string(" ") + command + ","), std::string::npos) << command << bare.err;
  EXPECT_LE(std::count(bare.err.begin(), bare.err.end(), '\n'), 4) << bare.err;
}

// Tables that are all empty would erase the unit's programming: they are
// sent only when asked for in so many words.
TEST_F(CommandLine, EmptyTablesAreSentOnlyWithAllowEmpty) {
  StartUnit(Transport::Udp);
  ASSERT_EQ(Camrelay({"--dir", hostDir().string(), "db", "init"}).exit, 0);
  for (const char* upload : {"upload-prog", "upload-prog-cam-events"}) {
    const Outcome refused = Host({upload});
    EXPECT_EQ(refused.exit, 2) << upload;
    EXPECT_EQ(refused.err, std::string("camrelay: ") + upload +
                               ": the tables to send are all empty, which would erase the unit's own; give "
                               "--allow-empty to send them all the same\n");
  }
  EXPECT_EQ(unit().Stderr().find("<- "), std::string::npos) << unit().Stderr();
  ASSERT_FALSE(Rows(unitDb(), "Ingressi").empty());
  const Outcome sent = Host({"upload-prog", "--allow-empty"});
  EXPECT_EQ(sent.exit, 0) << sent.err;
  EXPECT_TRUE(Rows(unitDb(), "Ingressi").empty());
}

TEST_F(CommandLine, AccessCodeIsNeverPrinted) {
  StartUnit(Transport::Udp, {"--code", "Zq9xw1"});
  code = "";
  env = {"CAMRELAY_CODE=Zq9xw1"};
  // The unit echoes what it does not know: the code comes back in the answer.
  const Outcome run = Host({"-v", "--events", "login", "request-command", "Zq9xw1", "set-user-code", "Ab3De4",
                            "request-command", "nuovo Ab3De4"});
  ASSERT_EQ(run.exit, 0) << run.err;
  EXPECT_TRUE(HasLine(run.out, "ECHO:******")) << run.out;
  EXPECT_TRUE(HasLine(run.out, "ECHO:nuovo ******")) << run.out;
  for (const char* secret : {"Zq9xw1", "Ab3De4"}) {
    EXPECT_EQ(run.out.find(secret), std::string::npos) << run.out;
    EXPECT_EQ(run.err.find(secret), std::string::npos) << run.err;
  }
}

TEST_F(CommandLine, LinkOptionsLeftOutComeFromTheLastRun) {
  StartUnit(Transport::Udp);
  const Outcome first = Host({"login"});
  ASSERT_EQ(first.exit, 0) << first.err;
  const std::string settings = FileBytes(hostDir().parent_path() / "config/CamRelay/settings.ini");
  EXPECT_NE(settings.find("RemotePort=" + std::to_string(unitPort())), std::string::npos) << settings;
  EXPECT_NE(settings.find("RemoteHost=127.0.0.1"), std::string::npos) << settings;
  const Outcome second = Camrelay({"--dir", hostDir().string(), "--code", code, "login"});
  EXPECT_EQ(second.exit, 0) << second.err;
}

TEST_F(CommandLine, LocalDatabaseCommands) {
  const std::vector<std::string> local = {"--dir", hostDir().string(), "db"};
  auto db = [&](std::vector<std::string> args) {
    args.insert(args.begin(), local.begin(), local.end());
    return Camrelay(args);
  };
  const Outcome missing = db({"dump", "Ingressi"});
  EXPECT_EQ(missing.exit, 2);
  EXPECT_FALSE(fs::exists(hostDb())) << "reading must not create a database";
  ASSERT_EQ(db({"init"}).exit, 0);
  const Outcome empty = db({"dump", "Festivita"});
  EXPECT_EQ(empty.exit, 0);
  EXPECT_EQ(empty.out, "Data,Descrizione,Ricorrente\r\n");
  EXPECT_EQ(db({"dump", "Nessuna"}).exit, 2);

  StartUnit(Transport::Udp);
  ASSERT_EQ(Host({"download-log"}).exit, 0);
  const fs::path csv = hostDir() / "log.csv";
  ASSERT_EQ(db({"export-log", "-o", csv.string()}).exit, 0);
  std::vector<Row> rows = ParseCsv(FileBytes(csv));
  ASSERT_FALSE(rows.empty());
  EXPECT_EQ(rows.front().front(), std::optional<std::string>("IdRegistro"));
  rows.erase(rows.begin());
  // Oldest first, and every event of the unit's log there once.
  EXPECT_TRUE(std::is_sorted(rows.begin(), rows.end(), [](const Row& a, const Row& b) { return a[1] < b[1]; }));
  for (Row& row : rows) row.erase(row.begin());
  EXPECT_EQ(Sorted(rows), Sorted(Rows(unitDb(), "Registro_eventi", "IdRegistro")));
}

}  // namespace
}  // namespace camrelay::e2e
