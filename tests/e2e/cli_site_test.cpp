// camrelay as a new user meets it: the unit each working folder reaches,
// failures that end the run and say why at once, the unit's text on a
// terminal, the local port, clips played back, a mistyped command and Ctrl-C.
#include <sys/socket.h>
#include <netinet/in.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "e2e_fixture.h"

namespace camrelay::e2e {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

class NewUser : public EndToEnd {
 protected:
  // A run in `dir` that names only what is given in `link`, as a user who
  // leaves the rest out.
  Outcome In(const fs::path& dir, std::vector<std::string> args) {
    fs::create_directories(dir);
    std::vector<std::string> all{"--dir", dir.string(), "--code", code, "--local-port", "0"};
    all.insert(all.end(), timing.begin(), timing.end());
    all.insert(all.end(), args.begin(), args.end());
    return Camrelay(all);
  }

  fs::path Site(const std::string& name) const { return hostDir().parent_path() / name; }

  std::size_t Count(const std::string& text, const std::string& what) const {
    std::size_t n = 0;
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
  }
};

// A second unit on a port of its own, for the site tests.
struct SecondUnit {
  std::unique_ptr<Process> process;
  int port = 0;
  SecondUnit(const fs::path& dir, const fs::path& logs) {
    fs::create_directories(dir);
    fs::create_directories(logs);
    process = std::make_unique<Process>(
        ProgramPath("camrelay-unit"),
        std::vector<std::string>{"--dir", dir.string(), "--udp", "--port", "0", "--host", "127.0.0.1",
                                 "--exit-after", "120", "-v"},
        std::vector<std::string>{}, logs, "unitB");
    const std::string line = process->WaitFirstLine(std::chrono::seconds(10));
    if (line.starts_with("camrelay-unit listening on ")) port = std::stoi(line.substr(line.rfind(':') + 1));
  }
};

// The link options left out came from whoever ran last: siteA's programming
// went to siteB's unit. Each folder now reaches its own unit.
TEST_F(NewUser, EachSiteReachesItsOwnUnitAndAChangeNamesItsTarget) {
  StartUnit(Transport::Udp);
  SecondUnit b(Site("unitB"), Site("logs"));
  ASSERT_NE(b.port, 0) << b.process->Stderr();
  const std::string a = std::to_string(unitPort());

  ASSERT_EQ(In(Site("siteA"), {"--host", "127.0.0.1", "--port", a, "download-prog"}).exit, 0);
  ASSERT_EQ(In(Site("siteB"), {"--host", "127.0.0.1", "--port", std::to_string(b.port), "login"}).exit, 0);
  const Outcome upload = In(Site("siteA"), {"upload-prog"});
  ASSERT_EQ(upload.exit, 0) << upload.err;
  EXPECT_TRUE(upload.err.starts_with("upload-prog: sending the programming of siteA to 127.0.0.1:" + a + " udp\n"))
      << upload.err;
  EXPECT_NE(unit().Stderr().find("programming received"), std::string::npos) << "unit A got siteA's programming";
  EXPECT_EQ(b.process->Stderr().find("programming received"), std::string::npos) << "unit B got nothing";

  // A folder that remembers no unit changes none, whoever ran last.
  const Outcome fresh = In(Site("siteC"), {"erase-log"});
  EXPECT_EQ(fresh.exit, 2);
  EXPECT_NE(fresh.err.find("erase-log changes the unit, and " + Site("siteC").string() + " remembers none"),
            std::string::npos)
      << fresh.err;
}

TEST_F(NewUser, ARefusedCodeEndsTheRunAndTheRestIsNotSent) {
  StartUnit(Transport::Udp);
  code = "999999";
  const Outcome run = Host({"login", "download-prog", "download-log"});
  EXPECT_EQ(run.exit, 1);
  EXPECT_NE(run.err.find("login: the unit refused the access code (Password di accesso errata!)"),
            std::string::npos)
      << run.err;
  EXPECT_NE(run.err.find("not sent, since the access code was refused: download-prog download-log"),
            std::string::npos)
      << run.err;
  // The scrambled code, then the code as typed: no third try with it.
  EXPECT_EQ(Count(unit().Stderr(), "<- AA{}"), 2u) << unit().Stderr();
}

TEST_F(NewUser, APreviewOfACameraTheUnitLacksEndsWithTheReason) {
  StartUnit(Transport::Udp);
  const auto start = Clock::now();
  const Outcome run = Host({"preview", "8"}, std::chrono::seconds(30));
  EXPECT_EQ(run.exit, 1);
  EXPECT_NE(run.err.find("preview: camera 8: the unit answered \"Reg Error\""), std::string::npos) << run.err;
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(10));
  EXPECT_LT(Count(unit().Stderr(), "<- AA{}"), 5u) << "the camera is not asked for again and again";
}

TEST_F(NewUser, AHostThatCannotBeResolvedFailsAtOnceOnBothTransports) {
  for (const char* transport : {"--udp", "--tcp"}) {
    const auto start = Clock::now();
    const Outcome run =
        In(Site("siteN"), {transport, "--host", "nosuchhost.invalid", "--port", "19201", "login"});
    EXPECT_EQ(run.exit, 1) << transport;
    EXPECT_NE(run.err.find("cannot resolve the unit's address 'nosuchhost.invalid': "), std::string::npos)
        << run.err;
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(10)) << transport;
  }
}

