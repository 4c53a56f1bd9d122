// The checks every face makes before anything is sent, and the help a
// mistyped command gets.
#include <gtest/gtest.h>

#include "host/commands.h"

using namespace camrelay::host;

namespace {

std::vector<std::string> AllNames() {
  std::vector<std::string> names;
  for (const CommandInfo& info : Commands()) names.push_back(info.name);
  return names;
}

Command Checked(Op op, const std::string& name, const std::string& argument, int step = 1) {
  Command command{op, name, argument};
  command.step = step;
  CheckCommand(command);
  return command;
}

}  // namespace

TEST(NearestName, ATypoFindsTheCommandAndNonsenseFindsNone) {
  const auto names = AllNames();
  EXPECT_EQ(NearestName("donwload-log", names), "download-log");  // two letters swapped
  EXPECT_EQ(NearestName("download-logs", names), "download-log");
  EXPECT_EQ(NearestName("uplod-prog", names), "upload-prog");
  EXPECT_EQ(NearestName("loign", names), "login");
  EXPECT_EQ(NearestName("prevew", names), "preview");
  EXPECT_EQ(NearestName("frobnicate", names), "");
  EXPECT_EQ(NearestName("", names), "");
  EXPECT_EQ(NearestName(std::string(500, 'a'), names), "");
  EXPECT_EQ(NearestName("login", {}), "");
}

// The unit's text is Windows-1252: a command string it cannot carry byte for
// byte is refused before anything is sent.
TEST(CheckCommand, ACommandStringMustFitTheUnitsCharacterSet) {
  EXPECT_NO_THROW(Checked(Op::SendCommand, "send-command", "Citt\xC3\xA0 \xE2\x82\xAC"));
  EXPECT_THROW(Checked(Op::SendCommand, "send-command", "\xD0\xB6"), UsageError);          // Cyrillic
  EXPECT_THROW(Checked(Op::RequestCommand, "request-command", "Citt\xE0"), UsageError);  // not UTF-8
  EXPECT_THROW(Checked(Op::RequestCommand, "request-command", "a{}b"), UsageError);
}

TEST(CheckCommand, PlaybackTakesAClipNameAndAStepThatMoves) {
  EXPECT_NO_THROW(Checked(Op::Playback, "playback", "rec1.avi", -2));
  for (const std::string bad : {"rec1.mp4", "../rec1.avi", "sub/rec1.avi", "PAUSE:.avi", ""})
    EXPECT_THROW(Checked(Op::Playback, "playback", bad), UsageError) << bad;
  EXPECT_THROW(Checked(Op::Playback, "playback", "rec1.avi", 0), UsageError);
}
