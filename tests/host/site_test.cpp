// A working folder remembers its unit, and a command that changes a unit
// reaches only the one named on the command line or remembered there. The
// line naming the target is checked end to end by the command line's tests.
#include <gtest/gtest.h>

#include "host/site.h"
#include "temp_dir.h"

using namespace camrelay::host;
using camrelay::test::WriteFileBytes;

namespace {

struct SiteFixture : ::testing::Test {
  camrelay::test::TempDir dir;

  // The link options after `op`, run with `given` of them on the command line.
  LinkOptions Applied(Op op, GivenOptions given = {}, const std::string& host = "", int port = 0) {
    LinkOptions link;
    link.dir = dir.path().string();
    link.host = host;
    link.port = port;
    ApplySite(link, given, {Command{op, "cmd", ""}});
    return link;
  }
};

}  // namespace

// A folder that remembers no unit is refused a change, and a remembered
// unit's address reaches it, end to end.
TEST_F(SiteFixture, AChangeGoesOnlyToAUnitNamedOrRemembered) {
  // Reading leaves the options to the settings file, as it always did.
  EXPECT_EQ(Applied(Op::DownloadLog).host, "");
  // A host named without its port gets the first-run port, not the last one
  // used, and a site of another host says nothing of it.
  EXPECT_EQ(Applied(Op::EraseLog, GivenOptions{true, false, false, false}, "10.0.0.9").port, 19201);
  RememberSite(dir.path(), SiteUnit{"10.0.0.7", 19300, 14500, true});
  EXPECT_EQ(Applied(Op::UploadFirmware, GivenOptions{true, false, false, false}, "10.0.0.8").port, 19201);

  const LinkOptions remembered = Applied(Op::UploadProg);
  EXPECT_EQ(remembered.localPort, 14500);
  EXPECT_TRUE(remembered.tcp);
  // What is given wins; the rest still comes from the site of that host.
  const LinkOptions given = Applied(Op::UploadProg, GivenOptions{true, true, false, true}, "10.0.0.7", 2000);
  EXPECT_EQ(given.port, 2000);
  EXPECT_EQ(given.localPort, 14500);
  EXPECT_FALSE(given.tcp);
}

TEST_F(SiteFixture, ASiteFileThatIsNotOneIsRefusedByName) {
  for (const std::string& bad : std::vector<std::string>{"Host=\x1b[2J\nPort=1\n", "Host=a\nPort=70000\n", "Host=a\n",
                                                       "Host=a\nPort=1\nTransport=sctp\n", std::string(10000, 'x')}) {
    WriteFileBytes(dir.path() / kSiteFile, bad);
    try {
      ReadSite(dir.path());
      ADD_FAILURE() << bad;
    } catch (const UsageError& e) {
      EXPECT_NE(std::string(e.what()).find(kSiteFile), std::string::npos) << e.what();
    }
  }
}