TEST_F(NewUser, AGiveUpSaysWhichUnitWhichRequestAndHowFarItGot) {
  StartUnit(Transport::Udp, {"--silent-after", "40"});
  timing = {"--timeout-long", "200", "--timeout-short", "200", "--retries", "3"};
  const Outcome run = Host({"download-log"});
  EXPECT_EQ(run.exit, 1);
  const std::string expected = "camrelay: download-log: no answer from 127.0.0.1:" + std::to_string(unitPort()) +
                               " udp after 3 attempts, 40 of ";
  EXPECT_NE(run.err.find(expected), std::string::npos) << run.err;
  EXPECT_NE(run.err.find(" packets received; nothing stored"), std::string::npos) << run.err;
  EXPECT_TRUE(Rows(hostDb(), "Registro_eventi").empty());
}

TEST_F(NewUser, CommandStringsTravelInTheUnitsTextAndComeBackAsUtf8) {
  StartUnit(Transport::Udp);
  const Outcome sent = Host({"send-command", "Citt\xC3\xA0 \xE2\x82\xAC"});
  ASSERT_EQ(sent.exit, 0) << sent.err;
  EXPECT_EQ(FileBytes(unitDir() / "last-command.txt"), "Citt\xE0 \x80");
  const Outcome asked = Host({"request-command", "Citt\xC3\xA0 \x1b[2J"});
  ASSERT_EQ(asked.exit, 0) << asked.err;
  EXPECT_EQ(asked.out, "ECHO:Citt\xC3\xA0 \\x1b[2J\n");
}

TEST_F(NewUser, TheLocalPortCanBeTheSystemsPickAndOneInUseIsNamed) {
  StartUnit(Transport::Udp);
  const Outcome any = In(Site("siteL"), {"--host", "127.0.0.1", "--port", std::to_string(unitPort()), "login"});
  EXPECT_EQ(any.exit, 0) << any.err;

  const int taken = socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(bind(taken, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  socklen_t length = sizeof address;
  getsockname(taken, reinterpret_cast<sockaddr*>(&address), &length);
  const std::string port = std::to_string(ntohs(address.sin_port));
  const Outcome busy = Camrelay({"--dir", Site("siteL").string(), "--code", code, "--local-port", port, "login"});
  close(taken);
  EXPECT_EQ(busy.exit, 1);
  EXPECT_NE(busy.err.find("cannot bind the local UDP port " + port + ": "), std::string::npos) << busy.err;
  EXPECT_NE(busy.err.find("; give --local-port 0 to let the system pick a free one"), std::string::npos) << busy.err;
}

TEST_F(NewUser, AClipIsPlayedSteppedSoughtAndClosed) {
  StartUnit(Transport::Udp);
  std::string clip;
  for (const auto& entry : fs::directory_iterator(unitDir() / "VideoAvi"))
    if (entry.path().extension() == ".avi") clip = entry.path().filename().string();
  ASSERT_FALSE(clip.empty());
  const Outcome run = Host({"playback", clip, "--frames", "3", "--seek", "0.5", "--step", "2"});
  ASSERT_EQ(run.exit, 0) << run.err;
  EXPECT_NE(run.err.find("playback: 3 frames of " + clip + " saved in Snapshot/"), std::string::npos) << run.err;
  const std::string stem = fs::path(clip).stem().string();
  std::vector<std::string> frames;
  for (int i = 1; i <= 3; ++i) {
    const fs::path file = hostDir() / "Snapshot" / ("playback-" + stem + "-000" + std::to_string(i) + ".jpg");
    ASSERT_TRUE(fs::exists(file)) << file;
    frames.push_back(FileBytes(file));
    EXPECT_TRUE(frames.back().starts_with("\xFF\xD8")) << "a JPEG image";
  }
  EXPECT_NE(frames[0], frames[1]);
  EXPECT_NE(frames[1], frames[2]);
  EXPECT_NE(unit().Stderr().find("CLOSE:"), std::string::npos) << "the clip is closed at the end";

  const Outcome missing = Host({"playback", "nosuch.avi"});
  EXPECT_EQ(missing.exit, 1);
  EXPECT_NE(missing.err.find("playback: the unit answered \"Reg Error\": it has no clip nosuch.avi"),
            std::string::npos)
      << missing.err;
}

TEST_F(NewUser, AMistypedCommandGetsTheNearestAndCtrlCExits130) {
  for (const std::vector<std::string>& args :
       {std::vector<std::string>{"donwload-log"}, std::vector<std::string>{"login", "donwload-log"}}) {
    std::vector<std::string> all{"--dir", hostDir().string()};
    all.insert(all.end(), args.begin(), args.end());
    const Outcome run = Camrelay(all);
    EXPECT_EQ(run.exit, 2);
    EXPECT_EQ(run.err, "camrelay: unknown command 'donwload-log'; did you mean 'download-log'? (see camrelay --help)\n");
  }

  StartUnit(Transport::Udp);
  Process host(ProgramPath("camrelay"),
               {"--host", "127.0.0.1", "--port", std::to_string(unitPort()), "--dir", hostDir().string(), "--code",
                code, "--local-port", "0", "preview", "1", "--images", "100000"},
               {"XDG_CONFIG_HOME=" + (hostDir().parent_path() / "config").string()}, hostDir().parent_path(),
               "interrupted");
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  host.Interrupt();
  EXPECT_EQ(host.Wait(std::chrono::seconds(10)), 130) << host.Stderr();
}

}  // namespace
}  // namespace camrelay::e2e
