// Multimedia files: written packet by packet below Snapshot/ or VideoAvi/.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "link_fixture.h"
#include "reception_support.h"

using namespace camrelay;
using camrelay::test::Accepted;
using camrelay::test::AllBytes;
using camrelay::test::LinkFixture;
using camrelay::test::ReadFileBytes;

namespace {

struct Media : ::testing::Test {
  LinkFixture f{1};
  link::frmClient& form = f.form();

  // The unit accepts the download of `name` announcing `packets` packets, as
  // the acceptance leaves the link: the count already at 1.
  void accept(const std::string& name, int packets) {
    form.NomeFileMultimedia = name;
    Accepted(form, "56", packets, "56");
    form.nPacchetti = 1;
  }
  // Plays a whole download: every chunk, then the closing packet.
  void download(const std::string& name, const std::vector<std::string>& chunks) {
    accept(name, static_cast<int>(chunks.size()) + 1);
    for (const auto& chunk : chunks) form.WinSock_DownloadMedia("{}" + chunk);
    form.WinSock_DownloadMedia("{}");
  }
  std::filesystem::path in(const std::string& folder, const std::string& name) {
    return f.dir() / folder / name;
  }
};

}  // namespace

TEST_F(Media, NPacketsWriteTheDataOfTheFirstNMinusOne) {
  const std::vector<std::string> chunks = {AllBytes(), "{}" + AllBytes(), std::string(5, '\0')};
  accept("cam1.jpg", 4);
  std::vector<int> progress;
  for (const auto& chunk : chunks) {
    form.WinSock_DownloadMedia("{}" + chunk);
    progress.push_back(form.ProgressoMultimedia);
  }
  EXPECT_EQ(progress, (std::vector<int>{33, 67, 100}));
  form.WinSock_DownloadMedia("{}closing packet: acknowledged, never written");

  EXPECT_EQ(ReadFileBytes(in("Snapshot", "cam1.jpg")), chunks[0] + chunks[1] + chunks[2]);
  EXPECT_EQ(form.FileMultimediaSize, static_cast<int>((chunks[0] + chunks[1] + chunks[2]).size()));
  EXPECT_EQ(f.states, (std::vector<int>{cRicezioneMultimedia, cRicezioneMultimedia, cRicezioneMultimedia,
                                        cRicezioneMultimediaOK}));
  EXPECT_EQ(f.messages(), std::vector<std::string>(4, "OK"));
  EXPECT_EQ(form.Stato, cNoOperation);
  EXPECT_EQ(form.QueueLength(), 0);

  f.clearRecords();
  form.WinSock_DownloadMedia("{}stray");
  EXPECT_TRUE(f.messages().empty()) << "nothing is acknowledged past the count";
  EXPECT_TRUE(f.states.empty());
  EXPECT_EQ(ReadFileBytes(in("Snapshot", "cam1.jpg")).size(), (chunks[0] + chunks[1] + chunks[2]).size());
}

TEST_F(Media, OnlyAnExactJpgEndingIsASnapshot) {
  download("X.JPG", {"upper"});
  download("clip.avi", {"avi"});
  download("still.jpg", {"jpg"});
  EXPECT_EQ(ReadFileBytes(in("VideoAvi", "X.JPG")), "upper");
  EXPECT_EQ(ReadFileBytes(in("VideoAvi", "clip.avi")), "avi");
  EXPECT_EQ(ReadFileBytes(in("Snapshot", "still.jpg")), "jpg");
  EXPECT_FALSE(std::filesystem::exists(in("Snapshot", "X.JPG")));
}

TEST_F(Media, ARepeatedDownloadAppends) {
  download("rec.avi", {"first", "-half"});
  download("rec.avi", {"again"});
  EXPECT_EQ(ReadFileBytes(in("VideoAvi", "rec.avi")), "first-halfagain");
}

TEST_F(Media, ANameThatLeavesItsFolderWritesNothing) {
  const std::string absolute = (f.dir() / "abs.avi").string();
  for (const std::string& name : {std::string("../escape.jpg"), absolute, std::string("sub/dir.avi")}) {
    f.clearRecords();
    download(name, {"one", "two"});
    EXPECT_EQ(std::count_if(f.debug.begin(), f.debug.end(),
                            [&](const std::string& line) { return line.find(name) != std::string::npos; }),
              1)
        << name;
    EXPECT_EQ(f.states, std::vector<int>{cRicezioneMultimediaOK}) << "the unit still gets its run acknowledged";
  }
  EXPECT_FALSE(std::filesystem::exists(f.dir().path().parent_path() / "escape.jpg"));
  EXPECT_FALSE(std::filesystem::exists(absolute));
  EXPECT_FALSE(std::filesystem::exists(in("VideoAvi", "sub")));
}
