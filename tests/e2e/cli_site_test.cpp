// camrelay as a new user meets it: the unit each working folder reaches,
// failures that end the run and say why at once, the access code kept
// secret, the local port, clips played back and Ctrl-C.
#include <boost/asio.hpp>
#include <chrono>
#include <csignal>
#include <set>
#include <thread>

#include "e2e_fixture.h"

namespace camrelay::e2e {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

class NewUser : public EndToEnd {
 protected:
  // A run in `dir` that names only what is given, as a user who leaves the
  // rest out; the system picks the local port.
  Outcome In(const fs::path& dir, std::vector<std::string> args) {
    fs::create_directories(dir);
    std::vector<std::string> all{"--dir", dir.string(), "--code", code, "--local-port", "0"};
    all.insert(all.end(), timing.begin(), timing.end());
    all.insert(all.end(), args.begin(), args.end());
    return Camrelay(all);
  }

  fs::path Site(const std::string& name) const { return hostDir().parent_path() / name; }
  // How many times the unit was asked for its opening.
  long Openings() {
    const std::string err = unit().Stderr();
    long n = 0;
    for (auto at = err.find("<- AA{}"); at != std::string::npos; at = err.find("<- AA{}", at + 1)) ++n;
    return n;
  }
};

// The link options left out came from whoever ran last: siteA's programming
// went to siteB's unit. Each folder now reaches its own unit.
TEST_F(NewUser, EachSiteReachesItsOwnUnitAndAChangeNamesItsTarget) {
  StartUnits(2);
  const std::string a = std::to_string(ports(1).udp);
  ASSERT_EQ(In(Site("siteA"), {"--host", "127.0.0.1", "--port", a, "download-prog"}).exit, 0);
  // The last link is also kept for the settings the library shares.
  const std::string settings = FileBytes(Site("config/CamRelay/settings.ini"));
  EXPECT_NE(settings.find("RemotePort=" + a), std::string::npos) << settings;
  EXPECT_NE(settings.find("RemoteHost=127.0.0.1"), std::string::npos) << settings;
  ASSERT_EQ(In(Site("siteB"), {"--host", "127.0.0.1", "--port", std::to_string(ports(2).udp), "login"}).exit, 0);

  const auto unitB = Rows(UnitDb(2), "Ingressi");
  Execute(Site("siteA/VideoSentrova.db"), "UPDATE Ingressi SET Descrizione = 'di siteA'");
  const Outcome upload = In(Site("siteA"), {"upload-prog"});
  ASSERT_EQ(upload.exit, 0) << upload.err;
  EXPECT_TRUE(upload.err.starts_with("upload-prog: sending the programming of siteA to 127.0.0.1:" + a + " udp\n"))
      << upload.err;
  EXPECT_EQ(Rows(UnitDb(1), "Ingressi"), Rows(Site("siteA/VideoSentrova.db"), "Ingressi"));
  EXPECT_EQ(Rows(UnitDb(2), "Ingressi"), unitB) << "unit 2 got siteA's programming";

  // A folder that remembers no unit changes none, whoever ran last.
  const Outcome fresh = In(Site("siteC"), {"erase-log"});
  EXPECT_EQ(fresh.exit, 2);
  EXPECT_NE(fresh.err.find("erase-log changes the unit, and " + Site("siteC").string() + " remembers none"),
            std::string::npos)
      << fresh.err;
}

// A refused code ends the run: the scrambled code, then the code as typed,
// and no third try with it. A command string travels in the unit's
// character set and comes back as UTF-8 with its controls escaped. The
// access code never shows, though the unit echoes what it does not know,
// the code with it. This unit says "OK" to a command string's last element
// before its answer, which is waited for.
TEST_F(NewUser, ARefusedCodeEndsTheRunTextsTravelInTheUnitsCharacterSetAndTheCodeIsNeverPrinted) {
  StartUnit(Transport::Udp, {"--code", "Zq9xw1", "--ok-before-answer"});
  code = "999999";
  const Outcome refused = Host({"login", "download-prog", "download-log"});
  EXPECT_EQ(refused.exit, 1);
  EXPECT_NE(refused.err.find("login: the unit refused the access code (Password di accesso errata!)"),
            std::string::npos)
      << refused.err;
  EXPECT_NE(refused.err.find("not sent, since the access code was refused: download-prog download-log"),
            std::string::npos)
      << refused.err;
  EXPECT_EQ(Openings(), 2) << unit().Stderr();

  code = "";
  env = {"CAMRELAY_CODE=Zq9xw1"};
  const Outcome run = Host({"-v", "--events", "login", "request-command", "Zq9xw1", "set-user-code", "Ab3De4",
                            "request-command", "nuovo Ab3De4", "send-command", "Citt\xC3\xA0 \xE2\x82\xAC",
                            "request-command", "Citt\xC3\xA0 \x1b[2J"});
  ASSERT_EQ(run.exit, 0) << run.err;
  EXPECT_TRUE(HasLine(run.out, "ECHO:******")) << run.out;
  EXPECT_TRUE(HasLine(run.out, "ECHO:nuovo ******")) << run.out;
  EXPECT_TRUE(HasLine(run.out, "ECHO:Citt\xC3\xA0 \\x1b[2J")) << run.out;
  EXPECT_EQ(FileBytes(unitDir() / "last-command.txt"), "Citt\xE0 \x80");
  for (const char* secret : {"Zq9xw1", "Ab3De4"}) {
    EXPECT_EQ(run.out.find(secret), std::string::npos) << run.out;
    EXPECT_EQ(run.err.find(secret), std::string::npos) << run.err;
  }
}

// An address that does not resolve ends the run before any command; a unit
// that refuses the connection fails each command. Either ends at once,
// whatever the retries, and says why; so does a local port in use, which
// names the way out.
TEST_F(NewUser, AUnitThatCannotBeReachedOrALocalPortInUseFailsAtOnce) {
  boost::asio::io_context io;
  const boost::asio::ip::udp::socket taken(io, {boost::asio::ip::make_address("127.0.0.1"), 0});
  const std::string port = std::to_string(taken.local_endpoint().port());
  const std::string unresolved = "camrelay: cannot resolve the unit's address 'nosuchhost.invalid': ";
  const std::vector<std::pair<std::vector<std::string>, std::vector<std::string>>> cases{
      {{"--udp", "--host", "nosuchhost.invalid"}, {unresolved}},
      {{"--tcp", "--host", "nosuchhost.invalid"}, {unresolved}},
      {{"--tcp", "--host", "127.0.0.1"}, {"camrelay: login: ", "camrelay: download-log: "}},
      {{"--udp", "--host", "127.0.0.1", "--local-port", port},
       {"camrelay: cannot bind the local UDP port " + port + ": ",
        "; give --local-port 0 to let the system pick a free one"}},
  };
  for (auto [args, messages] : cases) {
    SCOPED_TRACE(args[0] + " " + args[2]);
    args.insert(args.end(), {"--dir", hostDir().string(), "--code", code, "--port", std::to_string(ClosedTcpPort()),
                             "login", "download-log"});
    const auto start = Clock::now();
    const Outcome run = Camrelay(args);
    EXPECT_EQ(run.exit, 1);
    EXPECT_TRUE(run.err.starts_with(messages[0])) << run.err;
    EXPECT_NE(run.err.find(messages.back()), std::string::npos) << run.err;
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(10));
  }
}

