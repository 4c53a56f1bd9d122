// A working folder remembers its unit, and a command that changes a unit
// reaches only the one named on the command line or remembered there.
#include <gtest/gtest.h>

#include "host/site.h"
#include "temp_dir.h"

using namespace camrelay::host;
using camrelay::test::ReadFileBytes;
using camrelay::test::TempDir;
using camrelay::test::WriteFileBytes;

namespace {

struct SiteFixture : ::testing::Test {
  TempDir dir;
  LinkOptions link;
  SiteFixture() { link.dir = dir.path().string(); }

  std::vector<Command> Run(Op op) { return {Command{op, "cmd", ""}}; }
};

}  // namespace

TEST_F(SiteFixture, WhatASiteRemembersFillsTheOptionsLeftOut) {
  RememberSite(dir.path(), SiteUnit{"10.0.0.7", 19300, 14500, true});
  EXPECT_EQ(ReadSite(dir.path())->host, "10.0.0.7");
  ApplySite(link, GivenOptions{}, Run(Op::UploadProg));
  EXPECT_EQ(link.host, "10.0.0.7");
  EXPECT_EQ(link.port, 19300);
  EXPECT_EQ(link.localPort, 14500);
  EXPECT_TRUE(link.tcp);

  // What is given wins; the rest still comes from the site of that host.
  LinkOptions given;
  given.dir = link.dir;
  given.host = "10.0.0.7";
  given.port = 2000;
  ApplySite(given, GivenOptions{true, true, false, true}, Run(Op::UploadProg));
  EXPECT_EQ(given.port, 2000);
  EXPECT_EQ(given.localPort, 14500);
  EXPECT_FALSE(given.tcp);
}

TEST_F(SiteFixture, AChangeGoesOnlyToAUnitNamedOrRemembered) {
  EXPECT_THROW(ApplySite(link, GivenOptions{}, Run(Op::UploadProg)), UsageError);
  EXPECT_THROW(ApplySite(link, GivenOptions{false, true, false, false}, Run(Op::SetUserCode)), UsageError);
  // Reading leaves the options to the settings file, as it always did.
  EXPECT_NO_THROW(ApplySite(link, GivenOptions{}, Run(Op::DownloadLog)));
  EXPECT_EQ(link.host, "");
  EXPECT_EQ(link.port, 0);
  // A host named without its port gets the first-run port, not the last one used.
  link.host = "10.0.0.9";
  ApplySite(link, GivenOptions{true, false, false, false}, Run(Op::EraseLog));
  EXPECT_EQ(link.port, 19201);
  // A site of another host says nothing of the host given.
  RememberSite(dir.path(), SiteUnit{"10.0.0.7", 19300, 0, false});
  LinkOptions other;
  other.dir = link.dir;
  other.host = "10.0.0.8";
  ApplySite(other, GivenOptions{true, false, false, false}, Run(Op::UploadFirmware));
  EXPECT_EQ(other.port, 19201);
}

TEST_F(SiteFixture, ASiteFileThatIsNotOneIsRefusedByName) {
  for (const std::string bad : {"Host=\x1b[2J\nPort=1\n", "Host=a\nPort=70000\n", "Host=a\n", "junk\n",
                                "Host=a\nPort=1\nTransport=sctp\n"}) {
    WriteFileBytes(dir.path() / kSiteFile, bad);
    try {
      ReadSite(dir.path());
      ADD_FAILURE() << bad;
    } catch (const UsageError& e) {
      EXPECT_NE(std::string(e.what()).find(kSiteFile), std::string::npos) << e.what();
    }
  }
  WriteFileBytes(dir.path() / kSiteFile, std::string(10000, 'x'));
  EXPECT_THROW(ReadSite(dir.path()), UsageError);
  std::filesystem::remove(dir.path() / kSiteFile);
  EXPECT_FALSE(ReadSite(dir.path()));
}

TEST(TargetLine, NamesTheSiteAndTheUnit) {
  EXPECT_EQ(TargetLine(Command{Op::UploadProg, "upload-prog", ""}, "/data/siteA", "10.0.0.7:19201 udp"),
            "upload-prog: sending the programming of siteA to 10.0.0.7:19201 udp");
  EXPECT_EQ(TargetLine(Command{Op::EraseLog, "erase-log", ""}, "/data/siteA", "10.0.0.7:19201 udp"),
            "erase-log: erasing the event log of siteA's unit, 10.0.0.7:19201 udp");
  EXPECT_FALSE(ChangesUnit(Op::DownloadProg));
  EXPECT_TRUE(ChangesUnit(Op::UploadFirmware));
}
