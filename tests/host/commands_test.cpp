// The checks every face makes before anything is sent, and the help a
// mistyped command gets.
#include <gtest/gtest.h>

#include "host/commands.h"

using namespace camrelay::host;

namespace {

Command Make(Op op, const std::string& argument, int step = 1) {
  Command command{op, "command", argument};
  command.step = step;
  return command;
}

}  // namespace

TEST(NearestName, ATypoFindsTheCommandAndNonsenseFindsNone) {
  std::vector<std::string> names;
  for (const CommandInfo& info : Commands()) names.push_back(info.name);
  const std::pair<std::string, const char*> cases[] = {
      {"donwload-log", "download-log"}, {"download-logs", "download-log"}, {"uplod-prog", "upload-prog"},
      {"loign", "login"}, {"prevew", "preview"}, {"frobnicate", ""}, {"", ""}, {std::string(500, 'a'), ""}};
  for (const auto& [typed, nearest] : cases) EXPECT_EQ(NearestName(typed, names), nearest) << typed;
  EXPECT_EQ(NearestName("login", {}), "");
}

// The unit's text is Windows-1252: a command string it cannot carry byte for
// byte is refused before anything is sent. A clip is a bare AVI name, and a
// step of 0 would show the same frame for ever.
TEST(CheckCommand, RefusesWhatTheUnitCannotTakeBeforeAnythingIsSent) {
  for (Command good : {Make(Op::SendCommand, "Citt\xC3\xA0 \xE2\x82\xAC"), Make(Op::Playback, "rec1.avi", -2)})
    EXPECT_NO_THROW(CheckCommand(good)) << good.argument;
  for (Command bad : {Make(Op::SendCommand, "\xD0\xB6"), Make(Op::RequestCommand, "Citt\xE0"),
                      Make(Op::RequestCommand, "a{}b"), Make(Op::Playback, "rec1.avi", 0),
                      Make(Op::Playback, "rec1.mp4"), Make(Op::Playback, "../rec1.avi"),
                      Make(Op::Playback, "sub/rec1.avi"), Make(Op::Playback, "PAUSE:.avi"), Make(Op::Playback, "")})
    EXPECT_THROW(CheckCommand(bad), UsageError) << bad.argument << " step " << bad.step;
}
