// camrelay as a shell sees it: bad input refused before the unit hears a
// thing, the local database commands.
#include <algorithm>

#include "e2e_fixture.h"

namespace camrelay::e2e {
namespace {

namespace fs = std::filesystem;

class CommandLine : public EndToEnd {};

// Input that cannot be served is refused before the unit hears a thing:
// exit status 2 and one line saying why. The local database commands read
// and export what the unit's commands stored.
TEST_F(CommandLine, BadInputIsRefusedBeforeAnythingIsSentAndTheDatabaseIsReadLocally) {
  StartUnit(Transport::Udp);
  const std::string mistyped =
      "camrelay: unknown command 'donwload-log'; did you mean 'download-log'? (see camrelay --help)\n";
  const std::vector<std::pair<std::vector<std::string>, std::string>> bad = {
      {{"login", "upload-firmware", (hostDir() / "no-such.bin").string()}, ""},
      {{"login", "reboot-unit"}, ""},
      {{"login", "download-media", "../VideoSentrova.db"}, ""},
      {{"login", "--local-port", "70000"}, ""},
      {{"login", "stream-image", "32"}, ""},
      {{"login", "set-user-code", "1234567"}, ""},
      {{"upload-prog"}, ""},  // from a database that does not exist
      {{"donwload-log"}, mistyped},
      {{"login", "donwload-log"}, mistyped},
  };
  for (const auto& [args, message] : bad) {
    SCOPED_TRACE(args.back());
    const Outcome run = Host(args);
    EXPECT_EQ(run.exit, 2);
    EXPECT_TRUE(run.err.starts_with("camrelay: ")) << run.err;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
    EXPECT_TRUE(message.empty() || run.err == message) << run.err;
  }
  // A bare "camrelay" is someone finding out what it does: a few lines
  // naming every command, on standard error since nothing was done.
  const Outcome bare = Camrelay({"--dir", hostDir().string()});
  EXPECT_EQ(bare.exit, 2);
  EXPECT_EQ(bare.out, "");
  EXPECT_NE(bare.err.find("\nUsage: camrelay [OPTIONS] COMMAND"), std::string::npos) << bare.err;
  EXPECT_NE(bare.err.find(" download-log, ", bare.err.find("\nCommands: ")), std::string::npos) << bare.err;
  EXPECT_LE(std::count(bare.err.begin(), bare.err.end(), '\n'), 4) << bare.err;
  auto db = [&](std::vector<std::string> args) {
    args.insert(args.begin(), {"--dir", hostDir().string(), "db"});
    return Camrelay(args);
  };
  EXPECT_EQ(db({"dump", "Ingressi"}).exit, 2);
  EXPECT_FALSE(fs::exists(hostDb())) << "refused input and a read create no database";
  ASSERT_EQ(db({"init"}).exit, 0);
  const Outcome empty = db({"dump", "Festivita"});
  EXPECT_EQ(empty.exit, 0);
  EXPECT_EQ(empty.out, "Data,Descrizione,Ricorrente\r\n");
  EXPECT_EQ(db({"dump", "Nessuna"}).exit, 2);

  // Tables that are all empty would erase the unit's programming: they are
  // sent only when asked for in so many words.
  for (const char* upload : {"upload-prog", "upload-prog-cam-events"}) {
    const Outcome refused = Host({upload});
    EXPECT_EQ(refused.exit, 2) << upload;
    EXPECT_EQ(refused.err, std::string("camrelay: ") + upload +
                               ": the tables to send are all empty, which would erase the unit's own; give "
                               "--allow-empty to send them all the same\n");
  }
  // The unit, which reports every message it receives, heard nothing.
  EXPECT_EQ(unit().Stderr().find("<- "), std::string::npos) << unit().Stderr();
  ASSERT_FALSE(Rows(unitDb(), "Ingressi").empty());
  const Outcome sent = Host({"upload-prog", "--allow-empty"});
  EXPECT_EQ(sent.exit, 0) << sent.err;
  EXPECT_TRUE(Rows(unitDb(), "Ingressi").empty());

  // The log exported oldest first, the table's rows there once each.
  ASSERT_EQ(Host({"download-log"}).exit, 0);
  const fs::path csv = hostDir() / "log.csv";
  ASSERT_EQ(db({"export-log", "-o", csv.string()}).exit, 0);
  auto lines = [](std::string text) {
    std::vector<std::string> all;
    for (std::size_t end; (end = text.find("\r\n")) != std::string::npos; text.erase(0, end + 2))
      all.push_back(text.substr(0, end));
    return all;
  };
  std::vector<std::string> exported = lines(FileBytes(csv)), table = lines(db({"dump", "Registro_eventi"}).out);
  ASSERT_EQ(exported.size(), Rows(unitDb(), "Registro_eventi").size() + 1);
  // The date is the second field.
  auto date = [](const std::string& line) {
    const auto at = line.find(',');
    return line.substr(at, line.find(',', at + 1) - at);
  };
  EXPECT_TRUE(
      std::is_sorted(exported.begin() + 1, exported.end(), [&](auto& a, auto& b) { return date(a) < date(b); }));
  std::sort(exported.begin() + 1, exported.end());
  std::sort(table.begin() + 1, table.end());
  EXPECT_EQ(exported, table);
}

}  // namespace
}  // namespace camrelay::e2e