// What the unit does not have ends the run with its answer, at once: a
// camera is not asked for again and again. Ctrl-C ends a run with 130.
TEST_F(NewUser, AClipIsPlayedSteppedSoughtAndClosedAndWhatTheUnitLacksIsNamed) {
  StartUnit(Transport::Udp);
  const auto start = Clock::now();
  const Outcome camera = Host({"preview", "8"}, std::chrono::seconds(30));
  EXPECT_EQ(camera.exit, 1);
  EXPECT_NE(camera.err.find("preview: camera 8: the unit answered \"Reg Error\""), std::string::npos) << camera.err;
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(10));
  EXPECT_LT(Openings(), 5);
  const Outcome missing = Host({"playback", "nosuch.avi"});
  EXPECT_EQ(missing.exit, 1);
  EXPECT_NE(missing.err.find("playback: the unit answered \"Reg Error\": it has no clip nosuch.avi"),
            std::string::npos)
      << missing.err;

  const std::string clip = FirstFile(unitDir() / "VideoAvi", ".avi").filename().string();
  const Outcome run = Host({"playback", clip, "--frames", "3", "--seek", "0.5", "--step", "2"});
  ASSERT_EQ(run.exit, 0) << run.err;
  EXPECT_NE(run.err.find("playback: 3 frames of " + clip + " saved in Snapshot/"), std::string::npos) << run.err;
  const std::string frame = "Snapshot/playback-" + fs::path(clip).stem().string() + "-000";
  std::set<std::string> frames;
  for (const char* number : {"1", "2", "3"}) frames.insert(FileBytes(hostDir() / (frame + number + ".jpg")));
  EXPECT_EQ(frames.size(), 3u) << "three frames, none the same";
  EXPECT_NE(unit().Stderr().find("CLOSE:"), std::string::npos) << "the clip is closed at the end";

  const auto host = Launch(HostArguments({"preview", "1", "--images", "100000"}), "interrupted");
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  host->Signal(SIGINT);
  EXPECT_EQ(host->Wait(std::chrono::seconds(10)), 130) << host->Stderr();
}

}  // namespace
}  // namespace camrelay::e2e
