// A lossy soak: every download and every upload over UDP with 20 % of the
// datagrams lost, 10 % of the data packets repeated and 10 % reordered, over
// ten seeds, with a generous retry limit. Every run must end within its
// bound, and each of its commands either exact (what arrived equals the
// other side) or failed (what was there before is untouched). On such a
// link nearly every command ends exact, so every command also goes over a
// link that loses so much that the retries run out: it must end failed,
// never hang nor damage.
#include <cstdio>

#include "e2e_fixture.h"

namespace camrelay::e2e {
namespace {

// Past the retries with room to spare.
constexpr auto kRunLimit = std::chrono::seconds(120);

class LossySoak : public EndToEnd {
 protected:
  void SetUp() override {
    timing = {"--timeout-long", "150", "--timeout-short", "150", "--retries", "100"};
    // A first start gives the unit its content; its log is cut so that a run
    // takes seconds, not minutes, on a link this bad.
    StartUnit(Transport::Udp);
    unit().Stop();
    Execute(unitDb(), "DELETE FROM Registro_eventi WHERE rowid > 400");
  }

  // Runs the commands of the checks at once and judges each.
  Outcome Run(const std::vector<Check>& checks, int seed) {
    const Outcome run = Host(Commands(checks), kRunLimit);
    EXPECT_TRUE(run.exit) << "the run did not end in time: " << run.err;
    int failed = 0;
    for (const Check& check : checks) {
      const std::string& command = check.args.front();
      SCOPED_TRACE(command);
      const bool failure = Failed(run, command);
      failed += failure;
      std::printf("%-26s seed %2d: %s\n", command.c_str(), seed, failure ? "failed" : "exact");
      if (!failure) {
        EXPECT_TRUE(check.exact(run)) << "it did not fail, yet what arrived differs: " << run.err;
        continue;
      }
      EXPECT_TRUE(check.untouched(run)) << "it failed and left something half done";
    }
    EXPECT_EQ(run.exit, failed ? 1 : 0) << run.err;
    return run;
  }
};

class Seeded : public LossySoak, public ::testing::WithParamInterface<int> {};

TEST_P(Seeded, EveryCommandEndsExactOrFailsLeavingThePreviousContent) {
  const std::string seed = std::to_string(GetParam());
  StartUnit(Transport::Udp, {"--loss", "20", "--dup", "10", "--reorder", "10", "--seed", seed});
  Run(DownloadChecks(), GetParam());
  Run(UploadChecks(), GetParam());
}

INSTANTIATE_TEST_SUITE_P(Lossy, Seeded, ::testing::Range(1, 11),
                         [](const auto& info) { return "Seed" + std::to_string(info.param); });

// Four datagrams of five lost, and a few retries: the retries run out, and
// every transfer of many packets fails.
TEST_F(LossySoak, ALinkThatUsesUpTheRetriesFailsLeavingThePreviousContent) {
  timing = {"--timeout-long", "150", "--timeout-short", "150", "--retries", "4"};
  StartUnit(Transport::Udp, {"--loss", "80", "--seed", "1"});
  const Outcome downloads = Run(DownloadChecks(), 1);
  const auto clip = hostDir() / "VideoAvi" / FirstFile(unitDir() / "VideoAvi", ".avi").filename();
  EXPECT_FALSE(std::filesystem::exists(clip.string() + ".part")) << "a part of a clip is left behind";
  for (const char* command : {"download-prog", "download-log", "download-media"})
    EXPECT_TRUE(GaveUp(downloads, command)) << command;
  EXPECT_TRUE(GaveUp(Run(UploadChecks(), 1), "upload-firmware"));
}

}  // namespace
}  // namespace camrelay::e2e
